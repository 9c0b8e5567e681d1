#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Queries.hpp"
#include "git/ActivitySummaries.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/Store.hpp"
#include "reports/V2Report.hpp"

// The reports screen: the reports as the files the command line prints and writes,
// and the texts it adds around them. The command line and the dashboard both take
// them from here, so a download is byte for byte what 'report --out -' prints.
namespace quorvane::ReportsViewModel {

enum class Format { markdown, json, csv };

// A report as a file: its name in the reports folder, its media type and its bytes.
struct ReportFile {
    std::string fileName;
    std::string contentType;
    std::string bytes;
};

// The day's report: "daily-<date>.md|json|csv".
ReportFile dailyFile(const Queries::DailyReportInput& input,
                     const std::vector<RepoConfig>& repositories, Format format);
// The week's report: "weekly-<week>.md|json"; nothing for CSV, which is a day's table.
std::optional<ReportFile> weeklyFile(const WeeklySummary& summary, Format format);

// The periods of the activity table beside the extended report: the report's day,
// the 30 days up to it and all time up to it. Today's rows carry the names the other
// views give them; a past day's are labelled with its date.
std::vector<ActivityInsights> activityPeriods(const Store& store, const AppConfig& config, Date now,
                                              Date day);
// The extended daily report, "daily-<date>-extended.md": how each repository stands
// against GitHub, the AI summary when there is one, then the activity table.
ReportFile extendedDailyFile(V2DailyReport report, const std::vector<ActivityInsights>& periods,
                             const std::optional<std::string>& aiSummary);

// "## Quick activity overview": one table row per period, in the order given, with
// its projects, how many of them are on GitHub, commits, branches, commits on no
// remote and estimated time.
std::string insightsMarkdown(const std::vector<ActivityInsights>& periods);

// The provider's name as the person chose it in ai.provider: "Anthropic", "Ollama".
std::string_view providerName(AIPrefs::Provider provider);
// Why the settings give no provider to ask, and what to type to give one.
std::string_view noProviderReason(AIPrefs::Provider provider);

}  // namespace quorvane::ReportsViewModel
