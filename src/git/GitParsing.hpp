#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/CommitRecord.hpp"
#include "records/RepoSnapshot.hpp"

namespace quorvane::GitParsing {

struct AheadBehind {
    int ahead = 0;
    int behind = 0;
    bool operator==(const AheadBehind&) const = default;
};

// The log formats. Every field ends with a NUL (with `log -z`), a byte that no
// name, address or subject can hold, so a field can never forge the ones after it.
// The committer date follows the author date: git prints the author date's
// placeholder itself when a commit's author line cannot be read, and the commit is
// then dated by its committer.
inline constexpr const char* kCommitFormat = "--pretty=%H%x00%h%x00%an%x00%ae%x00%aI%x00%cI%x00%s";
inline constexpr const char* kLastCommitFormat = "--pretty=%H%x00%aI%x00%cI%x00%s";
// The same as kCommitFormat with the ref each commit was reached from before the subject.
inline constexpr const char* kHistoryFormat =
    "--pretty=%H%x00%h%x00%an%x00%ae%x00%aI%x00%cI%x00%S%x00%s";

// The author date of a record, else its committer date.
std::optional<Date> commitDate(std::string_view authorDate, std::string_view committerDate);

// Splits NUL-terminated fields into records of `fieldsPerRecord`, in order. An
// unterminated or incomplete last record (output cut short) is left out.
std::vector<std::vector<std::string_view>> nulRecords(std::string_view output,
                                                      size_t fieldsPerRecord);

// Whether `text` is a full object name: 40 (SHA-1) or 64 (SHA-256) hex digits.
bool isObjectName(std::string_view text);

// Reads `git log -z` output in kCommitFormat. A record whose hash is not a full
// object name, or whose short hash does not begin it, is dropped. A commit is dated
// by its author, else by its committer; one with neither date readable is dropped,
// since no day could be said to hold it.
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

// What `git status --porcelain=v2 --branch -z` says: the branch headers and one
// entry per changed path, paths as raw bytes.
struct StatusV2 {
    struct Entry {
        char kind = '1';     // '1' changed, '2' renamed or copied, 'u' unmerged, '?', '!'
        char x = '.';        // index side of the XY code; '.' is unchanged
        char y = '.';        // work tree side
        std::string path;    // the path now
        std::string origin;  // with '2': the path it was renamed or copied from
        bool operator==(const Entry&) const = default;
    };
    std::string oid;                         // HEAD's commit, or "(initial)" before the first
    std::string head;                        // the branch, or "(detached)"
    std::optional<std::string> upstream;     // configured, even when its ref is gone
    std::optional<AheadBehind> aheadBehind;  // only when the upstream's ref exists
    std::vector<Entry> entries;

    bool operator==(const StatusV2&) const = default;
};

// Parses the whole output strictly: an unknown entry kind, a field count that does
// not fit, a missing branch header or an unterminated record gives nothing, and
// the caller reads the repository the slow way instead. Headers other than the
// branch ones (a stash count) are skipped.
std::optional<StatusV2> parseStatusV2(std::string_view output);

// A path as `git status --porcelain=v1` prints it: in double quotes with C escapes
// when it holds a control character, '"', '\\' or (with core.quotePath) a byte
// above 0x7f; in plain double quotes when it holds a space; bare otherwise.
std::string porcelainV1Path(std::string_view path, bool quotePath);

// The `git status --porcelain=v1` listing of the same entries, line for line, so
// that `fileCounts` and `changedPaths` read it exactly as they read git's own.
std::string porcelainV1(const StatusV2& status, bool quotePath);

}  // namespace quorvane::GitParsing
