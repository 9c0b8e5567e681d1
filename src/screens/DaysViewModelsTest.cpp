#include "screens/DaysViewModels.hpp"

#include <gtest/gtest.h>

#include "testing/ZoneScope.hpp"

namespace quorvane {
namespace {

using testing::ZoneScope;
using namespace std::chrono_literals;

// A local time in New York, where 2026-11-01 is 25 hours long.
Date local(int month, int day, int hour, int minute) {
    return DateHelpers::fromLocal(2026, month, day, hour, minute, 0);
}

WorkSession session(const std::string& id, const std::string& repoID, Date from, Date to) {
    WorkSession made;
    made.id = id;
    made.repoID = repoID;
    made.startedAt = from;
    made.endedAt = to;
    made.estimatedSeconds = static_cast<int>((to - from).count());
    return made;
}

CommitRecord commit(const std::string& sha, const std::string& repoID, Date when) {
    CommitRecord made;
    made.sha = sha;
    made.shortSha = sha;
    made.repoID = repoID;
    made.committedAt = when;
    return made;
}

std::vector<std::string> shas(const std::vector<CommitRecord>& commits) {
    std::vector<std::string> out;
    for (const CommitRecord& each : commits) out.push_back(each.sha);
    return out;
}

TEST(ActivityViewModelTest, EachCommitLandsInTheSessionThatHoldsItOrOutsideAny) {
    ZoneScope zone("America/New_York");
    RepoConfig app;
    app.id = "/home/me/code/app";
    app.name = "app";
    app.displayName = "App";
    const std::string gone = "/home/me/code/gone";  // no longer configured
    // The night's session runs over midnight; the morning one was opened by the scan
    // after the 09:45 commit, which is its work; 09:00 is an hour before it.
    std::vector<WorkSession> sessions = {
        session("morning", app.id, local(11, 2, 10, 0), local(11, 2, 11, 0)),
        session("night", app.id, local(11, 1, 23, 30), local(11, 2, 0, 40))};
    std::vector<CommitRecord> commits = {
        commit("c4", app.id, local(11, 2, 10, 30)), commit("g1", gone, local(11, 2, 8, 0)),
        commit("c1", app.id, local(11, 2, 0, 10)),  commit("c3", app.id, local(11, 2, 9, 0)),
        commit("c2", app.id, local(11, 2, 9, 45)),
    };
    ActivityViewModel::Day day = ActivityViewModel::build(local(11, 2, 12, 0), local(11, 2, 15, 0),
                                                          {app}, sessions, commits);

    ASSERT_EQ(day.repositories.size(), 2u);
    const ActivityViewModel::RepoTimeline& first = day.repositories[0];
    EXPECT_EQ(first.name, "App");  // its night session began before the other's first commit
    ASSERT_EQ(first.sessions.size(), 2u);
    EXPECT_EQ(first.sessions[0].session.id, "night");
    EXPECT_EQ(shas(first.sessions[0].commits), (std::vector<std::string>{"c1"}));
    EXPECT_EQ(shas(first.sessions[1].commits), (std::vector<std::string>{"c2", "c4"}));
    EXPECT_EQ(shas(first.outside), (std::vector<std::string>{"c3"}));
    EXPECT_EQ(first.commitCount, 4);
    EXPECT_EQ(first.seconds, 70 * 60 + 60 * 60);
    EXPECT_EQ(day.repositories[1].name, "gone");
    EXPECT_EQ(shas(day.repositories[1].outside), (std::vector<std::string>{"g1"}));
    EXPECT_EQ(day.sessionCount, 2);
    EXPECT_EQ(day.commitCount, 5);

    // Across the long day of the clock change, and no next day from today on.
    EXPECT_EQ(day.dateKey, "2026-11-02");
    EXPECT_EQ(day.previousDateKey, "2026-11-01");
    Json json = ActivityViewModel::toJson(day);
    EXPECT_FALSE(json.contains("nextDateKey"));
    const Json& night = json["repositories"][0]["sessions"][0];
    EXPECT_EQ(night["start"], "2026-11-01 23:30");
    EXPECT_EQ(night["end"], "00:40");
    EXPECT_EQ(json["repositories"][0]["sessions"][1]["commits"][1]["commit"]["sha"], "c4");
    EXPECT_EQ(
        ActivityViewModel::build(local(11, 1, 0, 0), local(11, 2, 0, 0), {}, {}, {}).nextDateKey,
        "2026-11-02");
}

TEST(WeekViewModelTest, NeighbouringWeeksStartOnMondaysAcrossTheYearAndTheClockChange) {
    ZoneScope zone("America/New_York");
    WeeklySummary summary;
    summary.weekKey = "2026-12-28";
    Json json = WeekViewModel::toJson(summary);
    EXPECT_EQ(json["previousWeekKey"], "2026-12-21");
    EXPECT_EQ(json["nextWeekKey"], "2027-01-04");
    summary.weekKey = "2026-10-26";
    EXPECT_EQ(WeekViewModel::toJson(summary)["nextWeekKey"], "2026-11-02");
}

TEST(CalendarViewModelTest, StreaksAndTotalsCountDaysWithWorkAndTodayDoesNotBreakAStreak) {
    const std::vector<int> commits = {0, 2, 8, 1, 0, 0, 3, 1, 1, 0};
    const std::vector<std::string> weekdays = {"Wed", "Thu", "Fri", "Sat", "Sun",
                                               "Mon", "Tue", "Wed", "Thu", "Fri"};
    std::vector<DayBreakdown> days;
    for (size_t i = 0; i < commits.size(); ++i) {
        days.push_back({"2026-11-" + std::to_string(11 + i), weekdays[i], commits[i] > 0 ? 1 : 0,
                        commits[i], 0});
    }
    days[4].seconds = 600;  // work without a commit keeps the streak going

    CalendarViewModel::Calendar calendar = CalendarViewModel::build(days);
    EXPECT_EQ(calendar.streaks, (std::vector<int>{0, 1, 2, 3, 4, 0, 1, 2, 3, 0}));
    EXPECT_EQ(calendar.longestStreak, 4);
    EXPECT_EQ(calendar.currentStreak, 3);  // today is still quiet
    EXPECT_EQ(calendar.activeDays, 7);
    EXPECT_EQ(calendar.totalCommits, 16);
    EXPECT_EQ(calendar.totalSeconds, 600);
    EXPECT_EQ(calendar.lead, 2);
    EXPECT_EQ(calendar.levels, (std::vector<int>{0, 1, 4, 1, 0, 0, 2, 1, 1, 0}));
    Json first = CalendarViewModel::daysJson(calendar)[3];
    EXPECT_EQ(first["streak"], 3);
    EXPECT_EQ(first["commitCount"], 1);

    days.back().commitCount = 1;
    EXPECT_EQ(CalendarViewModel::build(days).currentStreak, 4);
    days[8].commitCount = 0;
    EXPECT_EQ(CalendarViewModel::build(days).currentStreak, 1);
    EXPECT_EQ(CalendarViewModel::build({}).currentStreak, 0);
}

}  // namespace
}  // namespace quorvane
