#pragma once

#include <optional>
#include <string>
#include <vector>

#include "records/JsonCodec.hpp"
#include "records/RepoSnapshot.hpp"

namespace quorvane {

// What one repository saw on one local day: commits, estimated work, touched files
// and branches, and the labels it carried. Stored under `key()`.
struct DayActivity {
    std::string repoID;
    std::string dateKey;  // "yyyy-MM-dd" in local time
    int commitCount = 0;
    int estimatedSeconds = 0;                  // sum of the day's session lengths
    int filesTouched = 0;                      // dirty entries of the day's snapshot
    bool pushed = false;                       // there were commits and none is left unpushed
    std::vector<std::string> branchesTouched;  // sorted, without repeats
    std::vector<std::string> statuses;         // names of the repository's labels
    // How the day's last scan left the repository, so that a past day's report shows
    // that day rather than today. Records written before these were kept have no
    // `files`, and read as zero counts.
    std::string branch;
    std::optional<GitFileCounts> files;
    int ahead = 0;
    int behind = 0;

    // The store key: one record per repository and day, "<repoID>@<dateKey>".
    std::string key() const { return repoID + "@" + dateKey; }
    bool operator==(const DayActivity&) const = default;
};

void fromJson(const Json& json, DayActivity& out, const std::string& path);
Json toJson(const DayActivity& activity);

}  // namespace quorvane
