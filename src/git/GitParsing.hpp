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

// The log formats. Every field ends with a NUL (with `log -z`), a byte that no
// name, address or subject can hold, so a field can never forge the ones after it.
inline constexpr const char* kCommitFormat = "--pretty=%H%x00%h%x00%an%x00%ae%x00%aI%x00%s";
inline constexpr const char* kLastCommitFormat = "--pretty=%H%x00%aI%x00%s";
// The same as kCommitFormat with the ref each commit was reached from before the subject.
inline constexpr const char* kHistoryFormat = "--pretty=%H%x00%h%x00%an%x00%ae%x00%aI%x00%S%x00%s";

// Splits NUL-terminated fields into records of `fieldsPerRecord`, in order. An
// unterminated or incomplete last record (output cut short) is left out.
std::vector<std::vector<std::string_view>> nulRecords(std::string_view output,
                                                      size_t fieldsPerRecord);

// Whether `text` is a full object name: 40 (SHA-1) or 64 (SHA-256) hex digits.
bool isObjectName(std::string_view text);

// Reads `git log -z` output in kCommitFormat. A record whose hash is not a full
// object name, or whose short hash does not begin it, is dropped; an unreadable
// date becomes the Unix epoch, so the commit is kept.
std::vector<CommitRecord> commits(std::string_view logOutput, const std::string& repoID,
                                  const std::string& branch);

// Reads `git log -z --source` output in kHistoryFormat: like `commits`, with each
// commit's branch taken from the ref it was reached from ("refs/heads/" removed).
std::vector<CommitRecord> historyCommits(std::string_view logOutput, const std::string& repoID);

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
