#include "app/TrackingOperations.hpp"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "git/GitCommand.hpp"

namespace quorvane::TrackingOperations {

namespace {

bool isDirectory(const std::string& path) {
    std::error_code ec;
    return std::filesystem::is_directory(path, ec);
}

std::string firstNonEmptyLine(std::string_view text) {
    std::vector<std::string_view> lines = Text::nonEmptyLines(text);
    return lines.empty() ? std::string() : std::string(Text::trim(lines.front()));
}

bool listHolds(const std::vector<std::string>& list, const std::string& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

}  // namespace

std::string unstorablePathProblem(const std::string& path, std::string_view purpose) {
    if (Text::isValidUtf8(path)) return "";
    return fmt::format(
        "its path is not valid UTF-8, which the data files cannot hold; rename the folder to {}",
        purpose);
}

WorkTrees workTrees(const ProcessRunner& runner, const std::vector<std::string>& paths) {
    WorkTrees result;
    for (const std::string& path : paths) {
        std::string canonical = PathHelpers::canonicalPath(path);
        std::string problem;
        std::string top;
        if (!isDirectory(canonical)) {
            problem = "no such folder";
        } else {
            ShellResult answer =
                runner.run(GitCommand::request(canonical, {"rev-parse", "--show-toplevel"}, 15));
            top = firstNonEmptyLine(answer.stdOut);
            if (!answer.succeeded() || top.empty()) {
                std::string reason = firstNonEmptyLine(answer.stdErr);
                problem = reason.empty() ? "not a git working tree"
                                         : "not a git working tree (" + reason + ")";
            }
        }
        // git's answer has invalid bytes already replaced, so the given path tells.
        if (problem.empty()) problem = unstorablePathProblem(canonical, "track it");
        if (!problem.empty()) {
            result.refused.push_back({path, std::move(problem)});
            continue;
        }
        top = PathHelpers::canonicalPath(top);
        if (!listHolds(result.tops, top)) result.tops.push_back(std::move(top));
    }
    return result;
}

Tracked track(AppEnvironment& env, const ProcessRunner& runner,
              const std::vector<std::string>& tops,
              const std::function<void(int historyDays)>& beforeReading) {
    Tracked result;
    bool lifted = env.applyConfigChange([&](AppConfig& config) {
        std::erase_if(config.ignoredRepoIDs,
                      [&](const std::string& id) { return listHolds(tops, id); });
    });
    if (!lifted) {
        result.notSaved = env.saveProblem();
        return result;
    }
    RepoDiscovery discovery(runner);
    std::vector<DiscoveredRepo> found;
    AppConfig current = env.config();
    for (const std::string& top : tops) {
        bool tracked = std::any_of(current.repositories.begin(), current.repositories.end(),
                                   [&](const RepoConfig& repo) { return repo.id == top; });
        if (tracked) {
            result.alreadyTracked.push_back(top);
            continue;
        }
        found.push_back(discovery.makeRepo(top));
    }
    if (!found.empty() && current.historyDays > 0 && beforeReading) {
        beforeReading(current.historyDays);
    }
    std::vector<std::string> added = env.addDiscovered(found);
    for (DiscoveredRepo& repo : found) {
        if (listHolds(added, repo.repoID)) result.added.push_back(std::move(repo));
    }
    result.partlySaved = env.store().flush() ? env.saveProblem() : env.store().flushProblem();
    return result;
}

Untracked untrack(AppEnvironment& env, const std::string& id) {
    Untracked result;
    bool saved = env.applyConfigChange([&](AppConfig& changed) {
        std::erase_if(changed.repositories, [&](const RepoConfig& r) { return r.id == id; });
        if (!listHolds(changed.ignoredRepoIDs, id)) changed.ignoredRepoIDs.push_back(id);
    });
    if (!saved) {
        result.problem = env.saveProblem();
        return result;
    }
    // What was recorded about it goes too, so no view goes on counting a repository
    // that is no longer tracked; tracking it again reads its recent history anew.
    // A link the person confirmed to a GitHub repository is their decision about
    // that repository as much: it stays, so the repository stays listed with it.
    std::vector<RepositoryMapping> confirmed;
    for (const RepositoryMapping& mapping : env.store().mappings()) {
        if (mapping.localRepoID == id && mapping.confirmedByUser && mapping.remoteRepoID) {
            confirmed.push_back(mapping);
        }
    }
    env.store().purgeRepo(id);
    env.store().upsertMappings(confirmed);
    if (!env.store().flush()) {
        result.flushed = false;
        result.problem = env.store().flushProblem();
    }
    return result;
}

FolderChange addScanFolders(AppEnvironment& env, const std::vector<std::string>& paths) {
    FolderChange result;
    std::vector<std::string> folders;
    for (const std::string& path : paths) {
        std::string canonical = PathHelpers::canonicalPath(path);
        std::string problem =
            isDirectory(canonical) ? unstorablePathProblem(canonical, "scan it") : "no such folder";
        if (!problem.empty()) {
            result.refused.push_back({path, std::move(problem)});
            continue;
        }
        folders.push_back(canonical);
    }
    if (!result.refused.empty()) return result;
    AppConfig config = env.config();
    for (const std::string& folder : folders) {
        if (listHolds(config.scanFolders, folder) || listHolds(result.changed, folder)) {
            result.unchanged.push_back(folder);
            continue;
        }
        result.changed.push_back(folder);
    }
    if (result.changed.empty()) return result;
    bool saved = env.applyConfigChange([&](AppConfig& changed) {
        for (const std::string& folder : result.changed) {
            if (!listHolds(changed.scanFolders, folder)) changed.scanFolders.push_back(folder);
        }
    });
    if (!saved) result.notSaved = env.saveProblem();
    return result;
}

FolderChange removeScanFolders(AppEnvironment& env, const std::vector<std::string>& paths) {
    FolderChange result;
    AppConfig config = env.config();
    for (const std::string& path : paths) {
        std::string canonical = PathHelpers::canonicalPath(path);
        // Besides the folder itself: an entry as the list prints it, and one an older
        // version stored with U+FFFD in place of each byte that was not UTF-8.
        auto it = std::find_if(
            config.scanFolders.begin(), config.scanFolders.end(), [&](const std::string& f) {
                return f == path || f == canonical || Text::visible(f) == path ||
                       f == Text::repairUtf8(path) || f == Text::repairUtf8(canonical);
            });
        if (it == config.scanFolders.end()) {
            result.refused.push_back({path, "not a scan folder"});
            return result;
        }
        result.changed.push_back(*it);
    }
    bool saved = env.applyConfigChange([&](AppConfig& changed) {
        for (const std::string& folder : result.changed) std::erase(changed.scanFolders, folder);
    });
    if (!saved) result.notSaved = env.saveProblem();
    return result;
}

}  // namespace quorvane::TrackingOperations
