#include "records/DailyJournal.hpp"

namespace quorvane {

void fromJson(const Json& json, DailyJournal& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.dateKey = reader.required<std::string>("dateKey");
    out.manualNotes = reader.optional<std::string>("manualNotes");
    out.blockers = reader.optional<std::string>("blockers");
    out.tomorrowNotes = reader.optional<std::string>("tomorrowNotes");
    out.updatedAt = reader.optional<Date>("updatedAt");
}

Json toJson(const DailyJournal& journal) {
    Json json{{"dateKey", journal.dateKey}};
    putIfPresent(json, "manualNotes", journal.manualNotes);
    putIfPresent(json, "blockers", journal.blockers);
    putIfPresent(json, "tomorrowNotes", journal.tomorrowNotes);
    putIfPresent(json, "updatedAt", journal.updatedAt);
    return json;
}

}  // namespace quorvane
