#pragma once

#include <optional>
#include <vector>

#include "records/DailyJournal.hpp"
#include "records/JsonCodec.hpp"

// The Journal screen: a day's entry, and the days that have one to go back to.
namespace quorvane::JournalViewModel {

// A day's entry as 'journal --json' prints it and the dashboard reads it: the
// entry, or null for a day nobody wrote about.
Json entryJson(const std::optional<DailyJournal>& entry);

// The screen's list: "today" (the service's day, which a page in another time zone
// would get wrong) and "days", those whose entry still holds some text, newest
// first: each with its date key, the parts written ("notes", "blockers",
// "tomorrow", in that order) and the first line of the first of them, to recognise
// the day by. A day whose every part was cleared is left out.
Json daysJson(const std::vector<DailyJournal>& entries, const std::string& todayKey);

}  // namespace quorvane::JournalViewModel
