// The journal: the person's notes of a day, written by the command line and the
// dashboard alike.
#include "app/AppEnvironment.hpp"
#include "base/TextHelpers.hpp"

namespace quorvane {

namespace {

std::optional<std::string> journalText(std::string_view text) {
    std::string_view trimmed = Text::trim(text);
    if (trimmed.empty()) return std::nullopt;
    return std::string(trimmed);
}

}  // namespace

AppEnvironment::JournalWrite AppEnvironment::writeJournal(const JournalChange& change) {
    JournalWrite result;
    std::optional<DailyJournal> stored = store_.journal(change.dateKey);
    const DailyJournal before = stored.value_or(DailyJournal{change.dateKey, {}, {}, {}, {}});
    result.entry = before;
    if (change.notes) result.entry.manualNotes = journalText(*change.notes);
    if (change.blockers) result.entry.blockers = journalText(*change.blockers);
    if (change.tomorrow) result.entry.tomorrowNotes = journalText(*change.tomorrow);
    if (result.entry == before) {
        result.saved = true;
        return result;
    }
    result.changed = true;
    result.entry.updatedAt = clock_.now();
    store_.upsertJournal(result.entry);
    result.saved = store_.flush();
    if (!result.saved) {
        noteSaveProblem(store_.flushProblem());
        return result;
    }
    events_.publish("journal", Json{{"dateKey", change.dateKey}}.dump());
    return result;
}

}  // namespace quorvane
