#include "screens/JournalViewModel.hpp"

#include <algorithm>

#include "base/TextHelpers.hpp"

namespace quorvane::JournalViewModel {

namespace {

struct JournalPart {
    const char* name;
    std::optional<std::string> DailyJournal::*member;
};
constexpr JournalPart kJournalParts[] = {{"notes", &DailyJournal::manualNotes},
                                         {"blockers", &DailyJournal::blockers},
                                         {"tomorrow", &DailyJournal::tomorrowNotes}};

std::string_view firstLineOf(std::string_view text) {
    for (std::string_view line : Text::nonEmptyLines(text)) return Text::trim(line);
    return {};
}

}  // namespace

Json entryJson(const std::optional<DailyJournal>& entry) {
    return entry ? toJson(*entry) : Json();
}

Json daysJson(const std::vector<DailyJournal>& entries, const std::string& todayKey) {
    std::vector<const DailyJournal*> newestFirst;
    for (const DailyJournal& entry : entries) newestFirst.push_back(&entry);
    std::sort(newestFirst.begin(), newestFirst.end(),
              [](const DailyJournal* a, const DailyJournal* b) { return a->dateKey > b->dateKey; });
    Json days = Json::array();
    for (const DailyJournal* entry : newestFirst) {
        Json parts = Json::array();
        std::string glimpse;
        for (const JournalPart& part : kJournalParts) {
            const std::optional<std::string>& text = entry->*part.member;
            if (!text || Text::trim(*text).empty()) continue;
            parts.push_back(part.name);
            if (glimpse.empty()) glimpse = firstLineOf(*text);
        }
        if (parts.empty()) continue;
        days.push_back({{"dateKey", entry->dateKey}, {"parts", parts}, {"glimpse", glimpse}});
    }
    return Json{{"today", todayKey}, {"days", days}};
}

}  // namespace quorvane::JournalViewModel
