#include "github/SyncStateEngine.hpp"

namespace quorvane::SyncStateEngine {
namespace {

using Status = SyncState::Status;
using Kind = RepositoryMapping::Kind;

bool isKind(const std::optional<RepositoryMapping>& mapping, Kind kind) {
    return mapping && mapping->kind == kind;
}

// The order is the point. Without a snapshot a known remote can only be remote
// only. Without a remote nothing can be inaccessible or mismatched, so the
// absence of one outranks every error. A scan that failed is reported as such
// whatever the mapping claims. Only then do the upstream and the counts speak.
Status classify(const std::optional<RepoSnapshot>& snapshot,
                const std::optional<RepositoryMapping>& mapping, bool hasRemote, int ahead,
                int behind, bool hasUpstream) {
    if (!snapshot && hasRemote) return Status::remoteOnly;
    if (isKind(mapping, Kind::localOnly)) return Status::localOnly;
    if (!hasRemote) return Status::localOnly;
    if (snapshot && snapshot->error) return Status::remoteInaccessible;
    if (isKind(mapping, Kind::remoteInaccessible)) return Status::remoteInaccessible;
    if (isKind(mapping, Kind::accountMismatch)) return Status::accountMissing;
    // Without an upstream the counts measure nothing, so they are not read.
    if (!hasUpstream) return Status::noUpstream;
    if (ahead > 0 && behind > 0) return Status::diverged;
    if (ahead > 0) return Status::needsPush;
    if (behind > 0) return Status::needsPull;
    return Status::synced;
}

}  // namespace

SyncState compute(const std::string& repoID, const std::optional<RepoSnapshot>& snapshot,
                  const std::optional<RepositoryMapping>& mapping,
                  const std::optional<RemoteRepository>& remote, Date now) {
    SyncState state;
    state.id = repoID;
    state.repoID = repoID;
    if (remote) {
        state.remoteRepoID = remote->id;
    } else if (mapping) {
        state.remoteRepoID = mapping->remoteRepoID;
    }
    // The mapping names the account the user's link goes through; the remote
    // record only the one it happened to be read with.
    if (mapping && mapping->accountID) {
        state.accountID = mapping->accountID;
    } else if (remote) {
        state.accountID = remote->accountID;
    }
    if (snapshot) {
        state.localAhead = snapshot->ahead;
        state.localBehind = snapshot->behind;
        state.hasUpstream = snapshot->hasUpstream;
        state.lastLocalCommitSha = snapshot->lastCommitSha;
    }
    // A known remote repository is all this says; its branches are not looked at.
    state.hasRemoteBranch = remote.has_value();
    state.status = classify(snapshot, mapping, remote.has_value(), state.localAhead,
                            state.localBehind, state.hasUpstream);
    state.calculatedAt = now;
    return state;
}

}  // namespace quorvane::SyncStateEngine
