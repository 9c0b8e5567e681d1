#include "git/RepoDiscovery.hpp"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

#include "base/BoundedParallel.hpp"
#include "base/Log.hpp"
#include "base/NameOrder.hpp"
#include "base/PathHelpers.hpp"
#include "base/RemoteURL.hpp"
#include "base/TextHelpers.hpp"
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
    if (cancellation_ != nullptr && cancellation_->isCancelled()) return std::nullopt;
    ShellResult result =
        runner_.run(GitCommand::request(path, std::move(arguments), 15, cancellation_));
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

DiscoveredRepo RepoDiscovery::makeRepo(const std::string& path, RemoteURLRead remoteURL) const {
    DiscoveredRepo repo;
    repo.repoID = PathHelpers::canonicalPath(path);
    repo.localPath = repo.repoID;
    repo.name = std::filesystem::path(repo.repoID).filename().string();
    // One listing of the branches answers what HEAD is on, what origin's HEAD names
    // and whether anything was ever fetched: enrolling a thousand repositories
    // costs a child per question per repository otherwise.
    std::optional<ShellResult> refs;
    if (cancellation_ == nullptr || !cancellation_->isCancelled()) {
        refs = runner_.run(
            GitCommand::request(path,
                                {"for-each-ref", "--format=%(HEAD) %(refname) %(symref)",
                                 "refs/heads/", "refs/remotes/"},
                                15, cancellation_));
    }
    bool listed = refs && refs->succeeded();
    bool onListedBranch = false;
    std::string originHead;
    repo.hasRemoteBranches = !listed;
    if (listed) {
        for (std::string_view line : Text::nonEmptyLines(refs->stdOut)) {
            if (line.size() < 3) continue;
            std::string_view rest = line.substr(2);
            std::string_view refname = rest.substr(0, rest.find(' '));
            std::string_view symref =
                refname.size() < rest.size() ? rest.substr(refname.size() + 1) : std::string_view();
            if (refname.starts_with("refs/heads/") && line[0] == '*') {
                onListedBranch = true;
                repo.currentBranch = refname.substr(11);
            } else if (refname.starts_with("refs/remotes/")) {
                repo.hasRemoteBranches = true;
                if (refname == "refs/remotes/origin/HEAD") originHead = symref;
            }
        }
    }
    // HEAD on no listed branch: detached, or on a branch without a commit yet,
    // which only git can name; or the listing failed.
    if (!onListedBranch)
        repo.currentBranch = gitLine(path, {"branch", "--show-current"}).value_or("");
    if (remoteURL == RemoteURLRead::now) {
        repo.remoteURL = gitLine(path, {"remote", "get-url", "origin"});
        if (repo.remoteURL) repo.remoteURL = RemoteURL::withoutCredentials(*repo.remoteURL);
    }
    // What origin's HEAD names, less the remote's own name, as detectDefaultBranch
    // reads it.
    size_t slash = originHead.find('/', std::string_view("refs/remotes/").size());
    if (originHead.starts_with("refs/remotes/") && slash != std::string::npos &&
        slash + 1 < originHead.size()) {
        repo.defaultBranch = originHead.substr(slash + 1);
    } else {
        repo.defaultBranch = repo.currentBranch.empty() ? "main" : repo.currentBranch;
    }
    return repo;
}

bool RepoDiscovery::refuseUnstorable(const std::string& id) const {
    if (Text::isValidUtf8(id)) return false;
    std::lock_guard lock(refusedMutex_);
    if (refusedReported_.insert(id).second) {
        Log::app().error(fmt::format(
            "not tracking {}: its path is not valid UTF-8, which the data files cannot hold; "
            "rename the folder to track it",
            Text::escapeInvalidUtf8(id)));
    }
    return true;
}

std::vector<DiscoveredRepo> RepoDiscovery::discover(
    const std::vector<std::string>& folders, int maxDepth,
    const std::set<std::string>& knownRepoIDs) const {
    // Shared by every starting folder, so nested or repeated folders list a
    // repository once.
    std::set<std::string> seen;
    std::vector<std::string> found;
    for (const std::string& folder : folders) {
        std::string start = PathHelpers::canonicalPath(folder);
        std::error_code ec;
        if (start.empty() || !fs::is_directory(start, ec)) continue;
        walk(start, 0, maxDepth, seen, found);
    }
    // The walk is cheap and sequential; reading the new repositories is what costs,
    // so it runs like a scan, a few at a time.
    // Only the new ones are read: on every scan but the first, that is none.
    std::vector<DiscoveredRepo> repos(found.size());
    std::vector<size_t> unknown;
    for (size_t i = 0; i < found.size(); ++i) {
        if (knownRepoIDs.contains(found[i])) {
            repos[i] = knownRepo(found[i]);
        } else {
            unknown.push_back(i);
        }
    }
    std::vector<DiscoveredRepo> read = boundedParallelMap<DiscoveredRepo>(
        unknown.size(), kMaxParallelReads,
        [&](size_t i) { return makeRepo(found[unknown[i]], RemoteURLRead::byFirstScan); });
    for (size_t i = 0; i < unknown.size(); ++i) repos[unknown[i]] = std::move(read[i]);
    // Stable, so equal names keep the order in which they were found.
    std::stable_sort(
        repos.begin(), repos.end(),
        [](const DiscoveredRepo& a, const DiscoveredRepo& b) { return nameLess(a.name, b.name); });
    return repos;
}

std::optional<size_t> RepoDiscovery::repositoriesUnder(const std::string& folder,
                                                       int maxDepth) const {
    std::string start = PathHelpers::canonicalPath(folder);
    std::error_code ec;
    if (start.empty() || !fs::is_directory(start, ec)) return std::nullopt;
    std::set<std::string> seen;
    std::vector<std::string> found;
    walk(start, 0, maxDepth, seen, found);
    return found.size();
}

void RepoDiscovery::walk(const fs::path& path, int depth, int maxDepth, std::set<std::string>& seen,
                         std::vector<std::string>& found) const {
    std::error_code ec;
    // A ".git" file counts as much as a folder: linked worktrees and submodules have one.
    if (fs::exists(path / ".git", ec)) {
        // Already where its links lead: the walk starts from a resolved folder and
        // never follows a link.
        std::string id = path.string();
        // Checked before anything is read, so a repository reached twice costs its
        // git commands once.
        if (!seen.insert(id).second || refuseUnstorable(id)) return;
        found.push_back(std::move(id));
        return;
    }
    if (depth >= maxDepth) return;

    for (fs::directory_iterator it(path, ec), end; !ec && it != end; it.increment(ec)) {
        // The name alone prunes hidden and skipped folders before any query on them.
        std::string name = it->path().filename().string();
        if (isSkippedName(name)) continue;
        // The entry's type comes with the listing where the file system gives it,
        // so the thousands of folders a walk passes cost no query each.
        std::error_code childError;
        if (it->is_symlink(childError) || !it->is_directory(childError)) continue;
        walk(path / name, depth + 1, maxDepth, seen, found);
    }
}

}  // namespace quorvane
