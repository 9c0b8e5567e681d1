#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "records/RemoteRepository.hpp"
#include "records/RepoConfig.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/RepositoryMapping.hpp"

// Which remote repository each tracked local one belongs to, from its remote URL,
// merged with the links the user confirmed. Pure: reads only its arguments.
namespace quorvane::RepoMapper {

// The GitHub host a remote URL must name, compared exactly in lower case.
inline constexpr std::string_view kGitHubHost = "github.com";

// Owner and repository name from a remote URL in URL form (any scheme, user and
// port dropped), scp form (user@host:owner/name) or bare form (host/owner/name).
// Case is kept; a trailing ".git" (lower case) leaves the name. Nothing for any
// other host, or for host:owner/name without a user.
std::optional<std::pair<std::string, std::string>> ownerRepo(std::string_view remote);

// One row per tracked configuration (mapped, localOnly, accountMismatch or
// remoteInaccessible), then a remoteOnly row per remote no configuration claimed.
// `snapshots` newest first: the first one of a repository counts. Every row is
// dated `now`.
std::vector<RepositoryMapping> map(const std::vector<RepoConfig>& configs,
                                   const std::vector<RepoSnapshot>& snapshots,
                                   const std::vector<RemoteRepository>& remotes, Date now);

// The confirmed rows, then the computed ones that touch none of their ids or sides.
std::vector<RepositoryMapping> reconcile(const std::vector<RepositoryMapping>& computed,
                                         const std::vector<RepositoryMapping>& confirmed);

}  // namespace quorvane::RepoMapper
