#pragma once

#include <optional>
#include <string>
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

    // The record for the repository at `path`: current branch, origin URL and the
    // remote's default branch (else the current branch, else "main").
    DiscoveredRepo makeRepo(const std::string& path) const;

    std::string detectDefaultBranch(const std::string& path, const std::string& fallback) const;

private:
    // The first non-empty line a git command prints, trimmed; nothing on failure.
    std::optional<std::string> gitLine(const std::string& path,
                                       std::vector<std::string> arguments) const;

    const ProcessRunner& runner_;
};

}  // namespace quorvane
