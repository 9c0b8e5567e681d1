#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// Working tree and index counts of one repository. One status line can raise
// several of them; their sum is the repository's count of dirty entries.
struct GitFileCounts {
    int modified = 0;
    int staged = 0;
    int untracked = 0;
    int deleted = 0;
    int renamed = 0;

    int total() const { return modified + staged + untracked + deleted + renamed; }
    bool operator==(const GitFileCounts&) const = default;
};

// One repository at one moment, as one scan saw it. Stored as JSON with these
// field names; optional fields that are empty are left out.
struct RepoSnapshot {
    std::string id;      // a new UUID for every snapshot
    std::string repoID;  // canonical path of the repository
    Date capturedAt{};   // when the scan began
    std::string branch;  // empty when HEAD is detached (or the branch could not be read)
    std::optional<std::string> remoteURL;
    bool hasUpstream = false;
    GitFileCounts files;
    int ahead = 0;
    int behind = 0;
    int commitsToday = 0;
    std::optional<std::string> lastCommitSha;
    std::optional<std::string> lastCommitMessage;
    std::optional<Date> lastCommitAt;
    std::optional<Date> lastWorkingTreeChangeAt;
    bool isDetachedHead = false;
    std::optional<std::string> error;  // set only when the repository could not be read
    // Every user.email the repository's configuration gives, from any scope, in the
    // order git reads them: the addresses its owner commits as.
    std::vector<std::string> userEmails;

    // Nothing dirty, and a branch that tracks a remote one at 0 ahead and 0 behind.
    // Without an upstream, a remote or a branch the counts measure nothing, so such a
    // repository is never synced however clean it is.
    bool isSynced() const {
        return files.total() <= 0 && hasUpstream && remoteURL && !isDetachedHead && ahead == 0 &&
               behind == 0 && (!error || error->empty());
    }
    bool operator==(const RepoSnapshot&) const = default;
};

// The labels a repository can carry, in display order.
enum class RepoStatus {
    synced,
    needsCommit,
    needsPush,
    behindRemote,
    activeToday,
    inactive,
    stale,
    noRemote,
    detachedHead,
    error
};

constexpr auto enumCases(RepoStatus) {
    using enum RepoStatus;
    return std::array{std::pair{synced, std::string_view("synced")},
                      std::pair{needsCommit, std::string_view("needsCommit")},
                      std::pair{needsPush, std::string_view("needsPush")},
                      std::pair{behindRemote, std::string_view("behindRemote")},
                      std::pair{activeToday, std::string_view("activeToday")},
                      std::pair{inactive, std::string_view("inactive")},
                      std::pair{stale, std::string_view("stale")},
                      std::pair{noRemote, std::string_view("noRemote")},
                      std::pair{detachedHead, std::string_view("detachedHead")},
                      std::pair{error, std::string_view("error")}};
}

void fromJson(const Json& json, GitFileCounts& out, const std::string& path);
void fromJson(const Json& json, RepoSnapshot& out, const std::string& path);
Json toJson(const GitFileCounts& counts);
Json toJson(const RepoSnapshot& snapshot);

}  // namespace quorvane
