#include "screens/AlignmentViewModels.hpp"

#include <set>

#include "base/EnumNames.hpp"
#include "base/TextHelpers.hpp"

namespace quorvane {

namespace GitAlignmentViewModel {

using Status = SyncState::Status;

const std::vector<Status>& sectionOrder() {
    static const std::vector<Status> order = {
        Status::needsPush,      Status::needsPull,      Status::diverged,
        Status::noUpstream,     Status::remoteOnly,     Status::localOnly,
        Status::accountMissing, Status::branchMismatch, Status::remoteInaccessible};
    return order;
}

std::string_view sectionTitle(Status status) {
    switch (status) {
        case Status::synced: return "Synced";
        case Status::needsPush: return "Needs Push";
        case Status::needsPull: return "Needs Pull";
        case Status::diverged: return "Diverged";
        case Status::noUpstream: return "No Upstream";
        case Status::remoteOnly: return "Remote Only";
        case Status::localOnly: return "Local Only";
        case Status::accountMissing: return "Account Issues";
        case Status::remoteInaccessible: return "Account Issues";
        case Status::branchMismatch: return "Branch Mismatch";
        case Status::unknown: return "Unknown";
    }
    return "Unknown";
}

std::string_view titleOf(const Section& section) {
    return section.otherRemote ? kOtherRemoteTitle : sectionTitle(section.status);
}

std::string_view keyOf(const Section& section) {
    return section.otherRemote ? "otherRemote" : enumName(section.status);
}

namespace {

Overview countsOf(const AlignmentGroups& groups) {
    Overview counts;
    for (const auto& [status, lines] : groups) {
        for (const V2RepoLine& line : lines) {
            if (status != Status::remoteOnly) ++counts.tracked;
            if (line.otherRemote) {
                ++counts.otherRemote;
                continue;
            }
            switch (status) {
                case Status::synced: ++counts.synced; break;
                case Status::needsPush: ++counts.needsPush; break;
                case Status::needsPull: ++counts.needsPull; break;
                case Status::diverged: ++counts.diverged; break;
                case Status::noUpstream: ++counts.noUpstream; break;
                case Status::branchMismatch: ++counts.branchMismatch; break;
                case Status::remoteOnly: ++counts.remoteOnly; break;
                case Status::localOnly: ++counts.localOnly; break;
                case Status::accountMissing:
                case Status::remoteInaccessible: ++counts.accountIssues; break;
                case Status::unknown: break;
            }
        }
    }
    counts.withRemote = counts.synced + counts.needsPush + counts.needsPull + counts.diverged +
                        counts.noUpstream + counts.branchMismatch;
    return counts;
}

}  // namespace

View load(const Source& source) {
    View view;
    AlignmentGroups groups = source.groups();
    view.derivedOffline = groups.empty();
    if (view.derivedOffline) groups = source.derivedGroups();
    view.overview = countsOf(groups);
    auto entryOf = [&](const V2RepoLine& line) {
        std::optional<ActionSuggestion> suggestion;
        if (!view.derivedOffline) suggestion = source.suggestion(line.repoID);
        return Entry{line, std::move(suggestion)};
    };
    // Whatever its counts say, a repository whose remote is elsewhere stands apart:
    // next to the local-only ones, as GitHub knows nothing of either.
    Section elsewhere{Status::localOnly, {}, true};
    for (const auto& [status, lines] : groups) {
        for (const V2RepoLine& line : lines) {
            if (line.otherRemote) elsewhere.entries.push_back(entryOf(line));
        }
    }
    for (Status status : sectionOrder()) {
        auto found = groups.find(status);
        Section section{status, {}, false};
        if (found != groups.end()) {
            for (const V2RepoLine& line : found->second) {
                if (!line.otherRemote) section.entries.push_back(entryOf(line));
            }
        }
        if (!section.entries.empty()) view.sections.push_back(std::move(section));
        if (status == Status::localOnly && !elsewhere.entries.empty()) {
            view.sections.push_back(std::move(elsewhere));
        }
    }
    view.didLoad = true;
    return view;
}

Source sourceOf(const Store& store, const AppConfig& config) {
    return {[&] { return Queries::gitAlignmentGroups(store, config); },
            [&] { return Queries::gitAlignmentGroupsDerived(store, config); },
            [&](const std::string& repoID) {
                return Queries::suggestedCommand(store, config, repoID);
            }};
}

Json toJson(const View& view) {
    Json json = Json::object();
    Json overview(nullptr);
    if (view.overview) {
        overview = quorvane::toJson(static_cast<const AlignmentOverview&>(*view.overview));
        overview["remoteOnly"] = view.overview->remoteOnly;
        overview["otherRemote"] = view.overview->otherRemote;
        overview["accountIssues"] = view.overview->accountIssues;
        overview["branchMismatch"] = view.overview->branchMismatch;
    }
    json["overview"] = std::move(overview);
    json["derivedOffline"] = view.derivedOffline;
    Json sections = Json::array();
    for (const Section& section : view.sections) {
        Json entries = Json::array();
        for (const Entry& entry : section.entries) {
            entries.push_back({{"line", quorvane::toJson(entry.line)},
                               {"suggestion", entry.suggestion ? quorvane::toJson(*entry.suggestion)
                                                               : Json(nullptr)}});
        }
        sections.push_back({{"status", enumName(section.status)},
                            {"section", keyOf(section)},
                            {"title", titleOf(section)},
                            {"entries", std::move(entries)}});
    }
    json["sections"] = std::move(sections);
    return json;
}

}  // namespace GitAlignmentViewModel

namespace GitHubInventoryViewModel {

std::vector<InventoryRow> filtered(const std::vector<InventoryRow>& rows, std::string_view search) {
    std::string wanted = Text::asciiLower(Text::trim(search));
    if (wanted.empty()) return rows;
    std::vector<InventoryRow> kept;
    for (const InventoryRow& row : rows) {
        if (Text::asciiLower(row.name).find(wanted) != std::string::npos ||
            Text::asciiLower(row.account).find(wanted) != std::string::npos) {
            kept.push_back(row);
        }
    }
    return kept;
}

std::string_view filterLabel(InventoryFilter filter) {
    switch (filter) {
        case InventoryFilter::all: return "All";
        case InventoryFilter::mapped: return "Mapped";
        case InventoryFilter::remoteOnly: return "Remote Only";
        case InventoryFilter::localOnly: return "Local Only";
        case InventoryFilter::privateOnly: return "Private";
        case InventoryFilter::stale: return "Stale";
        case InventoryFilter::active: return "Active";
        case InventoryFilter::archived: return "Archived";
    }
    return "All";
}

std::string_view kindBadge(RepositoryMapping::Kind kind) {
    switch (kind) {
        case RepositoryMapping::Kind::mapped: return "Mapped";
        case RepositoryMapping::Kind::localOnly: return "Local";
        case RepositoryMapping::Kind::remoteOnly: return "Remote";
        case RepositoryMapping::Kind::accountMismatch: return "Account?";
        case RepositoryMapping::Kind::remoteInaccessible: return "Inaccessible";
    }
    return "Local";
}

std::string_view rowBadge(const InventoryRow& row) {
    return row.otherRemote ? kOtherRemoteBadge : kindBadge(row.kind);
}

InventoryFilter State::filter() const {
    std::lock_guard lock(mutex_);
    return filter_;
}

void State::setFilter(InventoryFilter filter) {
    std::lock_guard lock(mutex_);
    if (filter == filter_) return;
    filter_ = filter;
    reloadNeeded_ = true;
}

void State::setSearch(std::string search) {
    std::lock_guard lock(mutex_);
    search_ = std::move(search);
}

InventoryFilter State::load(const Source& source) {
    InventoryFilter asked;
    {
        std::lock_guard lock(mutex_);
        isLoading_ = true;
        asked = filter_;
    }
    std::vector<InventoryRow> rows = source(asked);
    std::lock_guard lock(mutex_);
    rows_ = std::move(rows);
    isLoading_ = false;
    didLoad_ = true;
    reloadNeeded_ = false;
    return asked;
}

bool State::reloadNeeded() const {
    std::lock_guard lock(mutex_);
    return reloadNeeded_;
}

std::vector<InventoryRow> State::filtered() const {
    std::lock_guard lock(mutex_);
    return GitHubInventoryViewModel::filtered(rows_, search_);
}

Json State::toJson() const {
    std::lock_guard lock(mutex_);
    auto listed = [](const std::vector<InventoryRow>& rows) {
        Json array = Json::array();
        for (const InventoryRow& row : rows) array.push_back(quorvane::toJson(row));
        return array;
    };
    Json filters = Json::array();
    for (const auto& [value, name] : enumCases(InventoryFilter{})) {
        filters.push_back({{"filter", name}, {"label", filterLabel(value)}});
    }
    return {{"filter", enumName(filter_)},
            {"search", search_},
            {"didLoad", didLoad_},
            {"isLoading", isLoading_},
            {"filters", std::move(filters)},
            {"rows", listed(rows_)},
            {"filtered", listed(GitHubInventoryViewModel::filtered(rows_, search_))}};
}

}  // namespace GitHubInventoryViewModel

namespace RepoBacklogViewModel {

View load(const std::vector<InventoryRow>& rows, const AlignmentGroups& groups) {
    using Status = SyncState::Status;
    static const std::set<Status> cleanup = {Status::needsPush,         Status::needsPull,
                                             Status::diverged,          Status::noUpstream,
                                             Status::accountMissing,    Status::branchMismatch,
                                             Status::remoteInaccessible};
    std::set<std::string> needsCleanup;
    for (const auto& [status, lines] : groups) {
        if (!cleanup.contains(status)) continue;
        for (const V2RepoLine& line : lines) needsCleanup.insert(line.repoID);
    }
    View view;
    for (const InventoryRow& row : rows) {
        Item item{row.id, row.name,
                  row.localPath
                      ? *row.localPath + std::string(row.localNotTracked
                                                         ? GitHubInventoryViewModel::kNotTrackedMark
                                                         : "")
                  : !row.account.empty() ? row.account
                                         : std::string("not cloned"),
                  row.isPrivate, row.isArchived};
        using Kind = RepositoryMapping::Kind;
        if (row.kind == Kind::localOnly) {
            (row.otherRemote ? view.otherRemote : view.localOnly).push_back(std::move(item));
        } else if (row.kind == Kind::remoteOnly || row.localNotTracked) {
            view.remoteOnly.push_back(std::move(item));
        } else if (row.isArchived) {
            view.stale.push_back(std::move(item));
        } else if (needsCleanup.contains(row.id)) {
            view.needsCleanup.push_back(std::move(item));
        } else if (row.kind == Kind::mapped) {
            view.active.push_back(std::move(item));
        } else {
            view.needsCleanup.push_back(std::move(item));
        }
    }
    view.didLoad = true;
    return view;
}

View load(const Store& store, const AppConfig& config, Date now) {
    return load(Queries::inventory(store, config, InventoryFilter::all, now),
                Queries::gitAlignmentGroups(store, config));
}

Json toJson(const View& view) {
    auto items = [](const std::vector<Item>& list) {
        Json array = Json::array();
        for (const Item& item : list) {
            array.push_back({{"id", item.id},
                             {"name", item.name},
                             {"detail", item.detail},
                             {"isPrivate", item.isPrivate},
                             {"isArchived", item.isArchived}});
        }
        return array;
    };
    return {{"active", items(view.active)},         {"needsCleanup", items(view.needsCleanup)},
            {"remoteOnly", items(view.remoteOnly)}, {"stale", items(view.stale)},
            {"localOnly", items(view.localOnly)},   {"otherRemote", items(view.otherRemote)}};
}

}  // namespace RepoBacklogViewModel
}  // namespace quorvane
