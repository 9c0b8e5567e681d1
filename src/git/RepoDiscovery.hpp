#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <mutex>

#include "platform/Cancellation.hpp"
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
    // Whether any remote-tracking branch was there when it was read. Without one,
    // every commit on its branches is local work, and its history needs no check
    // against the remotes.
    bool hasRemoteBranches = true;

    bool operator==(const DiscoveredRepo&) const = default;
};

// Reads what enrolling a repository needs. Read-only; its git commands are short
// and a failed one only leaves a field empty.
class RepoDiscovery {
public:
    // Once `cancellation` (when given) is cancelled no further git child starts; the
    // repositories read by then are still listed, the others come back as if git
    // had failed on them.
    explicit RepoDiscovery(const ProcessRunner& runner, const Cancellation* cancellation = nullptr)
        : runner_(runner), cancellation_(cancellation) {}

    // Folder names the walk never enters: dependencies, build output and tool data,
    // which hold no repository of the user's own but can hold thousands of folders.
    static constexpr std::array<std::string_view, 9> kSkipNames = {
        "node_modules", ".build", "Pods", "DerivedData", ".git",
        "vendor",       ".venv",  "dist", "Library"};

    // The working trees under `folders` (each tilde-expanded and resolved), at most
    // `maxDepth` levels down, never inside another repository, hidden or skipped
    // folder, nor through a symbolic link. Each repository appears once, sorted by
    // name regardless of case. Repositories in `knownRepoIDs` cost no child process;
    // the others are read at most kMaxParallelReads at a time. A repository whose
    // path is not valid UTF-8 is left out (the data files hold text only), and said
    // so in the log once per path for the life of this object.
    std::vector<DiscoveredRepo> discover(const std::vector<std::string>& folders, int maxDepth,
                                         const std::set<std::string>& knownRepoIDs) const;

    // How many repositories `discover` would find under `folder` alone, found by the
    // same walk but without reading any of them; nothing when it is no folder.
    std::optional<size_t> repositoriesUnder(const std::string& folder, int maxDepth) const;

    // Whether `makeRepo` asks git for origin's URL. `discover` does not: the scan that
    // follows enrolment reads every repository's configuration anyway and records the
    // URL from it, and a child fewer per repository is a third of enrolling a thousand.
    enum class RemoteURLRead { now, byFirstScan };

    // The record for the repository at `path`: current branch, origin URL (unless
    // left to the first scan) and the remote's default branch (else the current
    // branch, else "main"). One git child for the branches, one for the URL, and one
    // more when HEAD is on no branch with a commit.
    DiscoveredRepo makeRepo(const std::string& path,
                            RemoteURLRead remoteURL = RemoteURLRead::now) const;

    std::string detectDefaultBranch(const std::string& path, const std::string& fallback) const;

    static constexpr size_t kMaxParallelReads = 8;

private:
    // Visits `path` and, below `maxDepth`, its plain sub-folders depth first, adding
    // the canonical path of each repository not yet in `seen` to `found`.
    void walk(const std::filesystem::path& path, int depth, int maxDepth,
              std::set<std::string>& seen, std::vector<std::string>& found) const;

    // True (and logged, once per path) when `id` cannot be kept in the data files.
    bool refuseUnstorable(const std::string& id) const;

    // The first non-empty line a git command prints, trimmed; nothing on failure.
    std::optional<std::string> gitLine(const std::string& path,
                                       std::vector<std::string> arguments) const;

    const ProcessRunner& runner_;
    const Cancellation* cancellation_;
    mutable std::mutex refusedMutex_;
    mutable std::set<std::string> refusedReported_;
};

}  // namespace quorvane
