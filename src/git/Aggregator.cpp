#include "git/Aggregator.hpp"

#include <algorithm>
#include <array>
#include <climits>
#include <ctime>
#include <map>
#include <set>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "base/NameOrder.hpp"

namespace quorvane::Aggregator {
namespace {

using SnapshotIndex = std::unordered_map<std::string, const RepoSnapshot*>;

// Folders whose repositories are tools' copies, not the user's projects.
constexpr std::array<std::string_view, 8> kRankingExcludedFragments = {
    "/Library/Caches/",
    "/Library/Developer/",
    "/Library/Containers/",
    "/Library/Application Support/",
    "/.Trash/",
    "/node_modules/",
    "/DerivedData/",
    "/Pods/"};

// Statuses a weekly view flags: work left waiting, or a repository that cannot be read.
constexpr std::array<RepoStatus, 6> kAttentionStatuses = {
    RepoStatus::needsCommit, RepoStatus::needsPush,    RepoStatus::behindRemote,
    RepoStatus::stale,       RepoStatus::detachedHead, RepoStatus::error};

// The latest snapshot of each repository; a later entry replaces an earlier one.
SnapshotIndex latestSnapshots(const std::vector<RepoSnapshot>& snapshots) {
    SnapshotIndex index;
    for (const auto& snapshot : snapshots) index[snapshot.repoID] = &snapshot;
    return index;
}

const RepoSnapshot* find(const SnapshotIndex& index, const std::string& repoID) {
    auto it = index.find(repoID);
    return it == index.end() ? nullptr : it->second;
}

int staleDaysFor(const RepoConfig& config) {
    return config.staleDaysThreshold.value_or(kDefaultStaleDays);
}

bool inWindow(Date date, Date start, Date end) {
    return date >= start && date <= end;
}

// `date` moved by whole calendar days at the same wall-clock time, so a day with a
// daylight-saving change still counts as one day; no value when it is out of range.
std::optional<Date> addCalendarDays(Date date, int days) {
    std::tm parts = DateHelpers::localParts(date);
    long long mday = static_cast<long long>(parts.tm_mday) + days;
    if (mday < INT_MIN || mday > INT_MAX) return std::nullopt;
    parts.tm_mday = static_cast<int>(mday);
    parts.tm_isdst = -1;
    std::time_t t = std::mktime(&parts);
    if (t == static_cast<std::time_t>(-1)) return std::nullopt;
    return Date(std::chrono::seconds(t));
}

// Local midnight `offset` days after the day that starts at `dayStart`.
Date dayStartAfter(Date dayStart, int offset) {
    std::tm parts = DateHelpers::localParts(dayStart);
    return DateHelpers::fromLocal(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday + offset, 0,
                                  0, 0);
}

bool contains(const std::vector<RepoStatus>& labels, RepoStatus wanted) {
    return std::find(labels.begin(), labels.end(), wanted) != labels.end();
}

bool needsAttention(const std::vector<RepoStatus>& labels) {
    return std::any_of(kAttentionStatuses.begin(), kAttentionStatuses.end(),
                       [&](RepoStatus status) { return contains(labels, status); });
}

// Day records keep labels as text; a name this build does not know is dropped.
std::vector<RepoStatus> parseStatuses(const std::vector<std::string>& names) {
    std::vector<RepoStatus> labels;
    for (const auto& name : names) {
        if (auto status = enumFromName<RepoStatus>(name)) labels.push_back(*status);
    }
    return labels;
}

bool excludedFromRanking(const std::string& localPath) {
    return std::any_of(
        kRankingExcludedFragments.begin(), kRankingExcludedFragments.end(),
        [&](std::string_view fragment) { return localPath.find(fragment) != std::string::npos; });
}

std::optional<Date> latest(std::optional<Date> a, std::optional<Date> b) {
    if (!a) return b;
    if (!b) return a;
    return std::max(*a, *b);
}

// The seven local midnights of the Monday-to-Sunday week holding `date`.
std::array<Date, 7> weekDays(Date date) {
    Date start = DateHelpers::startOfDay(date);
    int sinceMonday = (DateHelpers::localParts(start).tm_wday + 6) % 7;
    std::array<Date, 7> days{};
    for (int i = 0; i < 7; ++i)
        days[static_cast<size_t>(i)] = dayStartAfter(start, i - sinceMonday);
    return days;
}

struct DayTotals {
    std::unordered_set<std::string> repos;
    int commits = 0;
    int seconds = 0;
};

DayBreakdown breakdown(Date dayStart, const DayTotals& totals) {
    return DayBreakdown{.dateKey = DateHelpers::dateKey(dayStart),
                        .weekday = DateHelpers::weekday(dayStart),
                        .projectCount = static_cast<int>(totals.repos.size()),
                        .commitCount = totals.commits,
                        .seconds = totals.seconds};
}

// A day's time comes from its records; its commits are counted apart, by the rule
// every view counts by.
void addTime(DayTotals& totals, const DayActivity& activity) {
    totals.seconds += activity.estimatedSeconds;
    if (activity.estimatedSeconds > 0) totals.repos.insert(activity.repoID);
}

void addCommit(DayTotals& totals, const std::string& repoID) {
    ++totals.commits;
    totals.repos.insert(repoID);
}

}  // namespace

DateRange dayRange(Date day) {
    Date start = DateHelpers::startOfDay(day);
    // The next calendar day's midnight, not start + 24 h: a day with a daylight-saving
    // change is 23 or 25 hours long.
    return {start, dayStartAfter(start, 1) - std::chrono::seconds(1)};
}

std::vector<WorkSession> sessionsEndingIn(std::vector<WorkSession> sessions,
                                          const DateRange& range) {
    std::erase_if(sessions, [&](const WorkSession& session) {
        return !inWindow(session.endedAt, range.start, range.end);
    });
    return sessions;
}

int CountedCommits::count(const std::string& repoID) const {
    auto it = byRepo.find(repoID);
    return it == byRepo.end() ? 0 : static_cast<int>(it->second.size());
}

int CountedCommits::pulledInCount(const std::string& repoID) const {
    auto it = pulledIn.find(repoID);
    return it == pulledIn.end() ? 0 : it->second;
}

CountedCommits countedCommits(const std::vector<CommitRecord>& commits, const DateRange& range,
                              const Identity& identity) {
    CountedCommits counted;
    // A commit read from two branches, or by a scan and by enrolment, is one commit.
    std::set<std::pair<std::string_view, std::string_view>> seen;
    for (const CommitRecord& commit : commits) {
        if (!inWindow(commit.committedAt, range.start, range.end)) continue;
        if (!commit.sha.empty() && !seen.emplace(commit.repoID, commit.sha).second) continue;
        if (identity.counts(commit)) {
            counted.byRepo[commit.repoID].push_back(commit);
        } else {
            ++counted.pulledIn[commit.repoID];
        }
    }
    return counted;
}

std::vector<RepoStatus> statuses(const RepoSnapshot& snapshot, bool activeToday, int staleDays,
                                 std::optional<Date> lastActivity, Date now) {
    // An empty error text is no failure, as for isSynced.
    if (snapshot.error && !snapshot.error->empty()) return {RepoStatus::error};

    std::vector<RepoStatus> labels;
    int dirty = snapshot.files.total();
    if (snapshot.isSynced()) {
        labels.push_back(RepoStatus::synced);
    } else {
        if (dirty > 0) labels.push_back(RepoStatus::needsCommit);
        if (snapshot.ahead > 0) labels.push_back(RepoStatus::needsPush);
        if (snapshot.behind > 0) labels.push_back(RepoStatus::behindRemote);
    }
    labels.push_back(activeToday ? RepoStatus::activeToday : RepoStatus::inactive);

    // Only uncommitted work can go stale; a clean repository is merely idle.
    if (dirty > 0) {
        Date cutoff = addCalendarDays(now, -std::max(staleDays, 0)).value_or(Date::min());
        if (!lastActivity || *lastActivity < cutoff) labels.push_back(RepoStatus::stale);
    }
    if (!snapshot.remoteURL) labels.push_back(RepoStatus::noRemote);
    if (snapshot.isDetachedHead) labels.push_back(RepoStatus::detachedHead);
    return labels;
}

DayActivity dayActivity(const std::string& repoID, const std::string& dateKey,
                        const RepoSnapshot& snapshot, const std::vector<CommitRecord>& commits,
                        const std::vector<WorkSession>& sessions, Date now,
                        const Identity& identity) {
    DayActivity day;
    day.repoID = repoID;
    day.dateKey = dateKey;

    std::set<std::string> branches;
    for (const auto& commit : commits) {
        if (commit.repoID != repoID || DateHelpers::dateKey(commit.committedAt) != dateKey)
            continue;
        if (!commit.branch.empty()) branches.insert(commit.branch);
    }
    std::optional<Date> dayStart = DateHelpers::parseDateKey(dateKey);
    if (dayStart)
        day.commitCount = countedCommits(commits, dayRange(*dayStart), identity).count(repoID);
    bool hasSessions = false;
    for (const auto& session : sessions) {
        if (session.repoID != repoID || DateHelpers::dateKey(session.endedAt) != dateKey) continue;
        hasSessions = true;
        day.estimatedSeconds += session.estimatedSeconds;
    }
    if (!snapshot.branch.empty()) branches.insert(snapshot.branch);

    day.filesTouched = snapshot.files.total();
    day.branch = snapshot.branch;
    day.files = snapshot.files;
    day.ahead = snapshot.ahead;
    day.behind = snapshot.behind;
    day.branchesTouched.assign(branches.begin(), branches.end());
    day.pushed = day.commitCount > 0 && snapshot.ahead == 0;
    for (RepoStatus status : statuses(snapshot, day.commitCount > 0 || hasSessions,
                                      kDefaultStaleDays, snapshot.lastCommitAt, now)) {
        day.statuses.emplace_back(enumName(status));
    }
    return day;
}

namespace {

// A repository's line as its latest snapshot has it: where it stands, without the
// day's counts; `worked` says whether the day's work labels it active.
RepoTodayLine standingLine(const RepoConfig& config, const RepoSnapshot& snapshot, bool worked,
                           Date now) {
    RepoTodayLine line;
    line.repoID = config.id;
    line.name = displayNameOf(config);
    line.branch = snapshot.branch;
    line.files = snapshot.files;
    line.ahead = snapshot.ahead;
    line.behind = snapshot.behind;
    line.workedInWindow = worked;
    line.statuses = statuses(snapshot, worked, staleDaysFor(config), snapshot.lastCommitAt, now);
    line.lastCommitAt = snapshot.lastCommitAt;
    return line;
}

}  // namespace

TodaySummary summary(Date start, Date end, const std::string& label,
                     const std::vector<RepoConfig>& configs,
                     const std::vector<RepoSnapshot>& snapshots,
                     const std::vector<CommitRecord>& commits,
                     const std::vector<WorkSession>& sessions, Date now, const Identity& identity) {
    TodaySummary result;
    result.dateKey = label;
    SnapshotIndex latestByRepo = latestSnapshots(snapshots);
    bool windowIsToday = start >= DateHelpers::startOfDay(now);
    CountedCommits counted = countedCommits(commits, {start, end}, identity);

    for (const auto& config : configs) {
        if (!config.trackingEnabled) continue;
        const RepoSnapshot* snapshot = find(latestByRepo, config.id);
        if (snapshot == nullptr) continue;

        // The counters describe every tracked repository, worked on or not.
        if (snapshot->ahead > 0) ++result.needsPushCount;
        if (snapshot->files.total() > 0) ++result.needsCommitCount;
        if (snapshot->behind > 0) ++result.behindCount;
        result.modifiedFiles += snapshot->files.modified;
        result.stagedFiles += snapshot->files.staged;

        RepoTodayLine line;
        line.commitsToday = counted.count(config.id);
        result.pulledInCommits += counted.pulledInCount(config.id);
        bool hasSessions = false;
        for (const auto& session : sessions) {
            if (session.repoID == config.id && inWindow(session.endedAt, start, end)) {
                hasSessions = true;
                line.estimatedSeconds += session.estimatedSeconds;
            }
        }
        line.workedInWindow = line.commitsToday > 0 || hasSessions;
        // Uncommitted work is today's business; in a past window only real work shows.
        bool takesPart = line.workedInWindow || (windowIsToday && snapshot->files.total() > 0);
        if (!takesPart) continue;

        RepoTodayLine standing = standingLine(config, *snapshot, line.workedInWindow, now);
        standing.commitsToday = line.commitsToday;
        standing.estimatedSeconds = line.estimatedSeconds;
        result.lines.push_back(std::move(standing));
    }

    std::stable_sort(result.lines.begin(), result.lines.end(),
                     [](const RepoTodayLine& a, const RepoTodayLine& b) {
                         if (a.workedInWindow != b.workedInWindow) return a.workedInWindow;
                         if (a.commitsToday != b.commitsToday)
                             return a.commitsToday > b.commitsToday;
                         if (a.estimatedSeconds != b.estimatedSeconds) {
                             return a.estimatedSeconds > b.estimatedSeconds;
                         }
                         return a.files.total() > b.files.total();
                     });
    for (const auto& line : result.lines) {
        if (line.commitsToday > 0 || line.estimatedSeconds > 0) ++result.activeProjects;
        result.totalCommits += line.commitsToday;
    }
    return result;
}

TodaySummary asRecorded(TodaySummary summary, const std::vector<RepoConfig>& configs,
                        const std::vector<DayActivity>& dayRecords) {
    std::map<std::string, const DayActivity*> recordByRepo;
    for (const DayActivity& record : dayRecords) recordByRepo[record.repoID] = &record;
    auto has = [](const DayActivity& record, RepoStatus status) {
        return std::ranges::find(record.statuses, enumName(status)) != record.statuses.end();
    };

    summary.needsPushCount = summary.needsCommitCount = summary.behindCount = 0;
    summary.modifiedFiles = summary.stagedFiles = 0;
    for (const RepoConfig& config : configs) {
        auto found = recordByRepo.find(config.id);
        if (!config.trackingEnabled || found == recordByRepo.end()) continue;
        const DayActivity& record = *found->second;
        // A record from before the counts were kept still has its labels.
        if (!record.files) {
            summary.needsPushCount += has(record, RepoStatus::needsPush) ? 1 : 0;
            summary.needsCommitCount += has(record, RepoStatus::needsCommit) ? 1 : 0;
            summary.behindCount += has(record, RepoStatus::behindRemote) ? 1 : 0;
            continue;
        }
        summary.needsPushCount += record.ahead > 0 ? 1 : 0;
        summary.needsCommitCount += record.files->total() > 0 ? 1 : 0;
        summary.behindCount += record.behind > 0 ? 1 : 0;
        summary.modifiedFiles += record.files->modified;
        summary.stagedFiles += record.files->staged;
    }

    for (RepoTodayLine& line : summary.lines) {
        auto found = recordByRepo.find(line.repoID);
        line.files = {};
        line.ahead = line.behind = 0;
        if (found == recordByRepo.end()) {
            line.statuses = {RepoStatus::activeToday};
            continue;
        }
        const DayActivity& record = *found->second;
        if (!record.branch.empty()) line.branch = record.branch;
        line.files = record.files.value_or(GitFileCounts{});
        line.ahead = record.ahead;
        line.behind = record.behind;
        line.statuses.clear();
        for (const std::string& name : record.statuses) {
            if (std::optional<RepoStatus> status = enumFromName<RepoStatus>(name)) {
                line.statuses.push_back(*status);
            }
        }
    }
    return summary;
}

std::vector<ActivityRow> activityRanking(Date day, const std::vector<RepoConfig>& configs,
                                         const std::vector<RepoSnapshot>& snapshots,
                                         const std::vector<CommitRecord>& commits,
                                         const std::vector<WorkSession>& sessions,
                                         const std::vector<SyncState>& syncStates, Date now,
                                         RankingOrder order, const Identity& identity) {
    std::string dayKey = DateHelpers::dateKey(day);
    CountedCommits counted = countedCommits(commits, dayRange(day), identity);
    SnapshotIndex latestByRepo = latestSnapshots(snapshots);
    std::unordered_map<std::string, SyncState::Status> syncByRepo;
    for (const auto& state : syncStates) syncByRepo[state.id] = state.status;

    auto onDay = [&](std::optional<Date> date) {
        return date && DateHelpers::dateKey(*date) == dayKey;
    };

    std::vector<ActivityRow> rows;
    for (const auto& config : configs) {
        if (!config.trackingEnabled || excludedFromRanking(config.localPath)) continue;
        const RepoSnapshot* snapshot = find(latestByRepo, config.id);
        if (snapshot == nullptr) continue;

        ActivityRow row;
        row.lastActivityAt = latest(snapshot->lastCommitAt, snapshot->lastWorkingTreeChangeAt);
        bool hasSessions = false;
        for (const auto& session : sessions) {
            if (session.repoID != config.id || !onDay(session.endedAt)) continue;
            hasSessions = true;
            row.estimatedSecondsToday += session.estimatedSeconds;
            row.lastActivityAt = latest(row.lastActivityAt, session.endedAt);
        }
        // The day's commits on any branch: HEAD's newest commit says nothing of the
        // others, and a colleague's pulled in is no work of the person's.
        for (const CommitRecord& commit : counted.byRepo[config.id]) {
            row.lastActivityAt = latest(row.lastActivityAt, commit.committedAt);
        }
        row.commitsToday = counted.count(config.id);
        row.workedToday =
            row.commitsToday > 0 || onDay(snapshot->lastWorkingTreeChangeAt) || hasSessions;

        row.repoID = config.id;
        row.name = displayNameOf(config);
        row.branch = snapshot->branch;
        row.localPath = config.localPath;
        row.lastWorkingTreeChangeAt = snapshot->lastWorkingTreeChangeAt;
        row.files = snapshot->files;
        row.ahead = snapshot->ahead;
        row.behind = snapshot->behind;
        // A snapshot that failed knows no remote; the configuration still does.
        row.remoteURL = snapshot->remoteURL ? snapshot->remoteURL : config.remoteURL;
        row.hasRemote = row.remoteURL.has_value();
        row.hasUpstream = snapshot->hasUpstream;
        row.statuses =
            statuses(*snapshot, row.workedToday, staleDaysFor(config), snapshot->lastCommitAt, now);
        if (auto it = syncByRepo.find(config.id); it != syncByRepo.end()) {
            row.syncStatus = it->second;
        }
        rows.push_back(std::move(row));
    }

    bool workedFirst = order == RankingOrder::workedTodayFirst;
    // Latest first; a row with a date before one without.
    auto later = [](const std::optional<Date>& a, const std::optional<Date>& b) {
        if (!a || !b) return a.has_value();
        return *a > *b;
    };
    std::stable_sort(rows.begin(), rows.end(), [&](const ActivityRow& a, const ActivityRow& b) {
        if (workedFirst && a.workedToday != b.workedToday) return a.workedToday;
        if (order == RankingOrder::workingTreeChange &&
            a.lastWorkingTreeChangeAt != b.lastWorkingTreeChangeAt) {
            return later(a.lastWorkingTreeChangeAt, b.lastWorkingTreeChangeAt);
        }
        if (a.lastActivityAt != b.lastActivityAt) return later(a.lastActivityAt, b.lastActivityAt);
        return nameLess(a.name, b.name);
    });
    return rows;
}

ActivityInsights insights(Date start, Date end, const std::string& label,
                          const std::vector<RepoConfig>& configs,
                          const std::vector<RepoSnapshot>& snapshots,
                          const std::vector<CommitRecord>& commits,
                          const std::vector<WorkSession>& sessions, const Identity& identity) {
    ActivityInsights result;
    result.label = label;
    SnapshotIndex latestByRepo = latestSnapshots(snapshots);
    CountedCommits counted = countedCommits(commits, {start, end}, identity);

    // A branch is counted per repository: "main" in two projects is two branches.
    std::set<std::pair<std::string, std::string>> branches;
    for (const auto& config : configs) {
        if (!config.trackingEnabled) continue;
        int commitCount = 0;
        for (const auto& commit : counted.byRepo[config.id]) {
            ++commitCount;
            if (commit.isLocalOnly) ++result.unpushedCommits;
            if (!commit.branch.empty()) branches.emplace(config.id, commit.branch);
        }
        bool hasSessions = false;
        for (const auto& session : sessions) {
            if (session.repoID != config.id || !inWindow(session.endedAt, start, end)) continue;
            hasSessions = true;
            result.estimatedSeconds += session.estimatedSeconds;
        }
        if (commitCount == 0 && !hasSessions) continue;

        ++result.projectsWorked;
        result.commits += commitCount;
        const RepoSnapshot* snapshot = find(latestByRepo, config.id);
        bool hasRemote = (snapshot != nullptr && snapshot->remoteURL) || config.remoteURL;
        ++(hasRemote ? result.withRemote : result.localOnly);
        // Commits read by a scan carry no branch, so the branch checked out counts too.
        if (snapshot != nullptr && !snapshot->branch.empty()) {
            branches.emplace(config.id, snapshot->branch);
        }
    }
    result.branchesActive = static_cast<int>(branches.size());
    return result;
}

WeeklySummary weeklySummary(Date week, const std::vector<RepoConfig>& configs,
                            const std::vector<DayActivity>& dayActivities,
                            const std::vector<CommitRecord>& commits, const Identity& identity) {
    std::array<Date, 7> days = weekDays(week);
    std::array<std::string, 7> keys;
    for (size_t i = 0; i < days.size(); ++i) keys[i] = DateHelpers::dateKey(days[i]);

    std::unordered_set<std::string> tracked;
    for (const auto& config : configs) {
        if (config.trackingEnabled) tracked.insert(config.id);
    }

    struct RepoWeek {
        int commits = 0;
        int seconds = 0;
        const DayActivity* latestDay = nullptr;
    };
    std::unordered_map<std::string, RepoWeek> byRepo;
    std::array<DayTotals, 7> perDay;

    WeeklySummary result;
    result.weekKey = keys[0];
    for (const auto& activity : dayActivities) {
        auto dayIt = std::find(keys.begin(), keys.end(), activity.dateKey);
        if (dayIt == keys.end() || !tracked.contains(activity.repoID)) continue;
        addTime(perDay[static_cast<size_t>(dayIt - keys.begin())], activity);
        RepoWeek& repo = byRepo[activity.repoID];
        repo.seconds += activity.estimatedSeconds;
        // Date keys sort as text, so the greatest is the latest day.
        if (repo.latestDay == nullptr || repo.latestDay->dateKey < activity.dateKey) {
            repo.latestDay = &activity;
        }
    }
    DateRange span{days[0], dayRange(days[6]).end};
    for (const auto& [repoID, repoCommits] : countedCommits(commits, span, identity).byRepo) {
        if (!tracked.contains(repoID)) continue;
        for (const CommitRecord& commit : repoCommits) {
            auto dayIt =
                std::find(keys.begin(), keys.end(), DateHelpers::dateKey(commit.committedAt));
            if (dayIt == keys.end()) continue;
            addCommit(perDay[static_cast<size_t>(dayIt - keys.begin())], repoID);
            ++byRepo[repoID].commits;
        }
    }
    for (size_t i = 0; i < days.size(); ++i) {
        result.perDay.push_back(breakdown(days[i], perDay[i]));
        result.totalCommits += perDay[i].commits;
        result.totalSeconds += perDay[i].seconds;
    }

    // Needs attention and most neglected follow the configuration's order; most
    // neglected is the idle repository left with the most uncommitted files.
    int neglectedFiles = -1;
    for (const auto& config : configs) {
        auto it = byRepo.find(config.id);
        if (!config.trackingEnabled || it == byRepo.end()) continue;
        const RepoWeek& repo = it->second;
        bool active = repo.commits > 0 || repo.seconds > 0;
        if (active) {
            result.perRepo.push_back(WeekRepoLine{.repoID = config.id,
                                                  .name = displayNameOf(config),
                                                  .localPath = config.localPath,
                                                  .commits = repo.commits,
                                                  .seconds = repo.seconds});
        }

        // Commits read from history before any scan leave no day record to label.
        if (repo.latestDay == nullptr) continue;
        std::vector<RepoStatus> labels = parseStatuses(repo.latestDay->statuses);
        if (!needsAttention(labels)) continue;
        // A day record keeps labels and totals only, so the line carries just those.
        RepoTodayLine line;
        line.repoID = config.id;
        line.name = displayNameOf(config);
        line.commitsToday = repo.commits;
        line.estimatedSeconds = repo.seconds;
        line.statuses = std::move(labels);
        line.workedInWindow = active;
        result.needsAttention.push_back(std::move(line));
        if (!active && repo.latestDay->filesTouched > neglectedFiles) {
            neglectedFiles = repo.latestDay->filesTouched;
            result.mostNeglected = displayNameOf(config);
        }
    }

    std::stable_sort(
        result.perRepo.begin(), result.perRepo.end(),
        [](const WeekRepoLine& a, const WeekRepoLine& b) { return nameLess(a.name, b.name); });
    result.activeRepos = static_cast<int>(result.perRepo.size());
    // The most commits wins, then the most time; a tie goes to the first name.
    const WeekRepoLine* mostActive = nullptr;
    for (const auto& line : result.perRepo) {
        if (mostActive == nullptr || line.commits > mostActive->commits ||
            (line.commits == mostActive->commits && line.seconds > mostActive->seconds)) {
            mostActive = &line;
        }
    }
    if (mostActive != nullptr) result.mostActive = mostActive->name;
    return result;
}

std::vector<DayBreakdown> heatmap(int daysBack, Date today,
                                  const std::vector<DayActivity>& dayActivities,
                                  const std::vector<RepoConfig>& configs,
                                  const std::vector<CommitRecord>& commits,
                                  const Identity& identity) {
    if (daysBack <= 0) return {};
    Date todayStart = DateHelpers::startOfDay(today);
    std::vector<Date> days;
    std::unordered_map<std::string, size_t> indexByKey;
    for (int offset = daysBack - 1; offset >= 0; --offset) {
        Date day = dayStartAfter(todayStart, -offset);
        indexByKey.emplace(DateHelpers::dateKey(day), days.size());
        days.push_back(day);
    }

    std::unordered_set<std::string> tracked;
    for (const auto& config : configs) {
        if (config.trackingEnabled) tracked.insert(config.id);
    }
    std::vector<DayTotals> totals(days.size());
    for (const auto& activity : dayActivities) {
        auto it = indexByKey.find(activity.dateKey);
        if (it != indexByKey.end() && tracked.contains(activity.repoID)) {
            addTime(totals[it->second], activity);
        }
    }
    DateRange span{days.front(), dayRange(days.back()).end};
    for (const auto& [repoID, repoCommits] : countedCommits(commits, span, identity).byRepo) {
        if (!tracked.contains(repoID)) continue;
        for (const CommitRecord& commit : repoCommits) {
            auto it = indexByKey.find(DateHelpers::dateKey(commit.committedAt));
            if (it != indexByKey.end()) addCommit(totals[it->second], repoID);
        }
    }
    std::vector<DayBreakdown> cells;
    cells.reserve(days.size());
    for (size_t i = 0; i < days.size(); ++i) cells.push_back(breakdown(days[i], totals[i]));
    return cells;
}

std::vector<RepoTodayLine> standings(const std::vector<RepoConfig>& configs,
                                     const std::vector<RepoSnapshot>& snapshots, Date now) {
    SnapshotIndex latestByRepo = latestSnapshots(snapshots);
    std::vector<RepoTodayLine> lines;
    for (const RepoConfig& config : configs) {
        const RepoSnapshot* snapshot = find(latestByRepo, config.id);
        if (!config.trackingEnabled || snapshot == nullptr) continue;
        // Whoever worked in the window has a line of the summary, which comes first.
        lines.push_back(standingLine(config, *snapshot, false, now));
    }
    return lines;
}

std::vector<RepoTodayLine> standingsAsRecorded(const std::vector<RepoConfig>& configs,
                                               const std::vector<DayActivity>& dayRecords) {
    std::map<std::string, const DayActivity*> recordByRepo;
    for (const DayActivity& record : dayRecords) {
        if (record.files) recordByRepo[record.repoID] = &record;
    }
    std::vector<RepoTodayLine> lines;
    for (const RepoConfig& config : configs) {
        auto found = recordByRepo.find(config.id);
        if (!config.trackingEnabled || found == recordByRepo.end()) continue;
        const DayActivity& record = *found->second;
        RepoTodayLine line;
        line.repoID = config.id;
        line.name = displayNameOf(config);
        line.branch = record.branch;
        line.files = *record.files;
        line.ahead = record.ahead;
        line.behind = record.behind;
        line.statuses = parseStatuses(record.statuses);
        lines.push_back(std::move(line));
    }
    return lines;
}

bool scanRecorded(const std::vector<DayActivity>& dayRecords) {
    return std::any_of(dayRecords.begin(), dayRecords.end(), [](const DayActivity& record) {
        return record.files.has_value() || !record.statuses.empty();
    });
}

DailyReport dailyReport(Date day, const TodaySummary& summary,
                        const std::optional<DailyJournal>& journal,
                        const std::vector<RepoTodayLine>& standings,
                        const std::vector<BranchRecord>& branches) {
    DailyReport report{.dateKey = DateHelpers::dateKey(day),
                       .summary = summary,
                       .journal = journal,
                       .pending = {}};
    auto counted = [](int count, const char* noun) {
        return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
    };
    // A sync replaces the records, so one written after the day knows only later days.
    Date dayEnd = dayRange(day).end;
    auto branchItems = [&](const RepoTodayLine& line) {
        if (contains(line.statuses, RepoStatus::noRemote)) return;
        for (const BranchRecord& branch : branches) {
            if (branch.repoID != line.repoID || !branch.isLocal || branch.unpushedCount <= 0 ||
                branch.lastSyncedAt > dayEnd) {
                continue;
            }
            // The checked-out branch's own count against its upstream is the fresher.
            if (branch.name == line.branch && branch.upstreamName) continue;
            report.pending.push_back("Push " + line.name + " branch " + branch.name + " (" +
                                     counted(branch.unpushedCount, "commit") + ")");
        }
    };
    auto items = [&](const RepoTodayLine& line) {
        if (line.ahead > 0) {
            report.pending.push_back("Push " + line.name + " (" + counted(line.ahead, "commit") +
                                     ")");
        }
        int dirty = line.files.total();
        if (dirty > 0) {
            report.pending.push_back("Commit " + line.name + " (" + counted(dirty, "file") + ")");
        }
        // A repository that is behind is listed with the same verb on purpose: every
        // item of this kind is something to bring in line with the remote.
        if (line.behind > 0) {
            report.pending.push_back("Push " + line.name + " (" + std::to_string(line.behind) +
                                     " behind)");
        }
        branchItems(line);
    };

    std::unordered_set<std::string> listed;
    for (const RepoTodayLine& line : summary.lines) {
        listed.insert(line.repoID);
        items(line);
    }
    for (const RepoTodayLine& line : standings) {
        if (listed.insert(line.repoID).second) items(line);
    }
    return report;
}

AlignmentOverview alignmentOverview(const std::vector<RepoConfig>& configs,
                                    const std::vector<RepoSnapshot>& snapshots) {
    AlignmentOverview overview;
    SnapshotIndex latestByRepo = latestSnapshots(snapshots);
    for (const auto& config : configs) {
        if (!config.trackingEnabled) continue;
        const RepoSnapshot* snapshot = find(latestByRepo, config.id);
        if (snapshot == nullptr) continue;
        ++overview.tracked;
        if (!snapshot->remoteURL && !config.remoteURL) {
            ++overview.localOnly;
            continue;
        }
        ++overview.withRemote;
        if (!snapshot->hasUpstream) {
            ++overview.noUpstream;
        } else if (snapshot->ahead > 0 && snapshot->behind > 0) {
            ++overview.diverged;
        } else if (snapshot->ahead > 0) {
            ++overview.needsPush;
        } else if (snapshot->behind > 0) {
            ++overview.needsPull;
        } else {
            ++overview.synced;
        }
    }
    return overview;
}

DateRange bounds(InsightsPeriod period, Date now) {
    Date todayStart = DateHelpers::startOfDay(now);
    switch (period) {
        case InsightsPeriod::today: return {todayStart, now};
        case InsightsPeriod::month: return {dayStartAfter(todayStart, -30), now};
        case InsightsPeriod::allTime: return {Date{}, now};
    }
    return {Date{}, now};
}

}  // namespace quorvane::Aggregator
