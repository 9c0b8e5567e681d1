#include "screens/BranchesViewModel.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "github/GitCommandHints.hpp"

namespace quorvane::BranchesViewModel {

namespace {

ActionSuggestion branchCommand(const RepoConfig& repo, std::string title, std::string command) {
    return {std::move(title), command, {command}, repo.localPath};
}

std::optional<ActionSuggestion> tidying(const RepoConfig& repo, const BranchRecord& branch,
                                        const std::string& checkedOut, bool hasRemote) {
    const std::string name = GitCommandHints::branchWord(branch.name);
    if (!branch.isLocal) {
        // git makes the local branch track GitHub's, and leaves the work here alone.
        return branchCommand(repo, "Check out the GitHub branch", "git switch " + name);
    }
    // -d, never -D: git refuses to delete a branch whose work is nowhere else.
    if (branch.merged && branch.name != checkedOut) {
        return branchCommand(repo, "Delete the merged branch", "git branch -d " + name);
    }
    if (!hasRemote) return std::nullopt;
    if (!branch.upstreamName && branch.unpushedCount > 0) {
        return branchCommand(repo, "Publish the branch", "git push -u origin " + name);
    }
    if (branch.aheadCount > 0 && branch.behindCount > 0) {
        return branchCommand(repo, "Reconcile the diverged branch",
                             fmt::format("git switch {} && git pull --rebase", name));
    }
    if (branch.aheadCount > 0)
        return branchCommand(repo, "Push the branch", "git push origin " + name);
    if (branch.behindCount > 0) {
        // The upstream names its remote and the branch there: "origin/main".
        const std::string& upstream = branch.upstreamName.value_or("");
        const size_t slash = upstream.find('/');
        if (slash == std::string::npos) return std::nullopt;
        const std::string remote = GitCommandHints::branchWord(upstream.substr(0, slash));
        const std::string there = GitCommandHints::branchWord(upstream.substr(slash + 1));
        // The branch in use is pulled as the alignment view pulls it; fetching into
        // another branch only ever fast-forwards it.
        if (branch.name == checkedOut) {
            return branchCommand(repo, "Pull remote changes",
                                 fmt::format("git pull --rebase {} {}", remote, there));
        }
        return branchCommand(repo, "Bring the branch up to date",
                             fmt::format("git fetch {} {}:{}", remote, there, name));
    }
    return std::nullopt;
}

}  // namespace

std::vector<Row> rows(const RepoConfig& repo, std::vector<BranchRecord> records,
                      const std::string& checkedOut, bool hasRemote, Date now) {
    std::stable_sort(records.begin(), records.end(),
                     [](const BranchRecord& a, const BranchRecord& b) {
                         if (a.isLocal != b.isLocal) return a.isLocal;
                         return a.name < b.name;
                     });
    const Date cutoff = now - std::chrono::hours(24 * kStaleDays);
    std::vector<Row> out;
    for (BranchRecord& record : records) {
        // The default branch and the one in use are where work happens, however quiet.
        const bool stale = record.name != repo.defaultBranch && record.name != checkedOut &&
                           record.lastCommitDate && *record.lastCommitDate < cutoff;
        std::optional<ActionSuggestion> suggestion = tidying(repo, record, checkedOut, hasRemote);
        out.push_back({std::move(record), stale, std::move(suggestion)});
    }
    return out;
}

std::vector<Row> fromStore(const Store& store, const std::vector<const RepoConfig*>& repos,
                           Date now) {
    std::vector<Row> out;
    for (const RepoConfig* repo : repos) {
        std::optional<RepoSnapshot> snapshot = store.snapshot(repo->id);
        const bool hasRemote =
            snapshot ? snapshot->remoteURL.has_value() : repo->remoteURL.has_value();
        std::vector<Row> some =
            rows(*repo, store.branches(repo->id), snapshot ? snapshot->branch : "", hasRemote, now);
        out.insert(out.end(), std::make_move_iterator(some.begin()),
                   std::make_move_iterator(some.end()));
    }
    return out;
}

Json toJson(const std::vector<Row>& rows) {
    Json list = Json::array();
    for (const Row& row : rows) {
        Json json = quorvane::toJson(row.record);
        json["merged"] = row.record.merged;
        json["stale"] = row.stale;
        if (row.suggestion) json["suggestion"] = quorvane::toJson(*row.suggestion);
        list.push_back(std::move(json));
    }
    return list;
}

}  // namespace quorvane::BranchesViewModel
