#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ProcessRunner.hpp"

namespace quorvane {

// One repository found on disk, identified by its canonical path. Not persisted.
struct DiscoveredRepo {
    std::string repoID;  // canonical path, the same rule as RepoSnapshot::repoID
    std::string name;    // last component of the canonical path
    std::string localPath;
    std::optional<std::string> remoteURL;
    std::string currentBranch;
    std::string defaultBranch;

    bool operator==(const DiscoveredRepo&) const = default;
};

// Reads what enrolling a repository needs. Read-only; its git commands are short
// and a failed one only leaves a field empty.
class RepoDiscovery {
public:
    explicit RepoDiscovery(const ProcessRunner& runner) : runner_(runner) {}

    // Folder names the walk never enters: dependencies, build output and tool data,
    // which hold no repository of the user's own but can hold thousands of folders.
    static constexpr std::array<std::string_view, 9> kSkipNames = {
        "node_modules", ".build", "Pods", "DerivedData", ".git",
        "vendor",       ".venv",  "dist", "Library"};

    // The working trees under `folders` (each tilde-expanded and resolved), at most
    // `maxDepth` levels down, never inside another repository, hidden or skipped
    // folder, nor through a symbolic link. Each repository appears once, sorted by
    // name regardless of case. Repositories in `knownRepoIDs` cost no child process.
    std::vector<DiscoveredRepo> discover(const std::vector<std::string>& folders, int maxDepth,
                                         const std::set<std::string>& knownRepoIDs) const;

    // The record for the repository at `path`: current branch, origin URL and the
    // remote's default branch (else the current branch, else "main").
    DiscoveredRepo makeRepo(const std::string& path) const;

    std::string detectDefaultBranch(const std::string& path, const std::string& fallback) const;

private:
    // Visits `path` and, below `maxDepth`, its plain sub-folders depth first, adding
    // each repository not yet in `seen` to `repos`.
    void walk(const std::filesystem::path& path, int depth, int maxDepth,
              const std::set<std::string>& known, std::set<std::string>& seen,
              std::vector<DiscoveredRepo>& repos) const;

    // The first non-empty line a git command prints, trimmed; nothing on failure.
    std::optional<std::string> gitLine(const std::string& path,
                                       std::vector<std::string> arguments) const;

    const ProcessRunner& runner_;
};

}  // namespace quorvane
