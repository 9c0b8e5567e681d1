#pragma once

#include "app/AppEnvironment.hpp"
#include "web/DashboardServer.hpp"

namespace quorvane::Dashboard {

// Adds the pages and the JSON API, answered from the daemon's own state, to
// `server`. The API gives the same objects as the command line's --json.
void route(DashboardServer& server, AppEnvironment& env, const Clock& clock,
           const ProcessRunner& runner);

// The first run (scan folders, start at login) and the panel's figures.
void routeFirstRun(DashboardServer& server, AppEnvironment& env, const Clock& clock,
                   const ProcessRunner& runner);
// Activity, Week and Calendar: the day's timeline, a week and the year of commits.
void routeDays(DashboardServer& server, AppEnvironment& env, const Clock& clock,
               const ProcessRunner& runner);
// The screens of how local work stands against GitHub: alignment, inventory,
// backlog and accounts.
void routeGitHub(DashboardServer& server, AppEnvironment& env, const Clock& clock,
                 const ProcessRunner& runner);
// Needs attention, Projects and Branches: the work waiting in the repositories,
// what is tracked, and the branches the last sync recorded.
void routeWork(DashboardServer& server, AppEnvironment& env, const Clock& clock,
               const ProcessRunner& runner);
// The Journal and Reports screens: a day's journal, the reports as files, and the AI
// summary written in the background while the page follows it.
void routeWriting(DashboardServer& server, AppEnvironment& env, const Clock& clock,
                  const ProcessRunner& runner);

// Streams `feed`'s events to open pages on /api/v1/events as server-sent events,
// until the server stops.
void routeEvents(DashboardServer& server, EventFeed& feed);

}  // namespace quorvane::Dashboard
