#include "agent/CleanupPlanner.hpp"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "base/NameOrder.hpp"
#include "base/TextHelpers.hpp"
#include "github/RepoStanding.hpp"

namespace quorvane {

namespace {

// One line of the plan, with what it sorts by.
struct PlanLine {
    std::string name;
    std::string repoID;
    std::string text;
};

// Lists read in the order people read names: by printed name, case and accents
// set aside as in every other list of repositories, then by path so two clones
// of the same name keep a fixed order.
void sortLines(std::vector<PlanLine>& lines) {
    std::stable_sort(lines.begin(), lines.end(), [](const PlanLine& a, const PlanLine& b) {
        if (nameLess(a.name, b.name)) return true;
        if (nameLess(b.name, a.name)) return false;
        return a.repoID < b.repoID;
    });
}

// The statuses the person has to look at themselves: no command in the plan settles
// them. needsPush and needsPull already have their push and pull lines, synced needs
// nothing, remoteOnly and localOnly are choices rather than faults, and unknown
// only means no sync has run yet.
bool needsALook(SyncState::Status status) {
    using enum SyncState::Status;
    switch (status) {
        case diverged:
        case noUpstream:
        case accountMissing:
        case branchMismatch:
        case remoteInaccessible: return true;
        case synced:
        case needsPush:
        case needsPull:
        case remoteOnly:
        case localOnly:
        case unknown: return false;
    }
    return false;
}

class Names {
public:
    explicit Names(const std::vector<RepoConfig>& configs) {
        for (const RepoConfig& config : configs) configs_.emplace(config.id, &config);
    }

    // Whether the person switched tracking off for this repository.
    bool untracked(const std::string& repoID) const {
        auto it = configs_.find(repoID);
        return it != configs_.end() && !it->second->trackingEnabled;
    }

