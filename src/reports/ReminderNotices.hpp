#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/DateHelpers.hpp"
#include "platform/Notifier.hpp"
#include "records/ReminderEvent.hpp"

// How a reminder is shown on the desktop, and when one the person put off comes
// back. Pure: the clock comes in as an argument, and the caller stores and posts.
namespace quorvane::ReminderNotices {

// The buttons' keys, which the daemon answers: the dashboard page the reminder is
// about opens, or the reminder is put off for `kSnoozeLength`.
inline constexpr std::string_view kOpenAction = "open";
inline constexpr std::string_view kSnoozeAction = "snooze";
inline constexpr std::chrono::minutes kSnoozeLength{60};

// What the desktop shows for `event`, under its id so that resolving it takes down
// exactly this notification: its kind's title, its message, and both buttons.
Notification notice(const ReminderEvent& event);

// The dashboard page that shows what a reminder of this kind is about: Needs
// attention for waiting work and account trouble, Today for the rest.
std::string_view pageOf(ReminderEvent::Kind kind);

// Whether `event` is open and put off beyond `now`: its notification stays down.
bool isSnoozed(const ReminderEvent& event, Date now);

// The ids of the open reminders whose snooze has run out by `now`, which are shown
// again. A reminder resolved meanwhile never comes back.
std::vector<std::string> dueBack(Date now, const std::vector<ReminderEvent>& reminders);

// When the first open reminder put off comes back (perhaps already past); nothing
// when none is put off.
std::optional<Date> nextBack(const std::vector<ReminderEvent>& reminders);

// Reads a snooze length: minutes and hours ("30m", "1h", "1h30m", "90m"), from one
// minute to a week. Nothing for anything else.
std::optional<std::chrono::minutes> parseLength(std::string_view text);

// "snoozed until HH:MM" in local time: the next time the clock reads that, so a
// snooze across midnight reads as plainly as any. A snooze that ends a day or more
// from `now` says the date too.
std::string snoozedText(Date until, Date now);

}  // namespace quorvane::ReminderNotices
