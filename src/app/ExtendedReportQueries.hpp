#pragma once

#include <optional>
#include <string>
#include <vector>

#include "persistence/AppConfig.hpp"
#include "persistence/Store.hpp"
#include "reports/AIProvider.hpp"
#include "reports/AISummaryService.hpp"
#include "reports/V2Report.hpp"

// The extended daily report and its AI summary, gathered from the store. Read-only
// like the other queries.
namespace quorvane::Queries {

// The report of the local day holding `day` with how each tracked repository stands
// against GitHub: the stored sync states where a sync left one, otherwise the state
// the local scan alone gives, in configuration order. The mapping counts are the
// last sync's, the counts by standing those of the report's lines, and the commit
// counts are of `day`. No AI summary.
V2DailyReport v2DailyReport(const Store& store, const AppConfig& config, Date now, Date day);

// What the AI summary of `report`'s day is written from: each repository of the
// report with its status, its count of changed files and its commit subjects of that
// day, oldest first: the person's own, as the report counts them. Never a file's
// contents, a diff or a commit's body.
std::vector<AISummaryService::PromptRepo> aiPromptRepos(const Store& store,
                                                        const AppConfig& config,
                                                        const DailyReport& report);

// The notes the summary may mention: the day's journal entry, labelled.
std::string aiPromptNotes(const DailyReport& report);

// The summary of `report`'s day written by `provider`, with file counts in the
// prompt when the AI settings include them, as the model wrote it: the report shows
// its control characters rather than letting a terminal act on them. Throws the
// provider's QuorvaneError.
std::string generateAISummary(const Store& store, const AppConfig& config,
                              const DailyReport& report, const AIProvider& provider);

}  // namespace quorvane::Queries
