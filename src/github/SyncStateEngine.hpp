#pragma once

#include <optional>
#include <string>

#include "records/RemoteRepository.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/RepositoryMapping.hpp"
#include "records/SyncState.hpp"

// How one repository stands against its GitHub counterpart. Pure: reads only its
// arguments, and the clock comes in as `now`.
namespace quorvane::SyncStateEngine {

// One status, by the first rule that holds: no snapshot but a remote is
// remoteOnly; a localOnly mapping, or no remote at all, is localOnly; a failed
// scan, or a remoteInaccessible mapping, is remoteInaccessible; an
// accountMismatch mapping is accountMissing; then noUpstream, diverged, needsPush,
// needsPull or synced from the snapshot's upstream and counts. Never yields
// branchMismatch or unknown.
SyncState compute(const std::string& repoID, const std::optional<RepoSnapshot>& snapshot,
                  const std::optional<RepositoryMapping>& mapping,
                  const std::optional<RemoteRepository>& remote, Date now);

}  // namespace quorvane::SyncStateEngine
