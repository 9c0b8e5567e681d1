#include "records/SyncState.hpp"

namespace quorvane {

void fromJson(const Json& json, SyncState& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.repoID = reader.optional<std::string>("repoID");
    out.remoteRepoID = reader.optional<std::string>("remoteRepoID");
    out.accountID = reader.optional<std::string>("accountID");
    out.status = reader.required<SyncState::Status>("status");
    out.localAhead = reader.required<int>("localAhead");
    out.localBehind = reader.required<int>("localBehind");
    out.hasUpstream = reader.required<bool>("hasUpstream");
    out.hasRemoteBranch = reader.required<bool>("hasRemoteBranch");
    out.lastRemoteCommitSha = reader.optional<std::string>("lastRemoteCommitSha");
    out.lastLocalCommitSha = reader.optional<std::string>("lastLocalCommitSha");
    out.calculatedAt = reader.required<Date>("calculatedAt");
}

Json toJson(const SyncState& state) {
    Json json{{"id", state.id},
              {"status", toJson(state.status)},
              {"localAhead", state.localAhead},
              {"localBehind", state.localBehind},
              {"hasUpstream", state.hasUpstream},
              {"hasRemoteBranch", state.hasRemoteBranch},
              {"calculatedAt", toJson(state.calculatedAt)}};
    putIfPresent(json, "repoID", state.repoID);
    putIfPresent(json, "remoteRepoID", state.remoteRepoID);
    putIfPresent(json, "accountID", state.accountID);
    putIfPresent(json, "lastRemoteCommitSha", state.lastRemoteCommitSha);
    putIfPresent(json, "lastLocalCommitSha", state.lastLocalCommitSha);
    return json;
}

}  // namespace quorvane
