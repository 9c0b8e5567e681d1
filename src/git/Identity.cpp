#include "git/Identity.hpp"

#include "base/TextHelpers.hpp"

namespace quorvane {

namespace {

// Addresses compare without case, as mail systems treat them in practice, and
// without the blanks a hand-written setting may carry.
std::string addressKey(std::string_view email) {
    return Text::asciiLower(Text::trim(email));
}

}  // namespace

Identity Identity::everyone() {
    Identity identity;
    identity.onlyMine_ = false;
    return identity;
}

Identity Identity::of(const AppConfig& config, const std::vector<RepoSnapshot>& snapshots) {
    Identity identity;
    identity.onlyMine_ = config.countOnlyMyCommits;
    std::set<std::string> tracked;
    for (const RepoConfig& repo : config.repositories) {
        if (repo.trackingEnabled) tracked.insert(repo.id);
    }
    for (const RepoSnapshot& snapshot : snapshots) {
        if (!tracked.contains(snapshot.repoID)) continue;
        for (const std::string& email : snapshot.userEmails) {
            if (!Text::trim(email).empty()) identity.emails_.insert(addressKey(email));
        }
    }
    for (const std::string& entry : config.identities) {
        std::string_view value = Text::trim(entry);
        if (value.empty()) continue;
        if (value.find('@') != std::string_view::npos) {
            identity.emails_.insert(addressKey(value));
        } else {
            identity.names_.emplace(value);
        }
    }
    return identity;
}

bool Identity::isMine(const CommitRecord& commit) const {
    if (emails_.empty() && names_.empty()) return true;
    if (emails_.contains(addressKey(commit.authorEmail))) return true;
    return names_.contains(std::string(Text::trim(commit.authorName)));
}

}  // namespace quorvane
