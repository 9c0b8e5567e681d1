#include "reports/RemindersV2.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include <fmt/format.h>

namespace quorvane::RemindersV2 {
namespace {

using Kind = ReminderEvent::Kind;
using Status = SyncState::Status;

const char* plural(long long count) {
    return count == 1 ? "" : "s";
}

// Named as the local reminders name a repository, so both engines' texts about one
// repository agree; without a tracked configuration, its id is all there is.
std::string nameOf(const std::unordered_map<std::string, const RepoConfig*>& tracked,
                   const std::string& repoID) {
    auto found = tracked.find(repoID);
    if (found == tracked.end()) return repoID;
    return displayNameOf(*found->second);
}

ReminderEvent condition(Date now, std::optional<std::string> repoID, Kind kind,
                        std::string message) {
    ReminderEvent event;
    event.repoID = std::move(repoID);
    event.kind = kind;
    event.message = std::move(message);
    event.triggeredAt = now;
    return event;
}

// Every alignment condition that holds now: per repository in sync-state order, then
// the one remote-only summary, then the accounts in order. Not de-duplicated.
std::vector<ReminderEvent> activeConditions(Date now, const ReminderPrefs& prefs,
                                            const std::vector<RepoConfig>& configs,
                                            const std::vector<SyncState>& syncStates,
                                            const std::vector<RepoSnapshot>& snapshots,
                                            const std::vector<GitHubAccount>& accounts) {
    std::unordered_map<std::string, const RepoConfig*> tracked;
    for (const auto& config : configs) {
        if (config.trackingEnabled) tracked.emplace(config.id, &config);
    }

    // A detached HEAD is on no branch that could take an upstream: the push the
    // reminder asks for would publish some other branch. The views say to switch back.
    std::unordered_set<std::string> detached;
    for (const RepoSnapshot& snapshot : snapshots) {
        if (snapshot.isDetachedHead) detached.insert(snapshot.repoID);
    }

    std::vector<ReminderEvent> active;
    int remoteOnly = 0;
    for (const auto& state : syncStates) {
        if (state.status == Status::remoteOnly) {
            ++remoteOnly;
            continue;
        }
        if (!state.repoID) continue;
        const std::string& repoID = *state.repoID;
        if (state.status == Status::noUpstream && !detached.contains(repoID)) {
            active.push_back(condition(
                now, repoID, Kind::noUpstream,
                fmt::format("{}: the local branch has no upstream. Set one with push -u origin.",
                            nameOf(tracked, repoID))));
        }
        // One switch governs being behind, whether the scan or the sync noticed it.
        if (state.status == Status::needsPull && prefs.behindRemote) {
            active.push_back(condition(
                now, repoID, Kind::needsPull,
                fmt::format("{}: {} commit{} behind the remote. Pull.", nameOf(tracked, repoID),
                            state.localBehind, plural(state.localBehind))));
        }
    }

    // Repositories never cloned are one nudge to review them all, not one each.
    if (remoteOnly > 0) {
        active.push_back(
            condition(now, std::nullopt, Kind::remoteOnly,
                      fmt::format("{} {} on GitHub only, never cloned locally. Review them.",
                                  remoteOnly, remoteOnly == 1 ? "repository" : "repositories")));
    }

    for (const auto& account : accounts) {
        if (account.status != GitHubAccount::Status::tokenInvalid) continue;
        const std::string& name =
            account.displayName.empty() ? account.username : account.displayName;
        active.push_back(condition(
            now, account.id, Kind::tokenIssue,
            fmt::format("Account “{}” — the GitHub token is invalid or expired. Revalidate it.",
                        name)));
    }
    return active;
}

bool isAlignment(Kind kind) {
    return std::ranges::find(alignmentKinds, kind) != alignmentKinds.end();
}

}  // namespace

Reconciliation reconcile(Date now, const ReminderPrefs& prefs,
                         const std::vector<RepoConfig>& configs,
                         const std::vector<SyncState>& syncStates,
                         const std::vector<RepoSnapshot>& snapshots,
                         const std::vector<GitHubAccount>& accounts,
                         const std::vector<ReminderEvent>& existing,
                         const std::function<std::string()>& newID) {
    std::vector<ReminderEvent> active =
        activeConditions(now, prefs, configs, syncStates, snapshots, accounts);

    return ReminderEngine::compare(std::move(active), existing, isAlignment, newID);
}

}  // namespace quorvane::RemindersV2
