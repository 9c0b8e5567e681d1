#pragma once

#include <string>
#include <vector>

#include "git/ActivitySummaries.hpp"

// The reports screen: the texts it adds around the reports themselves. The command
// line prints them, and the dashboard will show them.
namespace quorvane::ReportsViewModel {

// "## Quick activity overview": one table row per period, in the order given, with
// its projects, how many of them are on GitHub, commits, branches, commits on no
// remote and estimated time.
std::string insightsMarkdown(const std::vector<ActivityInsights>& periods);

}  // namespace quorvane::ReportsViewModel
