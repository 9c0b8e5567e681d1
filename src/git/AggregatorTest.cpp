#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include "git/Aggregator.hpp"
#include "testing/ZoneScope.hpp"

namespace quorvane {
namespace {

using enum RepoStatus;
using std::chrono::seconds;

using testing::ZoneScope;

Date at(const char* iso) {
    return *DateHelpers::parseISO(iso);
}

RepoConfig repo(const std::string& id, const std::string& name = "") {
    RepoConfig config;
    config.id = id;
    config.name = name.empty() ? id : name;
    config.localPath = "/home/dev/code/" + id;
    return config;
}

RepoSnapshot snap(const std::string& repoID, int modified = 0, int ahead = 0, int behind = 0) {
    RepoSnapshot snapshot;
    snapshot.repoID = repoID;
    snapshot.branch = "main";
    snapshot.remoteURL = "git@example.com:dev/" + repoID + ".git";
    snapshot.hasUpstream = true;
    snapshot.files.modified = modified;
    snapshot.ahead = ahead;
    snapshot.behind = behind;
    return snapshot;
}

CommitRecord commit(const std::string& repoID, Date when, std::string branch = "") {
    static int made = 0;
    CommitRecord record;
    record.repoID = repoID;
    record.sha = std::to_string(++made);
    record.committedAt = when;
    record.branch = std::move(branch);
    return record;
}

CommitRecord commit(const std::string& repoID, const char* when, std::string branch = "") {
    return commit(repoID, at(when), std::move(branch));
}

WorkSession session(const std::string& repoID, const char* endedAt, int length) {
    WorkSession record;
    record.repoID = repoID;
    record.endedAt = at(endedAt);
    record.startedAt = record.endedAt - seconds(length);
    record.estimatedSeconds = length;
    return record;
}

DayActivity day(const std::string& repoID, const char* dateKey, int commits, int seconds_,
                std::vector<std::string> statuses = {}) {
    DayActivity record;
    record.repoID = repoID;
    record.dateKey = dateKey;
    record.commitCount = commits;
    record.estimatedSeconds = seconds_;
    record.statuses = std::move(statuses);
    return record;
}

// The commits the day records say were made: each at noon of its local day.
std::vector<CommitRecord> commitsOf(const std::vector<DayActivity>& days) {
    std::vector<CommitRecord> commits;
    for (const DayActivity& record : days) {
        Date noon = *DateHelpers::parseDateKey(record.dateKey) + std::chrono::hours(12);
        for (int i = 0; i < record.commitCount; ++i) commits.push_back(commit(record.repoID, noon));
    }
    return commits;
}

template <class Row>
std::vector<std::string> names(const std::vector<Row>& rows) {
    std::vector<std::string> out;
    for (const auto& row : rows) out.push_back(row.name);
    return out;
}

TEST(Aggregator, StatusLabelsComeInDisplayOrder) {
    const Date now = at("2026-11-21T12:00:00Z");
    // Synced needs a remote branch to be in step with: none, no upstream or a
    // detached HEAD is never synced, however clean.
    RepoSnapshot clean = snap("a");
    clean.remoteURL.reset();
    EXPECT_EQ(Aggregator::statuses(clean, false, 3, std::nullopt, now),
              (std::vector{inactive, noRemote}));
    RepoSnapshot unpublished = snap("a");
    unpublished.hasUpstream = false;
    EXPECT_EQ(Aggregator::statuses(unpublished, true, 3, std::nullopt, now),
              (std::vector{activeToday}));
    EXPECT_EQ(Aggregator::statuses(snap("a"), true, 3, std::nullopt, now),
              (std::vector{synced, activeToday}));

    RepoSnapshot busy = snap("a", 2, 1, 1);
    busy.isDetachedHead = true;
    EXPECT_EQ(
        Aggregator::statuses(busy, true, 3, std::nullopt, now),
        (std::vector{needsCommit, needsPush, behindRemote, activeToday, stale, detachedHead}));

    RepoSnapshot failed = busy;
    failed.error = "fatal: not a git repository";
    EXPECT_EQ(Aggregator::statuses(failed, true, 3, std::nullopt, now), std::vector{error});

    // Stale is strictly older than the cutoff; a negative threshold means now.
    auto isStale = [&](int days, Date last) {
        auto labels = Aggregator::statuses(snap("a", 1), false, days, last, now);
        return std::find(labels.begin(), labels.end(), stale) != labels.end();
    };
    EXPECT_FALSE(isStale(3, now - seconds(3 * 86400)));
    EXPECT_TRUE(isStale(3, now - seconds(3 * 86400 + 1)));
    EXPECT_FALSE(isStale(-5, now));
    EXPECT_TRUE(isStale(-5, now - seconds(1)));
}

TEST(Aggregator, StaleCutoffCountsCalendarDaysAcrossDaylightSaving) {
    ZoneScope zone("America/New_York");
    // Noon on 2 November less three calendar days is noon on 30 October: 73 hours,
    // since 1 November has 25.
    const Date now = at("2026-11-02T17:00:00Z");
    auto labels = Aggregator::statuses(snap("a", 1), false, 3, at("2026-10-30T16:30:00Z"), now);
    EXPECT_EQ(labels, (std::vector{needsCommit, inactive}));
    labels = Aggregator::statuses(snap("a", 1), false, 3, at("2026-10-30T15:59:59Z"), now);
    EXPECT_EQ(labels, (std::vector{needsCommit, inactive, stale}));
}

TEST(Aggregator, ADayWithADaylightSavingChangeEndsAtItsOwnMidnight) {
    ZoneScope zone("America/New_York");
    // 8 March 2026 has 23 hours in New York: clocks jump from 02:00 to 03:00.
    Aggregator::DateRange range = Aggregator::dayRange(at("2026-03-08T12:00:00Z"));
    EXPECT_EQ(range.start, at("2026-03-08T05:00:00Z"));
    EXPECT_EQ(range.end, at("2026-03-09T03:59:59Z"));

    // What that day holds: a session is the day's when it ended on it, a commit when
    // it was made on it; both ends count.
    std::vector<WorkSession> sessions = {session("a", "2026-03-08T05:00:00Z", 60),
                                         session("a", "2026-03-09T04:00:00Z", 60),
                                         session("b", "2026-03-09T03:59:59Z", 600)};
    std::vector<WorkSession> ending = Aggregator::sessionsEndingIn(sessions, range);
    ASSERT_EQ(ending.size(), 2u);
    EXPECT_EQ(ending[1].repoID, "b");
    auto grouped = Aggregator::countedCommits(
                       {commit("a", "2026-03-09T03:00:00Z"), commit("b", "2026-03-08T04:59:59Z"),
                        commit("a", "2026-03-08T06:00:00Z")},
                       range, Identity::everyone())
                       .byRepo;
    ASSERT_EQ(grouped.size(), 1u);
    ASSERT_EQ(grouped["a"].size(), 2u);
    EXPECT_EQ(grouped["a"][0].committedAt, at("2026-03-09T03:00:00Z")) << "order kept";
}

TEST(Aggregator, DayActivityCountsTheLocalDayOfOneRepository) {
    ZoneScope zone("America/New_York");
    const Date now = at("2026-11-22T04:00:00Z");
    RepoSnapshot snapshot = snap("app", 2);
    snapshot.files.untracked = 1;
    snapshot.branch = "feature";
    snapshot.lastCommitAt = at("2026-11-21T15:00:00Z");
    std::vector<CommitRecord> commits = {
        commit("app", "2026-11-21T15:00:00Z", "main"),
        commit("app", "2026-11-22T03:30:00Z", "feature"),  // 22:30 on the 21st locally
        commit("app", "2026-11-21T16:00:00Z"),
        commit("app", "2026-11-22T06:00:00Z", "other"),  // the 22nd locally
        commit("web", "2026-11-21T15:00:00Z", "web-branch")};
    std::vector<WorkSession> sessions = {session("app", "2026-11-21T20:00:00Z", 600),
                                         session("app", "2026-11-20T20:00:00Z", 999),
                                         session("web", "2026-11-21T20:00:00Z", 50)};

    DayActivity result = Aggregator::dayActivity("app", "2026-11-21", snapshot, commits, sessions,
                                                 now, Identity::everyone());
    EXPECT_EQ(result.commitCount, 3);
    EXPECT_EQ(result.estimatedSeconds, 600);
    EXPECT_EQ(result.filesTouched, 3);
    EXPECT_EQ(result.branchesTouched, (std::vector<std::string>{"feature", "main"}));
    EXPECT_TRUE(result.pushed);
    EXPECT_EQ(result.statuses, (std::vector<std::string>{"needsCommit", "activeToday"}));

    snapshot.ahead = 1;
    EXPECT_FALSE(Aggregator::dayActivity("app", "2026-11-21", snapshot, commits, {}, now,
                                         Identity::everyone())
                     .pushed);
    snapshot.ahead = 0;
    // A day with only a session is active but nothing was pushed.
    DayActivity sessionOnly = Aggregator::dayActivity("app", "2026-11-20", snapshot, commits,
                                                      sessions, now, Identity::everyone());
    EXPECT_EQ(sessionOnly.commitCount, 0);
    EXPECT_FALSE(sessionOnly.pushed);
    EXPECT_EQ(sessionOnly.statuses[1], "activeToday");
}

TEST(Aggregator, SummaryKeepsDirtyRepositoriesOnlyInTodaysWindow) {
    const Date now = at("2026-11-21T15:00:00Z");
    std::vector<RepoConfig> configs = {repo("dirty"), repo("dirtier"), repo("timed"),
                                       repo("committed"), repo("hidden")};
    configs[4].trackingEnabled = false;
    RepoSnapshot dirtier = snap("dirtier", 5);
    dirtier.files.staged = 2;
    std::vector<RepoSnapshot> snapshots = {
        snap("committed"),      snap("dirty", 3),        dirtier,
        snap("timed", 0, 0, 2), snap("committed", 0, 1), snap("hidden", 9, 9, 9)};
    std::vector<CommitRecord> commits = {
        commit("committed", "2026-11-21T00:00:00Z"), commit("committed", "2026-11-21T10:00:00Z"),
        commit("committed", "2026-11-20T10:00:00Z"), commit("hidden", "2026-11-21T10:00:00Z")};
    std::vector<WorkSession> sessions = {session("timed", "2026-11-21T23:59:59Z", 900),
                                         session("committed", "2026-11-21T09:00:00Z", 300)};

    TodaySummary today =
        Aggregator::summary(at("2026-11-21T00:00:00Z"), at("2026-11-21T23:59:59Z"), "2026-11-21",
                            configs, snapshots, commits, sessions, now, Identity::everyone());
    ASSERT_EQ(names(today.lines),
              (std::vector<std::string>{"committed", "timed", "dirtier", "dirty"}));
    EXPECT_EQ(today.lines[0].commitsToday, 2);
    EXPECT_EQ(today.lines[0].ahead, 1) << "the later snapshot of a repository wins";
    EXPECT_EQ(today.lines[1].estimatedSeconds, 900);
    EXPECT_FALSE(today.lines[3].workedInWindow);
    EXPECT_EQ(today.lines[3].statuses, (std::vector{needsCommit, inactive, stale}));
    EXPECT_EQ(today.activeProjects, 2);
    EXPECT_EQ(today.totalCommits, 2);
    EXPECT_EQ(std::tuple(today.needsPushCount, today.needsCommitCount, today.behindCount,
                         today.modifiedFiles, today.stagedFiles),
              std::tuple(1, 2, 1, 8, 2));

    TodaySummary yesterday =
        Aggregator::summary(at("2026-11-20T00:00:00Z"), at("2026-11-20T23:59:59Z"), "yesterday",
                            configs, snapshots, commits, sessions, now, Identity::everyone());
    ASSERT_EQ(names(yesterday.lines), std::vector<std::string>{"committed"});
    EXPECT_TRUE(yesterday.lines[0].workedInWindow);
    EXPECT_EQ(yesterday.needsCommitCount, 2) << "counters cover every tracked repository";

    // What is left to do takes in every tracked repository, worked on or not.
    std::vector<RepoTodayLine> standing = Aggregator::standings(configs, snapshots, now);
    ASSERT_EQ(names(standing),
              (std::vector<std::string>{"dirty", "dirtier", "timed", "committed"}));
    EXPECT_EQ(standing[2].behind, 2);
    EXPECT_EQ(standing[3].ahead, 1);
    EXPECT_EQ(standing[0].statuses, (std::vector{needsCommit, inactive, stale}));
}

TEST(Aggregator, APastDayReadsItsOwnRecordsAndOlderRecordsByTheirLabels) {
    const Date now = at("2026-11-21T15:00:00Z");
    std::vector<RepoConfig> configs = {repo("kept"), repo("old"), repo("history"), repo("hidden")};
    configs[3].trackingEnabled = false;
    // Today everything is clean and in line with its remote.
    std::vector<RepoSnapshot> snapshots = {snap("kept"), snap("old"), snap("history"),
                                           snap("hidden")};
    std::vector<CommitRecord> commits = {commit("kept", "2026-11-20T10:00:00Z"),
                                         commit("old", "2026-11-20T11:00:00Z"),
                                         commit("history", "2026-11-20T12:00:00Z")};
    TodaySummary live =
        Aggregator::summary(at("2026-11-20T00:00:00Z"), at("2026-11-20T23:59:59Z"), "2026-11-20",
                            configs, snapshots, commits, {}, now, Identity::everyone());

    DayActivity kept = day("kept", "2026-11-20", 1, 0, {"needsCommit", "needsPush", "activeToday"});
    kept.branch = "feature";
    kept.files = GitFileCounts{.modified = 2, .staged = 1};
    kept.ahead = 3;
    // Written before the counts were kept: its labels still count.
    DayActivity old = day("old", "2026-11-20", 1, 0, {"behindRemote", "activeToday"});
    DayActivity hidden = day("hidden", "2026-11-20", 0, 0, {"needsCommit", "needsPush"});
    hidden.files = GitFileCounts{.modified = 9};
    TodaySummary past = Aggregator::asRecorded(live, configs, {kept, old, hidden});

    EXPECT_EQ(std::tuple(past.needsPushCount, past.needsCommitCount, past.behindCount,
                         past.modifiedFiles, past.stagedFiles),
              std::tuple(1, 1, 1, 2, 1));
    EXPECT_EQ(past.totalCommits, 3);
    ASSERT_EQ(names(past.lines), (std::vector<std::string>{"kept", "old", "history"}));
    EXPECT_EQ(past.lines[0].branch, "feature");
    EXPECT_EQ(past.lines[0].files, kept.files);
    EXPECT_EQ(past.lines[0].ahead, 3);
    EXPECT_EQ(past.lines[0].statuses, (std::vector{needsCommit, needsPush, activeToday}));
    EXPECT_EQ(past.lines[1].statuses, (std::vector{behindRemote, activeToday}));
    EXPECT_EQ(past.lines[1].files.total(), 0);
    // Commits read from history before the repository was tracked: nothing recorded.
    EXPECT_EQ(past.lines[2].statuses, std::vector{activeToday});
    EXPECT_EQ(past.lines[2].branch, "main");

    // Only a record with counts says how the repository stood at the end of the day.
    std::vector<RepoTodayLine> standing =
        Aggregator::standingsAsRecorded(configs, {old, hidden, kept});
    ASSERT_EQ(names(standing), std::vector<std::string>{"kept"});
    EXPECT_EQ(std::tuple(standing[0].branch, standing[0].files, standing[0].ahead),
              std::tuple(std::string("feature"), *kept.files, 3));
    // Scans label every record they write; history read at enrolment labels none.
    DayActivity history = day("history", "2026-11-20", 1, 0);
    EXPECT_TRUE(Aggregator::scanRecorded({history, old}));
    EXPECT_TRUE(Aggregator::scanRecorded({kept}));
    EXPECT_FALSE(Aggregator::scanRecorded({history}));
    EXPECT_FALSE(Aggregator::scanRecorded({}));
}

TEST(Aggregator, RankingPutsTheDaysWorkFirstUnlessByRecencyAlone) {
    const Date now = at("2026-11-21T15:00:00Z");
    const Date yesterday = at("2026-11-20T12:00:00Z");
    std::vector<RepoConfig> configs = {repo("apple"), repo("Banana"), repo("zed"),
                                       repo("gamma"), repo("beta"),   repo("cached")};
    configs[5].localPath = "/home/dev/Library/Caches/cached";
    std::vector<RepoSnapshot> snapshots;
    for (const auto& config : configs) snapshots.push_back(snap(config.id));
    snapshots[2].lastCommitAt = at("2026-11-21T08:00:00Z");  // after the day asked for
    snapshots[3].lastWorkingTreeChangeAt = at("2026-11-20T09:00:00Z");
    snapshots[4].lastCommitAt = at("2026-11-19T09:00:00Z");
    snapshots[5].lastCommitAt = at("2026-11-20T23:00:00Z");
    std::vector<WorkSession> sessions = {session("beta", "2026-11-20T14:00:00Z", 700),
                                         session("beta", "2026-11-21T14:00:00Z", 50)};
    SyncState betaSync;
    betaSync.id = "beta";
    betaSync.status = SyncState::Status::needsPull;

    auto rows = Aggregator::activityRanking(yesterday, configs, snapshots, {}, sessions, {betaSync},
                                            now, Aggregator::RankingOrder::workedTodayFirst,
                                            Identity::everyone());
    ASSERT_EQ(names(rows), (std::vector<std::string>{"beta", "gamma", "zed", "apple", "Banana"}));
    EXPECT_EQ(rows[0].lastActivityAt, at("2026-11-20T14:00:00Z"));
    EXPECT_EQ(rows[0].estimatedSecondsToday, 700);
    EXPECT_EQ(rows[0].syncStatus, SyncState::Status::needsPull);
    EXPECT_EQ(rows[0].statuses, (std::vector{synced, activeToday}));
    EXPECT_FALSE(rows[2].workedToday);

    rows = Aggregator::activityRanking(yesterday, configs, snapshots, {}, sessions, {}, now,
                                       Aggregator::RankingOrder::pureRecency, Identity::everyone());
    EXPECT_EQ(names(rows), (std::vector<std::string>{"zed", "beta", "gamma", "apple", "Banana"}));
    // By the working tree alone: only gamma's changed; the rest by recency.
    rows = Aggregator::activityRanking(yesterday, configs, snapshots, {}, sessions, {}, now,
                                       Aggregator::RankingOrder::workingTreeChange,
                                       Identity::everyone());
    EXPECT_EQ(names(rows), (std::vector<std::string>{"gamma", "zed", "beta", "apple", "Banana"}));

    // Cache folders stay out of the ranking, not out of the summary.
    std::vector<CommitRecord> cachedCommit = {commit("cached", "2026-11-20T10:00:00Z")};
    TodaySummary summary =
        Aggregator::summary(at("2026-11-20T00:00:00Z"), now, "", configs, snapshots, cachedCommit,
                            {}, now, Identity::everyone());
    EXPECT_EQ(names(summary.lines), std::vector<std::string>{"cached"});
}

TEST(Aggregator, WeekRunsMondayToSundayInLocalTime) {
    ZoneScope zone("America/New_York");
    std::vector<RepoConfig> configs = {repo("app"), repo("web"), repo("idle"), repo("hidden")};
    configs[1].displayName = "Beta site";
    configs[3].trackingEnabled = false;
    std::vector<DayActivity> days = {
        day("app", "2026-11-15", 5, 0),  // the Sunday before
        day("app", "2026-11-16", 2, 600),
        day("web", "2026-11-18", 0, 1200),
        day("idle", "2026-11-20", 0, 0, {"needsCommit", "inactive", "stale"}),
        day("app", "2026-11-22", 1, 0),
        day("web", "2026-11-22", 0, 0, {"needsPush", "inactive"}),
        day("hidden", "2026-11-17", 9, 999, {"needsPush"}),
        day("app", "2026-11-23", 7, 0)};
    days[3].filesTouched = 4;
    days[5].filesTouched = 6;  // worked on this week, so never the most neglected

    // Sunday evening in New York is already Monday in UTC.
    WeeklySummary week = Aggregator::weeklySummary(at("2026-11-23T01:00:00Z"), configs, days,
                                                   commitsOf(days), Identity::everyone());
    EXPECT_EQ(week.weekKey, "2026-11-16");
    ASSERT_EQ(week.perDay.size(), 7u);
    EXPECT_EQ(week.perDay[0], (DayBreakdown{"2026-11-16", "Mon", 1, 2, 600}));
    EXPECT_EQ(week.perDay[4], (DayBreakdown{"2026-11-20", "Fri", 0, 0, 0}));
    EXPECT_EQ(week.perDay[6], (DayBreakdown{"2026-11-22", "Sun", 1, 1, 0}));
    EXPECT_EQ(std::tuple(week.activeRepos, week.totalCommits, week.totalSeconds),
              std::tuple(2, 3, 1800));
    ASSERT_EQ(names(week.perRepo), (std::vector<std::string>{"app", "Beta site"}));
    EXPECT_EQ(week.perRepo[1], (WeekRepoLine{"web", "Beta site", "/home/dev/code/web", 0, 1200}));
    EXPECT_EQ(week.mostActive, "app");
    EXPECT_EQ(week.mostNeglected, "idle");
    ASSERT_EQ(names(week.needsAttention), (std::vector<std::string>{"Beta site", "idle"}));
    EXPECT_EQ(week.needsAttention[1].statuses, (std::vector{needsCommit, inactive, stale}));

    WeeklySummary empty = Aggregator::weeklySummary(at("2026-12-01T12:00:00Z"), configs, days,
                                                    commitsOf(days), Identity::everyone());
    EXPECT_EQ(empty.weekKey, "2026-11-30");
    EXPECT_FALSE(empty.mostActive.has_value());
    EXPECT_FALSE(empty.mostNeglected.has_value());
}

TEST(Aggregator, NamesSortByLetterWhateverTheirCaseOrAccentAndTiesKeepTheirOrder) {
    const Date now = at("2026-11-18T12:00:00Z");
    std::vector<RepoConfig> configs = {repo("g", "gamma"), repo("a2", "Alpha"), repo("e", "Émile"),
                                       repo("b", "Beta"), repo("a1", "alpha")};
    std::vector<DayActivity> days;
    std::vector<RepoSnapshot> snapshots;
    for (const RepoConfig& config : configs) {
        days.push_back(day(config.id, "2026-11-18", 1, 0));
        snapshots.push_back(snap(config.id));
    }
    const std::vector<std::string> expected = {"Alpha", "alpha", "Beta", "Émile", "gamma"};
    EXPECT_EQ(
        names(Aggregator::weeklySummary(now, configs, days, commitsOf(days), Identity::everyone())
                  .perRepo),
        expected);
    // With no activity dates at all, the ranking falls back to the same order.
    EXPECT_EQ(names(Aggregator::activityRanking(now, configs, snapshots, {}, {}, {}, now,
                                                Aggregator::RankingOrder::pureRecency,
                                                Identity::everyone())),
              expected);
}

TEST(Aggregator, HeatmapHasOneCellPerLocalDayEndingToday) {
    ZoneScope zone("America/New_York");
    std::vector<DayActivity> days = {day("app", "2026-10-29", 9, 0), day("app", "2026-10-31", 0, 0),
                                     day("app", "2026-11-01", 2, 0),
                                     day("web", "2026-11-01", 0, 60)};
    // 22:00 on 1 November locally, the day daylight saving ends.
    const std::vector<RepoConfig> configs = {repo("app"), repo("web")};
    auto cells = Aggregator::heatmap(3, at("2026-11-02T03:00:00Z"), days, configs, commitsOf(days),
                                     Identity::everyone());
    EXPECT_EQ(cells, (std::vector<DayBreakdown>{{"2026-10-30", "Fri", 0, 0, 0},
                                                {"2026-10-31", "Sat", 0, 0, 0},
                                                {"2026-11-01", "Sun", 2, 2, 60}}));
    EXPECT_TRUE(
        Aggregator::heatmap(0, at("2026-11-02T03:00:00Z"), days, configs, {}, Identity::everyone())
            .empty());
}

TEST(Aggregator, AlignmentOverviewClassifiesTrackedRepositories) {
    std::vector<RepoConfig> configs = {repo("local"),     repo("viaConfig"), repo("diverged"),
                                       repo("ahead"),     repo("behind"),    repo("synced"),
                                       repo("untracked"), repo("unscanned")};
    configs[1].remoteURL = "git@example.com:dev/viaConfig.git";
    configs[6].trackingEnabled = false;
    std::vector<RepoSnapshot> snapshots = {
        snap("local"),           snap("viaConfig"), snap("diverged", 0, 1, 1), snap("ahead", 0, 1),
        snap("behind", 0, 0, 1), snap("synced"),    snap("untracked", 0, 1)};
    snapshots[0].remoteURL.reset();
    snapshots[1].remoteURL.reset();
    snapshots[1].hasUpstream = false;
    EXPECT_EQ(Aggregator::alignmentOverview(configs, snapshots),
              (AlignmentOverview{.tracked = 6,
                                 .withRemote = 5,
                                 .localOnly = 1,
                                 .synced = 1,
                                 .needsPush = 1,
                                 .needsPull = 1,
                                 .diverged = 1,
                                 .noUpstream = 1}));
}

TEST(Aggregator, InsightsCountWorkedProjectsAndPeriodsEndNow) {
    ZoneScope zone("America/New_York");
    const Date now = at("2026-11-21T15:00:00Z");
    EXPECT_EQ(Aggregator::bounds(InsightsPeriod::today, now).start, at("2026-11-21T05:00:00Z"));
    // Thirty calendar days back crosses the end of daylight saving.
    EXPECT_EQ(Aggregator::bounds(InsightsPeriod::month, now),
              (Aggregator::DateRange{at("2026-10-22T04:00:00Z"), now}));
    EXPECT_EQ(Aggregator::bounds(InsightsPeriod::allTime, now).start, Date{});

    std::vector<RepoConfig> configs = {repo("app"), repo("web"), repo("quiet")};
    std::vector<RepoSnapshot> snapshots = {snap("app"), snap("web"), snap("quiet")};
    snapshots[1].remoteURL.reset();
    std::vector<CommitRecord> commits = {commit("app", "2026-11-21T10:00:00Z", "main"),
                                         commit("app", "2026-11-21T11:00:00Z", "fix"),
                                         commit("app", "2026-11-19T11:00:00Z", "old")};
    commits[1].isLocalOnly = true;
    std::vector<WorkSession> sessions = {session("web", "2026-11-21T12:00:00Z", 400)};
    auto [start, end] = Aggregator::bounds(InsightsPeriod::today, now);
    EXPECT_EQ(Aggregator::insights(start, end, "Today", configs, snapshots, commits, sessions,
                                   Identity::everyone()),
              (ActivityInsights{"Today", 2, 1, 1, 2, 3, 1, 400}));
}

TEST(Aggregator, RecordsPrintFieldNamesAndLeaveOutAbsentDates) {
    RepoTodayLine line;
    line.statuses = {needsPush, stale};
    TodaySummary summary;
    summary.lines = {line};
    Json json = toJson(summary);
    EXPECT_EQ(json["lines"][0]["statuses"], (Json{"needsPush", "stale"}));
    EXPECT_FALSE(json["lines"][0].contains("lastCommitAt"));
    line.lastCommitAt = at("2026-11-21T10:00:00Z");
    EXPECT_EQ(toJson(line)["lastCommitAt"], "2026-11-21T10:00:00Z");
    ActivityRow row;
    row.syncStatus = SyncState::Status::diverged;
    EXPECT_EQ(toJson(row)["syncStatus"], "diverged");
    EXPECT_FALSE(toJson(WeeklySummary{}).contains("mostActive"));
}

// Whose a commit is: the repositories' user.email in any case, the addresses and
// names the person added, and nobody's in particular while none is known.
TEST(Aggregator, CountsThePersonsOwnCommitsOnceAndColleaguesAsPulledIn) {
    auto by = [](const char* repoID, const char* sha, const char* name, const char* email) {
        CommitRecord record = commit(repoID, "2026-11-21T10:00:00Z");
        record.sha = sha;
        record.authorName = name;
        record.authorEmail = email;
        return record;
    };
    std::vector<CommitRecord> commits = {
        by("app", "a1", "Me", "ME@work.example"),
        by("app", "a1", "Me", "me@work.example"),
        by("app", "a2", "Me at home", "me@home.example"),
        by("app", "a3", "Ann", "ann@x.example"),
        by("web", "a1", "Bo", "bo@x.example"),  // the same object name in another repository
        by("web", "w2", "Me", "me@work.example")};
    AppConfig config;
    config.repositories = {repo("app"), repo("web")};
    RepoSnapshot app = snap("app");
    app.userEmails = {" me@work.example "};
    RepoSnapshot untracked = snap("elsewhere");
    untracked.userEmails = {"ann@x.example"};
    const Aggregator::DateRange day = Aggregator::dayRange(at("2026-11-21T12:00:00Z"));

    Aggregator::CountedCommits mine =
        Aggregator::countedCommits(commits, day, Identity::of(config, {app, untracked}));
    EXPECT_EQ(mine.count("app"), 1) << "a1 read twice is one commit";
    EXPECT_EQ(mine.pulledInCount("app"), 2);
    EXPECT_EQ(mine.count("web"), 1);
    EXPECT_EQ(mine.pulledInCount("web"), 1);

    config.identities = {"Me at home", "BO@X.EXAMPLE"};
    mine = Aggregator::countedCommits(commits, day, Identity::of(config, {app}));
    EXPECT_EQ(mine.count("app"), 2);
    EXPECT_EQ(mine.count("web"), 2);

    config.countOnlyMyCommits = false;
    EXPECT_EQ(Aggregator::countedCommits(commits, day, Identity::of(config, {app})).count("app"),
              3);
    config.countOnlyMyCommits = true;
    config.identities.clear();
    EXPECT_EQ(Aggregator::countedCommits(commits, day, Identity::of(config, {})).count("app"), 3)
        << "with no address known, every commit is the person's";
    EXPECT_EQ(Aggregator::countedCommits(commits, Aggregator::dayRange(at("2026-11-22T12:00:00Z")),
                                         Identity::everyone())
                  .count("app"),
              0);
}

}  // namespace
}  // namespace quorvane
