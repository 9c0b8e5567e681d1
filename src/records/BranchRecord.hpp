#pragma once

#include <optional>
#include <string>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One branch in the merged local and remote view of a repository. A branch that
// exists locally has one row whatever GitHub holds; a branch only on GitHub has
// its own row. Empty optionals are left out of the JSON.
struct BranchRecord {
    std::string id;      // repoID, "#", name, then "#L" or "#R" (see composedID)
    std::string repoID;  // a local repository id, or a RemoteRepository id
    std::string name;
    bool isLocal = false;
    bool isRemote = false;
    std::optional<std::string> upstreamName;  // only for a local branch
    int aheadCount = 0;
    int behindCount = 0;
    std::optional<std::string> lastCommitSha;
    std::optional<Date> lastCommitDate;
    Date lastSyncedAt{};  // when the record was computed
    // For a local branch, the commits a push would still send (LocalBranchInfo::unpushed);
    // 0 in records written before it was kept.
    int unpushedCount = 0;
    // For a local branch, its tip is in the repository's default branch
    // (LocalBranchInfo::merged); false in records written before it was kept.
    bool merged = false;

    // The id this record should carry: "#L" marks a row that exists locally,
    // "#R" one that exists only on GitHub, so the two can never collide.
    std::string composedID() const { return repoID + "#" + name + (isLocal ? "#L" : "#R"); }
    bool operator==(const BranchRecord&) const = default;
};

void fromJson(const Json& json, BranchRecord& out, const std::string& path);
Json toJson(const BranchRecord& record);

}  // namespace quorvane
