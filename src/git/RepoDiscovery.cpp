#include "git/RepoDiscovery.hpp"

#include <filesystem>

#include "app/PathHelpers.hpp"
#include "app/TextHelpers.hpp"
#include "git/GitCommand.hpp"

namespace quorvane {

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

}  // namespace quorvane
