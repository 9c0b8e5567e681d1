#pragma once

#include <chrono>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane {

// Every instant the program stores or compares: whole seconds since 1970 in UTC.
// Files carry whole seconds, so a value survives a save and a load unchanged.
using Date = std::chrono::sys_seconds;

// One day of wall time, for windows and retention counted in whole days.
inline constexpr std::chrono::seconds kDay{86400};

namespace DateHelpers {

// The instant broken down in the local time zone, for the views and the day's
// boundaries that need its hour, weekday or month.
std::tm localParts(Date date);

// "yyyy-MM-dd" of the instant in the local time zone (the process's TZ); a day's
// boundary is local midnight.
std::string dateKey(Date date);

// The ISO 8601 week of the instant in local time, "yyyy-'W'ww" with the week-based
// year, so 2026-12-31 and 2027-01-01 share one key when they share one week.
std::string weekKey(Date date);

// Abbreviated English weekday of the instant in local time: "Mon" to "Sun".
std::string weekday(Date date);

// Local midnight that starts the day holding `date`.
Date startOfDay(Date date);

// "2026-11-21T18:58:03Z": the internet date-time form in UTC, whole seconds.
std::string isoString(Date date);

// Reads the internet date-time form with a zone ("Z" or "+hh:mm"), with or without
// fractional seconds (dropped). Surrounding white space is ignored. Anything else
// gives no date.
std::optional<Date> parseISO(std::string_view text);

// Reads a date key, "yyyy-MM-dd" exactly, as the local midnight that starts that day.
// Anything else, or a day the calendar does not have (2026-02-30), gives no date.
std::optional<Date> parseDateKey(std::string_view text);

// Converts a broken-down local time to an instant, letting the C library settle
// daylight-saving gaps; used by the day and review computations.
Date fromLocal(int year, int month, int day, int hour, int minute, int second);

}  // namespace DateHelpers
}  // namespace quorvane
