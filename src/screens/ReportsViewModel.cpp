#include "screens/ReportsViewModel.hpp"

#include <fmt/format.h>

#include "reports/MarkdownReport.hpp"

namespace quorvane::ReportsViewModel {

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

}  // namespace quorvane::ReportsViewModel
