// The views of the command line, run through the built program over a repository
// whose history spans the last three months.
#include <algorithm>
#include <array>
#include <ctime>
#include <map>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/TextHelpers.hpp"
#include "persistence/DataFolderLock.hpp"
#include "persistence/Store.hpp"
#include "platform/Clock.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::TestRepo;
using namespace std::chrono_literals;

constexpr std::array<const char*, 7> kWeekdays = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

// The code points of a line, one string each, so a cell can be found by its column.
std::vector<std::string> glyphs(std::string_view line) {
    std::vector<std::string> out;
    for (char c : line) {
        if ((static_cast<unsigned char>(c) & 0xC0) == 0x80) {
            out.back() += c;
        } else {
            out.emplace_back(1, c);
        }
    }
    return out;
}

size_t weekdayIndex(Date day) {
    auto it = std::find(kWeekdays.begin(), kWeekdays.end(), DateHelpers::weekday(day));
    return static_cast<size_t>(it - kWeekdays.begin());
}

// One repository, tracked with its history: commits 1, 10, 40 and 85 days ago
// (1, 3, 2 and 1 of them, at noon) and one today, then a scan.
class ViewCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (auto [daysAgo, count] : {std::pair{1, 1}, {10, 3}, {40, 2}, {85, 1}}) {
            for (int i = 0; i < count; ++i) {
                repo_.commitFile("f.txt", std::to_string(daysAgo * 10 + i), "work",
                                 noonDaysAgo(daysAgo) + std::chrono::minutes(i));
            }
        }
        repo_.commitFile("f.txt", "today", "today's work");
        ASSERT_EQ(quorvane({"repos", "add", repo_.path().string()}).exitCode, 0);
        ShellResult scan = quorvane({"scan"});
        ASSERT_EQ(scan.exitCode, 0) << scan.stdErr;
    }

    ShellResult quorvane(std::vector<std::string> arguments) {
        return testing::runQuorvane(dir_ / "data", std::move(arguments));
    }
    Json json(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        ShellResult result = quorvane(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.stdErr;
        return Json::parse(result.stdOut);
    }
    Date today() const { return DateHelpers::startOfDay(now_); }
    Date noonDaysAgo(int days) const { return today() - 24h * days + 12h; }
    std::string keyDaysAgo(int days) const { return DateHelpers::dateKey(noonDaysAgo(days)); }

    Date now_ = SystemClock().now();
    testing::TempDir dir_;
    TestRepo repo_{dir_ / "project"};
};

TEST_F(ViewCommandsTest, HistoryReadAtEnrolmentShowsInEveryView) {
    Json cells = json({"heatmap"});
    ASSERT_EQ(cells.size(), 365u);
    std::map<std::string, int> busy;
    for (const Json& cell : cells) {
        if (cell["commitCount"] > 0) busy[cell["dateKey"]] = cell["commitCount"];
    }
    EXPECT_EQ(busy, (std::map<std::string, int>{{DateHelpers::dateKey(now_), 1},
                                                {keyDaysAgo(1), 1},
                                                {keyDaysAgo(10), 3},
                                                {keyDaysAgo(40), 2},
                                                {keyDaysAgo(85), 1}}));
    // Today and yesterday make the run of days; how streaks and shades are counted
    // is CalendarViewModelTest's.
    EXPECT_THAT(quorvane({"heatmap"}).stdOut,
                HasSubstr("days in a row with work: 2 now, 2 at most"));

    ShellResult weekText = quorvane({"week", "--date", keyDaysAgo(10)});
    std::vector<std::string_view> lines = Text::nonEmptyLines(weekText.stdOut);
    ASSERT_GE(lines.size(), 10u);
    for (size_t row = 0; row < 7; ++row) EXPECT_TRUE(lines[row + 2].starts_with(kWeekdays[row]));
    EXPECT_THAT(std::string(lines[2 + weekdayIndex(noonDaysAgo(10))]),
                ::testing::ContainsRegex(keyDaysAgo(10) + " +1 +3 +-$"));
    EXPECT_THAT(weekText.stdOut, HasSubstr("most active:    project"));

    EXPECT_EQ(json({"insights", "--period", "month"})["commits"], 5);
    EXPECT_THAT(quorvane({"insights", "--period", "all"}).stdOut,
                ::testing::ContainsRegex("^All time\n(.*\n)*  commits +8\n"));
}

