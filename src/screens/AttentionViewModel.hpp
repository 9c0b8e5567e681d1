#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "github/ActionSuggestion.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/Store.hpp"
#include "records/GitHubAccount.hpp"
#include "records/PendingProposal.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/SyncState.hpp"

namespace quorvane {

// Needs attention: everything that waits for the person across the tracked
// repositories, most urgent first, each with what settles it. `attention` on the
// command line and the dashboard's screen both show this one list.
namespace AttentionViewModel {

// What waits, most urgent first: work a scan has seen sitting uncommitted for days
// is the likeliest to be lost, then any uncommitted work, then commits that exist
// only here, then what others pushed, then what stops a sync from seeing GitHub,
// then an agent's proposals, which wait safely until they expire.
enum class Kind { staleWork, uncommitted, unpushed, behind, account, accountMissing, proposals };

struct Item {
    Kind kind = Kind::uncommitted;
    std::string repoID;  // empty for an account or the proposals
    std::string name;    // the repository's or the account's name; empty for the proposals
    std::string title;   // what waits, in a sentence
    int count = 0;       // the files, commits or proposals that wait; 0 for an account
    // The safe command to copy, to run in its `cwd` (empty for a quorvane command).
    std::optional<ActionSuggestion> suggestion;
    std::optional<std::string> link;  // a screen that settles it, such as "/review"
    bool operator==(const Item&) const = default;
};

struct Source {
    const AppConfig& config;
    const std::vector<RepoSnapshot>& snapshots;
    const std::vector<SyncState>& syncStates;
    const std::vector<GitHubAccount>& accounts;
    const std::vector<PendingProposal>& proposals;  // any status; the pending ones count
    Date now;
};

// Every tracked repository's waiting work and every account or proposal problem,
// by kind in the order above, repositories in configuration order within a kind.
std::vector<Item> items(const Source& source);

// The list from what the store holds now.
std::vector<Item> fromStore(const Store& store, const AppConfig& config, Date now);

// {"items": [...], "needsCommitCount", "needsPushCount", "behindCount",
// "accountProblemCount", "pendingProposalCount"}: the first three count
// repositories as today's counters do, so the two views never disagree.
Json toJson(const std::vector<Item>& items);

inline constexpr std::string_view kEmptyText =
    "Nothing waits for you: every tracked repository is committed, pushed and up to date, "
    "and no account or proposal needs a look.";

}  // namespace AttentionViewModel
}  // namespace quorvane
