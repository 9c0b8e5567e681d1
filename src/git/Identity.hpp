#pragma once

#include <set>
#include <string>
#include <vector>

#include "persistence/AppConfig.hpp"
#include "records/CommitRecord.hpp"
#include "records/RepoSnapshot.hpp"

namespace quorvane {

// Who the person is, as their commits name them: the e-mail addresses they commit
// as (compared without case) and the author names they gave. A repository also
// holds colleagues' commits, pulled in with theirs; every count a person or an
// agent reads is of the person's own, unless they ask for everyone's. Pure.
class Identity {
public:
    // Anyone's commits count: for callers that show a repository's whole history.
    static Identity everyone();

    // The person as their settings and repositories describe them: each tracked
    // repository's user.email (their own, global or per repository), and the
    // addresses (anything holding an "@") and names in `identities`.
    static Identity of(const AppConfig& config, const std::vector<RepoSnapshot>& snapshots);

    // Whether the person wrote `commit`. With no address or name known at all,
    // nothing tells theirs from another's, so every commit is theirs.
    bool isMine(const CommitRecord& commit) const;

    // Whether a view counts `commit`: the person's own, or any when they asked for
    // every commit of their repositories (countOnlyMyCommits false).
    bool counts(const CommitRecord& commit) const { return !onlyMine_ || isMine(commit); }

    // Whether only the person's commits count.
    bool countsOnlyMine() const { return onlyMine_; }

private:
    std::set<std::string> emails_;  // lower case
    std::set<std::string> names_;
    bool onlyMine_ = true;
};

}  // namespace quorvane
