#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "app/AppEnvironment.hpp"
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

// What the rows are counted from, as the data folder holds it.
struct Reading {
    std::vector<GitHubAccount> accounts;
    std::vector<RemoteRepository> remotes;
    std::vector<RepositoryMapping> mappings;
};

// What the Accounts screen holds between one request and the next. Every action
// takes one shape: busy while its operation runs and the rows are read again.
// One action at a time: while one runs, another is refused, so that the end of
// the first cannot say "done" while the second still works. Any thread may call.
class State {
public:
    using Reader = std::function<Reading()>;

    void load(const Reader& read);
    // False, running nothing, while another action runs.
    bool act(const std::function<void()>& operation, const Reader& read);
    bool isBusy() const;
    // {didLoad, isBusy, rows}: `rows` as `accounts list --json` prints them.
    Json toJson() const;

private:
    mutable std::mutex mutex_;
    std::vector<Row> rows_;
    bool didLoad_ = false;
    bool isBusy_ = false;
};

// A token is one line; anything longer than this is not one.
inline constexpr size_t kMaxTokenBytes = 16 * 1024;

// The REST API address of a GitHub Enterprise Server as typed, without trailing
// slashes; the reason it cannot take a token when it cannot, else empty.
std::string apiAddressProblem(std::string& address);

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
// {account, problem}: the account as a check left it, and GitHub's reason when it is
// not connected (null when it is).
Json toJson(const AppEnvironment::AccountCheck& check);

}  // namespace AccountsViewModel
}  // namespace quorvane
