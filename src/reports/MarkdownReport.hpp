#pragma once

#include <map>
#include <string>
#include <vector>

#include "git/ActivitySummaries.hpp"
#include "git/DailyReport.hpp"
#include "records/CommitRecord.hpp"
#include "records/RepoConfig.hpp"

namespace quorvane {

// The line under a report's title when no scan recorded its day.
inline constexpr const char* kNoScanRecordedNote =
    "_Note: no scan recorded on that day, so its commits come from the history and its counts "
    "may not show how it stood._";

// "7m" below an hour, "1h 5m" from an hour on; seconds are dropped, so 59 reads "0m".
// A negative length reads "0m".
std::string formatDuration(int seconds);

// Renders a day or a week as Markdown. Pure: every number comes from the records
// handed in, and the text cannot fail.
namespace MarkdownReport {

// The day's report. `commitsByRepo` holds each repository's commits newest first;
// only those whose local day is the report's are listed, in the order given.
std::string daily(const DailyReport& report, const std::vector<RepoConfig>& configs,
                  const std::map<std::string, std::vector<CommitRecord>>& commitsByRepo);

// The week's report: totals, one table row per day, and what needs attention.
std::string weekly(const WeeklySummary& summary);

}  // namespace MarkdownReport
}  // namespace quorvane
