#include "app/Enrollment.hpp"

namespace quorvane {

RepoConfig enrollmentConfig(const DiscoveredRepo& found, Date now) {
    RepoConfig repo;
    repo.id = found.repoID;
    repo.name = found.name;
    repo.localPath = found.localPath;
    repo.remoteURL = found.remoteURL;
    repo.defaultBranch = found.defaultBranch;
    repo.priority = RepoConfig::Priority::normal;
    repo.trackingEnabled = true;
    repo.ignoreUntracked = false;
    repo.addedAt = now;
    return repo;
}

}  // namespace quorvane
