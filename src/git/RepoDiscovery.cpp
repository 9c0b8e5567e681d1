#include "git/RepoDiscovery.hpp"

#include <algorithm>
#include <filesystem>

#include "app/NameOrder.hpp"
#include "app/PathHelpers.hpp"
#include "app/TextHelpers.hpp"
#include "git/GitCommand.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

// A tracked repository needs no git command: what enrolment would read is already
// in its configuration.
DiscoveredRepo knownRepo(const std::string& id) {
    DiscoveredRepo repo;
    repo.repoID = id;
    repo.localPath = id;
    repo.name = fs::path(id).filename().string();
    repo.defaultBranch = "main";
    return repo;
}

bool isSkippedName(const std::string& name) {
    if (name.empty() || name.front() == '.') return true;
    return std::find(RepoDiscovery::kSkipNames.begin(), RepoDiscovery::kSkipNames.end(), name) !=
           RepoDiscovery::kSkipNames.end();
}

}  // namespace

std::optional<std::string> RepoDiscovery::gitLine(const std::string& path,
                                                  std::vector<std::string> arguments) const {
    ShellResult result = runner_.run(GitCommand::request(path, std::move(arguments), 15));
    if (!result.succeeded()) return std::nullopt;
    std::vector<std::string_view> lines = Text::nonEmptyLines(result.stdOut);
    for (std::string_view line : lines) {
        std::string_view trimmed = Text::trim(line);
        if (!trimmed.empty()) return std::string(trimmed);
    }
    return std::nullopt;
}

std::string RepoDiscovery::detectDefaultBranch(const std::string& path,
                                               const std::string& fallback) const {
    if (auto head = gitLine(path, {"symbolic-ref", "--short", "refs/remotes/origin/HEAD"})) {
        size_t slash = head->find('/');
        std::string name = slash == std::string::npos ? *head : head->substr(slash + 1);
        if (!name.empty()) return name;
    }
    return fallback.empty() ? "main" : fallback;
}

DiscoveredRepo RepoDiscovery::makeRepo(const std::string& path) const {
    DiscoveredRepo repo;
    repo.repoID = PathHelpers::canonicalPath(path);
    repo.localPath = repo.repoID;
    repo.name = std::filesystem::path(repo.repoID).filename().string();
    repo.currentBranch = gitLine(path, {"branch", "--show-current"}).value_or("");
    repo.remoteURL = gitLine(path, {"remote", "get-url", "origin"});
    repo.defaultBranch = detectDefaultBranch(path, repo.currentBranch);
    return repo;
}

std::vector<DiscoveredRepo> RepoDiscovery::discover(
    const std::vector<std::string>& folders, int maxDepth,
    const std::set<std::string>& knownRepoIDs) const {
    std::vector<DiscoveredRepo> repos;
    // Shared by every starting folder, so nested or repeated folders list a
    // repository once.
    std::set<std::string> seen;
    for (const std::string& folder : folders) {
        std::string start = PathHelpers::canonicalPath(folder);
        std::error_code ec;
        if (start.empty() || !fs::is_directory(start, ec)) continue;
        walk(start, 0, maxDepth, knownRepoIDs, seen, repos);
    }
    // Stable, so equal names keep the order in which they were found.
    std::stable_sort(
        repos.begin(), repos.end(),
        [](const DiscoveredRepo& a, const DiscoveredRepo& b) { return nameLess(a.name, b.name); });
    return repos;
}

void RepoDiscovery::walk(const fs::path& path, int depth, int maxDepth,
                         const std::set<std::string>& known, std::set<std::string>& seen,
                         std::vector<DiscoveredRepo>& repos) const {
    std::error_code ec;
    // A ".git" file counts as much as a folder: linked worktrees and submodules have one.
    if (fs::exists(path / ".git", ec)) {
        std::string id = PathHelpers::canonicalPath(path.string());
        // Checked before makeRepo, so a repository reached twice costs its git
        // commands once.
        if (!seen.insert(id).second) return;
        repos.push_back(known.contains(id) ? knownRepo(id) : makeRepo(path.string()));
        return;
    }
    if (depth >= maxDepth) return;

    for (fs::directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec)) {
        // The name alone prunes hidden and skipped folders before any query on them.
        std::string name = it->path().filename().string();
        if (isSkippedName(name)) continue;
        fs::path child = path / name;
        std::error_code childError;
        if (!fs::is_directory(child, childError)) continue;
        fs::file_status own = fs::symlink_status(child, childError);
        if (!childError && fs::is_symlink(own)) continue;
        walk(child, depth + 1, maxDepth, known, seen, repos);
    }
}

}  // namespace quorvane
