#include <gtest/gtest.h>

#include "github/HealthScorer.hpp"
#include "testing/ZoneScope.hpp"

namespace quorvane {
namespace {

using Status = SyncState::Status;
using std::chrono::days;

const Date kNow = *DateHelpers::parseISO("2026-11-21T15:00:00Z");

RepoSnapshot scan(GitFileCounts files = {}, std::optional<std::string> error = std::nullopt) {
    RepoSnapshot snapshot;
    snapshot.repoID = "/code/app";
    snapshot.files = files;
    snapshot.error = std::move(error);
    return snapshot;
}

SyncState sync(Status status, int ahead = 0, int behind = 0, const char* remoteRepoID = nullptr) {
    SyncState state;
    state.id = "/code/state";
    state.repoID = "/code/state";
    state.status = status;
    state.localAhead = ahead;
    state.localBehind = behind;
    if (remoteRepoID != nullptr) state.remoteRepoID = remoteRepoID;
    return state;
}

// "score +positive... -negative...", each list in its own order.
std::string scored(const std::optional<RepoSnapshot>& snapshot,
                   const std::optional<SyncState>& state, std::optional<Date> lastActivity,
                   Date now = kNow) {
    ProjectHealthSnapshot health = HealthScorer::score(snapshot, state, lastActivity, now);
    std::string text = std::to_string(health.score);
    for (const auto& reason : health.reasonsPositive) text += " +" + reason;
    for (const auto& reason : health.reasonsNegative) text += " -" + reason;
    return text;
}

TEST(HealthScorer, DeductsForEachProblemAndNamesItInStepOrder) {
    const char* remote = "acc:octo/app";
    const auto none = std::nullopt;
    EXPECT_EQ(scored(scan(), sync(Status::synced, 0, 0, remote), kNow - days(2)),
              "100 +Synced with remote +Active recently +Mapped to GitHub");
    EXPECT_EQ(scored(none, none, none), "100");
    EXPECT_EQ(scored(scan({}, ""), none, none), "100");  // an empty error is no error
    EXPECT_EQ(scored(none, sync(Status::needsPull, 0, 3), none), "90 -Behind remote (3 behind)");
    EXPECT_EQ(scored(none, sync(Status::needsPush, 4), none),
              "85 -Unpushed local commits (4 ahead)");
    EXPECT_EQ(scored(none, sync(Status::diverged, 2, 1), none),
              "75 -Unpushed local commits (2 ahead) -Behind remote (1 behind)");
    EXPECT_EQ(scored(none, sync(Status::noUpstream, 5), none), "90 -Branch has no upstream");
    EXPECT_EQ(scored(none, sync(Status::remoteInaccessible, 0, 0, remote), none),
              "85 +Mapped to GitHub -Remote inaccessible");
    // A local-only verdict never counts as mapped; the file count is printed as it is.
    EXPECT_EQ(scored(scan({.modified = 1}), sync(Status::localOnly, 0, 0, remote), none),
              "75 -Uncommitted changes (1 files) -Not on GitHub (local only)");
    // The two worst cases bottom out at 20.
    EXPECT_EQ(scored(scan({1, 1, 1, 1, 1}, "fatal"), sync(Status::diverged, 2, 1, remote),
                     kNow - days(30)),
              "20 +Mapped to GitHub -Scan error -Uncommitted changes (5 files) -Unpushed local "
              "commits (2 ahead) -Behind remote (1 behind) -Inactive for 30 days");
    EXPECT_EQ(scored(scan({.untracked = 2}, "x"), sync(Status::localOnly, 0, 1), kNow - days(15)),
              "20 -Scan error -Uncommitted changes (2 files) -Behind remote (1 behind) -Not on "
              "GitHub (local only) -Inactive for 15 days");

    // The snapshot names the repository before the sync state does.
    ProjectHealthSnapshot both = HealthScorer::score(scan(), sync(Status::synced), none, kNow);
    EXPECT_EQ(both.id + both.repoID, "/code/app/code/app");
    EXPECT_EQ(HealthScorer::score(none, sync(Status::synced), none, kNow).id, "/code/state");
    EXPECT_EQ(HealthScorer::score(none, none, none, kNow).capturedAt, kNow);
}

TEST(HealthScorer, CountsInactivityInWholeCalendarDays) {
    EXPECT_EQ(scored(std::nullopt, std::nullopt, kNow - days(14)), "100 +Active recently");
    EXPECT_EQ(scored(std::nullopt, std::nullopt, kNow - days(15)), "80 -Inactive for 15 days");
    EXPECT_EQ(scored(std::nullopt, std::nullopt, kNow - days(15) + std::chrono::seconds(1)),
              "100 +Active recently");
    EXPECT_EQ(scored(std::nullopt, std::nullopt, kNow + days(40)), "100 +Active recently");

    // Across the spring change in Berlin, fifteen calendar days are an hour short of
    // fifteen times 24 hours, and still fifteen days.
    testing::ZoneScope berlin("Europe/Berlin");
    Date before = DateHelpers::fromLocal(2026, 3, 20, 12, 0, 0);
    EXPECT_EQ(
        scored(std::nullopt, std::nullopt, before, DateHelpers::fromLocal(2026, 4, 4, 12, 0, 0)),
        "80 -Inactive for 15 days");
    EXPECT_EQ(
        scored(std::nullopt, std::nullopt, before, DateHelpers::fromLocal(2026, 4, 4, 11, 59, 59)),
        "100 +Active recently");
}

}  // namespace
}  // namespace quorvane
