#include "app/DailyReview.hpp"

#include <time.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace quorvane::DailyReview {

namespace {

constexpr std::chrono::seconds kMinute{60};

std::optional<int> decimal(std::string_view text) {
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// The first instant of the local day `day` at which the clock reads hour:minute or
// later. Walking the day a minute at a time settles both daylight-saving cases
// without asking the C library to guess: a skipped time lands on the first minute
// after the gap, and a repeated one on its first occurrence.
std::optional<Date> firstAtOrAfter(Date day, int hour, int minute) {
    std::tm start = DateHelpers::localParts(day);
    auto dayOf = [](const std::tm& t) { return std::tuple(t.tm_year, t.tm_yday); };
    for (Date x = day; x < day + kDay + std::chrono::hours(2); x += kMinute) {
        std::tm parts = DateHelpers::localParts(x);
        if (dayOf(parts) > dayOf(start)) return x;  // the gap ran past midnight
        if (std::tuple(parts.tm_hour, parts.tm_min) >= std::tuple(hour, minute)) return x;
    }
    return std::nullopt;
}

}  // namespace

double secondsUntilNextReview(std::string_view reviewTime, Date now) {
    std::vector<std::string_view> pieces;
    size_t from = 0;
    while (from <= reviewTime.size()) {
        size_t colon = std::min(reviewTime.find(':', from), reviewTime.size());
        if (colon > from) pieces.push_back(reviewTime.substr(from, colon - from));
        from = colon + 1;
    }
    int hour = kDefaultHour, minute = kDefaultMinute;
    if (pieces.size() == 2) {
        hour = decimal(pieces[0]).value_or(kDefaultHour);
        minute = decimal(pieces[1]).value_or(kDefaultMinute);
    }

    std::optional<Date> next;
    if (hour >= 0 && hour < 24 && minute >= 0 && minute < 60) {
        Date today = DateHelpers::startOfDay(now);
        for (Date day : {today, DateHelpers::startOfDay(today + kDay + std::chrono::hours(2))}) {
            std::optional<Date> candidate = firstAtOrAfter(day, hour, minute);
            if (candidate && *candidate > now) {
                next = candidate;
                break;
            }
        }
    }
    Date due = next.value_or(now + kDay);
    return std::max(1.0, static_cast<double>((due - now).count()));
}

}  // namespace quorvane::DailyReview
