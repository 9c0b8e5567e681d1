#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "git/ActivitySummaries.hpp"
#include "github/ActionSuggestion.hpp"
#include "github/AlignmentSummaries.hpp"
#include "github/SyncState.hpp"

// The alignment, inventory and backlog screens: what each shows, built from what
// the alignment queries answer. The command line prints them, and the dashboard
// will draw them; the texts are theirs.
namespace quorvane {

using AlignmentGroups =
    std::map<SyncState::Status, std::vector<V2RepoLine>>;  // the same as Queries

namespace GitAlignmentViewModel {

struct Entry {
    V2RepoLine line;
    std::optional<ActionSuggestion> suggestion;
    bool operator==(const Entry&) const = default;
};

struct Section {
    SyncState::Status status = SyncState::Status::unknown;
    std::vector<Entry> entries;
    bool operator==(const Section&) const = default;
};

struct View {
    std::vector<Section> sections;
    std::optional<AlignmentOverview> overview;
    bool derivedOffline = false;
    bool didLoad = false;
};

// Where a load reads from.
struct Source {
    std::function<AlignmentOverview()> overview;
    std::function<AlignmentGroups()> groups;
    std::function<AlignmentGroups()> derivedGroups;
    std::function<std::optional<ActionSuggestion>(const std::string& repoID)> suggestion;
};

// The stored groups, or the ones derived from the local scan when no sync has
// stored any (then without suggestions), in the fixed section order; synced and
// unknown repositories get no section.
View load(const Source& source);

// The statuses that get a section, in the order they are shown.
const std::vector<SyncState::Status>& sectionOrder();
std::string_view sectionTitle(SyncState::Status status);

inline constexpr std::string_view kTitle = "Git Alignment";
inline constexpr std::string_view kCountsHeading = "Local ↔ Remote";
inline constexpr std::string_view kOnGitHubLabel = "On GitHub";
inline constexpr std::string_view kLocalOnlyLabel = "Local only";
inline constexpr std::string_view kSyncedLabel = "Synced";
inline constexpr std::string_view kNeedsPushLabel = "Needs push";
inline constexpr std::string_view kNeedsPullLabel = "Needs pull";
inline constexpr std::string_view kNoUpstreamLabel = "No upstream";
inline constexpr std::string_view kDivergedLabel = "Diverged";
inline constexpr std::string_view kSubtitle =
    "Local ↔ GitHub differences, with safe commands to align them. Quorvane never runs a git "
    "command that modifies your repository on its own — you copy the commands below and run "
    "them yourself.";
inline constexpr std::string_view kDerivedMark =
    "local-derived · connect GitHub for the real state";
inline constexpr std::string_view kEmptyTitle = "Everything aligned ✨";
inline constexpr std::string_view kEmptyText =
    "Local and GitHub are in sync for every tracked repository.";
inline constexpr std::string_view kCopyCommand = "Copy Command";
inline constexpr std::string_view kOpenTerminal = "Open Terminal";
inline constexpr std::string_view kOpenInVSCode = "Open in VS Code";

Json toJson(const View& view);

}  // namespace GitAlignmentViewModel

namespace GitHubInventoryViewModel {

// The rows whose name or account holds the search text, without regard to case;
// every row for a blank search.
std::vector<InventoryRow> filtered(const std::vector<InventoryRow>& rows, std::string_view search);

std::string_view filterLabel(InventoryFilter filter);
std::string_view kindBadge(RepositoryMapping::Kind kind);

inline constexpr std::string_view kTitle = "GitHub Inventory";
inline constexpr std::string_view kCountSuffix = " repositories (remote + local).";
inline constexpr std::string_view kSearchPrompt = "Search by name or account";
inline constexpr std::string_view kFilterMenu = "Filter";
inline constexpr std::string_view kPrivateTag = "Private";
inline constexpr std::string_view kArchivedTag = "Archived";
inline constexpr std::string_view kNoMatch = "No repository matches this filter.";
inline constexpr std::string_view kNoData =
    "Add an account and run Sync to populate the inventory.";

}  // namespace GitHubInventoryViewModel

namespace RepoBacklogViewModel {

struct Item {
    std::string id;
    std::string name;
    std::string detail;  // the local folder, else the account, else "not cloned"
    bool isPrivate = false;
    bool isArchived = false;
    bool operator==(const Item&) const = default;
};

struct View {
    std::vector<Item> active, needsCleanup, remoteOnly, stale, localOnly;
    bool didLoad = false;
};

// Each inventory row in exactly one group: local-only and remote-only by kind,
// archived as stale, a repository with something to align as needing cleanup,
// other mapped ones as active, the rest as needing cleanup.
View load(const std::vector<InventoryRow>& rows, const AlignmentGroups& groups);

inline constexpr std::string_view kTitle = "Repo Backlog";
inline constexpr std::string_view kSubtitle =
    "Where every repository stands — what is active, what needs cleaning up.";
inline constexpr std::string_view kActiveTitle = "Active";
inline constexpr std::string_view kNeedsCleanupTitle = "Needs Cleanup";
inline constexpr std::string_view kRemoteOnlyTitle = "Remote Only";
inline constexpr std::string_view kStaleTitle = "Stale";
inline constexpr std::string_view kLocalOnlyTitle = "Local Only";
inline constexpr std::string_view kEmptyTitle = "Backlog is empty.";
inline constexpr std::string_view kEmptyText =
    "Connect an account and run Sync to see the repositories grouped.";

Json toJson(const View& view);

}  // namespace RepoBacklogViewModel
}  // namespace quorvane
