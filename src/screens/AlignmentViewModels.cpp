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

namespace {

// The counts by standing of the lines in `groups`, over the scan's. A sync can file
// a repository elsewhere than its counts would (a remote that is not GitHub is
// local only to it), and the head must not disagree with the lines below it.
void countLines(AlignmentOverview& overview, const AlignmentGroups& groups) {
    auto count = [&](Status status) {
        auto found = groups.find(status);
        return found == groups.end() ? 0 : static_cast<int>(found->second.size());
    };
    overview.synced = count(Status::synced);
    overview.needsPush = count(Status::needsPush);
    overview.needsPull = count(Status::needsPull);
    overview.diverged = count(Status::diverged);
    overview.noUpstream = count(Status::noUpstream);
    overview.localOnly = count(Status::localOnly);
    overview.withRemote = 0;
    for (const auto& [status, lines] : groups) {
        if (status != Status::localOnly && status != Status::remoteOnly)
            overview.withRemote += static_cast<int>(lines.size());
    }
}

}  // namespace

View load(const Source& source) {
    View view;
    view.overview = source.overview();
    AlignmentGroups groups = source.groups();
    view.derivedOffline = groups.empty();
    if (view.derivedOffline) groups = source.derivedGroups();
    countLines(*view.overview, groups);
    for (Status status : sectionOrder()) {
        auto found = groups.find(status);
        if (found == groups.end() || found->second.empty()) continue;
        Section section{status, {}};
        for (const V2RepoLine& line : found->second) {
            std::optional<ActionSuggestion> suggestion;
            if (!view.derivedOffline) suggestion = source.suggestion(line.repoID);
            section.entries.push_back({line, std::move(suggestion)});
        }
        view.sections.push_back(std::move(section));
    }
    view.didLoad = true;
    return view;
}

Json toJson(const View& view) {
    Json json = Json::object();
    json["overview"] = view.overview ? quorvane::toJson(*view.overview) : Json(nullptr);
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
                            {"title", sectionTitle(section.status)},
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
                  row.localPath          ? *row.localPath
                  : !row.account.empty() ? row.account
                                         : std::string("not cloned"),
                  row.isPrivate, row.isArchived};
        using Kind = RepositoryMapping::Kind;
        if (row.kind == Kind::localOnly) {
            view.localOnly.push_back(std::move(item));
        } else if (row.kind == Kind::remoteOnly) {
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
    return {{"active", items(view.active)},
            {"needsCleanup", items(view.needsCleanup)},
            {"remoteOnly", items(view.remoteOnly)},
            {"stale", items(view.stale)},
            {"localOnly", items(view.localOnly)}};
}

}  // namespace RepoBacklogViewModel
}  // namespace quorvane
