#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "git/ActivitySummaries.hpp"
#include "git/Aggregator.hpp"
#include "git/DailyReport.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/Store.hpp"
#include "records/WorkSession.hpp"

// The read-only questions the views ask between scans: each gathers what it needs
// from the store and hands it to the aggregator. Nothing here writes or prints, so
// the command line and the long-running service give the same answers. `now` is the
// caller's clock reading; days are local days of the process's time zone.
namespace quorvane::Queries {

// Today's work across the tracked repositories, labelled with today's date key.
// Who the person is, by their settings and their repositories' user.email: whose
// commits every count below is of.
Identity identity(const Store& store, const AppConfig& config);

TodaySummary todaySummary(const Store& store, const AppConfig& config, Date now);
// Today as 'today --json' and the dashboard give it: the summary, each line also
// with its status in words ("standing": text and tone, as the table shows them),
// so a screen never has to name a state itself.
Json todayJson(const Store& store, const AppConfig& config, Date now);
// The reminders still open (every one with `all`), newest first.
std::vector<ReminderEvent> remindersNewestFirst(const Store& store, bool all);

// The work from the start of the day of `from` to the end of the day of `to`. The label
// is the date key of `from`, or "<from> → <to>" when the two are different days.
TodaySummary summary(const Store& store, const AppConfig& config, Date now, Date from, Date to);

// What the day's report is rendered from: the report itself, and that day's commits
// by repository id, each repository's newest first.
struct DailyReportInput {
    DailyReport report;
    std::map<std::string, std::vector<CommitRecord>> commitsByRepo;
};

// The report of the local day holding `day`: its summary, its journal entry and its
// commits.
DailyReportInput dailyReport(const Store& store, const AppConfig& config, Date now, Date day);

// Counts over a period ending now, labelled "Today", "Last 30 days" or "All time".
ActivityInsights insights(const Store& store, const AppConfig& config, Date now,
                          InsightsPeriod period);

// The Monday-to-Sunday week holding `date`, from the stored day records.
WeeklySummary weeklySummary(const Store& store, const AppConfig& config, Date date);

// One cell per local day for the `daysBack` days ending today, oldest first.
std::vector<DayBreakdown> heatmap(const Store& store, const AppConfig& config, Date now,
                                  int daysBack);

// The tracked repositories ranked by today's activity.
std::vector<ActivityRow> activityRanking(const Store& store, const AppConfig& config, Date now,
                                         Aggregator::RankingOrder order);

// The work sessions that touch the local day holding `day` (started or ended on it, or
// ran across it), of one repository or of all, oldest start first.
std::vector<WorkSession> sessionsOn(const Store& store, Date day,
                                    const std::optional<std::string>& repoID);

}  // namespace quorvane::Queries
