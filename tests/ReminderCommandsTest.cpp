// Listing and dismissing reminders through the built program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "persistence/Store.hpp"
#include "platform/Clock.hpp"
#include "records/JsonCodec.hpp"
#include "testing/TempDir.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;

ReminderEvent reminder(const std::string& id, const std::string& message, Date at) {
    ReminderEvent event;
    event.id = id;
    event.repoID = "/code/api";
    event.kind = ReminderEvent::Kind::needsPush;
    event.message = message;
    event.triggeredAt = at;
    return event;
}

TEST(ReminderCommandsTest, ListsNewestFirstAndDismissesOrSnoozesByAnUnambiguousId) {
    testing::TempDir dir;
    SystemClock clock;
    Date now = clock.now();
    {
        Store store(dir / "data", clock);
        store.load();
        store.upsertReminders({reminder("AAAA1111-0000", "api: 1 unpushed commit. Push them.",
                                        now - std::chrono::hours(2)),
                               reminder("AAAA2222-0000", "web: 2 unpushed commits. Push them.",
                                        now - std::chrono::hours(1))});
        ASSERT_TRUE(store.flush());
    }
    auto quorvane = [&](std::vector<std::string> arguments) {
        return testing::runQuorvane(dir / "data", std::move(arguments));
    };

    Json open = JsonCodec::parse(quorvane({"reminders", "--json"}).stdOut);
    ASSERT_EQ(open.size(), 2u);
    EXPECT_EQ(open[0]["id"], "AAAA2222-0000");

    ShellResult ambiguous = quorvane({"reminders", "dismiss", "AAAA"});
    EXPECT_EQ(ambiguous.exitCode, 1);
    EXPECT_THAT(ambiguous.stdErr, HasSubstr("matches several open reminders"));
    EXPECT_EQ(quorvane({"reminders", "dismiss", "BBBB"}).exitCode, 1);

    ShellResult dismissed = quorvane({"reminders", "dismiss", "AAAA1"});
    EXPECT_EQ(dismissed.exitCode, 0) << dismissed.stdErr;
    EXPECT_THAT(dismissed.stdOut, HasSubstr("dismissed: api: 1 unpushed commit"));
    EXPECT_EQ(JsonCodec::parse(quorvane({"reminders", "--json"}).stdOut).size(), 1u);
    ShellResult all = quorvane({"reminders", "--all"});
    EXPECT_THAT(all.stdOut, HasSubstr("RESOLVED"));
    EXPECT_THAT(all.stdOut, HasSubstr("AAAA1111"));
    // A resolved reminder is not dismissed twice, nor snoozed.
    EXPECT_EQ(quorvane({"reminders", "dismiss", "AAAA1111-0000"}).exitCode, 1);
    EXPECT_EQ(quorvane({"reminders", "snooze", "AAAA1111-0000"}).exitCode, 1);

    ShellResult badLength = quorvane({"reminders", "snooze", "AAAA2", "--for", "1d"});
    EXPECT_EQ(badLength.exitCode, 1);
    EXPECT_THAT(badLength.stdErr, HasSubstr("--for takes hours and minutes"));
    EXPECT_FALSE(
        JsonCodec::parse(quorvane({"reminders", "--json"}).stdOut)[0].contains("snoozedUntil"));
    ShellResult snoozed = quorvane({"reminders", "snooze", "AAAA2", "--for", "1h30m"});
    ASSERT_EQ(snoozed.exitCode, 0) << snoozed.stdErr;
    EXPECT_THAT(snoozed.stdOut, HasSubstr(": web: 2 unpushed commits"));
    Json listed = JsonCodec::parse(quorvane({"reminders", "--json"}).stdOut);
    ASSERT_EQ(listed.size(), 1u) << "a snoozed reminder stays open";
    Date until = *DateHelpers::parseISO(listed[0]["snoozedUntil"].get<std::string>());
    EXPECT_GE(until, now + std::chrono::minutes(90));
    EXPECT_LE(until, SystemClock().now() + std::chrono::minutes(90));
    EXPECT_THAT(quorvane({"reminders"}).stdOut, HasSubstr("(snoozed until "));
}

}  // namespace
}  // namespace quorvane