TEST_F(ViewCommandsTest, TheHeatmapDrawsWeeksAsColumnsAndShadesByCommits) {
    ShellResult result = quorvane({"heatmap", "--days", "90"});
    std::vector<std::string_view> lines = Text::nonEmptyLines(result.stdOut);
    ASSERT_GE(lines.size(), 10u) << result.stdErr;
    for (size_t row = 0; row < 7; ++row) EXPECT_TRUE(lines[row + 1].starts_with(kWeekdays[row]));

    // The day k days ago is cell `lead + 89 - k`, counted down the columns from Monday.
    size_t lead = weekdayIndex(noonDaysAgo(89));
    auto column = [&](int daysAgo) { return 4 + (lead + 89 - static_cast<size_t>(daysAgo)) / 7; };
    auto cell = [&](int daysAgo) {
        std::vector<std::string> row = glyphs(lines[(lead + 89 - daysAgo) % 7 + 1]);
        return column(daysAgo) < row.size() ? row[column(daysAgo)] : std::string(" ");
    };
    EXPECT_EQ(cell(10), "█");  // the busiest day sets the scale
    EXPECT_EQ(cell(40), "▓");
    EXPECT_EQ(cell(1), "▒");
    EXPECT_EQ(cell(0), "▒");
    EXPECT_EQ(cell(85), "▒");
    EXPECT_EQ(cell(2), "·");
    if (lead > 0) {
        EXPECT_EQ(cell(90), " ");  // before the window
    }
    // This month's name stands above the column of its first day.
    std::time_t t = now_.time_since_epoch().count();
    std::tm parts{};
    localtime_r(&t, &parts);
    std::array<char, 8> month{};
    std::strftime(month.data(), month.size(), "%b", &parts);
    EXPECT_EQ(std::string(lines[0]).substr(column(parts.tm_mday - 1), 3), month.data());
    EXPECT_THAT(result.stdOut, HasSubstr("less · ░ ▒ ▓ █ more"));
    EXPECT_THAT(result.stdOut, HasSubstr("8 commits on 5 days of the last 90 days"));
}

TEST_F(ViewCommandsTest, SessionsOfADayOldestFirstWithOpenOnesMarked) {
    Date day = DateHelpers::startOfDay(noonDaysAgo(3));
    auto session = [&](const char* id, Date start, Date end, bool open) {
        return WorkSession{.id = id,
                           .repoID = repo_.path().string(),
                           .startedAt = start,
                           .endedAt = end,
                           .estimatedSeconds = static_cast<int>((end - start).count()),
                           .isOpen = open};
    };
    SystemClock clock;
    Store store(dir_ / "data", clock);
    store.load();
    store.upsertSessions({session("late", day + 15h, day + 16h + 5min, true),
                          session("early", day + 9h, day + 9h + 12min, false),
                          session("other", day - 24h, day - 23h, false)});
    store.flush();

    Json found = json({"sessions", "--date", keyDaysAgo(3), "--repo", repo_.path().string()});
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0]["id"], "early");
    EXPECT_EQ(found[1]["id"], "late");
    ShellResult text = quorvane({"sessions", "--date", keyDaysAgo(3)});
    EXPECT_THAT(text.stdOut, ::testing::ContainsRegex("project +09:00 +09:12 +12m"));
    EXPECT_THAT(text.stdOut, ::testing::ContainsRegex("project +15:00 +open +1h 05m"));
    EXPECT_THAT(text.stdOut, HasSubstr("2 sessions, 1h 17m"));
}

TEST_F(ViewCommandsTest, BadUsageOfAViewExitsTwo) {
    ShellResult badDate = quorvane({"week", "--date", "2026-13-01"});
    EXPECT_EQ(badDate.exitCode, 2);
    EXPECT_THAT(badDate.stdErr, HasSubstr("\"2026-13-01\" is not a date: expected YYYY-MM-DD"));
    EXPECT_EQ(quorvane({"sessions", "--date", "yesterday"}).exitCode, 2);
    EXPECT_EQ(quorvane({"heatmap", "--days", "0"}).exitCode, 2);
    EXPECT_EQ(quorvane({"heatmap", "--days", "100000"}).exitCode, 2);
    EXPECT_EQ(quorvane({"insights", "--period", "year"}).exitCode, 2);
    EXPECT_EQ(quorvane({"sessions", "--repo", "/not/tracked"}).exitCode, 1);
}

