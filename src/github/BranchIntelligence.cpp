#include "github/BranchIntelligence.hpp"

#include <map>
#include <set>

namespace quorvane::BranchIntelligence {

std::vector<BranchRecord> branches(const std::string& repoID,
                                   const std::vector<LocalBranchInfo>& local,
                                   const std::vector<RemoteBranch>& remote, Date now) {
    // Names match exactly, case included, as git itself names branches. GitHub
    // never lists a name twice; should it, the first one counts.
    std::map<std::string, const RemoteBranch*> onGitHub;
    for (const RemoteBranch& branch : remote) onGitHub.emplace(branch.name, &branch);
    std::set<std::string> localNames;
    for (const LocalBranchInfo& branch : local) localNames.insert(branch.name);

    std::vector<BranchRecord> rows;
    rows.reserve(local.size() + remote.size());
    for (const LocalBranchInfo& branch : local) {
        auto found = onGitHub.find(branch.name);
        const RemoteBranch* twin = found == onGitHub.end() ? nullptr : found->second;
        BranchRecord row;
        row.repoID = repoID;
        row.name = branch.name;
        row.isLocal = true;
        row.isRemote = twin != nullptr;
        row.upstreamName = branch.upstream;
        row.aheadCount = branch.ahead;
        row.behindCount = branch.behind;
        row.unpushedCount = branch.unpushed;
        row.merged = branch.merged;
        row.lastCommitSha = branch.lastSha;
        row.lastCommitDate = branch.lastDate;
        if (twin != nullptr) {
            if (!row.lastCommitSha) row.lastCommitSha = twin->lastCommitSha;
            if (!row.lastCommitDate) row.lastCommitDate = twin->lastCommitDate;
        }
        row.lastSyncedAt = now;
        row.id = row.composedID();
        rows.push_back(std::move(row));
    }
    for (const RemoteBranch& branch : remote) {
        if (localNames.contains(branch.name)) continue;
        BranchRecord row;
        row.repoID = repoID;
        row.name = branch.name;
        row.isRemote = true;
        row.lastCommitSha = branch.lastCommitSha;
        row.lastCommitDate = branch.lastCommitDate;
        row.lastSyncedAt = now;
        row.id = row.composedID();
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace quorvane::BranchIntelligence
