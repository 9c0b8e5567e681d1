#include <gtest/gtest.h>

#include "git/Aggregator.hpp"
#include "persistence/AtomicFile.hpp"
#include "reports/MarkdownReport.hpp"
#include "reports/ReportExport.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using enum RepoStatus;

Date at(const char* iso) {
    return *DateHelpers::parseISO(iso);
}

RepoTodayLine line(const std::string& name, const std::string& branch = "main") {
    RepoTodayLine result;
    result.repoID = "/home/dev/" + name;
    result.name = name;
    result.branch = branch;
    result.statuses = {synced, activeToday};
    return result;
}

CommitRecord commit(const std::string& repoID, const char* sha, const char* when,
                    const std::string& message) {
    CommitRecord record;
    record.repoID = repoID;
    record.sha = record.shortSha = sha;
    record.committedAt = at(when);
    record.message = message;
    return record;
}

DailyReport reportOf(std::vector<RepoTodayLine> lines) {
    DailyReport report;
    report.dateKey = "2026-03-11";
    report.summary.dateKey = "2026-03-11";
    report.summary.lines = std::move(lines);
    return report;
}

TEST(MarkdownReportTest, DurationsDropSecondsAndShowHoursFromTheFirstFullHour) {
    EXPECT_EQ(formatDuration(0), "0m");
    EXPECT_EQ(formatDuration(59), "0m");
    EXPECT_EQ(formatDuration(3599), "59m");
    EXPECT_EQ(formatDuration(3600), "1h 0m");
    EXPECT_EQ(formatDuration(3660), "1h 1m");
    EXPECT_EQ(formatDuration(-30), "0m");
}

