#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "github/ActionSuggestion.hpp"
#include "persistence/Store.hpp"
#include "records/BranchRecord.hpp"
#include "records/RepoConfig.hpp"

namespace quorvane {

// Branches: each tracked repository's branches here and on GitHub as the last sync
// merged them, with what each needs. `branches` on the command line and the
// dashboard's screen both show these rows.
namespace BranchesViewModel {

// A branch whose last commit is older than this is stale: forgotten, most likely.
inline constexpr int kStaleDays = 30;

struct Row {
    BranchRecord record;
    bool stale = false;
    // The one safe git command that tidies the branch, to run in `cwd`; nothing when
    // it needs none, or none is safe (a stale branch with unmerged work is the
    // person's to judge).
    std::optional<ActionSuggestion> suggestion;
    bool operator==(const Row&) const = default;
};

// `records` of `repo`, local ones first, then those only GitHub has, each part by
// name. `checkedOut` is the branch the working tree is on, which git will not delete;
// without a remote there is nowhere to push or fetch, so only deleting is offered.
std::vector<Row> rows(const RepoConfig& repo, std::vector<BranchRecord> records,
                      const std::string& checkedOut, bool hasRemote, Date now);

// The rows of each of `repos` from `store`, in the order given.
std::vector<Row> fromStore(const Store& store, const std::vector<const RepoConfig*>& repos,
                           Date now);

// The branch records as stored, each with "stale" and, when there is one, its
// "suggestion".
Json toJson(const std::vector<Row>& rows);

inline constexpr std::string_view kEmptyText =
    "No branches recorded yet: a sync reads them (quorvane sync, or wait for the daemon's "
    "next sync).";

}  // namespace BranchesViewModel
}  // namespace quorvane
