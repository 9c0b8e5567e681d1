#pragma once

#include <optional>
#include <string>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// The person's own notes for one local day, shown in the day's report. Stored under
// `dateKey`; a note never written is absent from the file.
struct DailyJournal {
    std::string dateKey;  // "yyyy-MM-dd" in local time
    std::optional<std::string> manualNotes;
    std::optional<std::string> blockers;
    std::optional<std::string> tomorrowNotes;
    std::optional<Date> updatedAt;  // last edit

    bool operator==(const DailyJournal&) const = default;
};

void fromJson(const Json& json, DailyJournal& out, const std::string& path);
Json toJson(const DailyJournal& journal);

}  // namespace quorvane
