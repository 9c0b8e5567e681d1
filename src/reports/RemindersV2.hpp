#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "base/Uuid.hpp"
#include "persistence/AppConfig.hpp"
#include "records/GitHubAccount.hpp"
#include "records/ReminderEvent.hpp"
#include "records/RepoConfig.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/SyncState.hpp"
#include "reports/ReminderEngine.hpp"

// The reminders that need the GitHub alignment: a branch behind or without an
// upstream, repositories that exist only on GitHub, an account whose token stopped
// working. Pure: the clock and everything on file come in as arguments.
namespace quorvane::RemindersV2 {

using Reconciliation = ReminderEngine::Reconciliation;

// Compares the conditions the last sync shows with the reminders on file. A
// condition with an open reminder of the same kind and repository is not raised
// again, and that reminder keeps its first message; an open reminder of an alignment
// kind whose condition is gone is resolved. Local and end-of-day reminders are never
// touched. A sync state whose repository is not tracked still counts, named by its
// id. `snapshots` are the latest scans, which tell a detached HEAD from a branch.
// `newID` names each raised reminder; it is a parameter so replays are exact.
Reconciliation reconcile(Date now, const ReminderPrefs& prefs,
                         const std::vector<RepoConfig>& configs,
                         const std::vector<SyncState>& syncStates,
                         const std::vector<RepoSnapshot>& snapshots,
                         const std::vector<GitHubAccount>& accounts,
                         const std::vector<ReminderEvent>& existing,
                         const std::function<std::string()>& newID = newUUID);

}  // namespace quorvane::RemindersV2
