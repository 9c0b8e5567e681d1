#include "app/AlignmentQueries.hpp"

#include <algorithm>

#include "app/Queries.hpp"
#include "base/TextHelpers.hpp"
#include "github/RepoStanding.hpp"

namespace quorvane::Queries {

namespace {

using Status = SyncState::Status;

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

// The line of a tracked repository, without its suggestion: filed under `status`,
// in the words its latest scan and stored sync state give, with the scan's counts,
// which are never older than the sync's copy of them.
V2RepoLine lineOf(const Store& store, const RepoConfig& repo, Status status,
                  const std::optional<SyncState>& state) {
    V2RepoLine line;
    line.repoID = repo.id;
    line.name = displayNameOf(repo);
    line.account = accountName(store, state ? state->accountID : std::nullopt);
    line.syncStatus = status;
    std::optional<RepoSnapshot> snapshot = store.snapshot(repo.id);
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

}  // namespace

AlignmentGroups gitAlignmentGroups(const Store& store, const AppConfig& config) {
    AlignmentGroups groups;
    for (const RepoConfig& repo : config.repositories) {
        if (!repo.trackingEnabled) continue;
        std::optional<SyncState> state = store.syncState(repo.id);
        if (!state) continue;
        Status status = currentStatus(store, *state);
        V2RepoLine line = lineOf(store, repo, status, state);
        if (std::optional<ActionSuggestion> suggestion = suggestedCommand(store, config, repo.id)) {
            line.suggestedCommand = suggestion->command;
        }
        groups[status].push_back(std::move(line));
    }
    return groups;
}

AlignmentGroups gitAlignmentGroupsDerived(const Store& store, const AppConfig& config) {
    AlignmentGroups groups;
    for (const RepoConfig& repo : config.repositories) {
        if (!repo.trackingEnabled) continue;
        std::optional<RepoSnapshot> snapshot = store.snapshot(repo.id);
        if (!snapshot) continue;
        bool hasRemote = snapshot->remoteURL || repo.remoteURL;
        Status status = !hasRemote                                    ? Status::localOnly
                        : !snapshot->hasUpstream                      ? Status::noUpstream
                        : snapshot->ahead > 0 && snapshot->behind > 0 ? Status::diverged
                        : snapshot->ahead > 0                         ? Status::needsPush
                        : snapshot->behind > 0                        ? Status::needsPull
                                                                      : Status::synced;
        groups[status].push_back(lineOf(store, repo, status, std::nullopt));
    }
    return groups;
}

std::optional<ActionSuggestion> suggestedCommand(const Store& store, const AppConfig& config,
                                                 const std::string& repoID) {
    const RepoConfig* repo = trackedRepo(config, repoID);
    std::optional<SyncState> state = store.syncState(repoID);
    if (repo == nullptr || !state) return std::nullopt;
    std::optional<RepoSnapshot> snapshot = store.snapshot(repoID);
    std::string defaultBranch = repo->defaultBranch.empty() ? "main" : repo->defaultBranch;
    RepoStanding::Description described =
        RepoStanding::describe({}, snapshot ? &*snapshot : nullptr, &*state);
    return RepoStanding::advice(described, *state, snapshot ? snapshot->branch : "", defaultBranch,
                                repo->localPath);
}

std::vector<InventoryRow> inventory(const Store& store, const AppConfig& config,
                                    InventoryFilter filter, Date now) {
    std::vector<RemoteRepository> remotes = store.remoteRepos(std::nullopt);
    std::vector<InventoryRow> rows;
    for (const RepositoryMapping& mapping : store.mappings()) {
        std::optional<RemoteRepository> remote;
        if (mapping.remoteRepoID) {
            for (const RemoteRepository& r : remotes) {
                if (r.id == *mapping.remoteRepoID) remote = r;
            }
        }
        const RepoConfig* repo =
            mapping.localRepoID ? trackedRepo(config, *mapping.localRepoID) : nullptr;
        if (mapping.localRepoID && repo == nullptr) continue;  // no longer tracked
        InventoryRow row;
        row.id = mapping.id;
        row.name = remote ? remote->name : repo ? displayNameOf(*repo) : mapping.id;
        row.account = accountName(store, mapping.accountID ? mapping.accountID
                                         : remote          ? std::optional(remote->accountID)
                                                           : std::nullopt)
                          .value_or("");
        row.kind = mapping.kind;
        row.isPrivate = remote && remote->isPrivate;
        row.isArchived = remote && remote->isArchived;
        if (repo) row.localPath = repo->localPath;
        if (remote) row.updatedAt = remote->updatedAt;

        bool active = false;
        if (std::optional<Date> latest = lastActivity(store, mapping.localRepoID, remote)) {
            active = *latest >= now - std::chrono::hours(24 * kActiveDays);
        }
        bool keep = false;
        switch (filter) {
            case InventoryFilter::all: keep = true; break;
            case InventoryFilter::mapped: keep = row.kind == RepositoryMapping::Kind::mapped; break;
            case InventoryFilter::remoteOnly:
                keep = row.kind == RepositoryMapping::Kind::remoteOnly;
                break;
            case InventoryFilter::localOnly:
                keep = row.kind == RepositoryMapping::Kind::localOnly;
                break;
            case InventoryFilter::privateOnly: keep = row.isPrivate; break;
            case InventoryFilter::stale: keep = !row.isArchived && !active; break;
            case InventoryFilter::active: keep = !row.isArchived && active; break;
            case InventoryFilter::archived: keep = row.isArchived; break;
        }
        if (keep) rows.push_back(std::move(row));
    }
    std::stable_sort(rows.begin(), rows.end(), [](const InventoryRow& a, const InventoryRow& b) {
        return Text::asciiLower(a.name) < Text::asciiLower(b.name);
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
    Aggregator::DateRange today = Aggregator::dayRange(now);
    for (const CommitRecord& commit : store.commitsBetween(today.start, today.end)) {
        if (trackedRepo(config, commit.repoID) == nullptr) continue;
        ++(commit.isLocalOnly ? summary.localOnlyCommitsToday : summary.pushedCommitsToday);
    }
    return summary;
}

}  // namespace quorvane::Queries
