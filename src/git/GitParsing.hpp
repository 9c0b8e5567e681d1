#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "git/CommitRecord.hpp"
#include "git/RepoSnapshot.hpp"

namespace quorvane::GitParsing {

struct AheadBehind {
    int ahead = 0;
    int behind = 0;
    bool operator==(const AheadBehind&) const = default;
};

// Splits on `separator` into at most `maxParts` parts: once maxParts - 1 parts are
// complete, further separators stay inside the last part, so a "|" in a commit
// subject survives. Empty parts are kept; maxParts below 2 gives the input whole.
std::vector<std::string> splitFirst(std::string_view text, char separator, int maxParts);

// Reads `git log --pretty=%H|%h|%an|%ae|%aI|%s` output. A line without six parts or
// without a hash is dropped; an unreadable date becomes the Unix epoch.
std::vector<CommitRecord> commits(std::string_view logOutput, const std::string& repoID,
                                  const std::string& branch);

// Counts `git status --porcelain=v1` lines. "MM" counts as staged and modified,
// "R " as staged and renamed, "UU" only as staged; "??" is untracked unless ignored.
GitFileCounts fileCounts(std::string_view porcelain, bool ignoreUntracked);

// Reads `rev-list --left-right --count upstream...HEAD`: behind first, then ahead.
// Anything unreadable gives 0 and 0.
AheadBehind aheadBehind(std::string_view text);

// The internet date-time form, with or without fractional seconds.
std::optional<Date> parseISODate(std::string_view text);

// The paths of a porcelain listing whose modification time can say when the tree
// last changed: the new name of a rename, surrounding quotes removed. Escapes in a
// quoted path are left as they are, so such a path simply matches no file.
std::vector<std::string> changedPaths(std::string_view porcelain);

}  // namespace quorvane::GitParsing
