#include "reports/ReminderEngine.hpp"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include <fmt/format.h>

namespace quorvane::ReminderEngine {
namespace {

// Counted texts add the "s" by hand; only exactly one is singular.
const char* plural(long long count) {
    return count == 1 ? "" : "s";
}

// The same wall-clock time `days` calendar days before `now`, in local time, so a
// daylight-saving change in between does not move the cutoff by an hour. When the
// C library cannot represent the result, every change counts as after the cutoff.
Date daysBefore(Date now, int days) {
    std::time_t t = now.time_since_epoch().count();
    std::tm parts{};
    if (localtime_r(&t, &parts) == nullptr) return Date::min();
    parts.tm_mday -= days;
    parts.tm_isdst = -1;
    errno = 0;
    std::time_t cutoff = std::mktime(&parts);
    if (cutoff == static_cast<std::time_t>(-1) && errno != 0) return Date::min();
    return Date(std::chrono::seconds(cutoff));
}

// A condition as a reminder; it gets its id only if it is raised.
ReminderEvent condition(Date now, const std::string& repoID, ReminderEvent::Kind kind,
                        std::string message) {
    ReminderEvent event;
    event.repoID = repoID;
    event.kind = kind;
    event.message = std::move(message);
    event.triggeredAt = now;
    return event;
}

// Every condition that holds now, in snapshot order and, within one repository, in
// the order push, behind, commit, stale. Snapshots are not de-duplicated.
std::vector<ReminderEvent> activeConditions(Date now, const ReminderPrefs& prefs,
                                            const std::vector<RepoConfig>& configs,
                                            const std::vector<RepoSnapshot>& snapshots,
                                            const std::vector<WorkSession>& sessions) {
    using Kind = ReminderEvent::Kind;
    std::unordered_map<std::string, const RepoConfig*> tracked;
    for (const auto& config : configs) {
        if (config.trackingEnabled) tracked.emplace(config.id, &config);
    }

    // Seconds of work per repository in sessions that ended today; a session still
    // open counts with what it has so far.
    std::string today = DateHelpers::dateKey(now);
    std::unordered_map<std::string, long long> workToday;
    for (const auto& session : sessions) {
        if (DateHelpers::dateKey(session.endedAt) == today) {
            workToday[session.repoID] += session.estimatedSeconds;
        }
    }
    long long threshold = std::max(prefs.commitAfterWorkMinutes, 0) * 60LL;

    std::vector<ReminderEvent> active;
    for (const auto& snapshot : snapshots) {
        auto found = tracked.find(snapshot.repoID);
        if (found == tracked.end()) continue;
        // A repository that could not be read tells nothing about its state.
        if (snapshot.error) continue;
        const RepoConfig& config = *found->second;
        std::string name = displayNameOf(config);
        int files = snapshot.files.total();

        if (prefs.needsPush && snapshot.ahead > 0) {
            active.push_back(condition(now, snapshot.repoID, Kind::needsPush,
                                       fmt::format("{}: {} unpushed commit{}. Push them.", name,
                                                   snapshot.ahead, plural(snapshot.ahead))));
        }
        if (prefs.behindRemote && snapshot.behind > 0) {
            active.push_back(condition(now, snapshot.repoID, Kind::behindRemote,
                                       fmt::format("{}: {} commit{} behind the remote. Pull.", name,
                                                   snapshot.behind, plural(snapshot.behind))));
        }
        if (prefs.needsCommit && files > 0 && snapshot.commitsToday <= 0) {
            auto worked = workToday.find(snapshot.repoID);
            long long seconds = worked == workToday.end() ? 0 : worked->second;
            if (seconds >= threshold) {
                active.push_back(condition(
                    now, snapshot.repoID, Kind::needsCommit,
                    fmt::format("{}: {} modified file{} worked on today with no commit. Save "
                                "your progress.",
                                name, files, plural(files))));
            }
        }
        if (prefs.staleDirty && files > 0) {
            int days = config.staleDaysThreshold.value_or(prefs.staleDirtyAfterDays);
            // Never seeing the tree change means it has waited longer than any threshold.
            bool stale = !snapshot.lastWorkingTreeChangeAt ||
                         *snapshot.lastWorkingTreeChangeAt < daysBefore(now, std::max(days, 0));
            if (stale) {
                active.push_back(condition(
                    now, snapshot.repoID, Kind::staleDirty,
                    fmt::format("{}: uncommitted changes for more than {} days.", name, days)));
            }
        }
    }
    return active;
}

bool isLocal(ReminderEvent::Kind kind) {
    return std::ranges::find(localKinds, kind) != localKinds.end();
}

}  // namespace

Reconciliation compare(std::vector<ReminderEvent> active,
                       const std::vector<ReminderEvent>& existing,
                       const std::function<bool(ReminderEvent::Kind)>& owned,
                       const std::function<std::string()>& newID) {
    std::unordered_set<std::string> openKeys;
    for (const auto& event : existing) {
        if (!event.resolvedAt) openKeys.insert(event.reconcileKey());
    }
    std::unordered_set<std::string> activeKeys;
    for (const auto& event : active) activeKeys.insert(event.reconcileKey());

    Reconciliation result;
    for (auto& event : active) {
        if (openKeys.contains(event.reconcileKey())) continue;
        event.id = newID();
        result.emit.push_back(std::move(event));
    }
    for (const auto& event : existing) {
        if (event.resolvedAt || !owned(event.kind)) continue;
        if (!activeKeys.contains(event.reconcileKey())) result.resolve.push_back(event.id);
    }
    return result;
}

Reconciliation reconcile(Date now, const ReminderPrefs& prefs,
                         const std::vector<RepoConfig>& configs,
                         const std::vector<RepoSnapshot>& snapshots,
                         const std::vector<WorkSession>& sessions,
                         const std::vector<ReminderEvent>& existing,
                         const std::function<std::string()>& newID) {
    std::vector<ReminderEvent> active = activeConditions(now, prefs, configs, snapshots, sessions);

    return compare(std::move(active), existing, isLocal, newID);
}

ReminderEvent endDayReview(Date now, int activeCount, const std::function<std::string()>& newID) {
    ReminderEvent event;
    event.id = newID();
    event.kind = ReminderEvent::Kind::endDayReview;
    event.triggeredAt = now;
    event.message = activeCount == 0
                        ? std::string(
                              "End of day: no active project today. Want to note anything in the "
                              "journal?")
                        : fmt::format(
                              "End of day: you worked on {} project{}. Review and note it in the "
                              "journal.",
                              activeCount, plural(activeCount));
    return event;
}

}  // namespace quorvane::ReminderEngine
