#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "git/ActivitySummaries.hpp"
#include "git/DailyReport.hpp"
#include "git/Identity.hpp"
#include "records/BranchRecord.hpp"
#include "records/CommitRecord.hpp"
#include "records/DailyJournal.hpp"
#include "records/DayActivity.hpp"
#include "records/RepoConfig.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/SyncState.hpp"
#include "records/WorkSession.hpp"

// Turns stored snapshots, commits, sessions and day records into what the views and
// reports show. Every function reads only its arguments: the time and the data come
// from the caller, and days follow the local calendar of the process's time zone.
namespace quorvane::Aggregator {

// The stale threshold of a repository with none configured.
inline constexpr int kDefaultStaleDays = 3;

// How the activity ranking orders its rows.
enum class RankingOrder {
    workedTodayFirst,   // repositories worked on that day first, then by recency
    pureRecency,        // by recency alone
    workingTreeChange,  // by the last change seen in the working tree, latest first
};

// A window of time, both ends included.
struct DateRange {
    Date start{};
    Date end{};
    bool operator==(const DateRange&) const = default;
};

// The local day holding `day`: from its first second to the next day's start less
// one second, both included.
DateRange dayRange(Date day);

// The sessions that ended inside `range`: a session counts for the day it ended on,
// so one that began before the range but ended in it belongs to it.
std::vector<WorkSession> sessionsEndingIn(std::vector<WorkSession> sessions,
                                          const DateRange& range);

// The commits of a window as every view counts them, by repository.
struct CountedCommits {
    // The commits that count, each repository's in the order given (newest first
    // when the store's order is given).
    std::map<std::string, std::vector<CommitRecord>> byRepo;
    // How many others' commits the window holds: pulled in with the person's.
    std::map<std::string, int> pulledIn;

    int count(const std::string& repoID) const;
    int pulledInCount(const std::string& repoID) const;
};

// The one rule by which every view counts commits: a commit belongs to the local
// day of its author date (`committedAt`), inside `range` both ends included; it
// counts once per repository, whichever branch it was read from; and it counts when
// `identity` counts it, the others' being tallied apart as pulled in.
CountedCommits countedCommits(const std::vector<CommitRecord>& commits, const DateRange& range,
                              const Identity& identity);

// The labels of one repository, in display order. A dirty repository is `stale` when
// `lastActivity` is absent or more than `staleDays` calendar days before `now`.
std::vector<RepoStatus> statuses(const RepoSnapshot& snapshot, bool activeToday, int staleDays,
                                 std::optional<Date> lastActivity, Date now);

// The record of one repository on the day `dateKey`, from that day's commits and the
// sessions that ended on it; `commits` and `sessions` may hold other days and repositories.
DayActivity dayActivity(const std::string& repoID, const std::string& dateKey,
                        const RepoSnapshot& snapshot, const std::vector<CommitRecord>& commits,
                        const std::vector<WorkSession>& sessions, Date now,
                        const Identity& identity);

// The tracked repositories' work between `start` and `end`. A window that starts today
// also lists repositories that are only dirty; counters cover every tracked repository.
TodaySummary summary(Date start, Date end, const std::string& label,
                     const std::vector<RepoConfig>& configs,
                     const std::vector<RepoSnapshot>& snapshots,
                     const std::vector<CommitRecord>& commits,
                     const std::vector<WorkSession>& sessions, Date now, const Identity& identity);

// A past day's summary as that day's last scan left it: each line's branch, file
// counts, sync counts and labels, and the counters, come from the day's records
// rather than from today's snapshots, which `summary` read. A line with no record
// of that day (its commits were read from history before it was tracked) keeps its
// commits and time and shows no counts.
TodaySummary asRecorded(TodaySummary summary, const std::vector<RepoConfig>& configs,
                        const std::vector<DayActivity>& dayRecords);

// How each tracked repository with a snapshot stands now, in configuration order:
// its branch, file counts, sync counts and labels, whether or not it was worked on.
std::vector<RepoTodayLine> standings(const std::vector<RepoConfig>& configs,
                                     const std::vector<RepoSnapshot>& snapshots, Date now);

// How each tracked repository stood when a scan last recorded the day, in
// configuration order, from the day's records that hold counts.
std::vector<RepoTodayLine> standingsAsRecorded(const std::vector<RepoConfig>& configs,
                                               const std::vector<DayActivity>& dayRecords);

// Whether any scan recorded the day: history read at enrolment writes records too,
// but those say nothing of how the day ended.
bool scanRecorded(const std::vector<DayActivity>& dayRecords);

// The tracked repositories ranked by activity on the local day holding `day`, leaving
// out those in cache, trash and dependency folders. A repository with a commit that
// counts that day was worked on, whichever branch holds it.
std::vector<ActivityRow> activityRanking(Date day, const std::vector<RepoConfig>& configs,
                                         const std::vector<RepoSnapshot>& snapshots,
                                         const std::vector<CommitRecord>& commits,
                                         const std::vector<WorkSession>& sessions,
                                         const std::vector<SyncState>& syncStates, Date now,
                                         RankingOrder order, const Identity& identity);

// Counts over the repositories with any commit or session between `start` and `end`.
ActivityInsights insights(Date start, Date end, const std::string& label,
                          const std::vector<RepoConfig>& configs,
                          const std::vector<RepoSnapshot>& snapshots,
                          const std::vector<CommitRecord>& commits,
                          const std::vector<WorkSession>& sessions, const Identity& identity);

// The Monday-to-Sunday week holding `week`: its commits counted as every view counts
// them, its time and labels from the day records; records outside that week or of
// untracked repositories are ignored.
WeeklySummary weeklySummary(Date week, const std::vector<RepoConfig>& configs,
                            const std::vector<DayActivity>& dayActivities,
                            const std::vector<CommitRecord>& commits, const Identity& identity);

// One cell per local day for the `daysBack` days that end with the day of `today`,
// oldest first: commits counted as every view counts them, time from the day records.
std::vector<DayBreakdown> heatmap(int daysBack, Date today,
                                  const std::vector<DayActivity>& dayActivities,
                                  const std::vector<RepoConfig>& configs,
                                  const std::vector<CommitRecord>& commits,
                                  const Identity& identity);

// The report of the local day holding `day`: its summary and journal entry, and what
// is left to do. For each repository, the summary's lines first and then the other
// `standings`: push, commit, catch up, then push each local branch of `branches` that
// holds unpushed commits. A checked-out branch with an upstream is left to the
// repository's own counts, a repository without a remote has nowhere to push, and a
// branch record written after the day does not say how that day ended.
DailyReport dailyReport(Date day, const TodaySummary& summary,
                        const std::optional<DailyJournal>& journal,
                        const std::vector<RepoTodayLine>& standings = {},
                        const std::vector<BranchRecord>& branches = {});

// How the tracked repositories stand against their remotes, from the local scan alone.
AlignmentOverview alignmentOverview(const std::vector<RepoConfig>& configs,
                                    const std::vector<RepoSnapshot>& snapshots);

// The window a period covers, ending at `now`.
DateRange bounds(InsightsPeriod period, Date now);

}  // namespace quorvane::Aggregator
