#pragma once

#include <string_view>

#include "base/DateHelpers.hpp"

// When the end-of-day review falls due. Pure: the time comes from the caller and the
// calendar from the process's time zone.
namespace quorvane::DailyReview {

// The review time when the configured one cannot be read.
inline constexpr int kDefaultHour = 21;
inline constexpr int kDefaultMinute = 30;

// Seconds from `now` to the next local time matching the "HH:mm" text `reviewTime`,
// at least 1. A piece that is not a number takes the default ("ab:cd" is 21:30), as
// does any text that is not two pieces ("21"). A time the calendar never shows, such
// as "25:00", gives a day. A time skipped by a daylight-saving change falls on the
// first moment after the gap; a time repeated by one falls on its first occurrence.
double secondsUntilNextReview(std::string_view reviewTime, Date now);

}  // namespace quorvane::DailyReview
