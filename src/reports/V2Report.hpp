#pragma once

#include <optional>
#include <string>
#include <vector>

#include "git/DailyReport.hpp"
#include "github/AlignmentSummaries.hpp"

namespace quorvane {

// What the extended daily report is rendered from: the plain report's day, how the
// tracked repositories stand against GitHub, and the AI summary when one was
// written. Computed, never stored.
struct V2DailyReport {
    DailyReport base;
    AlignmentSummary alignment;
    std::vector<V2RepoLine> perRepo;  // one line per tracked repository
    std::optional<std::string> aiSummary;

    bool operator==(const V2DailyReport&) const = default;
};

// The daily report with GitHub alignment: the AI summary first when there is one, then
// the day's counters, the alignment counts, each repository's sync status, health and
// next safe command in place of the plain report's per-project details, and the open
// items. Pure; it cannot fail.
namespace V2Report {

std::string daily(const V2DailyReport& report);

}  // namespace V2Report
}  // namespace quorvane
