#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// How one repository stands against its GitHub counterpart, as of one sync.
// It is stored under `id`, which is the repository id it was computed for.
// Empty optionals are left out of the JSON.
struct SyncState {
    // In display order. branchMismatch and unknown are only shown and read back;
    // the classification itself never yields them.
    enum class Status {
        synced,
        needsPush,
        needsPull,
        diverged,
        noUpstream,
        remoteOnly,
        localOnly,
        accountMissing,
        branchMismatch,
        remoteInaccessible,
        unknown
    };

    std::string id;  // the repository id
    std::optional<std::string> repoID;
    std::optional<std::string> remoteRepoID;
    std::optional<std::string> accountID;
    Status status = Status::unknown;
    int localAhead = 0;   // 0 when the repository has no snapshot
    int localBehind = 0;  // 0 when the repository has no snapshot
    bool hasUpstream = false;
    bool hasRemoteBranch = false;  // a remote repository was known, whatever its branches
    std::optional<std::string> lastRemoteCommitSha;
    std::optional<std::string> lastLocalCommitSha;
    Date calculatedAt{};

    bool operator==(const SyncState&) const = default;
};

constexpr auto enumCases(SyncState::Status) {
    using enum SyncState::Status;
    return std::array{std::pair{synced, std::string_view("synced")},
                      std::pair{needsPush, std::string_view("needsPush")},
                      std::pair{needsPull, std::string_view("needsPull")},
                      std::pair{diverged, std::string_view("diverged")},
                      std::pair{noUpstream, std::string_view("noUpstream")},
                      std::pair{remoteOnly, std::string_view("remoteOnly")},
                      std::pair{localOnly, std::string_view("localOnly")},
                      std::pair{accountMissing, std::string_view("accountMissing")},
                      std::pair{branchMismatch, std::string_view("branchMismatch")},
                      std::pair{remoteInaccessible, std::string_view("remoteInaccessible")},
                      std::pair{unknown, std::string_view("unknown")}};
}

void fromJson(const Json& json, SyncState& out, const std::string& path);
Json toJson(const SyncState& state);

}  // namespace quorvane
