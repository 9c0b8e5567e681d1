#pragma once

#include <string>
#include <vector>

#include "github/LocalProjectMatch.hpp"
#include "records/RemoteRepository.hpp"
#include "records/RepoConfig.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/RepositoryMapping.hpp"
#include "records/SyncState.hpp"

namespace quorvane {

// Turns the latest snapshots and sync states into a Markdown plan of what to commit,
// push and pull, in that order, and finds duplicate clones and remote repositories
// with no local clone. Pure: it runs nothing and changes nothing; the commands it
// names are for the person to run.
class CleanupPlanner {
public:
    // Folders that are clones of one thing: the same origin, or else the same package.
    struct DuplicateGroup {
        std::string key;  // "remote:owner/name" or "pkg:name", in lower case
        std::vector<std::string> paths;

        bool operator==(const DuplicateGroup&) const = default;
    };

    struct MissingLocal {
        std::string remoteRepoID;
        std::string fullName;

        bool operator==(const MissingLocal&) const = default;
    };

    // The plan, or its head and "Everything looks aligned" when nothing needs doing.
    // A repository whose configuration has tracking switched off is left out; one
    // with no configuration is named after its folder.
    static std::string dailyPlan(const std::vector<RepoSnapshot>& snapshots,
                                 const std::vector<SyncState>& syncStates,
                                 const std::vector<RepoConfig>& configs);

    // Groups of two or more different paths sharing a key, by key. A match with
    // neither an origin nor a package name has no key.
    static std::vector<DuplicateGroup> detectDuplicates(
        const std::vector<LocalProjectMatch>& matches);

    // The remote repositories no mapping links to a local repository, in the order
    // given. A mapping without a local side is no clone.
    static std::vector<MissingLocal> missingLocal(const std::vector<RemoteRepository>& remotes,
                                                  const std::vector<RepositoryMapping>& mappings);
};

}  // namespace quorvane
