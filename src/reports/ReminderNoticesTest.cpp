#include <gtest/gtest.h>

#include "reports/ReminderNotices.hpp"
#include "testing/FakeClock.hpp"
#include "testing/ZoneScope.hpp"

namespace quorvane {
namespace {

using Kind = ReminderEvent::Kind;
using std::chrono::hours;
using std::chrono::minutes;

ReminderEvent reminder(const std::string& id, Kind kind, Date raised) {
    return ReminderEvent{.id = id,
                         .repoID = "/code/api",
                         .kind = kind,
                         .message = "api: 1 unpushed commit. Push them.",
                         .triggeredAt = raised,
                         .resolvedAt = std::nullopt,
                         .snoozedUntil = std::nullopt};
}

// Snoozed at 23:30 local time, a reminder stays down past midnight and comes back at
// 00:30, once; one resolved while it was down never comes back.
TEST(ReminderNoticesTest, ASnoozeAcrossMidnightEndsAnHourLaterAndSkipsResolvedReminders) {
    testing::ZoneScope zone("Europe/Paris");
    testing::FakeClock clock(DateHelpers::fromLocal(2026, 11, 21, 23, 30, 0));
    ReminderEvent pushed = reminder("push", Kind::needsPush, clock.now() - hours(2));
    ReminderEvent resolved = reminder("stale", Kind::staleDirty, clock.now() - hours(3));
    pushed.snoozedUntil = clock.now() + ReminderNotices::kSnoozeLength;
    resolved.snoozedUntil = clock.now() + minutes(10);
    ReminderEvent plain = reminder("commit", Kind::needsCommit, clock.now());
    std::vector<ReminderEvent> all = {pushed, resolved, plain};

    EXPECT_EQ(ReminderNotices::snoozedText(*pushed.snoozedUntil, clock.now()),
              "snoozed until 00:30");
    EXPECT_EQ(ReminderNotices::nextBack(all), resolved.snoozedUntil);
    all[1].resolvedAt = clock.now() + minutes(5);
    EXPECT_EQ(ReminderNotices::nextBack(all), pushed.snoozedUntil) << "resolved: never back";

    clock.advance(minutes(59));  // 00:29, the next day
    EXPECT_EQ(DateHelpers::dateKey(clock.now()), "2026-11-22");
    EXPECT_TRUE(ReminderNotices::isSnoozed(all[0], clock.now()));
    EXPECT_TRUE(ReminderNotices::dueBack(clock.now(), all).empty());
    clock.advance(minutes(1));
    EXPECT_FALSE(ReminderNotices::isSnoozed(all[0], clock.now()));
    EXPECT_EQ(ReminderNotices::dueBack(clock.now(), all), std::vector<std::string>{"push"});
    all[0].snoozedUntil.reset();  // shown again
    EXPECT_TRUE(ReminderNotices::dueBack(clock.now() + hours(5), all).empty());
    EXPECT_EQ(ReminderNotices::nextBack(all), std::nullopt);

    // A snooze of a day or more names its day.
    EXPECT_EQ(ReminderNotices::snoozedText(clock.now() + hours(24), clock.now()),
              "snoozed until 2026-11-23 00:30");
}

TEST(ReminderNoticesTest, SnoozeLengthsAreHoursThenMinutesWithinAWeek) {
    using ReminderNotices::parseLength;
    EXPECT_EQ(parseLength("1h"), minutes(60));
    EXPECT_EQ(parseLength("1h30m"), minutes(90));
    EXPECT_EQ(parseLength("45m"), minutes(45));
    EXPECT_EQ(parseLength("168h"), hours(168));
    for (const char* bad : {"", "1", "h", "0m", "169h", "30m1h", "1h1h", "-5m", "1h-30m", "1d",
                            "1 h", "9999999999h", "1hx"}) {
        EXPECT_EQ(parseLength(bad), std::nullopt) << bad;
    }
}

}  // namespace
}  // namespace quorvane
