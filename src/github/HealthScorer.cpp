#include "github/HealthScorer.hpp"

#include <ctime>

#include <fmt/format.h>

namespace quorvane::HealthScorer {
namespace {

using Status = SyncState::Status;

// Whole calendar days from `from` to `to` in local time, counted the way a person
// does: the same wall-clock time on a later day is one more day, so a daylight-saving
// change in between neither adds nor takes one. Truncated toward zero, so an instant
// in the future gives zero or less. Zero when the C library cannot break a time down.
int wholeDaysBetween(Date from, Date to) {
    std::time_t fromTime = from.time_since_epoch().count();
    std::time_t toTime = to.time_since_epoch().count();
    std::tm start{}, end{};
    if (localtime_r(&fromTime, &start) == nullptr || localtime_r(&toTime, &end) == nullptr) {
        return 0;
    }
    auto civilDay = [](const std::tm& parts) {
        return std::chrono::sys_days(
            std::chrono::year_month_day(std::chrono::year(parts.tm_year + 1900),
                                        std::chrono::month(static_cast<unsigned>(parts.tm_mon + 1)),
                                        std::chrono::day(static_cast<unsigned>(parts.tm_mday))));
    };
    int days = static_cast<int>((civilDay(end) - civilDay(start)).count());
    auto shifted = [&](int count) {
        return DateHelpers::fromLocal(start.tm_year + 1900, start.tm_mon + 1, start.tm_mday + count,
                                      start.tm_hour, start.tm_min, start.tm_sec);
    };
    if (days > 0 && shifted(days) > to) return days - 1;
    if (days < 0 && shifted(days) < to) return days + 1;
    return days;
}

}  // namespace

ProjectHealthSnapshot score(const std::optional<RepoSnapshot>& snapshot,
                            const std::optional<SyncState>& syncState,
                            std::optional<Date> lastActivity, Date now) {
    ProjectHealthSnapshot result;
    if (snapshot) {
        result.repoID = snapshot->repoID;
    } else if (syncState) {
        result.repoID = syncState->repoID.value_or("");
    }
    result.id = result.repoID;
    result.capturedAt = now;
    result.score = 100;
    auto deduct = [&](int points, std::string reason) {
        result.score -= points;
        result.reasonsNegative.push_back(std::move(reason));
    };

    // An empty error text is no error: the scan said nothing went wrong.
    if (snapshot && snapshot->error && !snapshot->error->empty()) deduct(25, "Scan error");
    if (snapshot && snapshot->files.total() > 0) {
        deduct(10, fmt::format("Uncommitted changes ({} files)", snapshot->files.total()));
    }

    if (syncState) {
        Status status = syncState->status;
        if (status == Status::needsPush || status == Status::diverged) {
            deduct(15, fmt::format("Unpushed local commits ({} ahead)", syncState->localAhead));
        }
        // Read from the count, not the status, so a diverged branch pays for both sides.
        if (syncState->localBehind > 0) {
            deduct(10, fmt::format("Behind remote ({} behind)", syncState->localBehind));
        }
        if (status == Status::synced) result.reasonsPositive.push_back("Synced with remote");
        if (status == Status::noUpstream) deduct(10, "Branch has no upstream");
        if (status == Status::localOnly) deduct(15, "Not on GitHub (local only)");
        if (status == Status::remoteInaccessible) deduct(15, "Remote inaccessible");
    }

    if (lastActivity) {
        int days = wholeDaysBetween(*lastActivity, now);
        if (days > kActiveDays) {
            deduct(20, fmt::format("Inactive for {} days", days));
        } else {
            result.reasonsPositive.push_back("Active recently");
        }
    }

    // A local-only verdict outranks a remote id left over from an earlier mapping.
    if (syncState && syncState->remoteRepoID && syncState->status != Status::localOnly) {
        result.reasonsPositive.push_back("Mapped to GitHub");
    }
    return result;
}

}  // namespace quorvane::HealthScorer
