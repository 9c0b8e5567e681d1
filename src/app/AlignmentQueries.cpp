#include "app/AlignmentQueries.hpp"

#include <algorithm>
#include <set>

#include "app/Queries.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "github/ActionAssistant.hpp"
#include "github/RepoMapper.hpp"
#include "github/RepoStanding.hpp"

namespace quorvane::Queries {

namespace {

using Status = SyncState::Status;
using Kind = RepositoryMapping::Kind;

const RepoConfig* trackedRepo(const AppConfig& config, const std::string& repoID) {
    for (const RepoConfig& repo : config.repositories) {
        if (repo.id == repoID && repo.trackingEnabled) return &repo;
    }
    return nullptr;
}

std::optional<std::string> accountName(const Store& store,
                                       const std::optional<std::string>& accountID) {
    if (!accountID) return std::nullopt;
    for (const GitHubAccount& account : store.accounts()) {
        if (account.id == *accountID) return account.displayName;
    }
    return std::nullopt;
}

// The remote a repository is known by, as the mapping reads it: the last scan's,
// else the configured one.
std::optional<std::string> remoteURLOf(const RepoConfig& repo,
                                       const std::optional<RepoSnapshot>& snapshot) {
    if (snapshot && snapshot->remoteURL) return snapshot->remoteURL;
    return repo.remoteURL;
}

bool isOnGitHub(const std::optional<std::string>& url) {
    return url && RepoMapper::ownerRepo(*url).has_value();
}

// A remote that is there but not on GitHub: such a repository is local only to
// GitHub's eyes, yet it has somewhere to push.
bool isOtherRemote(const std::optional<std::string>& url) {
    return url && !Text::trim(*url).empty() && !isOnGitHub(url);
}

// How a repository stands by its last scan alone, against whatever remote it has.
Status derivedStatus(const RepoSnapshot& snapshot, const std::optional<std::string>& url) {
    if (!url) return Status::localOnly;
    if (!snapshot.hasUpstream) return Status::noUpstream;
    if (snapshot.ahead > 0 && snapshot.behind > 0) return Status::diverged;
    if (snapshot.ahead > 0) return Status::needsPush;
    if (snapshot.behind > 0) return Status::needsPull;
    return Status::synced;
}

// Where a synced repository is listed: as its stored status says, except that a
// link no account can follow is an account issue, as the inventory names it. The
// status alone cannot tell, for without a remote record it reads local only.
Status sectionStatus(const SyncState& state, const std::optional<RepositoryMapping>& mapping) {
    if (mapping && mapping->kind == Kind::accountMismatch) return Status::accountMissing;
    if (mapping && mapping->kind == Kind::remoteInaccessible) return Status::remoteInaccessible;
    return state.status;
}

// The line of a tracked repository, without its suggestion: filed under `status`,
// in the words its latest scan and stored sync state give, with the scan's counts,
// which are never older than the sync's copy of them.
V2RepoLine lineOf(const Store& store, const RepoConfig& repo,
                  const std::optional<RepoSnapshot>& snapshot, Status status,
                  const std::optional<SyncState>& state) {
    V2RepoLine line;
    line.repoID = repo.id;
    line.name = displayNameOf(repo);
    line.account = accountName(store, state ? state->accountID : std::nullopt);
    line.syncStatus = status;
    line.standing =
        RepoStanding::describe({}, snapshot ? &*snapshot : nullptr, state ? &*state : nullptr)
            .github;
    if (snapshot) {
        line.branch = snapshot->branch;
        line.ahead = snapshot->ahead;
        line.behind = snapshot->behind;
    } else if (state) {
        line.ahead = state->localAhead;
        line.behind = state->localBehind;
    }
    std::vector<ProjectHealthSnapshot> health = store.health(repo.id);
    if (!health.empty()) {
        line.health =
            std::max_element(health.begin(), health.end(), [](const auto& a, const auto& b) {
                return a.capturedAt < b.capturedAt;
            })->score;
    }
    return line;
}

// The line of a repository by its last scan alone. A remote elsewhere is marked
// whatever its counts say: without GitHub's side they are all there is to show.
V2RepoLine derivedLine(const Store& store, const RepoConfig& repo, const RepoSnapshot& snapshot) {
    std::optional<std::string> url = remoteURLOf(repo, snapshot);
    V2RepoLine line = lineOf(store, repo, snapshot, derivedStatus(snapshot, url), std::nullopt);
    line.otherRemote = isOtherRemote(url);
    return line;
}

// The sync status a stored state amounts to now that the latest scan is known.
Status currentStatus(const Store& store, const SyncState& state) {
    std::optional<RepoSnapshot> snapshot = store.snapshot(state.id);
    return RepoStanding::describe({}, snapshot ? &*snapshot : nullptr, &state)
        .syncStatus.value_or(state.status);
}

// The latest moment anything happened in the repository, here or on GitHub.
std::optional<Date> lastActivity(const Store& store, const std::optional<std::string>& repoID,
                                 const std::optional<RemoteRepository>& remote) {
    std::optional<Date> latest;
    auto later = [&latest](std::optional<Date> date) {
        if (date && (!latest || *date > *latest)) latest = date;
    };
    if (remote) {
        later(remote->pushedAt);
    }
    if (repoID) {
        if (std::optional<RepoSnapshot> snapshot = store.snapshot(*repoID)) {
            later(snapshot->lastCommitAt);
            later(snapshot->lastWorkingTreeChangeAt);
        }
        for (const WorkSession& session : store.sessions(*repoID, std::nullopt)) {
            later(session.endedAt);
        }
    }
    return latest;
}

// One repository as the inventory lists it, with what its filters read.
struct Listed {
    InventoryRow row;
    std::optional<std::string> localRepoID;
    std::optional<RemoteRepository> remote;
};

// Every repository the last sync's mappings name, then every GitHub repository
// they no longer cover, unsorted. A folder whose tracking stopped keeps only a
// link the person confirmed, shown with the folder marked as not tracked; a
// computed link of such a folder is dropped, and its GitHub side listed as
// remote only, as the next sync will find it. So no GitHub repository drops out
// of sight whatever becomes of its folder.
std::vector<Listed> listed(const Store& store, const AppConfig& config) {
    std::vector<RemoteRepository> remotes = store.remoteRepos(std::nullopt);
    auto remoteOf = [&remotes](const std::optional<std::string>& id) {
        std::optional<RemoteRepository> found;
        if (!id) return found;
        for (const RemoteRepository& remote : remotes) {
            if (remote.id == *id) found = remote;
        }
        return found;
    };
    std::vector<Listed> out;
    std::set<std::string> listedRemotes;
    for (const RepositoryMapping& mapping : store.mappings()) {
        const RepoConfig* repo =
            mapping.localRepoID ? trackedRepo(config, *mapping.localRepoID) : nullptr;
        const bool notTracked = mapping.localRepoID && repo == nullptr;
        if (notTracked && !(mapping.confirmedByUser && mapping.remoteRepoID)) continue;
        Listed item{{}, mapping.localRepoID, remoteOf(mapping.remoteRepoID)};
        const std::optional<RemoteRepository>& remote = item.remote;
        InventoryRow& row = item.row;
        row.id = mapping.id;
        row.name = remote ? remote->name : repo ? displayNameOf(*repo) : mapping.id;
        row.account = accountName(store, mapping.accountID ? mapping.accountID
                                         : remote          ? std::optional(remote->accountID)
                                                           : std::nullopt)
                          .value_or("");
        row.kind = mapping.kind;
        row.isPrivate = remote && remote->isPrivate;
        row.isArchived = remote && remote->isArchived;
        if (repo) {
            row.localPath = repo->localPath;
            row.otherRemote = mapping.kind == Kind::localOnly &&
                              isOtherRemote(remoteURLOf(*repo, store.snapshot(repo->id)));
        } else if (notTracked) {
            auto known =
                std::find_if(config.repositories.begin(), config.repositories.end(),
                             [&](const RepoConfig& r) { return r.id == *mapping.localRepoID; });
            row.localPath =
                known != config.repositories.end() ? known->localPath : *mapping.localRepoID;
            row.localNotTracked = true;
        }
        if (remote) row.updatedAt = remote->updatedAt;
        if (mapping.remoteRepoID) listedRemotes.insert(*mapping.remoteRepoID);
        out.push_back(std::move(item));
    }
    for (const RemoteRepository& remote : remotes) {
        if (listedRemotes.contains(remote.id)) continue;
        Listed item{{}, std::nullopt, remote};
        InventoryRow& row = item.row;
        row.id = remote.id;
        row.name = remote.name;
        row.account = accountName(store, remote.accountID).value_or("");
        row.kind = Kind::remoteOnly;
        row.isPrivate = remote.isPrivate;
        row.isArchived = remote.isArchived;
        row.updatedAt = remote.updatedAt;
        out.push_back(std::move(item));
    }
    return out;
}

bool byName(const std::string& a, const std::string& b) {
    return Text::asciiLower(a) < Text::asciiLower(b);
}

}  // namespace

AlignmentGroups gitAlignmentGroups(const Store& store, const AppConfig& config) {
    std::vector<RepositoryMapping> mappings = store.mappings();
    if (mappings.empty() && store.syncStates().empty()) return {};
    AlignmentGroups groups;
    for (const RepoConfig& repo : config.repositories) {
        if (!repo.trackingEnabled) continue;
        std::optional<RepoSnapshot> snapshot = store.snapshot(repo.id);
        std::optional<SyncState> state = store.syncState(repo.id);
        if (!state) {
            // Tracked since the last sync: its scan says how it stands until the next.
            if (!snapshot) continue;
            V2RepoLine line = derivedLine(store, repo, *snapshot);
            groups[line.syncStatus].push_back(std::move(line));
            continue;
        }
        std::optional<RepositoryMapping> mapping;
        for (const RepositoryMapping& m : mappings) {
            if (m.localRepoID == repo.id) {
                mapping = m;
                break;
            }
        }
        // An account problem files it under Account Issues; otherwise a scan since
        // the sync that moved the counts (a push, a pull) says where it stands.
        Status status = sectionStatus(*state, mapping);
        if (status == state->status) status = currentStatus(store, *state);
        V2RepoLine line = lineOf(store, repo, snapshot, status, state);
        // Its words say what its section says: the stored state alone reads local only.
        if (status == Status::accountMissing || status == Status::remoteInaccessible) {
            line.standing = RepoStanding::of(status);
        }
        // Linked to nothing on GitHub, yet pushed somewhere.
        line.otherRemote =
            status == Status::localOnly && isOtherRemote(remoteURLOf(repo, snapshot));
        if (std::optional<ActionSuggestion> suggestion = suggestedCommand(store, config, repo.id)) {
            line.suggestedCommand = suggestion->command;
        }
        groups[status].push_back(std::move(line));
    }
    // What GitHub holds with no tracked folder, as the inventory lists it.
    std::vector<V2RepoLine> remoteOnly;
    for (const Listed& item : listed(store, config)) {
        if (item.row.kind != Kind::remoteOnly && !item.row.localNotTracked) continue;
        V2RepoLine line;
        line.repoID = item.row.id;
        line.name = item.row.name;
        if (!item.row.account.empty()) line.account = item.row.account;
        if (item.remote) line.branch = item.remote->defaultBranch;
        line.syncStatus = Status::remoteOnly;
        if (std::optional<ActionSuggestion> suggestion =
                suggestedCommand(store, config, line.repoID)) {
            line.suggestedCommand = suggestion->command;
        }
        remoteOnly.push_back(std::move(line));
    }
    std::stable_sort(
        remoteOnly.begin(), remoteOnly.end(),
        [](const V2RepoLine& a, const V2RepoLine& b) { return byName(a.name, b.name); });
    std::vector<V2RepoLine>& lines = groups[Status::remoteOnly];
    lines.insert(lines.end(), remoteOnly.begin(), remoteOnly.end());
    if (lines.empty()) groups.erase(Status::remoteOnly);
    return groups;
}

AlignmentGroups gitAlignmentGroupsDerived(const Store& store, const AppConfig& config) {
    AlignmentGroups groups;
    for (const RepoConfig& repo : config.repositories) {
        if (!repo.trackingEnabled) continue;
        std::optional<RepoSnapshot> snapshot = store.snapshot(repo.id);
        if (!snapshot) continue;
        V2RepoLine line = derivedLine(store, repo, *snapshot);
        groups[line.syncStatus].push_back(std::move(line));
    }
    return groups;
}

std::optional<ActionSuggestion> suggestedCommand(const Store& store, const AppConfig& config,
                                                 const std::string& repoID) {
    const RepoConfig* repo = trackedRepo(config, repoID);
    if (repo == nullptr) {
        // A GitHub repository listed on its own: cloning it is the step.
        for (const RemoteRepository& remote : store.remoteRepos(std::nullopt)) {
            if (remote.id != repoID) continue;
            SyncState state;
            state.id = repoID;
            state.remoteRepoID = remote.id;
            state.status = Status::remoteOnly;
            return ActionAssistant::suggestion(
                state, "", remote.defaultBranch,
                PathHelpers::expandTilde(config.mapping.defaultCloneFolder));
        }
        return std::nullopt;
    }
    std::optional<SyncState> state = store.syncState(repoID);
    if (!state) return std::nullopt;
    std::optional<RepoSnapshot> snapshot = store.snapshot(repoID);
    std::string defaultBranch = repo->defaultBranch.empty() ? "main" : repo->defaultBranch;
    RepoStanding::Description described =
        RepoStanding::describe({}, snapshot ? &*snapshot : nullptr, &*state);
    return RepoStanding::advice(described, *state, snapshot ? snapshot->branch : "", defaultBranch,
                                repo->localPath);
}

std::vector<InventoryRow> inventory(const Store& store, const AppConfig& config,
                                    InventoryFilter filter, Date now) {
    std::vector<InventoryRow> rows;
    for (Listed& item : listed(store, config)) {
        InventoryRow& row = item.row;
        bool active = false;
        if (std::optional<Date> latest = lastActivity(store, item.localRepoID, item.remote)) {
            active = *latest >= now - std::chrono::hours(24 * kActiveDays);
        }
        bool keep = false;
        switch (filter) {
            case InventoryFilter::all: keep = true; break;
            case InventoryFilter::mapped: keep = row.kind == Kind::mapped; break;
            case InventoryFilter::remoteOnly: keep = row.kind == Kind::remoteOnly; break;
            case InventoryFilter::localOnly: keep = row.kind == Kind::localOnly; break;
            case InventoryFilter::privateOnly: keep = row.isPrivate; break;
            case InventoryFilter::stale: keep = !row.isArchived && !active; break;
            case InventoryFilter::active: keep = !row.isArchived && active; break;
            case InventoryFilter::archived: keep = row.isArchived; break;
        }
        if (keep) rows.push_back(std::move(row));
    }
    std::stable_sort(rows.begin(), rows.end(), [](const InventoryRow& a, const InventoryRow& b) {
        return byName(a.name, b.name);
    });
    return rows;
}

AlignmentSummary alignment(const Store& store, const AppConfig& config, Date now) {
    AlignmentSummary summary;
    for (const RepositoryMapping& mapping : store.mappings()) {
        switch (mapping.kind) {
            case RepositoryMapping::Kind::mapped: ++summary.mappedCount; break;
            case RepositoryMapping::Kind::remoteOnly: ++summary.remoteOnlyCount; break;
            case RepositoryMapping::Kind::localOnly: ++summary.localOnlyCount; break;
            case RepositoryMapping::Kind::accountMismatch:
            case RepositoryMapping::Kind::remoteInaccessible: ++summary.accountIssueCount; break;
        }
    }
    // The day's commits as every view counts them: the person's own, each once.
    Aggregator::DateRange today = Aggregator::dayRange(now);
    Aggregator::CountedCommits counted = Aggregator::countedCommits(
        store.commitsBetween(today.start, today.end), today, identity(store, config));
    for (const auto& [repoID, commits] : counted.byRepo) {
        if (trackedRepo(config, repoID) == nullptr) continue;
        for (const CommitRecord& commit : commits) {
            ++(commit.isLocalOnly ? summary.localOnlyCommitsToday : summary.pushedCommitsToday);
        }
    }
    return summary;
}

}  // namespace quorvane::Queries
