#pragma once

#include <string>
#include <vector>

#include "git/GitScanner.hpp"
#include "github/RemoteBranch.hpp"
#include "records/BranchRecord.hpp"

// The merged list of a repository's branches, local and on GitHub. Pure: reads
// only its arguments, and the clock comes in as `now`.
namespace quorvane::BranchIntelligence {

// One "#L" row per local branch, in the order given, marked remote when GitHub
// has a branch of exactly that name; then one "#R" row per GitHub branch that has
// no local namesake, in the order given. A local branch without a known tip takes
// the tip GitHub reports. Every row is dated `now`.
std::vector<BranchRecord> branches(const std::string& repoID,
                                   const std::vector<LocalBranchInfo>& local,
                                   const std::vector<RemoteBranch>& remote, Date now);

}  // namespace quorvane::BranchIntelligence
