#pragma once

#include <string_view>
#include <vector>

#include "records/GitHubAccount.hpp"
#include "records/RemoteRepository.hpp"
#include "records/RepositoryMapping.hpp"

namespace quorvane {

// The Accounts screen: each connected account with how many repositories it
// reaches on GitHub and how many of those are linked to a tracked local one.
namespace AccountsViewModel {

struct Row {
    GitHubAccount account;
    int reposCount = 0;
    int mappedCount = 0;
    bool operator==(const Row&) const = default;
};

// One row per account, in the order given.
std::vector<Row> rows(const std::vector<GitHubAccount>& accounts,
                      const std::vector<RemoteRepository>& remotes,
                      const std::vector<RepositoryMapping>& mappings);

std::string_view statusLabel(GitHubAccount::Status status);

inline constexpr std::string_view kTitle = "Accounts";
inline constexpr std::string_view kSubtitle =
    "Your connected GitHub accounts. Tokens are stored in the Keychain.";
inline constexpr std::string_view kEmptyTitle = "No GitHub account connected.";
inline constexpr std::string_view kEmptyText =
    "Add a Personal Access Token — a read-only fine-grained one is enough — or import the "
    "active account from `gh`.";
inline constexpr std::string_view kAddButton = "Add account";
inline constexpr std::string_view kImportButton = "Import from gh";
inline constexpr std::string_view kRemovalTitle = "Remove this account?";
inline constexpr std::string_view kRemovalText =
    "Its token is deleted from the Keychain and its GitHub data is removed. This can't be "
    "undone.";
inline constexpr std::string_view kAddSheetTitle = "Add GitHub account";
inline constexpr std::string_view kAddSheetNameField = "Display name";
inline constexpr std::string_view kAddSheetTokenField = "Personal Access Token";
inline constexpr std::string_view kAddSheetNote =
    "A read-only fine-grained PAT is enough. The token is stored in the Keychain.";
inline constexpr std::string_view kCancelButton = "Cancel";
inline constexpr std::string_view kAddSheetButton = "Add";

Json toJson(const Row& row);

}  // namespace AccountsViewModel
}  // namespace quorvane
