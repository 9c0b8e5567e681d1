#include "screens/ReportsViewModel.hpp"

#include <fmt/format.h>

#include "reports/MarkdownReport.hpp"
#include "reports/ReportExport.hpp"

namespace quorvane::ReportsViewModel {

namespace {

constexpr const char* kMarkdownType = "text/markdown; charset=utf-8";
constexpr const char* kJsonType = "application/json";

}  // namespace

ReportFile dailyFile(const Queries::DailyReportInput& input,
                     const std::vector<RepoConfig>& repositories, Format format) {
    const std::string base = "daily-" + input.report.dateKey;
    switch (format) {
        case Format::markdown:
            return {base + ".md", kMarkdownType,
                    MarkdownReport::daily(input.report, repositories, input.commitsByRepo)};
        case Format::json:
            return {base + ".json", kJsonType,
                    JsonCodec::pretty(ReportExport::dailyJSON(input.report, input.commitsByRepo))};
        case Format::csv:
            return {base + ".csv", "text/csv; charset=utf-8",
                    ReportExport::dailyCSV(input.report.summary)};
    }
    return {};
}

std::optional<ReportFile> weeklyFile(const WeeklySummary& summary, Format format) {
    const std::string base = "weekly-" + summary.weekKey;
    switch (format) {
        case Format::markdown:
            return ReportFile{base + ".md", kMarkdownType, MarkdownReport::weekly(summary)};
        case Format::json:
            return ReportFile{base + ".json", kJsonType, JsonCodec::pretty(toJson(summary))};
        case Format::csv: return std::nullopt;
    }
    return std::nullopt;
}

std::vector<ActivityInsights> activityPeriods(const Store& store, const AppConfig& config, Date now,
                                              Date day) {
    bool today = DateHelpers::dateKey(day) == DateHelpers::dateKey(now);
    Date end = today ? now : Aggregator::dayRange(day).end;
    std::string dateKey = DateHelpers::dateKey(day);
    std::vector<ActivityInsights> periods;
    for (InsightsPeriod period :
         {InsightsPeriod::today, InsightsPeriod::month, InsightsPeriod::allTime}) {
        ActivityInsights row = Queries::insights(store, config, end, period);
        if (!today) {
            row.label = period == InsightsPeriod::today   ? dateKey
                        : period == InsightsPeriod::month ? "30 days to " + dateKey
                                                          : "All time to " + dateKey;
        }
        periods.push_back(std::move(row));
    }
    return periods;
}

ReportFile extendedDailyFile(V2DailyReport report, const std::vector<ActivityInsights>& periods,
                             const std::optional<std::string>& aiSummary) {
    report.aiSummary = aiSummary;
    return {"daily-" + report.base.dateKey + "-extended.md", kMarkdownType,
            V2Report::daily(report) + insightsMarkdown(periods)};
}

std::string insightsMarkdown(const std::vector<ActivityInsights>& periods) {
    std::string text = "## Quick activity overview\n\n";
    text +=
        "| Period | Projects | On GitHub | Local only | Commits | Branches | Not on remote | "
        "Time |\n";
    text += "| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: |\n";
    for (const ActivityInsights& period : periods) {
        text += fmt::format("| {} | {} | {} | {} | {} | {} | {} | {} |\n", period.label,
                            period.projectsWorked, period.withRemote, period.localOnly,
                            period.commits, period.branchesActive, period.unpushedCommits,
                            formatDuration(period.estimatedSeconds));
    }
    return text;
}

std::string_view providerName(AIPrefs::Provider provider) {
    switch (provider) {
        case AIPrefs::Provider::anthropic: return "Anthropic";
        case AIPrefs::Provider::ollama: return "Ollama";
        case AIPrefs::Provider::disabled: return "no provider";
    }
    return "the provider";
}

std::string_view noProviderReason(AIPrefs::Provider provider) {
    if (provider == AIPrefs::Provider::disabled)
        return "No AI provider is chosen: quorvane config set ai.provider anthropic (or ollama).";
    return "No Anthropic API key is stored: quorvane config set-secret ai.";
}

}  // namespace quorvane::ReportsViewModel
