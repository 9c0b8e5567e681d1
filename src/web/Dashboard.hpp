#pragma once

#include "app/AppEnvironment.hpp"
#include "web/DashboardServer.hpp"

namespace quorvane::Dashboard {

// Adds the pages and the JSON API, answered from the daemon's own state, to
// `server`. The API gives the same objects as the command line's --json.
void route(DashboardServer& server, AppEnvironment& env, const Clock& clock,
           const ProcessRunner& runner);

}  // namespace quorvane::Dashboard
