#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorvane {

// A folder on the local disk that may be a checkout of some GitHub repository,
// with what could be read from it. The local project search fills it; its
// confidence and evidence are that search's own ranking against the query, not a
// score against one remote repository. Not persisted.
struct LocalProjectMatch {
    std::string path;
    std::optional<std::string> remoteOwnerRepo;  // "owner/name" from the folder's git remote
    std::optional<std::string> pkgName;          // name declared by the package manifest
    std::optional<std::string> readmeTitle;      // first title of the README
    std::vector<std::string> recentShas;         // recent commit ids read from the folder
    int confidence = 0;                          // 0 to 100
    std::vector<std::string> evidence;

    bool operator==(const LocalProjectMatch&) const = default;
};

}  // namespace quorvane
