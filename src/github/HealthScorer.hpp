#pragma once

#include <optional>

#include "base/DateHelpers.hpp"
#include "records/ProjectHealthSnapshot.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/SyncState.hpp"

// One number per repository, 100 less a fixed deduction for each problem, with the
// reasons for and against it. Pure: the clock comes in as an argument.
namespace quorvane::HealthScorer {

// Scores what is known of a repository: its last scan, its alignment with GitHub and
// its last activity, each optional. A fact that is unknown neither costs nor earns.
// The score is not clamped; the deductions cannot take it below 20.
ProjectHealthSnapshot score(const std::optional<RepoSnapshot>& snapshot,
                            const std::optional<SyncState>& syncState,
                            std::optional<Date> lastActivity, Date now);

// Inactivity beyond this many whole days costs points.
inline constexpr int kActiveDays = 14;

}  // namespace quorvane::HealthScorer
