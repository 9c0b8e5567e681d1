#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/SyncState.hpp"

namespace quorvane {

// The records the day, week and activity views show. They are computed, never
// stored; `toJson` gives the command line's --json form (keys are the field
// names, absent optionals are left out).

// One repository's line in a day or other window.
struct RepoTodayLine {
    std::string repoID;
    std::string name;      // the display name: the configured displayName, else name
    std::string branch;    // empty when HEAD is detached
    int commitsToday = 0;  // commits inside the window, whatever its length
    GitFileCounts files;
    int ahead = 0;
    int behind = 0;
    std::vector<RepoStatus> statuses;
    int estimatedSeconds = 0;
    std::optional<Date> lastCommitAt;
    bool workedInWindow = false;  // it has commits or sessions in the window

    bool operator==(const RepoTodayLine&) const = default;
};

// A day or other window across all tracked repositories; `dateKey` is its label.
struct TodaySummary {
    std::string dateKey;
    int activeProjects = 0;
    int totalCommits = 0;
    int needsPushCount = 0;
    int needsCommitCount = 0;
    int behindCount = 0;
    int modifiedFiles = 0;
    int stagedFiles = 0;
    std::vector<RepoTodayLine> lines;
    // Others' commits in the window, which totalCommits leaves out: pulled in with the
    // person's own.
    int pulledInCommits = 0;

    bool operator==(const TodaySummary&) const = default;
};

// One day of a week or of the heatmap.
struct DayBreakdown {
    std::string dateKey;
    std::string weekday;   // "Mon" to "Sun"
    int projectCount = 0;  // repositories with commits or work that day
    int commitCount = 0;
    int seconds = 0;

    bool operator==(const DayBreakdown&) const = default;
};

// One repository's totals over a week.
struct WeekRepoLine {
    std::string repoID;
    std::string name;
    std::string localPath;
    int commits = 0;
    int seconds = 0;

    bool operator==(const WeekRepoLine&) const = default;
};

// A Monday-to-Sunday week; `weekKey` is the date key of its Monday.
struct WeeklySummary {
    std::string weekKey;
    int activeRepos = 0;
    int totalCommits = 0;
    int totalSeconds = 0;
    std::optional<std::string> mostActive;     // display name
    std::optional<std::string> mostNeglected;  // display name
    std::vector<DayBreakdown> perDay;          // seven days, Monday first
    std::vector<RepoTodayLine> needsAttention;
    std::vector<WeekRepoLine> perRepo;

    bool operator==(const WeeklySummary&) const = default;
};

// One repository in the activity ranking of a day.
struct ActivityRow {
    std::string repoID;
    std::string name;
    std::string branch;
    std::string localPath;
    std::optional<Date> lastActivityAt;
    std::optional<Date> lastWorkingTreeChangeAt;
    int commitsToday = 0;
    int estimatedSecondsToday = 0;
    bool workedToday = false;
    GitFileCounts files;
    int ahead = 0;
    int behind = 0;
    bool hasRemote = false;
    bool hasUpstream = false;
    std::optional<std::string> remoteURL;
    std::vector<RepoStatus> statuses;
    std::optional<SyncState::Status> syncStatus;

    bool operator==(const ActivityRow&) const = default;
};

// Counts over one period, for the quick activity overview.
struct ActivityInsights {
    std::string label;
    int projectsWorked = 0;
    int withRemote = 0;
    int localOnly = 0;
    int commits = 0;
    int branchesActive = 0;
    int unpushedCommits = 0;  // commits no remote-tracking branch contains
    int estimatedSeconds = 0;

    bool operator==(const ActivityInsights&) const = default;
};

// The periods the activity overview offers.
enum class InsightsPeriod { today, month, allTime };

constexpr auto enumCases(InsightsPeriod) {
    using enum InsightsPeriod;
    return std::array{std::pair{today, std::string_view("today")},
                      std::pair{month, std::string_view("month")},
                      std::pair{allTime, std::string_view("allTime")}};
}

// The counts at the head of the alignment view, read from the local scan only.
struct AlignmentOverview {
    int tracked = 0;
    int withRemote = 0;
    int localOnly = 0;
    int synced = 0;
    int needsPush = 0;
    int needsPull = 0;
    int diverged = 0;
    int noUpstream = 0;

    bool operator==(const AlignmentOverview&) const = default;
};

Json toJson(const RepoTodayLine& line);
Json toJson(const TodaySummary& summary);
Json toJson(const DayBreakdown& day);
Json toJson(const WeekRepoLine& line);
Json toJson(const WeeklySummary& summary);
Json toJson(const ActivityRow& row);
Json toJson(const ActivityInsights& insights);
Json toJson(const AlignmentOverview& overview);

}  // namespace quorvane
