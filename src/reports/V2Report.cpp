#include "reports/V2Report.hpp"

#include <fmt/format.h>

#include "base/TextHelpers.hpp"
#include "github/RepoStanding.hpp"
#include "reports/MarkdownReport.hpp"

namespace quorvane::V2Report {

namespace {

void repoSection(std::string& text, const V2RepoLine& line) {
    text += fmt::format("### {} (`{}`)\n\n", Text::visible(line.name),
                        line.branch.empty() ? "detached" : Text::visible(line.branch));
    if (line.account && !line.account->empty())
        text += fmt::format("- Account: {}\n", Text::visible(*line.account));
    // A score exists only once a sync made one; until then the report says so, and
    // what makes one, rather than a full mark nobody gave.
    std::string health = line.health ? fmt::format("**{}**/100", *line.health)
                                     : fmt::format("**{}** (comes with `{}`)",
                                                   RepoStanding::healthWord(std::nullopt).text,
                                                   RepoStanding::kScoreCommand);
    text += fmt::format("- Status: **{}** · Health: {}\n", RepoStanding::word(line.standing).text,
                        health);
    if (line.ahead > 0 || line.behind > 0) {
        text += fmt::format("- Sync: {} ahead, {} behind\n", line.ahead, line.behind);
    }
    if (line.suggestedCommand && !line.suggestedCommand->empty()) {
        text += fmt::format("- Suggested: `{}`\n", Text::visible(*line.suggestedCommand));
    }
    text += '\n';
}

}  // namespace

std::string daily(const V2DailyReport& report) {
    const TodaySummary& summary = report.base.summary;
    const AlignmentSummary& alignment = report.alignment;
    std::string text = fmt::format("# Daily Report — {}\n\n", report.base.dateKey);
    if (!report.base.scanRecorded) text += fmt::format("{}\n\n", kNoScanRecordedNote);
    // The summary is the part read first, so it comes before the figures it sums up.
    if (report.aiSummary && !report.aiSummary->empty()) {
        text += fmt::format("## AI Summary\n\n{}\n\n",
                            Text::visible(*report.aiSummary, Text::Lines::many));
    }
    text += "## Summary\n\n";
    text += fmt::format("- Active projects: **{}**\n", summary.activeProjects);
    text += fmt::format("- Commits today: **{}**\n", summary.totalCommits);
    text += fmt::format("- Needs push: **{}** · Needs commit: **{}** · Behind: **{}**\n",
                        summary.needsPushCount, summary.needsCommitCount, summary.behindCount);
    text += fmt::format("- Files: **{}** modified · **{}** staged\n\n", summary.modifiedFiles,
                        summary.stagedFiles);

    text += "## GitHub Alignment\n\n";
    text += fmt::format(
        "- Mapped: **{}** · Remote only: **{}** · Local only: **{}** · Account issues: **{}**\n",
        alignment.mappedCount, alignment.remoteOnlyCount, alignment.localOnlyCount,
        alignment.accountIssueCount);
    text += fmt::format("- Needs push: **{}** · Needs pull: **{}** · No upstream: **{}**\n",
                        alignment.needsPush, alignment.needsPull, alignment.noUpstream);
    text += fmt::format("- Commits today: **{}** pushed · **{}** local-only\n\n",
                        alignment.pushedCommitsToday, alignment.localOnlyCommitsToday);

    if (report.perRepo.empty()) {
        text += "_No tracked repositories._\n\n";
    } else {
        text += "## Projects\n\n";
        for (const V2RepoLine& line : report.perRepo) repoSection(text, line);
    }

    if (!report.base.pending.empty()) {
        text += "## Pending\n\n";
        for (const std::string& item : report.base.pending) {
            text += fmt::format("- [ ] {}\n", Text::visible(item));
        }
        text += '\n';
    }
    return text;
}

}  // namespace quorvane::V2Report
