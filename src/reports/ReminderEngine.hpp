#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "base/Uuid.hpp"
#include "persistence/AppConfig.hpp"
#include "records/ReminderEvent.hpp"
#include "records/RepoConfig.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/WorkSession.hpp"

// The reminders that the local scan alone can justify: commits to push, work left
// uncommitted, a branch behind its remote, changes left lying for days. Pure: the
// clock and everything on file come in as arguments, and the caller stores the result.
namespace quorvane::ReminderEngine {

// What one pass changes: reminders to raise, and the ids of open ones to mark resolved.
struct Reconciliation {
    std::vector<ReminderEvent> emit;
    std::vector<std::string> resolve;

    bool operator==(const Reconciliation&) const = default;
};

// The comparison both reminder engines make: each condition in `active` without an
// open reminder of its key is raised under a new id; each open reminder of a kind
// `owned` accepts whose key is no longer active is resolved. Resolved reminders do
// not count, so a condition that returns is raised anew.
Reconciliation compare(std::vector<ReminderEvent> active,
                       const std::vector<ReminderEvent>& existing,
                       const std::function<bool(ReminderEvent::Kind)>& owned,
                       const std::function<std::string()>& newID);

// Compares what holds now for each tracked repository with the reminders on file.
// A condition with an open reminder of the same key is not raised again, and that
// reminder keeps its first message; an open reminder of a local kind whose condition
// no longer holds is resolved. Reminders of other kinds are never touched. `newID`
// names each raised reminder; it is a parameter so replays are exact.
Reconciliation reconcile(Date now, const ReminderPrefs& prefs,
                         const std::vector<RepoConfig>& configs,
                         const std::vector<RepoSnapshot>& snapshots,
                         const std::vector<WorkSession>& sessions,
                         const std::vector<ReminderEvent>& existing,
                         const std::function<std::string()>& newID = newUUID);

// The evening nudge to look back on the day; `activeCount` is how many repositories
// saw work today.
ReminderEvent endDayReview(Date now, int activeCount,
                           const std::function<std::string()>& newID = newUUID);

}  // namespace quorvane::ReminderEngine