TEST_F(ViewCommandsTest, EveryViewSaysHowOldWhatItShowsIsOnceAMinuteHasPassed) {
    EXPECT_THAT(quorvane({"today", "--no-scan"}).stdOut, Not(HasSubstr("as of")));
    // The last scan, as if it had run two hours ago.
    const Date then = SystemClock().now() - 2h;
    {
        SystemClock clock;
        Store store(dir_ / "data", clock);
        store.load();
        for (RepoSnapshot snapshot : store.snapshots()) {
            snapshot.capturedAt = then;
            store.replaceSnapshot(snapshot);
        }
        ASSERT_TRUE(store.flush());
    }
    std::time_t t = then.time_since_epoch().count();
    std::tm parts{};
    localtime_r(&t, &parts);
    std::array<char, 8> clockTime{};
    std::strftime(clockTime.data(), clockTime.size(), "%H:%M", &parts);
    // Scanned on another day, the day is named too.
    const std::string asOf =
        DateHelpers::dateKey(then) == DateHelpers::dateKey(now_)
            ? fmt::format("as of {}\n", clockTime.data())
            : fmt::format("as of {} {}\n", DateHelpers::dateKey(then), clockTime.data());
    for (std::vector<std::string> view : {std::vector<std::string>{"today", "--no-scan"},
                                          {"status"},
                                          {"sessions"},
                                          {"week"},
                                          {"heatmap"},
                                          {"ranking"},
                                          {"insights"},
                                          {"commits"},
                                          {"alignment"}}) {
        ShellResult shown = quorvane(view);
        EXPECT_EQ(shown.exitCode, 0) << view[0] << ": " << shown.stdErr;
        EXPECT_TRUE(shown.stdOut.starts_with(asOf)) << view[0] << ":\n" << shown.stdOut;
    }
    // A report's text stays the day's record; the note goes beside it.
    ShellResult report = quorvane({"report", "daily"});
    EXPECT_THAT(report.stdErr, HasSubstr(asOf));
    EXPECT_THAT(report.stdOut, Not(HasSubstr("as of")));
    // JSON carries the data alone, and a scan makes it fresh again.
    EXPECT_EQ(json({"today", "--no-scan"})["totalCommits"], 1);
    EXPECT_THAT(quorvane({"today"}).stdOut, Not(HasSubstr("as of")));
}

// That the other views read beside a writer is WriterLockTest's.
TEST_F(ViewCommandsTest, TodayScansAFreshFolderButEveryViewOnlyReadsBesideAWriter) {
    TestRepo other(dir_ / "code" / "other");
    other.commitFile("a.txt", "a", "other's first");
    std::filesystem::path fresh = dir_ / "fresh";
    ASSERT_EQ(testing::runQuorvane(fresh, {"folders", "add", (dir_ / "code").string()}).exitCode,
              0);
    EXPECT_THAT(testing::runQuorvane(fresh, {"today", "--no-scan"}).stdOut,
                HasSubstr("No repositories are tracked yet"));

    ShellResult first = testing::runQuorvane(fresh, {"today"});
    EXPECT_EQ(first.exitCode, 0) << first.stdErr;
    EXPECT_THAT(first.stdOut, HasSubstr("newly tracked: " + other.path().string()));
    EXPECT_THAT(first.stdOut, HasSubstr("1 commit"));

    // Beside a writer it shows what is recorded: the new commit waits for a scan.
    other.commitFile("a.txt", "b", "other's second");
    LockAttempt held = DataFolderLock::acquire(fresh);
    ASSERT_TRUE(held.lock.has_value());
    Json read = Json::parse(testing::runQuorvane(fresh, {"today", "--json"}).stdOut);
    EXPECT_EQ(read["totalCommits"], 1);
    held.lock.reset();
    Json scanned = Json::parse(testing::runQuorvane(fresh, {"today", "--json"}).stdOut);
    EXPECT_EQ(scanned["totalCommits"], 2);
}

}  // namespace
}  // namespace quorvane
