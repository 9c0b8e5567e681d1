#include "records/BranchRecord.hpp"

namespace quorvane {

void fromJson(const Json& json, BranchRecord& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.repoID = reader.required<std::string>("repoID");
    out.name = reader.required<std::string>("name");
    out.isLocal = reader.required<bool>("isLocal");
    out.isRemote = reader.required<bool>("isRemote");
    out.upstreamName = reader.optional<std::string>("upstreamName");
    out.aheadCount = reader.required<int>("aheadCount");
    out.behindCount = reader.required<int>("behindCount");
    out.lastCommitSha = reader.optional<std::string>("lastCommitSha");
    out.lastCommitDate = reader.optional<Date>("lastCommitDate");
    out.lastSyncedAt = reader.required<Date>("lastSyncedAt");
    out.unpushedCount = reader.optional<int>("unpushedCount").value_or(0);
    out.merged = reader.optional<bool>("merged").value_or(false);
}

Json toJson(const BranchRecord& record) {
    Json json{{"id", record.id},
              {"repoID", record.repoID},
              {"name", record.name},
              {"isLocal", record.isLocal},
              {"isRemote", record.isRemote},
              {"aheadCount", record.aheadCount},
              {"behindCount", record.behindCount},
              {"lastSyncedAt", toJson(record.lastSyncedAt)}};
    putIfPresent(json, "upstreamName", record.upstreamName);
    putIfPresent(json, "lastCommitSha", record.lastCommitSha);
    putIfPresent(json, "lastCommitDate", record.lastCommitDate);
    // Like an absent value, a zero is left out, as files written before it was kept are.
    if (record.unpushedCount != 0) json["unpushedCount"] = record.unpushedCount;
    if (record.merged) json["merged"] = true;
    return json;
}

}  // namespace quorvane
