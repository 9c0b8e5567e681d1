#include "git/GitScanner.hpp"

#include <sys/stat.h>

#include <time.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <set>

#include "base/PathHelpers.hpp"
#include "base/RemoteURL.hpp"
#include "base/TextHelpers.hpp"
#include "base/Uuid.hpp"
#include "git/GitCommand.hpp"
#include "git/GitConfigListing.hpp"
#include "git/GitParsing.hpp"

namespace quorvane {

namespace {

constexpr size_t kMaxErrorLength = 200;
constexpr std::string_view kNotAWorkTree = "Not a git working tree";

// Cuts to at most `limit` characters without splitting a UTF-8 sequence.
std::string firstCharacters(std::string_view text, size_t limit) {
    size_t count = 0, pos = 0;
    while (pos < text.size() && count < limit) {
        unsigned char lead = static_cast<unsigned char>(text[pos]);
        size_t length = lead < 0x80    ? 1
                        : lead >= 0xF0 ? 4
                        : lead >= 0xE0 ? 3
                        : lead >= 0xC0 ? 2
                                       : 1;
        pos += length;
        ++count;
    }
    return std::string(text.substr(0, std::min(pos, text.size())));
}

std::optional<std::string> unlessEmpty(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

constexpr std::string_view kLocalBranchPrefix = "refs/heads/";

// A ref as people write it: "origin/main" for a remote-tracking branch, "main" for
// a local one, anything else in full.
std::string shortRefName(std::string_view ref) {
    for (std::string_view prefix : {std::string_view("refs/remotes/"), kLocalBranchPrefix}) {
        if (ref.starts_with(prefix) && ref.size() > prefix.size()) {
            return std::string(ref.substr(prefix.size()));
        }
    }
    return std::string(ref);
}

// The addresses `git config --get-all user.email` printed, one a line, blanks left out.
std::vector<std::string> userEmailsOf(std::string_view output) {
    std::vector<std::string> emails;
    for (std::string_view line : Text::nonEmptyLines(output)) {
        std::string_view email = Text::trim(line);
        if (!email.empty()) emails.emplace_back(email);
    }
    return emails;
}

RepoSnapshot failureSnapshot(std::string repoID, Date now, std::string error) {
    RepoSnapshot snapshot;
    snapshot.id = newUUID();
    snapshot.repoID = std::move(repoID);
    snapshot.capturedAt = now;
    snapshot.error = std::move(error);
    return snapshot;
}

}  // namespace

ShellResult GitScanner::git(const std::string& path, std::vector<std::string> arguments,
                            double timeout) const {
    return run(GitCommand::request(path, std::move(arguments), timeout, cancellation_));
}

ShellResult GitScanner::run(ProcessRequest request) const {
    if (cancellation_ != nullptr && cancellation_->isCancelled()) {
        return ShellResult{"", "not started: cancelled", -1};
    }
    return runner_.run(request);
}

std::optional<ShellResult> GitScanner::statusWithoutFilters(
    const std::string& path, std::vector<std::string> arguments) const {
    // A racily clean or touched file is compared with the index by content, which
    // runs the clean filter its attributes name. A repository can name a program of
    // its own there, so its drivers are switched off; the user's own (global) ones,
    // such as a large-file filter, stay.
    ShellResult drivers = git(path, GitCommand::filterDriverQuery(), 15);
    bool noneDefined = drivers.exitCode == 1 && drivers.stdOut.empty();
    if (!drivers.succeeded() && !noneDefined) return std::nullopt;
    ProcessRequest request = GitCommand::request(path, std::move(arguments), 30, cancellation_);
    GitCommand::disableFilterDrivers(request, GitCommand::repositoryFilterDrivers(drivers.stdOut));
    return run(std::move(request));
}

std::optional<std::string> GitScanner::porcelainStatus(const std::string& path,
                                                       bool ignoreUntracked) const {
    std::vector<std::string> arguments = {"status", "--porcelain=v1"};
    if (ignoreUntracked) arguments.emplace_back("--untracked-files=no");
    // Looking inside a submodule's work tree means a git status there, under that
    // submodule's own configuration; a submodule still counts when it moved to
    // another commit.
    arguments.emplace_back("--ignore-submodules=dirty");
    std::optional<ShellResult> status = statusWithoutFilters(path, std::move(arguments));
    if (!status || !status->succeeded()) return std::nullopt;
    return std::move(status->stdOut);
}

std::string GitScanner::startOfDayArgument(Date now) {
    return DateHelpers::isoString(DateHelpers::startOfDay(now));
}

RepoSnapshot GitScanner::scan(const std::string& path, bool ignoreUntracked) const {
    std::string repoID = PathHelpers::canonicalPath(path);
    Date now = clock_.now();

    ShellResult inside = git(path, {"rev-parse", "--is-inside-work-tree"}, 15);
    if (!inside.succeeded()) {
        std::string text = firstCharacters(Text::trim(inside.stdErr), kMaxErrorLength);
        return failureSnapshot(repoID, now, text.empty() ? std::string(kNotAWorkTree) : text);
    }
    if (Text::trim(inside.stdOut) != "true") {
        return failureSnapshot(repoID, now, std::string(kNotAWorkTree));
    }

    RepoSnapshot snapshot;
    snapshot.id = newUUID();
    snapshot.repoID = repoID;
    snapshot.capturedAt = now;

    ShellResult branch = git(path, {"branch", "--show-current"}, 15);
    if (branch.succeeded()) snapshot.branch = std::string(Text::trim(branch.stdOut));

    ShellResult remote = git(path, {"remote", "get-url", "origin"}, 15);
    if (remote.succeeded() && !Text::trim(remote.stdOut).empty()) {
        snapshot.remoteURL = RemoteURL::withoutCredentials(Text::trim(remote.stdOut));
    }

    snapshot.hasUpstream =
        git(path, {"rev-parse", "--abbrev-ref", "--symbolic-full-name", "@{u}"}, 15).succeeded();

    if (std::optional<std::string> status = porcelainStatus(path, ignoreUntracked)) {
        snapshot.files = GitParsing::fileCounts(*status, ignoreUntracked);
        snapshot.lastWorkingTreeChangeAt = newestChangeTime(*status, path, now);
    }

    if (snapshot.hasUpstream) {
        ShellResult counts = git(path, {"rev-list", "--left-right", "--count", "@{u}...HEAD"}, 20);
        if (counts.succeeded()) {
            GitParsing::AheadBehind standing = GitParsing::aheadBehind(counts.stdOut);
            snapshot.ahead = standing.ahead;
            snapshot.behind = standing.behind;
        }
    }

    snapshot.isDetachedHead = snapshot.branch.empty();
    // The same commits the day's log reads, one name a line.
    std::vector<std::string> today = {"log", "--branches"};
    if (snapshot.isDetachedHead) today.emplace_back("HEAD");
    today.insert(today.end(), {"--since=" + startOfDayArgument(now), "--pretty=%H"});
    ShellResult todays = git(path, std::move(today), 20);
    if (todays.succeeded()) {
        snapshot.commitsToday = static_cast<int>(Text::nonEmptyLines(todays.stdOut).size());
    }

    // Who commits here: git reads the addresses of every scope, none being no error.
    ShellResult emails = git(path, {"config", "--get-all", "user.email"}, 15);
    if (emails.succeeded()) snapshot.userEmails = userEmailsOf(emails.stdOut);

    ShellResult last = git(path, {"log", "-1", "-z", GitParsing::kLastCommitFormat}, 15);
    if (last.succeeded()) {
        // No commits yet gives no record: the normal state of a new repository.
        auto records = GitParsing::nulRecords(last.stdOut, 4);
        if (records.size() == 1 && GitParsing::isObjectName(records[0][0])) {
            snapshot.lastCommitSha = std::string(records[0][0]);
            snapshot.lastCommitAt = GitParsing::commitDate(records[0][1], records[0][2]);
            snapshot.lastCommitMessage = std::string(records[0][3]);
        }
    }

    return snapshot;
}

RepoReading GitScanner::readLiterally(const std::string& path, bool ignoreUntracked,
                                      const std::string& since) const {
    RepoReading reading;
    reading.snapshot = scan(path, ignoreUntracked);
    reading.commits = todaysCommits(path, since, reading.snapshot.isDetachedHead);
    return reading;
}

RepoReading GitScanner::read(const std::string& path, bool ignoreUntracked,
                             const std::string& since, const ScanMemo* previous) const {
    namespace fs = std::filesystem;
    std::string repoID = PathHelpers::canonicalPath(path);
    Date now = clock_.now();
    if (previous != nullptr && previous->repoID != repoID) previous = nullptr;
    // One log answers both today's count and today's commits only when they are
    // counted from the same midnight; across one, read the slow way.
    if (since != startOfDayArgument(now)) return readLiterally(path, ignoreUntracked, since);

    // The configuration: reused while none of the files it came from changed.
    ScanMemo memo;
    memo.repoID = repoID;
    memo.since = since;
    bool configFresh = previous != nullptr && !previous->configFiles.empty() &&
                       ScanMemo::stamp([&] {
                           std::vector<std::string> paths;
                           for (const auto& file : previous->configFiles)
                               paths.push_back(file.path);
                           return paths;
                       }()) == previous->configFiles;
    if (configFresh) {
        memo.configFiles = previous->configFiles;
        memo.filterDrivers = previous->filterDrivers;
        memo.remoteURL = previous->remoteURL;
        memo.quotePath = previous->quotePath;
        memo.commonDir = previous->commonDir;
        memo.userEmails = previous->userEmails;
    } else {
        struct timespec started {};
        ::clock_gettime(CLOCK_REALTIME, &started);
        ShellResult query = git(path, GitConfigListing::query(), 15);
        bool nothingMatched = query.exitCode == 1 && query.stdOut.empty();
        std::optional<GitConfigListing> listing = query.succeeded() || nothingMatched
                                                      ? GitConfigListing::parse(query.stdOut)
                                                      : std::nullopt;
        if (!listing) return readLiterally(path, ignoreUntracked, since);
        memo.filterDrivers = listing->repositoryFilterDrivers();
        memo.quotePath = listing->quotePath();
        memo.userEmails = listing->userEmails();
        std::optional<std::string> localConfig = listing->localConfigFile(path);
        if (localConfig) memo.commonDir = fs::path(*localConfig).parent_path().string();
        memo.remoteURL = listing->originURL();
        if (memo.remoteURL) memo.remoteURL = RemoteURL::withoutCredentials(*memo.remoteURL);
        bool hasOriginURL = std::any_of(listing->entries.begin(), listing->entries.end(),
                                        [](const auto& e) { return e.key == "remote.origin.url"; });
        // A remote can also be named by a file of the older layouts, which only
        // git itself reads.
        bool legacyRemote = !localConfig ||
                            fs::exists(fs::path(memo.commonDir) / "remotes" / "origin") ||
                            fs::exists(fs::path(memo.commonDir) / "branches" / "origin");
        if (!hasOriginURL && legacyRemote) {
            ShellResult remote = git(path, {"remote", "get-url", "origin"}, 15);
            memo.remoteURL = std::nullopt;
            if (remote.succeeded() && !Text::trim(remote.stdOut).empty()) {
                memo.remoteURL = RemoteURL::withoutCredentials(Text::trim(remote.stdOut));
            }
        }
        // Kept only when every file it depends on is known and none changed while it
        // was read; otherwise the next scan asks again.
        if (localConfig && !listing->includesOnBranch() && !listing->usesWorktreeConfig() &&
            !legacyRemote) {
            std::vector<std::string> files = ScanMemo::userConfigFiles();
            for (std::string& file : listing->sourceFiles(path)) files.push_back(std::move(file));
            files.push_back(*localConfig);
            memo.configFiles = ScanMemo::stamp(files);
            long long startedNs =
                static_cast<long long>(started.tv_sec) * 1'000'000'000LL + started.tv_nsec;
            for (const auto& file : memo.configFiles) {
                if (file.exists && file.changedNs >= startedNs) memo.configFiles.clear();
            }
        }
    }

    // Branch, upstream, standing and every count from one status.
    std::vector<std::string> arguments = {"status", "--porcelain=v2", "--branch", "-z",
                                          "--ahead-behind"};
    if (ignoreUntracked) arguments.emplace_back("--untracked-files=no");
    arguments.emplace_back("--ignore-submodules=dirty");
    ProcessRequest request = GitCommand::request(path, std::move(arguments), 30, cancellation_);
    GitCommand::disableFilterDrivers(request, memo.filterDrivers);
    ShellResult status = run(std::move(request));
    // Not a work tree, or a repository git cannot read: the slow way words the
    // error exactly as a scan always has.
    if (!status.succeeded()) return readLiterally(path, ignoreUntracked, since);
    std::optional<GitParsing::StatusV2> parsed = GitParsing::parseStatusV2(status.stdOut);
    if (!parsed) return readLiterally(path, ignoreUntracked, since);

    RepoReading reading;
    RepoSnapshot& snapshot = reading.snapshot;
    snapshot.id = newUUID();
    snapshot.repoID = repoID;
    snapshot.capturedAt = now;
    snapshot.branch = parsed->head == "(detached)" ? std::string() : parsed->head;
    snapshot.remoteURL = memo.remoteURL;
    // An upstream whose ref is gone is configured but cannot be resolved.
    snapshot.hasUpstream = parsed->upstream.has_value() && parsed->aheadBehind.has_value();
    if (snapshot.hasUpstream) {
        snapshot.ahead = parsed->aheadBehind->ahead;
        snapshot.behind = parsed->aheadBehind->behind;
    }
    std::string listing = GitParsing::porcelainV1(*parsed, memo.quotePath);
    snapshot.files = GitParsing::fileCounts(listing, ignoreUntracked);
    snapshot.lastWorkingTreeChangeAt = newestChangeTime(listing, path, now);
    snapshot.isDetachedHead = snapshot.branch.empty();
    snapshot.userEmails = memo.userEmails;

    // The newest commit: unchanged while HEAD is.
    memo.headOid = parsed->oid;
    bool headFresh = configFresh && previous->headOid == memo.headOid;
    if (headFresh) {
        memo.lastCommitSha = previous->lastCommitSha;
        memo.lastCommitMessage = previous->lastCommitMessage;
        memo.lastCommitAt = previous->lastCommitAt;
    } else if (memo.headOid != "(initial)") {
        ShellResult head =
            git(path, {"log", "-1", "-z", "--pretty=%H%x00%aI%x00%cI%x00%ct%x00%s"}, 15);
        auto records = GitParsing::nulRecords(head.stdOut, 5);
        long long committed = 0;
        if (!head.succeeded() || records.size() != 1 || !GitParsing::isObjectName(records[0][0]) ||
            !Text::parseInt(records[0][3], committed)) {
            return readLiterally(path, ignoreUntracked, since);
        }
        memo.lastCommitSha = std::string(records[0][0]);
        memo.lastCommitAt = GitParsing::commitDate(records[0][1], records[0][2]);
        memo.lastCommitMessage = std::string(records[0][4]);
    }
    snapshot.lastCommitSha = memo.lastCommitSha;
    snapshot.lastCommitMessage = memo.lastCommitMessage;
    snapshot.lastCommitAt = memo.lastCommitAt;

    // Today's commits on every local branch, and which of them no remote holds:
    // unchanged while the day, HEAD and every branch and remote-tracking ref are.
    memo.refsFingerprint =
        memo.commonDir.empty() ? std::string() : ScanMemo::refsFingerprintOf(memo.commonDir);
    bool todayFresh = headFresh && previous->since == since && !memo.refsFingerprint.empty() &&
                      previous->refsFingerprint == memo.refsFingerprint;
    if (todayFresh) {
        memo.todaysCommits = previous->todaysCommits;
    } else {
        ShellResult log = git(path, todaysLog(since, snapshot.isDetachedHead), 30);
        if (!log.succeeded()) return readLiterally(path, ignoreUntracked, since);
        memo.todaysCommits = GitParsing::historyCommits(log.stdOut, repoID);
        markUnpushed(path, since, memo.todaysCommits);
    }
    memo.commitsToday = static_cast<int>(memo.todaysCommits.size());
    snapshot.commitsToday = memo.commitsToday;
    reading.commits = memo.todaysCommits;
    reading.memo = std::move(memo);
    return reading;
}

void GitScanner::markUnpushed(const std::string& path, const std::string& since,
                              std::vector<CommitRecord>& commits) const {
    if (commits.empty() || commits.size() > kMaxContainsChecks) return;
    // One walk answers for all of them what `branch -r --contains` answers for one:
    // a commit is listed exactly when no remote-tracking ref reaches it. The age
    // limit keeps the walk to today's commits when there is no remote at all.
    std::vector<std::string> arguments = {"rev-list", "--since=" + since};
    for (const CommitRecord& commit : commits) arguments.push_back(commit.sha);
    arguments.emplace_back("--not");
    arguments.emplace_back("--remotes");
    ShellResult listing = git(path, arguments, 20);
    if (!listing.succeeded()) return;
    std::set<std::string_view> local;
    for (std::string_view line : Text::nonEmptyLines(listing.stdOut)) {
        local.insert(Text::trim(line));
    }
    for (CommitRecord& commit : commits) commit.isLocalOnly = local.contains(commit.sha);
}

std::optional<Date> GitScanner::newestChangeTime(std::string_view porcelain,
                                                 const std::string& path, Date now) const {
    std::filesystem::path root(PathHelpers::expandTilde(path));
    std::optional<Date> newest;
    for (const std::string& relative : GitParsing::changedPaths(porcelain)) {
        std::filesystem::path file = root / relative;
        struct stat info {};
        if (::lstat(file.c_str(), &info) != 0) continue;  // deleted, or an escaped name
        Date modified{std::chrono::seconds(info.st_mtim.tv_sec)};
        if (modified > now) continue;  // a clock skew or a file from the future says nothing
        if (!newest || modified > *newest) newest = modified;
    }
    return newest;
}

std::vector<CommitRecord> GitScanner::logCommits(const std::string& path,
                                                 const std::string& sinceArg,
                                                 const std::optional<std::string>& branch) const {
    std::string repoID = PathHelpers::canonicalPath(path);
    std::string branchName = branch.value_or("");
    std::vector<std::string> arguments = {"log", "-z", "--since=" + sinceArg,
                                          GitParsing::kCommitFormat};
    if (!branchName.empty()) {
        arguments.emplace_back("--end-of-options");
        arguments.push_back(branchName);
    }
    ShellResult log = git(path, arguments, 30);
    if (!log.succeeded()) return {};

    std::vector<CommitRecord> records = GitParsing::commits(log.stdOut, repoID, branchName);
    if (records.empty() || records.size() > kMaxContainsChecks) return records;
    for (CommitRecord& record : records) {
        ShellResult contains = git(path, {"branch", "-r", "--contains", record.sha}, 10);
        if (contains.succeeded()) record.isLocalOnly = Text::trim(contains.stdOut).empty();
    }
    return records;
}

std::vector<std::string> GitScanner::todaysLog(const std::string& since, bool detached) {
    // Every local branch, and HEAD too when it is on none: a commit counts from
    // whichever branch it was made on. Each is listed once, with the branch it was
    // first reached from.
    std::vector<std::string> arguments = {"log", "-z", "--branches"};
    if (detached) arguments.emplace_back("HEAD");
    arguments.insert(arguments.end(), {"--source", "--since=" + since, GitParsing::kHistoryFormat});
    return arguments;
}

std::vector<CommitRecord> GitScanner::todaysCommits(const std::string& path,
                                                    const std::string& sinceArg,
                                                    bool detached) const {
    ShellResult log = git(path, todaysLog(sinceArg, detached), 30);
    if (!log.succeeded()) return {};
    std::vector<CommitRecord> records =
        GitParsing::historyCommits(log.stdOut, PathHelpers::canonicalPath(path));
    if (records.empty() || records.size() > kMaxContainsChecks) return records;
    for (CommitRecord& record : records) {
        ShellResult contains = git(path, {"branch", "-r", "--contains", record.sha}, 10);
        if (contains.succeeded()) record.isLocalOnly = Text::trim(contains.stdOut).empty();
    }
    return records;
}

std::vector<CommitRecord> GitScanner::historyCommits(const std::string& path,
                                                     const std::string& sinceArg,
                                                     bool hasRemoteBranches) const {
    std::string repoID = PathHelpers::canonicalPath(path);
    ShellResult log = git(
        path,
        {"log", "-z", "--branches", "--source", "--since=" + sinceArg, GitParsing::kHistoryFormat},
        60);
    if (!log.succeeded()) return {};
    std::vector<CommitRecord> records = GitParsing::historyCommits(log.stdOut, repoID);
    if (records.empty()) return records;
    if (!hasRemoteBranches) {
        for (CommitRecord& record : records) record.isLocalOnly = true;
        return records;
    }
    // One listing marks every commit that no remote-tracking branch holds, where a
    // question per commit would cost a child each.
    ShellResult unpushed =
        git(path, {"rev-list", "--branches", "--not", "--remotes", "--since=" + sinceArg}, 60);
    if (unpushed.succeeded()) {
        std::set<std::string_view> local;
        for (std::string_view line : Text::nonEmptyLines(unpushed.stdOut)) {
            local.insert(Text::trim(line));
        }
        for (CommitRecord& record : records) record.isLocalOnly = local.contains(record.sha);
    }
    return records;
}

std::vector<LocalBranchInfo> GitScanner::localBranches(const std::string& path,
                                                       const std::string& defaultBranch) const {
    // Full ref names only: a repository chooses its branch and upstream names, and a
    // short name such as "--output=FILE" would read as an option to the rev-list
    // below, where "refs/..." never can.
    ShellResult listing = git(path,
                              {"for-each-ref",
                               "--format=%(refname)%00%(upstream)%00%(objectname)%00%("
                               "committerdate:iso-strict)",
                               "refs/heads"},
                              20);
    if (!listing.succeeded()) return {};

    std::vector<LocalBranchInfo> branches;
    for (std::string_view line : Text::nonEmptyLines(listing.stdOut)) {
        std::vector<std::string> fields;
        size_t start = 0;
        while (true) {
            size_t end = line.find('\0', start);
            fields.emplace_back(
                line.substr(start, end == std::string_view::npos ? end : end - start));
            if (end == std::string_view::npos) break;
            start = end + 1;
        }
        if (fields.size() != 4 || !fields[0].starts_with(kLocalBranchPrefix)) continue;

        // An upstream that is not a ref (a merge setting of "." taken literally) names
        // nothing git could count against.
        const std::string& upstream = fields[1];
        bool countable = upstream.starts_with("refs/");
        LocalBranchInfo info{fields[0].substr(kLocalBranchPrefix.size()),
                             countable ? std::optional(shortRefName(upstream)) : std::nullopt,
                             0,
                             0,
                             unlessEmpty(fields[2]),
                             GitParsing::parseISODate(fields[3])};
        if (countable) {
            ShellResult counts = git(path,
                                     {"rev-list", "--left-right", "--count", "--end-of-options",
                                      upstream + "..." + fields[0]},
                                     15);
            if (counts.succeeded()) {
                GitParsing::AheadBehind standing = GitParsing::aheadBehind(counts.stdOut);
                info.ahead = standing.ahead;
                info.behind = standing.behind;
            }
            info.unpushed = info.ahead;
        } else {
            // A branch never pushed with -u may still be on a remote under another
            // name: only what no remote-tracking branch holds is still to push. The
            // second --not turns the remotes' exclusion off again for the branch,
            // which comes after the end of options like every name read above.
            ShellResult counts = git(path,
                                     {"rev-list", "--count", "--not", "--remotes", "--not",
                                      "--end-of-options", fields[0]},
                                     15);
            long long count = 0;
            if (counts.succeeded() && Text::parseInt(Text::trim(counts.stdOut), count) &&
                count >= 0 && count <= INT_MAX) {
                info.unpushed = static_cast<int>(count);
            }
        }
        branches.push_back(std::move(info));
    }
    // Asked by the default branch's commit as listed above, so that no name of the
    // repository's choosing reaches git's options; a default branch that is not
    // here holds nothing.
    auto target = std::find_if(branches.begin(), branches.end(), [&](const LocalBranchInfo& b) {
        return b.name == defaultBranch && b.lastSha;
    });
    if (defaultBranch.empty() || target == branches.end()) return branches;
    ShellResult merged = git(
        path, {"for-each-ref", "--format=%(refname)", "--merged=" + *target->lastSha, "refs/heads"},
        20);
    if (!merged.succeeded()) return branches;
    std::set<std::string, std::less<>> holding;
    for (std::string_view line : Text::nonEmptyLines(merged.stdOut)) holding.emplace(line);
    for (LocalBranchInfo& info : branches) {
        info.merged = info.name != defaultBranch &&
                      holding.contains(std::string(kLocalBranchPrefix) + info.name);
    }
    return branches;
}

}  // namespace quorvane
