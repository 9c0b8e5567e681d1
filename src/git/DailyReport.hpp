#pragma once

#include <optional>
#include <string>
#include <vector>

#include "git/ActivitySummaries.hpp"
#include "records/DailyJournal.hpp"

namespace quorvane {

// What the day's report is rendered from: the day's summary, the person's journal
// entry for it, and the open items still to do. Computed, never stored.
struct DailyReport {
    std::string dateKey;  // "yyyy-MM-dd" in local time
    TodaySummary summary;
    std::optional<DailyJournal> journal;
    std::vector<std::string> pending;  // "Push app (2 commits)", "Commit app (1 file)", ...
    // False when no scan recorded the day: its counts may not be how it ended.
    bool scanRecorded = true;

    bool operator==(const DailyReport&) const = default;
};

}  // namespace quorvane
