#pragma once

#include <optional>
#include <string>
#include <vector>

#include "git/ActivitySummaries.hpp"
#include "git/WorkSessionEngine.hpp"
#include "records/CommitRecord.hpp"
#include "records/RepoConfig.hpp"
#include "records/WorkSession.hpp"

// The screens that look at days: one day's timeline (Activity), a Monday-to-Sunday
// week (Week) and the year of commits (Calendar). The command line prints the same
// JSON for the week and the calendar, and the dashboard draws all three from it.
namespace quorvane {

namespace DayKeys {

// The date key `days` local days after the day holding `day` (before it when
// negative), whatever daylight saving does to the days between.
std::string shifted(Date day, int days);

}  // namespace DayKeys

namespace ActivityViewModel {

// How long before a session's start a commit still counts as its work: the scan
// that notices a commit comes after it and opens the session then, and a quiet
// repository is scanned at least once within the idle time.
inline constexpr std::chrono::seconds kLeadIn{
    static_cast<std::chrono::seconds::rep>(WorkSessionEngine::kIdleTimeoutSeconds)};

struct SessionEntry {
    WorkSession session;
    std::vector<CommitRecord> commits;  // oldest first
    bool operator==(const SessionEntry&) const = default;
};

struct RepoTimeline {
    std::string repoID;
    std::string name;
    std::vector<SessionEntry> sessions;  // oldest start first
    std::vector<CommitRecord> outside;   // the commits no session holds, oldest first
    int commitCount = 0;
    int seconds = 0;  // the sessions' estimated time, each counted whole
    bool operator==(const RepoTimeline&) const = default;
};

struct Day {
    std::string dateKey;
    std::string previousDateKey;
    std::optional<std::string> nextDateKey;  // absent from today on
    std::vector<RepoTimeline> repositories;  // by their first work of the day
    int sessionCount = 0;
    int commitCount = 0;
    int seconds = 0;
};

// The local day holding `day`, from the sessions that touch it and the person's
// commits made on it: each commit goes to the session of its repository that holds
// it (allowing the lead-in), else it is listed outside any session.
Day build(Date day, Date now, const std::vector<RepoConfig>& repositories,
          std::vector<WorkSession> sessions, std::vector<CommitRecord> commits);

// Each session comes with its start and end as the day reads them ("09:40", or
// "2026-11-01 23:30" on another day, "open" while it lasts) and its evidence in
// words; each commit, in the form 'commits --json' gives, with its clock time.
Json toJson(const Day& day);

// What a session's evidence is, in the words the views use.
std::string_view evidenceWords(WorkSession::Source source);

}  // namespace ActivityViewModel

namespace WeekViewModel {

// The week as 'week --json' prints it: the summary with the Mondays of the weeks
// before and after it.
Json toJson(const WeeklySummary& summary);

}  // namespace WeekViewModel

namespace CalendarViewModel {

// A day counts as active, for the totals and the streaks, when it has commits or
// recorded work.
struct Calendar {
    std::vector<DayBreakdown> days;  // oldest first
    std::vector<int> streaks;        // per day: the active days in a row ending on it
    std::vector<int> levels;         // per day: its shade, 0 (none) to 4 (the busiest)
    int lead = 0;                    // the first day's row, Monday being 0
    int currentStreak = 0;           // ending today, or yesterday while today is quiet
    int longestStreak = 0;           // within the days shown
    int totalCommits = 0;
    int totalSeconds = 0;
    int activeDays = 0;
};

// A day's shade relative to the busiest day shown: four equal steps up to the
// maximum, so the scale follows the person's own rhythm rather than fixed counts.
int level(int commits, int busiest);

// The calendar of `days`, consecutive local days ending today, oldest first.
Calendar build(std::vector<DayBreakdown> days);

// The days as 'heatmap --json' prints them: each with its streak and its level.
Json daysJson(const Calendar& calendar);
// The screen's answer: those days, the first day's row and the totals.
Json toJson(const Calendar& calendar);

}  // namespace CalendarViewModel

}  // namespace quorvane
