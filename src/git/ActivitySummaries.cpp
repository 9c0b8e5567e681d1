#include "git/ActivitySummaries.hpp"

namespace quorvane {

Json toJson(const RepoTodayLine& line) {
    Json json{{"repoID", line.repoID},
              {"name", line.name},
              {"branch", line.branch},
              {"commitsToday", line.commitsToday},
              {"files", toJson(line.files)},
              {"ahead", line.ahead},
              {"behind", line.behind},
              {"statuses", toJson(line.statuses)},
              {"estimatedSeconds", line.estimatedSeconds},
              {"workedInWindow", line.workedInWindow}};
    putIfPresent(json, "lastCommitAt", line.lastCommitAt);
    return json;
}

Json toJson(const TodaySummary& summary) {
    return Json{{"dateKey", summary.dateKey},
                {"activeProjects", summary.activeProjects},
                {"totalCommits", summary.totalCommits},
                {"needsPushCount", summary.needsPushCount},
                {"needsCommitCount", summary.needsCommitCount},
                {"behindCount", summary.behindCount},
                {"modifiedFiles", summary.modifiedFiles},
                {"stagedFiles", summary.stagedFiles},
                {"lines", toJson(summary.lines)},
                {"pulledInCommits", summary.pulledInCommits}};
}

Json toJson(const DayBreakdown& day) {
    return Json{{"dateKey", day.dateKey},
                {"weekday", day.weekday},
                {"projectCount", day.projectCount},
                {"commitCount", day.commitCount},
                {"seconds", day.seconds}};
}

Json toJson(const WeekRepoLine& line) {
    return Json{{"repoID", line.repoID},
                {"name", line.name},
                {"localPath", line.localPath},
                {"commits", line.commits},
                {"seconds", line.seconds}};
}

Json toJson(const WeeklySummary& summary) {
    Json json{
        {"weekKey", summary.weekKey},           {"activeRepos", summary.activeRepos},
        {"totalCommits", summary.totalCommits}, {"totalSeconds", summary.totalSeconds},
        {"perDay", toJson(summary.perDay)},     {"needsAttention", toJson(summary.needsAttention)},
        {"perRepo", toJson(summary.perRepo)}};
    putIfPresent(json, "mostActive", summary.mostActive);
    putIfPresent(json, "mostNeglected", summary.mostNeglected);
    return json;
}

Json toJson(const ActivityRow& row) {
    Json json{{"repoID", row.repoID},
              {"name", row.name},
              {"branch", row.branch},
              {"localPath", row.localPath},
              {"commitsToday", row.commitsToday},
              {"estimatedSecondsToday", row.estimatedSecondsToday},
              {"workedToday", row.workedToday},
              {"files", toJson(row.files)},
              {"ahead", row.ahead},
              {"behind", row.behind},
              {"hasRemote", row.hasRemote},
              {"hasUpstream", row.hasUpstream},
              {"statuses", toJson(row.statuses)}};
    putIfPresent(json, "lastActivityAt", row.lastActivityAt);
    putIfPresent(json, "lastWorkingTreeChangeAt", row.lastWorkingTreeChangeAt);
    putIfPresent(json, "remoteURL", row.remoteURL);
    putIfPresent(json, "syncStatus", row.syncStatus);
    return json;
}

Json toJson(const ActivityInsights& insights) {
    return Json{{"label", insights.label},
                {"projectsWorked", insights.projectsWorked},
                {"withRemote", insights.withRemote},
                {"localOnly", insights.localOnly},
                {"commits", insights.commits},
                {"branchesActive", insights.branchesActive},
                {"unpushedCommits", insights.unpushedCommits},
                {"estimatedSeconds", insights.estimatedSeconds}};
}

Json toJson(const AlignmentOverview& overview) {
    return Json{{"tracked", overview.tracked},     {"withRemote", overview.withRemote},
                {"localOnly", overview.localOnly}, {"synced", overview.synced},
                {"needsPush", overview.needsPush}, {"needsPull", overview.needsPull},
                {"diverged", overview.diverged},   {"noUpstream", overview.noUpstream}};
}

}  // namespace quorvane
