#include "app/ScanPlanner.hpp"

#include <string_view>

namespace quorvane {

std::vector<bool> ScanPlanner::plan(Date now, bool everything, const Watch& watch,
                                    const std::vector<Repo>& repos) {
    std::string day = DateHelpers::dateKey(now);
    // Without a watcher, or after it missed events, silence says nothing. A clock
    // set back counts as a new hour too.
    if (everything || !watch.running || watch.lostEvents || !lastFullRead_ || day != lastFullDay_ ||
        now < *lastFullRead_ || now - *lastFullRead_ >= kFullReadInterval) {
        lastFullRead_ = now;
        lastFullDay_ = std::move(day);
        return std::vector<bool>(repos.size(), true);
    }
    std::set<std::string_view> watched(watch.watched.begin(), watch.watched.end());
    std::vector<bool> read;
    read.reserve(repos.size());
    for (const Repo& repo : repos) {
        auto known = known_.find(repo.id);
        bool quiet = known != known_.end() && repo.fingerprint &&
                     known->second.fingerprint == *repo.fingerprint &&
                     known->second.ignoreUntracked == repo.ignoreUntracked &&
                     watched.contains(repo.path) && !watch.changed.contains(repo.path) &&
                     !watch.unvouched.contains(repo.path);
        read.push_back(!quiet);
    }
    return read;
}

void ScanPlanner::noteRead(const Repo& repo) {
    if (!repo.fingerprint) {
        known_.erase(repo.id);
        return;
    }
    known_[repo.id] = Known{*repo.fingerprint, repo.ignoreUntracked};
}

}  // namespace quorvane
