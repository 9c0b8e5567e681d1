#pragma once

#include "base/DateHelpers.hpp"
#include "git/RepoDiscovery.hpp"
#include "records/RepoConfig.hpp"

namespace quorvane {

// The configuration a newly tracked repository starts with: identity, name, remote
// and default branch from what was found on disk, everything else at its default,
// tracked from `now`.
RepoConfig enrollmentConfig(const DiscoveredRepo& found, Date now);

}  // namespace quorvane
