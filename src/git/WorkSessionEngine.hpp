#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "base/Uuid.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/WorkSession.hpp"

namespace quorvane::WorkSessionEngine {

// How long a repository may stay quiet before its open session ends, in seconds.
inline constexpr double kIdleTimeoutSeconds = 1200.0;

// Compares two consecutive snapshots of one repository, plus its latest file event,
// and returns the session to store: a new one, the open one extended or closed, or
// nothing. `newID` names a session it opens; it is a parameter so replays are exact.
std::vector<WorkSession> update(const std::optional<RepoSnapshot>& previous,
                                const RepoSnapshot& current, const std::optional<WorkSession>& open,
                                Date now, double idleTimeout, std::optional<Date> fileActivityAt,
                                const std::function<std::string()>& newID = newUUID);

}  // namespace quorvane::WorkSessionEngine
