#include "base/DateHelpers.hpp"

#include <stdlib.h>
#include <time.h>

#include <gtest/gtest.h>

#include "testing/ZoneScope.hpp"

namespace quorvane {
namespace {

using testing::ZoneScope;

Date at(const char* iso) {
    return *DateHelpers::parseISO(iso);
}

TEST(DateHelpersTest, IsoTextRoundTripsInUtcWithWholeSeconds) {
    Date date = at("2026-11-21T18:58:03.999-05:30");
    EXPECT_EQ(DateHelpers::isoString(date), "2026-11-22T00:28:03Z");
    EXPECT_EQ(DateHelpers::parseISO(DateHelpers::isoString(date)), date);
    EXPECT_EQ(DateHelpers::isoString(Date{}), "1970-01-01T00:00:00Z");
    for (const char* bad :
         {"", "2026-11-21", "2026-11-21T18:58Z", "2026-13-01T00:00:00Z", "2026-11-21T25:00:00Z",
          "2026-11-21T18:58:03+0100", "2026-11-21T18:58:03Zjunk", "2026-11-21T18:58:03."}) {
        EXPECT_FALSE(DateHelpers::parseISO(bad).has_value()) << bad;
    }
}

TEST(DateHelpersTest, DayKeysAndMidnightFollowTheLocalZone) {
    ZoneScope zone("America/New_York");
    Date lateEvening = at("2026-11-22T03:30:00Z");  // 22:30 on the 21st in New York
    EXPECT_EQ(DateHelpers::dateKey(lateEvening), "2026-11-21");
    EXPECT_EQ(DateHelpers::weekday(lateEvening), "Sat");
    EXPECT_EQ(DateHelpers::isoString(DateHelpers::startOfDay(lateEvening)), "2026-11-21T05:00:00Z");
    // The day daylight saving ends is 25 hours long; midnight is still its start.
    Date afterChange = at("2026-11-01T20:00:00Z");
    EXPECT_EQ(DateHelpers::isoString(DateHelpers::startOfDay(afterChange)), "2026-11-01T04:00:00Z");
}

TEST(DateHelpersTest, ADateKeyReadsAsLocalMidnightAndNothingLooserIsAccepted) {
    ZoneScope zone("America/New_York");
    std::optional<Date> day = DateHelpers::parseDateKey("2026-11-21");
    ASSERT_TRUE(day.has_value());
    EXPECT_EQ(DateHelpers::isoString(*day), "2026-11-21T05:00:00Z");
    EXPECT_EQ(DateHelpers::dateKey(*day), "2026-11-21");
    EXPECT_EQ(DateHelpers::parseDateKey("2028-02-29"),
              DateHelpers::fromLocal(2028, 2, 29, 0, 0, 0));
    for (const char* bad : {"", "2026-2-01", "2026-02-30", "2026-13-01", "2026/11/21", "21-11-2026",
                            "2026-11-21T00:00:00Z", " 2026-11-21", "2026-11-2x",
                            // Keys that would be printed back as another text ("999-12-31").
                            "0999-12-31", "0000-01-01"}) {
        EXPECT_FALSE(DateHelpers::parseDateKey(bad).has_value()) << bad;
    }
}

TEST(DateHelpersTest, WeekKeysUseTheIsoWeekAcrossTheNewYear) {
    EXPECT_EQ(DateHelpers::weekKey(at("2026-11-21T12:00:00Z")), "2026-W47");
    // Thursday 31 December 2026 and Friday 1 January 2027 are in one week.
    EXPECT_EQ(DateHelpers::weekKey(at("2026-12-31T12:00:00Z")), "2026-W53");
    EXPECT_EQ(DateHelpers::weekKey(at("2027-01-01T12:00:00Z")), "2026-W53");
    EXPECT_EQ(DateHelpers::weekKey(at("2027-01-04T12:00:00Z")), "2027-W01");
}

}  // namespace
}  // namespace quorvane
