#include "app/Queries.hpp"

#include <stdlib.h>
#include <time.h>

#include <gtest/gtest.h>

#include "testing/FakeClock.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

Date at(const char* iso) {
    return *DateHelpers::parseISO(iso);
}

// Two tracked repositories, "/code/api" and "/code/web", read on Wednesday 1 April
// 2026 at 10:00 UTC; each test seeds the store with what it needs.
class QueriesTest : public ::testing::Test {
protected:
    void SetUp() override {
        store_.load();
        for (const char* id : {"/code/api", "/code/web"}) {
            RepoConfig repo;
            repo.id = repo.localPath = id;
            repo.name = std::string(id).substr(6);
            config_.repositories.push_back(repo);
            RepoSnapshot snapshot;
            snapshot.repoID = id;
            snapshot.branch = "main";
            store_.replaceSnapshot(snapshot);
        }
    }
    void commit(const std::string& repoID, const std::string& sha, const char* when) {
        CommitRecord record;
        record.repoID = repoID;
        record.sha = sha;
        record.committedAt = at(when);
        store_.upsertCommits({record});
    }
    void session(const std::string& id, const char* start, const char* end) {
        int seconds = static_cast<int>((at(end) - at(start)).count());
        store_.upsertSessions({WorkSession{.id = id,
                                           .repoID = "/code/api",
                                           .startedAt = at(start),
                                           .endedAt = at(end),
                                           .estimatedSeconds = seconds}});
    }
    // A day's record and the commits it says were made, each at noon.
    void day(const std::string& repoID, const std::string& key, int commits) {
        DayActivity activity;
        activity.repoID = repoID;
        activity.dateKey = key;
        activity.commitCount = commits;
        store_.setDayActivity(activity);
        std::string noon = key + "T12:00:00Z";
        for (int i = 0; i < commits; ++i) {
            commit(repoID, key + "/" + std::to_string(i), noon.c_str());
        }
    }

    Date now_ = at("2026-04-01T10:00:00Z");
    testing::TempDir dir_;
    testing::FakeClock clock_{now_};
    Store store_{dir_.path(), clock_};
    AppConfig config_;
};

TEST_F(QueriesTest, ADayRunsFromMidnightToItsLastSecond) {
    commit("/code/api", "late", "2026-03-31T23:59:59Z");
    commit("/code/api", "early", "2026-04-01T00:00:00Z");
    commit("/code/web", "last", "2026-04-01T23:59:59Z");
    // A session counts on the day it ended, though it began the evening before.
    session("across", "2026-03-31T23:50:00Z", "2026-04-01T00:10:00Z");
    session("yesterday", "2026-03-31T22:00:00Z", "2026-03-31T23:59:59Z");

    TodaySummary today = Queries::todaySummary(store_, config_, now_);
    EXPECT_EQ(today.dateKey, "2026-04-01");
    EXPECT_EQ(today.totalCommits, 2);
    ASSERT_EQ(today.lines.size(), 2u);
    EXPECT_EQ(today.lines[0].estimatedSeconds, 1200);

    Date noonBefore = at("2026-03-31T12:00:00Z");
    TodaySummary yesterday = Queries::summary(store_, config_, now_, noonBefore, noonBefore);
    EXPECT_EQ(yesterday.dateKey, "2026-03-31");
    EXPECT_EQ(yesterday.totalCommits, 1);
    EXPECT_EQ(yesterday.lines.at(0).estimatedSeconds, 7199);
    TodaySummary both = Queries::summary(store_, config_, now_, noonBefore, now_);
    EXPECT_EQ(both.dateKey, "2026-03-31 → 2026-04-01");
    EXPECT_EQ(both.totalCommits, 3);
}

TEST_F(QueriesTest, AWeekIsPickedOutOfTheRecordsAroundItsDate) {
    day("/code/api", "2026-03-29", 9);  // the Sunday before
    day("/code/api", "2026-03-30", 2);  // Monday, still in March
    day("/code/web", "2026-03-30", 1);
    day("/code/web", "2026-04-05", 4);  // Sunday
    day("/code/web", "2026-04-06", 7);  // the Monday after

    WeeklySummary week = Queries::weeklySummary(store_, config_, now_);
    EXPECT_EQ(week.weekKey, "2026-03-30");
    EXPECT_EQ(week.perDay.at(0).commitCount, 3);
    EXPECT_EQ(week.perDay.at(6).commitCount, 4);
    EXPECT_EQ(week.totalCommits, 7);
    // A Sunday belongs to the week that began the Monday before.
    EXPECT_EQ(Queries::weeklySummary(store_, config_, at("2026-04-05T23:00:00Z")), week);
}

TEST_F(QueriesTest, TheHeatmapHasExactlyTheDaysAskedForEndingToday) {
    day("/code/api", "2026-03-22", 8);  // one day too early for ten days
    day("/code/api", "2026-03-23", 1);
    day("/code/web", "2026-04-01", 3);

    std::vector<DayBreakdown> cells = Queries::heatmap(store_, config_, now_, 10);
    ASSERT_EQ(cells.size(), 10u);
    EXPECT_EQ(cells.front().dateKey, "2026-03-23");
    EXPECT_EQ(cells.front().commitCount, 1);
    EXPECT_EQ(cells.back().dateKey, "2026-04-01");
    EXPECT_EQ(cells.back().commitCount, 3);
    EXPECT_EQ(Queries::heatmap(store_, config_, now_, 1).size(), 1u);
}

TEST_F(QueriesTest, InsightsPeriodsStartAtTodayThirtyDaysBackOrTheBeginning) {
    commit("/code/api", "first", "2026-03-02T00:00:00Z");  // 30 days before today's midnight
    commit("/code/api", "before", "2026-03-01T23:59:59Z");
    commit("/code/web", "today", "2026-04-01T08:00:00Z");

    ActivityInsights today = Queries::insights(store_, config_, now_, InsightsPeriod::today);
    ActivityInsights month = Queries::insights(store_, config_, now_, InsightsPeriod::month);
    ActivityInsights all = Queries::insights(store_, config_, now_, InsightsPeriod::allTime);
    EXPECT_EQ(today.label, "Today");
    EXPECT_EQ(today.commits, 1);
    EXPECT_EQ(month.label, "Last 30 days");
    EXPECT_EQ(month.commits, 2);
    EXPECT_EQ(month.projectsWorked, 2);
    EXPECT_EQ(all.label, "All time");
    EXPECT_EQ(all.commits, 3);
}

}  // namespace
}  // namespace quorvane
