#include "base/DateHelpers.hpp"

#include <array>
#include <cctype>
#include <ctime>

#include <fmt/format.h>

namespace quorvane::DateHelpers {

std::tm localParts(Date date) {
    std::time_t t = date.time_since_epoch().count();
    std::tm parts{};
    localtime_r(&t, &parts);
    return parts;
}

namespace {

std::string formatLocal(Date date, const char* pattern) {
    std::tm parts = localParts(date);
    std::array<char, 64> buffer{};
    size_t n = std::strftime(buffer.data(), buffer.size(), pattern, &parts);
    return std::string(buffer.data(), n);
}

// Reads exactly `width` decimal digits at `pos`.
std::optional<int> digits(std::string_view text, size_t pos, size_t width) {
    if (pos + width > text.size()) return std::nullopt;
    int value = 0;
    for (size_t i = pos; i < pos + width; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return std::nullopt;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

}  // namespace

std::string dateKey(Date date) {
    return formatLocal(date, "%Y-%m-%d");
}

std::string weekKey(Date date) {
    return formatLocal(date, "%G-W%V");
}

std::string weekday(Date date) {
    static constexpr std::array<const char*, 7> kNames = {"Sun", "Mon", "Tue", "Wed",
                                                          "Thu", "Fri", "Sat"};
    return kNames[static_cast<size_t>(localParts(date).tm_wday)];
}

Date startOfDay(Date date) {
    std::tm parts = localParts(date);
    return fromLocal(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, 0, 0, 0);
}

std::optional<Date> parseDateKey(std::string_view text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
    auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
    if (!year || !month || !day) return std::nullopt;
    std::chrono::year_month_day ymd{std::chrono::year(*year),
                                    std::chrono::month(static_cast<unsigned>(*month)),
                                    std::chrono::day(static_cast<unsigned>(*day))};
    if (!ymd.ok()) return std::nullopt;
    // A key is only one when it reads back as itself: the year 0999 would be written
    // "999", a text that names no day, so a screen could not even link to it.
    Date midnight = fromLocal(*year, *month, *day, 0, 0, 0);
    if (dateKey(midnight) != text) return std::nullopt;
    return midnight;
}

Date fromLocal(int year, int month, int day, int hour, int minute, int second) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return Date(std::chrono::seconds(std::mktime(&parts)));
}

std::string isoString(Date date) {
    auto days = std::chrono::floor<std::chrono::days>(date);
    std::chrono::year_month_day ymd(days);
    std::chrono::hh_mm_ss<std::chrono::seconds> time(date - days);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(ymd.year()),
                       static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                       time.hours().count(), time.minutes().count(), time.seconds().count());
}

std::optional<Date> parseISO(std::string_view raw) {
    std::string_view text = trimmed(raw);
    // yyyy-MM-ddTHH:mm:ss is 19 characters; a zone must follow.
    if (text.size() < 20 || text[4] != '-' || text[7] != '-' ||
        (text[10] != 'T' && text[10] != 't') || text[13] != ':' || text[16] != ':') {
        return std::nullopt;
    }
    auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
    auto hour = digits(text, 11, 2), minute = digits(text, 14, 2), second = digits(text, 17, 2);
    if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
    if (*hour > 23 || *minute > 59 || *second > 60) return std::nullopt;

    size_t pos = 19;
    if (text[pos] == '.') {
        ++pos;
        size_t start = pos;
        while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) ++pos;
        if (pos == start) return std::nullopt;
    }
    if (pos >= text.size()) return std::nullopt;

    int offsetSeconds = 0;
    if (text[pos] == 'Z' || text[pos] == 'z') {
        ++pos;
    } else if (text[pos] == '+' || text[pos] == '-') {
        int sign = text[pos] == '+' ? 1 : -1;
        auto offHours = digits(text, pos + 1, 2);
        auto offMinutes = digits(text, pos + 4, 2);
        if (!offHours || pos + 3 >= text.size() || text[pos + 3] != ':' || !offMinutes) {
            return std::nullopt;
        }
        offsetSeconds = sign * (*offHours * 3600 + *offMinutes * 60);
        pos += 6;
    } else {
        return std::nullopt;
    }
    if (pos != text.size()) return std::nullopt;

    std::chrono::year_month_day ymd{std::chrono::year(*year),
                                    std::chrono::month(static_cast<unsigned>(*month)),
                                    std::chrono::day(static_cast<unsigned>(*day))};
    if (!ymd.ok()) return std::nullopt;
    Date midnight{std::chrono::sys_days(ymd)};
    return midnight + std::chrono::hours(*hour) + std::chrono::minutes(*minute) +
           std::chrono::seconds(*second) - std::chrono::seconds(offsetSeconds);
}

}  // namespace quorvane::DateHelpers
