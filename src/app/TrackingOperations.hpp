#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "app/AppEnvironment.hpp"
#include "git/RepoDiscovery.hpp"
#include "platform/ProcessRunner.hpp"

// What the person tracks: repositories by hand, and the scan folders whose
// repositories are tracked on their own. The command line and the dashboard change
// them through these, in whichever process is the data folder's writer. Paths come
// in absolute: a relative one means the caller's working folder, which only the
// caller knows.
namespace quorvane::TrackingOperations {

// A path that was refused, and why, in words for the person.
struct Refusal {
    std::string path;
    std::string problem;
    bool operator==(const Refusal&) const = default;
};

// Why a folder at `path` cannot be kept in the data files, ending in what renaming
// it lets the person do (`purpose`, such as "track it"); empty when it can. A path
// that is not valid UTF-8 would be stored with U+FFFD in place of its bytes, which
// names another folder or none.
std::string unstorablePathProblem(const std::string& path, std::string_view purpose);

// The tops of the working trees holding `paths`, each once, and the paths that are
// in none. Asks git; changes nothing.
struct WorkTrees {
    std::vector<std::string> tops;
    std::vector<Refusal> refused;
};
WorkTrees workTrees(const ProcessRunner& runner, const std::vector<std::string>& paths);

// Tracks the repositories at `tops` (from workTrees): tracking by hand lifts an
// earlier "stop tracking", one already tracked stays as it is, and a new one has its
// recent history read, which `beforeReading` hears of first with the days it reads.
struct Tracked {
    std::vector<DiscoveredRepo> added;
    std::vector<std::string> alreadyTracked;
    std::string notSaved;     // nothing was changed, for this reason
    std::string partlySaved;  // tracked, but not everything could be saved
};
Tracked track(AppEnvironment& env, const ProcessRunner& runner,
              const std::vector<std::string>& tops,
              const std::function<void(int historyDays)>& beforeReading = {});

// Stops tracking the repository `id` and remembers it as ignored, so that a scan of
// its folder does not enrol it again; what was recorded about it goes, but a link
// the person confirmed to a GitHub repository stays. `problem` says what was not
// saved.
struct Untracked {
    std::string problem;
    bool flushed = true;  // false when the config changed but the store did not save
};
Untracked untrack(AppEnvironment& env, const std::string& id);

// Adds or removes scan folders. Every path is checked first, so one refused path
// changes nothing. Adding: a path must be a folder whose path the data files can
// hold; one that is already a scan folder is left as it is. Removing: a path must
// name a scan folder (as it is stored, as the list shows it, or once resolved).
struct FolderChange {
    std::vector<std::string> changed;
    std::vector<std::string> unchanged;  // already a scan folder, when adding
    std::vector<Refusal> refused;        // nothing was changed when there is one
    std::string notSaved;
};
FolderChange addScanFolders(AppEnvironment& env, const std::vector<std::string>& paths);
FolderChange removeScanFolders(AppEnvironment& env, const std::vector<std::string>& paths);

}  // namespace quorvane::TrackingOperations
