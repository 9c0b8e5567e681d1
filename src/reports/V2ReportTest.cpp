#include "reports/V2Report.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorvane {
namespace {

using ::testing::HasSubstr;

V2RepoLine line(const std::string& name, SyncState::Status status) {
    V2RepoLine result;
    result.repoID = name;
    result.name = name;
    result.branch = "main";
    result.syncStatus = status;
    result.standing = RepoStanding::of(status);
    return result;
}

// The status in the words of every view; a repository no sync scored yet has no
// score but the command that makes one.
TEST(V2ReportTest, EachRepositoryShowsItsAccountStatusHealthSyncAndCommandOnlyWhenItHasThem) {
    V2DailyReport report;
    report.base.dateKey = "2026-11-25";
    V2RepoLine ahead = line("api", SyncState::Status::needsPush);
    ahead.account = "Work";
    ahead.ahead = 2;
    ahead.health = 70;
    ahead.suggestedCommand = "git -C '/home/me/api' push";
    V2RepoLine bare = line("tools", SyncState::Status::synced);
    bare.account = "";
    bare.branch = "";
    bare.suggestedCommand = "";
    report.perRepo = {ahead, bare};

    EXPECT_THAT(V2Report::daily(report),
                HasSubstr("## Projects\n\n"
                          "### api (`main`)\n\n"
                          "- Account: Work\n"
                          "- Status: **needs push** · Health: **70**/100\n"
                          "- Sync: 2 ahead, 0 behind\n"
                          "- Suggested: `git -C '/home/me/api' push`\n\n"
                          "### tools (`detached`)\n\n"
                          "- Status: **synced** · Health: **–** (comes with `quorvane sync`)\n\n"));
}

TEST(V2ReportTest, AnEmptyDayKeepsTheAlignmentBlockAndAnEmptySummaryHasNoHeading) {
    V2DailyReport report;
    report.base.dateKey = "2026-11-25";
    report.alignment.mappedCount = 3;
    report.alignment.localOnlyCommitsToday = 4;
    const std::string expected =
        "# Daily Report — 2026-11-25\n\n"
        "## Summary\n\n"
        "- Active projects: **0**\n"
        "- Commits today: **0**\n"
        "- Needs push: **0** · Needs commit: **0** · Behind: **0**\n"
        "- Files: **0** modified · **0** staged\n\n"
        "## GitHub Alignment\n\n"
        "- Mapped: **3** · Remote only: **0** · Local only: **0** · Account issues: **0**\n"
        "- Needs push: **0** · Needs pull: **0** · No upstream: **0**\n"
        "- Commits today: **0** pushed · **4** local-only\n\n"
        "_No tracked repositories._\n\n";
    EXPECT_EQ(V2Report::daily(report), expected);
    report.aiSummary = "";
    EXPECT_EQ(V2Report::daily(report), expected);
    // The summary comes right under the title, the pending items at the end.
    report.aiSummary = "Shipped the parser.";
    report.base.pending = {"Push api (2 commits)"};
    const std::string title = "# Daily Report — 2026-11-25\n\n";
    const std::string body =
        expected.substr(title.size()) + "## Pending\n\n- [ ] Push api (2 commits)\n\n";
    EXPECT_EQ(V2Report::daily(report), title + "## AI Summary\n\nShipped the parser.\n\n" + body);
    report.base.scanRecorded = false;
    EXPECT_THAT(V2Report::daily(report),
                ::testing::StartsWith(title + "_Note: no scan recorded on that day"));
}

}  // namespace
}  // namespace quorvane
