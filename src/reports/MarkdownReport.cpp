#include "reports/MarkdownReport.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/TextHelpers.hpp"
#include "github/RepoStanding.hpp"

namespace quorvane {

namespace {

// A line's labels in the words every view uses; a report holds no snapshot, so
// these are what the labels themselves tell.
std::string statusList(const std::vector<RepoStatus>& statuses) {
    std::vector<std::string> words;
    for (const StatusWord& word : RepoStanding::describe(statuses, nullptr, nullptr).words)
        words.push_back(word.text);
    return fmt::format("{}", fmt::join(words, ", "));
}

// A commit line shows the subject alone: the body would break the list apart.
std::string_view firstLine(std::string_view message) {
    return message.substr(0, message.find_first_of("\r\n"));
}

void projectSection(std::string& text, const RepoTodayLine& line, const std::string& dateKey,
                    const std::map<std::string, std::vector<CommitRecord>>& commitsByRepo) {
    text += fmt::format("### {} (`{}`)\n\n", Text::visible(line.name),
                        line.branch.empty() ? "detached" : Text::visible(line.branch));
    text += fmt::format("- Commits: {} · Time: {}\n", line.commitsToday,
                        formatDuration(line.estimatedSeconds));
    text += fmt::format("- Files: {} modified, {} staged, {} untracked\n", line.files.modified,
                        line.files.staged, line.files.untracked);
    if (line.ahead > 0 || line.behind > 0) {
        text += fmt::format("- Sync: {} ahead, {} behind\n", line.ahead, line.behind);
    }
    text += fmt::format("- Status: {}\n", statusList(line.statuses));

    auto found = commitsByRepo.find(line.repoID);
    if (found != commitsByRepo.end()) {
        bool first = true;
        for (const CommitRecord& commit : found->second) {
            if (DateHelpers::dateKey(commit.committedAt) != dateKey) continue;
            if (first) text += '\n';
            first = false;
            text += fmt::format("  - `{}` {}\n", Text::visible(commit.shortSha),
                                Text::visible(firstLine(commit.message)));
        }
    }
    text += '\n';
}

void journalSection(std::string& text, const DailyJournal& journal) {
    text += "## Journal\n\n";
    auto note = [&](const char* title, const std::optional<std::string>& body) {
        if (!body || body->empty()) return;
        text += fmt::format("**{}**\n\n{}\n\n", title, Text::visible(*body, Text::Lines::many));
    };
    note("Notes", journal.manualNotes);
    note("Blockers", journal.blockers);
    note("Tomorrow", journal.tomorrowNotes);
}

}  // namespace

std::string formatDuration(int seconds) {
    if (seconds < 0) seconds = 0;
    int hours = seconds / 3600;
    int minutes = seconds % 3600 / 60;
    if (hours == 0) return fmt::format("{}m", minutes);
    return fmt::format("{}h {}m", hours, minutes);
}

namespace MarkdownReport {

// The configurations are part of the call so that every caller hands over the same
// context; the lines already carry the display names this text needs.
std::string daily(const DailyReport& report, const std::vector<RepoConfig>& /*configs*/,
                  const std::map<std::string, std::vector<CommitRecord>>& commitsByRepo) {
    const TodaySummary& summary = report.summary;
    int seconds = 0;
    for (const RepoTodayLine& line : summary.lines) seconds += line.estimatedSeconds;

    std::string text = fmt::format("# Daily Report — {}\n\n", report.dateKey);
    if (!report.scanRecorded) text += fmt::format("{}\n\n", kNoScanRecordedNote);
    text += "## Summary\n\n";
    text += fmt::format("- Active projects: **{}**\n", summary.activeProjects);
    text += fmt::format("- Commits today: **{}**\n", summary.totalCommits);
    text += fmt::format("- Estimated time: **{}**\n", formatDuration(seconds));
    text += fmt::format("- Needs push: **{}** · Needs commit: **{}** · Behind: **{}**\n",
                        summary.needsPushCount, summary.needsCommitCount, summary.behindCount);
    text += fmt::format("- Files: **{}** modified · **{}** staged\n\n", summary.modifiedFiles,
                        summary.stagedFiles);

    if (summary.lines.empty()) {
        text += "_No project activity recorded today._\n\n";
    } else {
        text += "## Projects\n\n";
        for (const RepoTodayLine& line : summary.lines) {
            projectSection(text, line, report.dateKey, commitsByRepo);
        }
    }

    if (!report.pending.empty()) {
        text += "## Pending\n\n";
        for (const std::string& item : report.pending) {
            text += fmt::format("- [ ] {}\n", Text::visible(item));
        }
        text += '\n';
    }
    if (report.journal) journalSection(text, *report.journal);
    return text;
}

std::string weekly(const WeeklySummary& summary) {
    std::string text = fmt::format("# Weekly Report — {}\n\n", summary.weekKey);
    text += "## Summary\n\n";
    text += fmt::format("- Active repos: **{}**\n", summary.activeRepos);
    text += fmt::format("- Total commits: **{}**\n", summary.totalCommits);
    text += fmt::format("- Estimated time: **{}**\n", formatDuration(summary.totalSeconds));
    if (summary.mostActive) {
        text += fmt::format("- Most active: **{}**\n", Text::visible(*summary.mostActive));
    }
    if (summary.mostNeglected) {
        text += fmt::format("- Most neglected: **{}**\n", Text::visible(*summary.mostNeglected));
    }
    text += "\n## Per day\n\n";
    text += "| Day | Projects | Commits | Time |\n";
    text += "| --- | ---: | ---: | ---: |\n";
    for (const DayBreakdown& day : summary.perDay) {
        text += fmt::format("| {} ({}) | {} | {} | {} |\n", day.weekday, day.dateKey,
                            day.projectCount, day.commitCount, formatDuration(day.seconds));
    }
    text += '\n';
    if (!summary.needsAttention.empty()) {
        text += "## Needs attention\n\n";
        for (const RepoTodayLine& line : summary.needsAttention) {
            text +=
                fmt::format("- **{}**: {}\n", Text::visible(line.name), statusList(line.statuses));
        }
    }
    return text;
}

}  // namespace MarkdownReport
}  // namespace quorvane
