#pragma once

#include <optional>
#include <string>
#include <vector>

#include "git/ScanMemo.hpp"
#include "platform/Cancellation.hpp"
#include "platform/Clock.hpp"
#include "platform/ProcessRunner.hpp"
#include "records/CommitRecord.hpp"
#include "records/RepoSnapshot.hpp"

namespace quorvane {

// One local branch with its standing against its upstream. Not persisted.
struct LocalBranchInfo {
    std::string name;
    std::optional<std::string> upstream;
    int ahead = 0;   // 0 without an upstream
    int behind = 0;  // 0 without an upstream
    std::optional<std::string> lastSha;
    std::optional<Date> lastDate;  // committer date of the tip
    // Commits a push would still have to send: `ahead` with an upstream; without one,
    // those of the branch that no remote-tracking branch holds.
    int unpushed = 0;
    // Its tip is in the default branch, so deleting it loses no commit; never said
    // of the default branch itself.
    bool merged = false;

    bool operator==(const LocalBranchInfo&) const = default;
};

// What one reading of a repository gives: the snapshot and today's commits, equal
// field by field to what `scan` and `logCommits` give, and what the next reading
// may reuse.
struct RepoReading {
    RepoSnapshot snapshot;
    std::vector<CommitRecord> commits;
    std::optional<ScanMemo> memo;  // nothing when the repository was read the slow way
};

// Reads one working tree through a fixed series of read-only git commands. It
// never writes to a repository and never fails: a repository it cannot read gives
// a snapshot whose `error` says why. Safe to use for many repositories at once.
class GitScanner {
public:
    // Once `cancellation` (when given) is cancelled, no further child starts and the
    // running one is stopped: what the scanner returns then is incomplete, and the
    // caller is expected to discard it.
    GitScanner(const ProcessRunner& runner, const Clock& clock,
               const Cancellation* cancellation = nullptr)
        : runner_(runner), clock_(clock), cancellation_(cancellation) {}

    RepoSnapshot scan(const std::string& path, bool ignoreUntracked) const;

    // The snapshot and today's commits (`since` as for logCommits, no branch), read
    // with as few children as `previous` allows: one `git status` when nothing it
    // depends on changed, at most three for a repository seen for the first time
    // with no commit today. Whatever cannot be read this way, such as a folder that
    // is not a work tree, is read through `scan` and `logCommits`.
    RepoReading read(const std::string& path, bool ignoreUntracked, const std::string& since,
                     const ScanMemo* previous) const;

    // Commits reachable from HEAD (or `branch`) since `sinceArg`, newest first.
    // When there are 1 to 50, each is checked against the remote-tracking branches
    // to set `isLocalOnly`; with more, none is checked, to bound the children a scan starts.
    std::vector<CommitRecord> logCommits(const std::string& path, const std::string& sinceArg,
                                         const std::optional<std::string>& branch) const;

    // The day's commits as every scan records them, read the literal way: every
    // commit since `sinceArg` on any local branch (and on HEAD when `detached`),
    // newest first, each with the branch it was first reached from, and with 1 to
    // 50 of them each checked against the remote-tracking branches.
    std::vector<CommitRecord> todaysCommits(const std::string& path, const std::string& sinceArg,
                                            bool detached) const;

    // Every commit on a local branch since `sinceArg`, newest first, each with the
    // branch it was first reached from and marked local when no remote-tracking
    // branch holds it. `hasRemoteBranches` false says there is none to check against,
    // which saves a child: every commit is then local.
    std::vector<CommitRecord> historyCommits(const std::string& path, const std::string& sinceArg,
                                             bool hasRemoteBranches = true) const;

    // `git status --porcelain=v1` of the work tree, with the filter drivers of the
    // repository's own configuration switched off; nothing when git could not
    // answer, as in a folder that is not a work tree.
    std::optional<std::string> porcelainStatus(const std::string& path, bool ignoreUntracked) const;

    // The local branches in the order git lists them, with ahead, behind and unpushed
    // counts, and which of them `defaultBranch` (when given and present) holds.
    std::vector<LocalBranchInfo> localBranches(const std::string& path,
                                               const std::string& defaultBranch = "") const;

    // The `--since` argument for the local midnight before `now`, in UTC.
    static std::string startOfDayArgument(Date now);

    static constexpr size_t kMaxContainsChecks = 50;

private:
    // The log of the day's commits on every local branch, in kHistoryFormat.
    static std::vector<std::string> todaysLog(const std::string& since, bool detached);
    ShellResult git(const std::string& path, std::vector<std::string> arguments,
                    double timeout) const;
    ShellResult run(ProcessRequest request) const;
    // `git status` with the filter drivers of the repository's own configuration
    // switched off, or nothing when they cannot be listed.
    std::optional<ShellResult> statusWithoutFilters(const std::string& path,
                                                    std::vector<std::string> arguments) const;
    RepoReading readLiterally(const std::string& path, bool ignoreUntracked,
                              const std::string& since) const;
    // Sets isLocalOnly on 1 to 50 commits with one rev-list, as logCommits would.
    void markUnpushed(const std::string& path, const std::string& since,
                      std::vector<CommitRecord>& commits) const;
    std::optional<Date> newestChangeTime(std::string_view porcelain, const std::string& path,
                                         Date now) const;

    const ProcessRunner& runner_;
    const Clock& clock_;
    const Cancellation* cancellation_;
};

}  // namespace quorvane
