#include "app/DailyReview.hpp"

#include <gtest/gtest.h>

#include "testing/ZoneScope.hpp"

namespace quorvane {
namespace {

using DailyReview::secondsUntilNextReview;

Date at(const char* iso) {
    return *DateHelpers::parseISO(iso);
}

TEST(DailyReviewTest, ReadsTheTimeOrFallsBackToHalfPastNine) {
    Date noon = at("2026-03-10T12:00:00Z");  // the suite runs in UTC
    EXPECT_EQ(secondsUntilNextReview("21:30", noon), 9.5 * 3600);
    EXPECT_EQ(secondsUntilNextReview("21", noon), 9.5 * 3600);
    EXPECT_EQ(secondsUntilNextReview("ab:cd", noon), 9.5 * 3600);
    EXPECT_EQ(secondsUntilNextReview("13:xx", noon), 3600 + 1800);
    EXPECT_EQ(secondsUntilNextReview(":7:05:", noon), 19 * 3600 + 300);  // empty pieces dropped
    EXPECT_EQ(secondsUntilNextReview("25:00", noon), 86400);
    EXPECT_EQ(secondsUntilNextReview("12:60", noon), 86400);
    // Passed for today, or due this very second: tomorrow's.
    EXPECT_EQ(secondsUntilNextReview("21:30", at("2026-03-10T22:00:00Z")), 23.5 * 3600);
    EXPECT_EQ(secondsUntilNextReview("12:00", noon), 86400);
    EXPECT_EQ(secondsUntilNextReview("12:00", noon - std::chrono::seconds(1)), 1);
}

TEST(DailyReviewTest, FollowsTheLocalCalendarAcrossDaylightSavingChanges) {
    testing::ZoneScope berlin("Europe/Berlin");
    // 2026-03-29: clocks jump from 02:00 to 03:00. 02:30 never shows; the review
    // comes at 03:00, two hours after local midnight.
    Date midnight = at("2026-03-28T23:00:00Z");
    EXPECT_EQ(secondsUntilNextReview("02:30", midnight), 2 * 3600);
    // That day has 23 hours: 21:30 to 21:30 is not 86400 seconds.
    EXPECT_EQ(secondsUntilNextReview("21:30", at("2026-03-28T20:30:01Z")), 23 * 3600 - 1);
    // 2026-10-25: 02:00 to 03:00 comes twice; the first 02:30 counts.
    EXPECT_EQ(secondsUntilNextReview("02:30", at("2026-10-24T22:00:00Z")), 2.5 * 3600);
}

}  // namespace
}  // namespace quorvane