TEST(MarkdownReportTest, AProjectShowsDetachedHeadSyncOnlyWhenOffAndTodaysSubjectsOnly) {
    RepoTodayLine detached = line("probe", "");
    detached.commitsToday = 2;
    detached.estimatedSeconds = 3660;
    detached.statuses = {needsCommit, activeToday, detachedHead};
    RepoTodayLine level = line("level");
    RepoTodayLine ahead = line("ahead");
    ahead.ahead = 2;

    std::map<std::string, std::vector<CommitRecord>> commits;
    commits[detached.repoID] = {
        commit(detached.repoID, "c3", "2026-03-11T16:00:00Z", "Fix the parser\n\nLong body"),
        commit(detached.repoID, "c2", "2026-03-11T09:00:00Z", "Start the parser"),
        commit(detached.repoID, "c1", "2026-03-10T23:59:59Z", "Yesterday's work")};
    std::string text = MarkdownReport::daily(reportOf({detached, level, ahead}), {}, commits);

    EXPECT_NE(text.find("### probe (`detached`)\n\n"
                        "- Commits: 2 · Time: 1h 1m\n"
                        "- Files: 0 modified, 0 staged, 0 untracked\n"
                        "- Status: needs commit, detached, active\n"
                        "\n"
                        "  - `c3` Fix the parser\n"
                        "  - `c2` Start the parser\n"
                        "\n"
                        "### level (`main`)\n\n"
                        "- Commits: 0 · Time: 0m\n"
                        "- Files: 0 modified, 0 staged, 0 untracked\n"
                        "- Status: synced, active\n"
                        "\n"
                        "### ahead (`main`)\n\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("- Sync: 2 ahead, 0 behind\n- Status: synced, active\n\n"),
              std::string::npos);
    EXPECT_EQ(text.find("Yesterday"), std::string::npos);
    EXPECT_EQ(text.find("Long body"), std::string::npos);
    EXPECT_NE(text.find("- Estimated time: **1h 1m**\n"), std::string::npos);
}

TEST(MarkdownReportTest, AnEmptyDaySaysSoAndTheJournalKeepsOnlyWrittenNotes) {
    DailyReport report = reportOf({});
    report.journal = DailyJournal{.dateKey = "2026-03-11",
                                  .manualNotes = "Paired on the parser",
                                  .blockers = "",
                                  .tomorrowNotes = "Release",
                                  .updatedAt = std::nullopt};
    std::string text = MarkdownReport::daily(report, {}, {});
    EXPECT_EQ(text,
              "# Daily Report — 2026-03-11\n\n"
              "## Summary\n\n"
              "- Active projects: **0**\n"
              "- Commits today: **0**\n"
              "- Estimated time: **0m**\n"
              "- Needs push: **0** · Needs commit: **0** · Behind: **0**\n"
              "- Files: **0** modified · **0** staged\n\n"
              "_No project activity recorded today._\n\n"
              "## Journal\n\n"
              "**Notes**\n\nPaired on the parser\n\n"
              "**Tomorrow**\n\nRelease\n\n");
}

BranchRecord localBranch(const RepoTodayLine& repo, const std::string& name,
                         std::optional<std::string> upstream, int unpushed,
                         const char* syncedAt = "2026-03-11T08:00:00Z") {
    BranchRecord record;
    record.repoID = repo.repoID;
    record.name = name;
    record.isLocal = true;
    record.upstreamName = std::move(upstream);
    record.unpushedCount = unpushed;
    record.lastSyncedAt = at(syncedAt);
    record.id = record.composedID();
    return record;
}

TEST(MarkdownReportTest, PendingCoversEveryRepositoryThenItsUnpushedBranches) {
    RepoTodayLine busy = line("busy");
    busy.ahead = 1;
    busy.behind = 3;
    busy.files.modified = 1;
    busy.files.untracked = 1;
    RepoTodayLine single = line("single", "wip");
    single.files.staged = 1;
    RepoTodayLine clean = line("clean");
    TodaySummary summary;
    summary.lines = {busy, single, clean};
    // Not worked on that day: one behind its remote, one with no remote at all.
    RepoTodayLine idle = line("idle");
    idle.behind = 2;
    idle.statuses = {behindRemote, inactive};
    RepoTodayLine local = line("local");
    local.statuses = {synced, inactive, noRemote};
    RepoTodayLine quiet = line("quiet");
    std::vector<RepoTodayLine> standings = {local, busy, idle, quiet, clean};
    BranchRecord onGitHubOnly = localBranch(quiet, "release", std::nullopt, 4);
    onGitHubOnly.isLocal = false;
    std::vector<BranchRecord> branches = {
        localBranch(busy, "main", "origin/main", 1),     // the repository's count says it
        localBranch(single, "wip", std::nullopt, 1),     // checked out, never pushed
        localBranch(clean, "feature/x", "origin/x", 3),  // not checked out
        localBranch(clean, "done", std::nullopt, 0),     // nothing to push
        localBranch(local, "spike", std::nullopt, 5),    // nowhere to push it
        localBranch(idle, "later", std::nullopt, 2, "2026-03-12T00:00:00Z"),  // after the day
        localBranch(idle, "late", std::nullopt, 1, "2026-03-11T23:59:59Z"),
        onGitHubOnly};

    DailyReport report = Aggregator::dailyReport(at("2026-03-11T12:00:00Z"), summary, std::nullopt,
                                                 standings, branches);
    EXPECT_EQ(report.dateKey, "2026-03-11");
    EXPECT_EQ(report.pending,
              (std::vector<std::string>{
                  "Push busy (1 commit)", "Commit busy (2 files)", "Push busy (3 behind)",
                  "Commit single (1 file)", "Push single branch wip (1 commit)",
                  "Push clean branch feature/x (3 commits)", "Push idle (2 behind)",
                  "Push idle branch late (1 commit)"}));
    std::string text = MarkdownReport::daily(report, {}, {});
    EXPECT_NE(text.find("## Pending\n\n- [ ] Push busy (1 commit)\n- [ ] Commit busy (2 files)\n"
                        "- [ ] Push busy (3 behind)\n- [ ] Commit single (1 file)\n"),
              std::string::npos);
    EXPECT_EQ(text.find("## Journal"), std::string::npos);
}

TEST(MarkdownReportTest, TheWeekListsDaysAndLeavesOutAbsentHighlights) {
    WeeklySummary week;
    week.weekKey = "2026-03-09";
    week.activeRepos = 1;
    week.totalCommits = 3;
    week.totalSeconds = 5400;
    week.mostActive = "app";
    week.perDay = {DayBreakdown{"2026-03-09", "Mon", 1, 3, 5400},
                   DayBreakdown{"2026-03-10", "Tue", 0, 0, 0}};
    RepoTodayLine attention = line("app");
    attention.statuses = {needsPush, activeToday};
    week.needsAttention = {attention};
    EXPECT_EQ(MarkdownReport::weekly(week),
              "# Weekly Report — 2026-03-09\n\n"
              "## Summary\n\n"
              "- Active repos: **1**\n"
              "- Total commits: **3**\n"
              "- Estimated time: **1h 30m**\n"
              "- Most active: **app**\n"
              "\n## Per day\n\n"
              "| Day | Projects | Commits | Time |\n"
              "| --- | ---: | ---: | ---: |\n"
              "| Mon (2026-03-09) | 1 | 3 | 1h 30m |\n"
              "| Tue (2026-03-10) | 0 | 0 | 0m |\n"
              "\n"
              "## Needs attention\n\n"
              "- **app**: needs push, active\n");
}

TEST(ReportExportTest, CsvQuotesEveryTextFieldAndDoublesInnerQuotes) {
    RepoTodayLine quoted = line("say \"hi\", world", "");
    quoted.commitsToday = 1;
    quoted.files = {.modified = 2, .staged = 1, .untracked = 3, .deleted = 0, .renamed = 0};
    quoted.ahead = 4;
    quoted.estimatedSeconds = 90;
    quoted.statuses = {needsCommit, needsPush};
    TodaySummary summary;
    summary.lines = {quoted};
    EXPECT_EQ(ReportExport::dailyCSV(summary),
              "repo,branch,commitsToday,modified,staged,untracked,ahead,behind,"
              "estimatedSeconds,statuses\n"
              "\"say \"\"hi\"\", world\",\"\",1,2,1,3,4,0,90,\"needsCommit|needsPush\"\n");
}

TEST(ReportExportTest, TheDocumentsFolderComesFromTheUserDirsFile) {
    std::filesystem::path home = "/home/dev";
    EXPECT_EQ(ReportExport::documentsDirFrom("# written by xdg-user-dirs-update\n"
                                             "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                                             "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n",
                                             home),
              std::filesystem::path("/home/dev/Dokumente"));
    EXPECT_EQ(ReportExport::documentsDirFrom("XDG_DOCUMENTS_DIR=\"/srv/docs\"\n", home),
              std::filesystem::path("/srv/docs"));
    EXPECT_EQ(ReportExport::documentsDirFrom("XDG_DOCUMENTS_DIR=\"$HOME/My\\ \\\"Docs\\\"\"", home),
              std::filesystem::path("/home/dev/My \"Docs\""));
    // A relative or unquoted value, or none at all, leaves the default to the caller.
    EXPECT_FALSE(ReportExport::documentsDirFrom("XDG_DOCUMENTS_DIR=\"Docs\"\n", home));
    EXPECT_FALSE(ReportExport::documentsDirFrom("XDG_DOCUMENTS_DIR=$HOME/Docs\n", home));
    EXPECT_FALSE(ReportExport::documentsDirFrom("XDG_MUSIC_DIR=\"$HOME/Music\"\n", home));
}

TEST(ReportExportTest, TheFileIsWrittenWholeAndAFailureNamesThePath) {
    testing::TempDir dir;
    DailyReport report = reportOf({line("app")});
    ReportExport::CommitsByRepo commits;
    commits[line("app").repoID] = {
        commit(line("app").repoID, "c2", "2026-03-11T09:00:00Z", "Fix the parser\r\nA body"),
        commit(line("app").repoID, "c1", "2026-03-10T23:59:59Z", "Yesterday's work")};
    std::filesystem::path written = ReportExport::saveDailyJSON(report, commits, dir / "reports");
    EXPECT_EQ(written, dir / "reports" / "daily-2026-03-11.json");
    Json json = JsonCodec::parse(AtomicFile::read(written).bytes.value_or(""));
    EXPECT_EQ(json["lines"][0]["statuses"], Json::array({"synced", "activeToday"}));
    // Only the day's commits, each by its first line: a body stays out of the file.
    ASSERT_EQ(json["lines"][0]["commits"].size(), 1u);
    EXPECT_EQ(json["lines"][0]["commits"][0]["subject"], "Fix the parser");
    EXPECT_FALSE(json.contains("journalNotes"));
    // A report may quote the journal: it is the user's alone.
    EXPECT_EQ(std::filesystem::status(written).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    // A folder cannot be made under a file.
    testing::writeFile(dir / "blocked", "x");
    try {
        ReportExport::saveDailyCSV(report.summary, dir / "blocked" / "reports");
        ADD_FAILURE() << "the write should have failed";
    } catch (const ReportExport::ReportExportError& error) {
        EXPECT_NE(std::string(error.what()).find((dir / "blocked" / "reports").string()),
                  std::string::npos)
            << error.what();
    }
}

}  // namespace
}  // namespace quorvane
