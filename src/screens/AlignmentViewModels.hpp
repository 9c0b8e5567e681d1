#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/AlignmentQueries.hpp"
#include "git/ActivitySummaries.hpp"
#include "github/ActionSuggestion.hpp"
#include "github/AlignmentSummaries.hpp"
#include "records/SyncState.hpp"

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
    // The repositories whose remote is elsewhere than GitHub, listed apart (after
    // the local-only ones, under their status) whatever their own status says.
    bool otherRemote = false;
    bool operator==(const Section&) const = default;
};

// The counts at the head, taken from the very lines the sections list, so that
// each count is the number of rows under its title. `withRemote` counts the
// repositories linked to GitHub, `tracked` every tracked one with a line.
struct Overview : AlignmentOverview {
    int remoteOnly = 0;
    int otherRemote = 0;
    int accountIssues = 0;  // both account statuses: they share a title
    int branchMismatch = 0;
    bool operator==(const Overview&) const = default;
};

struct View {
    std::vector<Section> sections;
    std::optional<Overview> overview;
    bool derivedOffline = false;
    bool didLoad = false;
};

// Where a load reads from.
struct Source {
    std::function<AlignmentGroups()> groups;
    std::function<AlignmentGroups()> derivedGroups;
    std::function<std::optional<ActionSuggestion>(const std::string& repoID)> suggestion;
};

// The stored groups, or the ones derived from the local scan when no sync has
// stored any (then without suggestions), in the fixed section order, the lines
// marked otherRemote in a section of their own after the local-only ones; synced
// and unknown repositories get no section. The counts come from the same lines.
View load(const Source& source);
// The alignment queries over the data folder as `store` and `config` hold it.
Source sourceOf(const Store& store, const AppConfig& config);

// The statuses that get a section, in the order they are shown.
const std::vector<SyncState::Status>& sectionOrder();
std::string_view sectionTitle(SyncState::Status status);
// A section's title, and the name that tells it apart in JSON: its status, or
// "otherRemote".
std::string_view titleOf(const Section& section);
std::string_view keyOf(const Section& section);

inline constexpr std::string_view kTitle = "Git Alignment";
inline constexpr std::string_view kCountsHeading = "Local ↔ Remote";
inline constexpr std::string_view kOnGitHubLabel = "On GitHub";
inline constexpr std::string_view kLocalOnlyLabel = "Local only";
inline constexpr std::string_view kSyncedLabel = "Synced";
inline constexpr std::string_view kNeedsPushLabel = "Needs push";
inline constexpr std::string_view kNeedsPullLabel = "Needs pull";
inline constexpr std::string_view kNoUpstreamLabel = "No upstream";
inline constexpr std::string_view kDivergedLabel = "Diverged";
// Counts shown only when they have rows.
inline constexpr std::string_view kRemoteOnlyLabel = "Remote only";
inline constexpr std::string_view kOtherRemoteLabel = "Other remote";
inline constexpr std::string_view kAccountIssuesLabel = "Account issues";
inline constexpr std::string_view kBranchMismatchLabel = "Branch mismatch";
inline constexpr std::string_view kOtherRemoteTitle = "Other Remote";
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
// The badge of a row: its kind's, unless it is local only with a remote elsewhere.
std::string_view rowBadge(const InventoryRow& row);
inline constexpr std::string_view kOtherRemoteBadge = "Other remote";
// After the folder of a link whose tracking stopped.
inline constexpr std::string_view kNotTrackedMark = " (not tracked)";

// What the inventory screen holds between one request and the next: the chosen
// filter, the search text and the rows the last load read for that filter. The
// search never reloads: it narrows the loaded rows. Any thread may call it; the
// rows are read without the lock, so two loads may overlap, and the last to
// finish wins.
class State {
public:
    using Source = std::function<std::vector<InventoryRow>(InventoryFilter)>;

    InventoryFilter filter() const;
    // A new filter leaves the rows stale until the next load.
    void setFilter(InventoryFilter filter);
    void setSearch(std::string search);
    // Reads the rows for the filter as it stands when the load begins, and returns
    // that filter. Its end clears reloadNeeded, even for a filter chosen meanwhile:
    // whoever chose it loads again.
    InventoryFilter load(const Source& source);
    bool reloadNeeded() const;
    // The rows the search keeps, in order.
    std::vector<InventoryRow> filtered() const;
    // {filter, search, didLoad, isLoading, filters: [{filter, label}], rows, filtered}:
    // `rows` as `inventory --json --filter` prints them, `filtered` as it does with
    // --search too.
    Json toJson() const;

private:
    mutable std::mutex mutex_;
    InventoryFilter filter_ = InventoryFilter::all;
    std::string search_;
    std::vector<InventoryRow> rows_;
    bool didLoad_ = false;
    bool isLoading_ = false;
    bool reloadNeeded_ = false;
};

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
    std::vector<Item> active, needsCleanup, remoteOnly, stale, localOnly, otherRemote;
    bool didLoad = false;
};

// Each inventory row in exactly one group: local-only (those with a remote
// elsewhere apart) and remote-only by kind, a linked repository whose folder is
// no longer tracked as remote-only too, archived as stale, a repository with
// something to align as needing cleanup, other mapped ones as active, the rest as
// needing cleanup.
View load(const std::vector<InventoryRow>& rows, const AlignmentGroups& groups);
// The same over every inventory row and the stored groups of the data folder.
View load(const Store& store, const AppConfig& config, Date now);

inline constexpr std::string_view kTitle = "Repo Backlog";
inline constexpr std::string_view kSubtitle =
    "Where every repository stands — what is active, what needs cleaning up.";
inline constexpr std::string_view kActiveTitle = "Active";
inline constexpr std::string_view kNeedsCleanupTitle = "Needs Cleanup";
inline constexpr std::string_view kRemoteOnlyTitle = "Remote Only";
inline constexpr std::string_view kStaleTitle = "Stale";
inline constexpr std::string_view kLocalOnlyTitle = "Local Only";
inline constexpr std::string_view kOtherRemoteTitle = "Other Remote";
inline constexpr std::string_view kEmptyTitle = "Backlog is empty.";
inline constexpr std::string_view kEmptyText =
    "Connect an account and run Sync to see the repositories grouped.";

Json toJson(const View& view);

}  // namespace RepoBacklogViewModel
}  // namespace quorvane
