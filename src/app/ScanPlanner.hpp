#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "git/FileWatcher.hpp"

namespace quorvane {

// Decides which tracked repositories a periodic scan reads again. A repository
// whose work tree the file watcher saw no change in, and whose git state (as
// ScanMemo::quietFingerprint sums it up) is what it was before its last reading,
// would read the same: it keeps that reading and costs no git child. Everything
// is read on the first scan, once an hour, when the day changes (today's commits
// and the reminders go by the date) and whenever the watcher cannot vouch for
// its silence. Pure: the caller brings the watcher's report and the fingerprints.
class ScanPlanner {
public:
    static constexpr std::chrono::hours kFullReadInterval{1};

    // What the watcher says; paths as FileWatcher::standardizedPath gives them.
    using Watch = FileWatcher::Report;

    struct Repo {
        std::string id;
        std::string path;  // standardised work tree
        // Taken before this scan's reading; nothing when it cannot be vouched for.
        std::optional<std::string> fingerprint;
        bool ignoreUntracked = false;
    };

    // For each of `repos`, whether to read it now. `everything` asks for all.
    std::vector<bool> plan(Date now, bool everything, const Watch& watch,
                           const std::vector<Repo>& repos);

    // A reading of `repo` that `plan` asked for has been kept. Until then, and after
    // forget, the repository is read every time.
    void noteRead(const Repo& repo);
    void forget(const std::string& id) { known_.erase(id); }

private:
    struct Known {
        std::string fingerprint;
        bool ignoreUntracked = false;
    };
    std::optional<Date> lastFullRead_;
    std::string lastFullDay_;
    std::map<std::string, Known> known_;
};

}  // namespace quorvane
