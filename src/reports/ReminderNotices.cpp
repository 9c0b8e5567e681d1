#include "reports/ReminderNotices.hpp"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace quorvane::ReminderNotices {

Notification notice(const ReminderEvent& event) {
    return Notification{
        event.id,
        std::string(title(event.kind)),
        event.message,
        {{std::string(kOpenAction), "Open"}, {std::string(kSnoozeAction), "Snooze 1 h"}}};
}

std::string_view pageOf(ReminderEvent::Kind kind) {
    using enum ReminderEvent::Kind;
    switch (kind) {
        case needsPush:
        case needsCommit:
        case behindRemote:
        case staleDirty:
        case needsPull:
        case noUpstream:
        case tokenIssue: return "attention";
        // Repositories never cloned wait on no local work; the evening review is
        // about the whole day.
        case remoteOnly:
        case endDayReview: return "today";
    }
    return "today";
}

bool isSnoozed(const ReminderEvent& event, Date now) {
    return !event.resolvedAt && event.snoozedUntil && *event.snoozedUntil > now;
}

std::vector<std::string> dueBack(Date now, const std::vector<ReminderEvent>& reminders) {
    std::vector<std::string> due;
    for (const ReminderEvent& event : reminders) {
        if (!event.resolvedAt && event.snoozedUntil && *event.snoozedUntil <= now) {
            due.push_back(event.id);
        }
    }
    return due;
}

std::optional<Date> nextBack(const std::vector<ReminderEvent>& reminders) {
    std::optional<Date> next;
    for (const ReminderEvent& event : reminders) {
        if (event.resolvedAt || !event.snoozedUntil) continue;
        if (!next || *event.snoozedUntil < *next) next = event.snoozedUntil;
    }
    return next;
}

std::optional<std::chrono::minutes> parseLength(std::string_view text) {
    constexpr long long kMostMinutes = 7 * 24 * 60;
    long long minutes = 0;
    bool sawHours = false, sawMinutes = false;
    while (!text.empty()) {
        long long number = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        // Digits bounded so that no sum below can overflow.
        if (error != std::errc() || number < 0 || end - text.data() > 6) return std::nullopt;
        text.remove_prefix(static_cast<size_t>(end - text.data()));
        if (text.empty()) return std::nullopt;
        char unit = text.front();
        text.remove_prefix(1);
        // Hours before minutes, each once: "1h30m", never "30m1h" nor "1h1h".
        if (unit == 'h' && !sawHours && !sawMinutes) {
            sawHours = true;
            minutes += number * 60;
        } else if (unit == 'm' && !sawMinutes) {
            sawMinutes = true;
            minutes += number;
        } else {
            return std::nullopt;
        }
    }
    if (minutes < 1 || minutes > kMostMinutes) return std::nullopt;
    return std::chrono::minutes(minutes);
}

std::string snoozedText(Date until, Date now) {
    std::tm parts = DateHelpers::localParts(until);
    std::string clock = fmt::format("{:02}:{:02}", parts.tm_hour, parts.tm_min);
    if (until - now < std::chrono::hours(24)) return "snoozed until " + clock;
    return fmt::format("snoozed until {} {}", DateHelpers::dateKey(until), clock);
}

}  // namespace quorvane::ReminderNotices