    // The configured display name, else the folder's name, else the id itself.
    std::string of(const std::string& repoID) const {
        if (auto it = configs_.find(repoID); it != configs_.end())
            return displayNameOf(*it->second);
        std::string folder = std::filesystem::path(repoID).filename().string();
        return folder.empty() ? repoID : folder;
    }

private:
    std::map<std::string, const RepoConfig*> configs_;
};

void appendSection(std::string& out, const char* head, std::vector<PlanLine> lines,
                   const char* whenEmpty) {
    out += head;
    out += "\n\n";
    if (lines.empty()) {
        out += whenEmpty;
        out += "\n\n";
        return;
    }
    sortLines(lines);
    for (const PlanLine& line : lines) out += line.text;
    out += "\n";
}

std::string bold(const std::string& name) {
    return "- **" + name + "** — ";
}

}  // namespace

std::string CleanupPlanner::dailyPlan(const std::vector<RepoSnapshot>& snapshots,
                                      const std::vector<SyncState>& syncStates,
                                      const std::vector<RepoConfig>& configs) {
    const Names names(configs);
    std::vector<PlanLine> commit, push, pull, errors, looks;
    std::set<std::string> seen, pushing, failed;
    for (const RepoSnapshot& snapshot : snapshots) {
        // The first snapshot of a repository is its latest.
        if (names.untracked(snapshot.repoID) || !seen.insert(snapshot.repoID).second) continue;
        const std::string name = names.of(snapshot.repoID);
        auto line = [&](std::string text) {
            return PlanLine{name, snapshot.repoID, std::move(text)};
        };
        const int dirty = snapshot.files.total();
        const std::string branch = snapshot.branch;
        if (dirty > 0) {
            // A detached HEAD has no branch name; git itself calls it HEAD.
            commit.push_back(line(bold(name) + std::to_string(dirty) + " dirty file(s) on `" +
                                  (branch.empty() ? "HEAD" : branch) + "`\n"));
        }
        if (snapshot.ahead > 0) {
            pushing.insert(snapshot.repoID);
            const std::string count = std::to_string(snapshot.ahead);
            push.push_back(line(
                snapshot.hasUpstream
                    ? bold(name) + count + " commit(s) ahead → `git push` (safe, has upstream)\n"
                    // The placeholder is deliberate: the person fills in the branch.
                    : bold(name) + count + " commit(s) ahead, no upstream → `git push -u origin " +
                          (branch.empty() ? "<branch>" : branch) + "`\n"));
        }
        if (snapshot.behind > 0) {
            pull.push_back(line(bold(name) + std::to_string(snapshot.behind) +
                                " commit(s) behind → `git pull --ff-only`" +
                                (dirty > 0 ? " ⚠️ commit/stash first" : "") + "\n"));
        }
        if (snapshot.error && !Text::trim(*snapshot.error).empty()) {
            failed.insert(snapshot.repoID);
            errors.push_back(line(bold(name) + "scan error: " + *snapshot.error + "\n"));
        }
    }
    std::map<std::string, const RepoSnapshot*> latest;
    for (const RepoSnapshot& snapshot : snapshots) latest.emplace(snapshot.repoID, &snapshot);
    std::set<std::string> looked;
    for (const SyncState& state : syncStates) {
        // In the words of every other view, and as the latest scan has it: a push
        // since the sync settles what the sync still holds against the repository.
        auto found = latest.find(state.id);
        RepoStanding::Description described =
            RepoStanding::describe({}, found == latest.end() ? nullptr : found->second, &state);
        SyncState::Status status = described.syncStatus.value_or(state.status);
        if (!needsALook(status) || names.untracked(state.id)) continue;
        // Said once per repository: a failed scan already stands above, and a branch
        // without upstream already has its `git push -u` line.
        if (failed.contains(state.id) || !looked.insert(state.id).second) continue;
        if (status == SyncState::Status::noUpstream && pushing.contains(state.id)) continue;
        const std::string name = names.of(state.id);
        looks.push_back(PlanLine{
            name, state.id,
            bold(name) + "sync status: " + RepoStanding::word(described.github).text + "\n"});
    }

    std::string plan = "# Daily cleanup plan\n\n";
    if (commit.empty() && push.empty() && pull.empty() && errors.empty() && looks.empty()) {
        return plan + "Everything looks aligned — nothing to clean up.\n";
    }
    appendSection(plan, "## 1. Commit first", std::move(commit), "_No uncommitted changes._");
    appendSection(plan, "## 2. Push safe", std::move(push), "_Nothing to push._");
    appendSection(plan, "## 3. Pull after check", std::move(pull), "_Nothing to pull._");
    // Scan errors first, then the sync states, each list in its own order.
    sortLines(errors);
    sortLines(looks);
    errors.insert(errors.end(), looks.begin(), looks.end());
    plan += "## 4. Review stale / needs attention\n\n";
    if (errors.empty()) {
        plan += "_Nothing needs attention._\n";
    } else {
        for (const PlanLine& line : errors) plan += line.text;
    }
    return plan;
}

std::vector<CleanupPlanner::DuplicateGroup> CleanupPlanner::detectDuplicates(
    const std::vector<LocalProjectMatch>& matches) {
    // Owner, repository and package names compare without case as GitHub and the
    // package registries compare them; a std::map sorts the keys.
    std::map<std::string, std::vector<std::string>> byKey;
    for (const LocalProjectMatch& match : matches) {
        std::string key;
        if (match.remoteOwnerRepo && !match.remoteOwnerRepo->empty()) {
            key = "remote:" + Text::asciiLower(*match.remoteOwnerRepo);
        } else if (match.pkgName && !match.pkgName->empty()) {
            key = "pkg:" + Text::asciiLower(*match.pkgName);
        } else {
            continue;
        }
        std::vector<std::string>& paths = byKey[key];
        // One folder met twice is still one clone.
        if (std::find(paths.begin(), paths.end(), match.path) == paths.end()) {
            paths.push_back(match.path);
        }
    }
    std::vector<DuplicateGroup> groups;
    for (auto& [key, paths] : byKey) {
        if (paths.size() >= 2) groups.push_back({key, std::move(paths)});
    }
    return groups;
}

std::vector<CleanupPlanner::MissingLocal> CleanupPlanner::missingLocal(
    const std::vector<RemoteRepository>& remotes, const std::vector<RepositoryMapping>& mappings) {
    std::set<std::string> cloned;
    for (const RepositoryMapping& mapping : mappings) {
        if (mapping.localRepoID && mapping.remoteRepoID) cloned.insert(*mapping.remoteRepoID);
    }
    std::vector<MissingLocal> missing;
    for (const RemoteRepository& remote : remotes) {
        if (!cloned.contains(remote.id)) missing.push_back({remote.id, remote.fullName});
    }
    return missing;
}

}  // namespace quorvane
