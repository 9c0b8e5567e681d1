#include "git/GitScanner.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include "git/GitCommand.hpp"
#include "platform/Shell.hpp"
#include "testing/FakeClock.hpp"
#include "testing/FakeProcessRunner.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane {
namespace {

using ::testing::Contains;
using testing::FakeProcessRunner;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pair;
using testing::TestRepo;

ShellResult ok(std::string out) {
    return ShellResult{std::move(out), "", 0};
}

// Fields as `git log -z` prints them: each one ended by a NUL.
std::string nulFields(const std::vector<std::string>& fields) {
    std::string out;
    for (const std::string& field : fields) out += field + '\0';
    return out;
}

const std::string kSha(40, 'a');

// Answers like a repository on branch "main" with an upstream, one staged file and
// two commits today; `branchAnswer` replaces the answer to "branch --show-current".
ShellResult healthyRepo(const ProcessRequest& request,
                        std::optional<ShellResult> branchAnswer = {}) {
    const auto& a = request.arguments;
    if (a[0] == "rev-parse" && a[1] == "--is-inside-work-tree") return ok("true\n");
    if (a[0] == "config") return ShellResult{"", "", 1};  // no filter driver defined
    if (a[0] == "branch") return branchAnswer.value_or(ok("main\n"));
    if (a[0] == "remote") return ok("git@example.org:me/app.git\n");
    if (a[0] == "rev-parse") return ok("origin/main\n");
    if (a[0] == "status") return ok("A  new.txt\n");
    if (a[0] == "rev-list") return ok("1\t2\n");
    if (a[0] == "log" && a[1] == "-1") {
        return ok(nulFields(
            {kSha, "2026-11-21T09:00:00Z", "2026-11-21T09:00:00Z", "Subject | with pipe"}));
    }
    if (a[0] == "log") return ok("abc\ndef\n");
    return ShellResult{"", "unexpected", 1};
}

class GitScannerTest : public ::testing::Test {
protected:
    testing::FakeClock clock_{*DateHelpers::parseISO("2026-11-21T12:00:00Z")};
    Shell shell_;
};

TEST_F(GitScannerTest, EveryChildIsAReadOnlyGitThatCannotPromptOrLock) {
    FakeProcessRunner runner([](const ProcessRequest& r) { return healthyRepo(r); });
    // What each answer means is compared with real repositories by ScanDifferentialTest.
    RepoSnapshot snapshot = GitScanner(runner, clock_).scan("/work/app", true);
    EXPECT_EQ(snapshot.capturedAt, clock_.now());
    EXPECT_FALSE(snapshot.error.has_value());
    std::vector<ProcessRequest> requests = runner.requests();
    ASSERT_EQ(requests.size(), 10u);
    for (const ProcessRequest& request : requests) {
        EXPECT_EQ(request.executable, "/usr/bin/git");
        EXPECT_EQ(request.cwd, "/work/app");
        EXPECT_FALSE(request.standardInput.has_value());
        EXPECT_THAT(request.environment, Contains(Pair("GIT_OPTIONAL_LOCKS", "0")));
        EXPECT_THAT(request.environment, Contains(Pair("GIT_TERMINAL_PROMPT", "0")));
    }
    EXPECT_THAT(runner.commandLines(),
                Contains("status --porcelain=v1 --untracked-files=no --ignore-submodules=dirty"));
    EXPECT_THAT(runner.commandLines(),
                Contains("log --branches --since=2026-11-21T00:00:00Z --pretty=%H"));
}

TEST_F(GitScannerTest, AFailedBranchReadCountsAsDetachedAndSkipsNothingElse) {
    FakeProcessRunner runner([](const ProcessRequest& r) {
        return healthyRepo(r, ShellResult{"", "fatal: boom", 128});
    });
    RepoSnapshot snapshot = GitScanner(runner, clock_).scan("/work/app", false);
    EXPECT_EQ(snapshot.branch, "");
    EXPECT_TRUE(snapshot.isDetachedHead);
    EXPECT_FALSE(snapshot.error.has_value());
    EXPECT_EQ(runner.requests().size(), 10u);
}

TEST_F(GitScannerTest, TheWorkTreeCheckAloneEndsAScanWithAnErrorText) {
    auto scanWith = [&](ShellResult answer) {
        FakeProcessRunner runner([answer](const ProcessRequest&) { return answer; });
        RepoSnapshot snapshot = GitScanner(runner, clock_).scan("/work/app", false);
        EXPECT_EQ(runner.requests().size(), 1u);
        EXPECT_EQ(snapshot.branch, "");
        EXPECT_FALSE(snapshot.isDetachedHead);
        EXPECT_FALSE(snapshot.lastCommitSha.has_value());
        return snapshot.error.value_or("<none>");
    };
    EXPECT_EQ(scanWith(ShellResult{"", "  fatal: not a git repository\n", 128}),
              "fatal: not a git repository");
    EXPECT_EQ(scanWith(ShellResult{"", " \n", 128}), "Not a git working tree");
    EXPECT_EQ(scanWith(ok("false\n")), "Not a git working tree");
    std::string longText = "é" + std::string(300, 'x');
    EXPECT_EQ(scanWith(ShellResult{"", longText, 1}), "é" + std::string(199, 'x'));
}

TEST_F(GitScannerTest, LogCommitsMarksWhatNoRemoteBranchContains) {
    testing::TempDir dir;
    TestRepo origin(dir / "origin.git", TestRepo::Kind::bare);
    TestRepo seed = TestRepo::cloneOf(origin, dir / "seed");
    seed.commitFile("a.txt", "a", "pushed");
    seed.git({"push", "-q", "origin", "main"});
    TestRepo repo = TestRepo::cloneOf(origin, dir / "work");
    std::string local = repo.commitFile("b.txt", "b", "local only");

    std::vector<CommitRecord> commits =
        GitScanner(shell_, clock_).logCommits(repo.path(), "2000-01-01T00:00:00Z", std::nullopt);
    ASSERT_EQ(commits.size(), 2u);
    EXPECT_EQ(std::tuple(commits[0].sha, commits[0].isLocalOnly, commits[0].branch),
              std::tuple(local, true, std::string()));
    EXPECT_EQ(commits[0].repoID, repo.path().string());
    EXPECT_FALSE(commits[1].isLocalOnly);

    std::vector<CommitRecord> onBranch =
        GitScanner(shell_, clock_).logCommits(repo.path(), "2000-01-01T00:00:00Z", "origin/main");
    ASSERT_EQ(onBranch.size(), 1u);
    EXPECT_EQ(onBranch[0].branch, "origin/main");

    EXPECT_TRUE(GitScanner(shell_, clock_)
                    .logCommits((dir / "missing").string(), "2000-01-01T00:00:00Z", std::nullopt)
                    .empty());

    // History is marked the same way, with the branch each commit was reached from.
    repo.git({"checkout", "-q", "-b", "topic"});
    std::string topic = repo.commitFile("c.txt", "c", "on topic");
    std::vector<CommitRecord> history =
        GitScanner(shell_, clock_).historyCommits(repo.path(), "2000-01-01T00:00:00Z");
    ASSERT_EQ(history.size(), 3u);
    for (const CommitRecord& commit : history) {
        EXPECT_EQ(commit.isLocalOnly, commit.message != "pushed") << commit.message;
        if (commit.sha == topic) {
            EXPECT_EQ(commit.branch, "topic");
        }
    }

    // Never fetched: everything is local, known without asking the remotes.
    TestRepo lone(dir / "lone");
    lone.commitFile("a.txt", "a", "alone");
    FakeProcessRunner counted([this](const ProcessRequest& r) { return shell_.run(r); });
    history =
        GitScanner(counted, clock_).historyCommits(lone.path(), "2000-01-01T00:00:00Z", false);
    ASSERT_EQ(history.size(), 1u);
    EXPECT_TRUE(history[0].isLocalOnly);
    EXPECT_EQ(counted.requests().size(), 1u);
}

TEST_F(GitScannerTest, NoNameOrSubjectCanForgeAnotherFieldInAnyLogFormat) {
    testing::TempDir dir;
    TestRepo repo(dir / "repo");
    repo.commitFile("a.txt", "a", "first");
    // A name is the author's free text: here it spells out the rest of a record.
    const std::string forger = "Eve|mallory@evil.example|1999-01-01T00:00:00Z|forged";
    repo.git({"commit", "-q", "--allow-empty", "--author", forger + " <eve@example.org>", "-m",
              "real | subject"});
    std::string sha = repo.gitLine({"rev-parse", "HEAD"});
    Date authored = *DateHelpers::parseISO(repo.gitLine({"log", "-1", "--format=%aI"}));

    auto expectGenuine = [&](const CommitRecord& commit, const char* where) {
        EXPECT_EQ(commit.sha, sha) << where;
        EXPECT_EQ(commit.authorName, forger) << where;
        EXPECT_EQ(commit.authorEmail, "eve@example.org") << where;
        EXPECT_EQ(commit.committedAt, authored) << where;
        EXPECT_EQ(commit.message, "real | subject") << where;
    };
    GitScanner scanner(shell_, clock_);
    std::vector<CommitRecord> today = scanner.logCommits(repo.path(), "2000-01-01T00:00:00Z", {});
    ASSERT_EQ(today.size(), 2u);
    expectGenuine(today[0], "log");
    std::vector<CommitRecord> history = scanner.historyCommits(repo.path(), "2000-01-01T00:00:00Z");
    ASSERT_EQ(history.size(), 2u);
    expectGenuine(history[0], "history");
    EXPECT_EQ(history[0].branch, "main");

    testing::FakeClock later(authored + std::chrono::hours(1));
    RepoSnapshot snapshot = GitScanner(shell_, later).scan(repo.path(), false);
    EXPECT_EQ(snapshot.lastCommitSha, sha);
    EXPECT_EQ(snapshot.lastCommitAt, authored);
    EXPECT_EQ(snapshot.lastCommitMessage, "real | subject");

    // An author line with a NUL in it, which git cannot read: the commit keeps its
    // committer's date rather than taking 1970's.
    Date committed = authored + std::chrono::minutes(30);
    std::string raw =
        "tree " + repo.gitLine({"rev-parse", "HEAD^{tree}"}) + "\nparent " + sha + "\nauthor Eve" +
        std::string(1, '\0') + "Forged <e@x> 1000000000 +0000\ncommitter Carol <c@x> " +
        std::to_string(committed.time_since_epoch().count()) + " +0000\n\nunreadable author\n";
    testing::writeFile(dir / "commit.txt", raw);
    std::string broken = repo.gitLine(
        {"hash-object", "-t", "commit", "-w", "--literally", (dir / "commit.txt").string()});
    repo.git({"update-ref", "HEAD", broken});
    testing::FakeClock sameDay(committed + std::chrono::minutes(1));
    GitScanner reader(shell_, sameDay);
    const std::string midnight = GitScanner::startOfDayArgument(sameDay.now());
    RepoReading fast = reader.read(repo.path(), false, midnight, nullptr);
    std::vector<std::pair<const char*, CommitRecord>> readings = {
        {"log", reader.logCommits(repo.path(), "2000-01-01T00:00:00Z", {}).at(0)},
        {"history", reader.historyCommits(repo.path(), "2000-01-01T00:00:00Z").at(0)},
        {"read", fast.commits.at(0)}};
    for (const auto& [where, commit] : readings) {
        EXPECT_EQ(commit.sha, broken) << where;
        EXPECT_EQ(commit.committedAt, committed) << where;
    }
    EXPECT_EQ(reader.scan(repo.path(), false).lastCommitAt, committed);
    EXPECT_EQ(fast.snapshot.lastCommitAt, committed);
}

TEST_F(GitScannerTest, MoreThanFiftyCommitsAreNotCheckedOneByOne) {
    auto logOf = [](int count) {
        std::string text;
        for (int i = 0; i < count; ++i) {
            std::string sha = fmt::format("{:040x}", i + 1);
            text += nulFields({sha, sha.substr(0, 7), "A", "a@x", "2026-11-21T09:00:00Z",
                               "2026-11-21T09:00:00Z", "c"});
        }
        return text;
    };
    for (int count : {50, 51}) {
        FakeProcessRunner runner([&](const ProcessRequest& r) {
            return r.arguments[0] == "log" ? ok(logOf(count)) : ok("");
        });
        auto commits = GitScanner(runner, clock_).logCommits("/r", "2026-11-21T00:00:00Z", {});
        ASSERT_EQ(commits.size(), static_cast<size_t>(count));
        bool checked = count <= 50;
        EXPECT_EQ(runner.requests().size(), checked ? 51u : 1u) << count;
        EXPECT_EQ(commits.back().isLocalOnly, checked) << count;
    }
}

TEST_F(GitScannerTest, LocalBranchesReportTheirStandingAgainstTheirUpstream) {
    testing::TempDir dir;
    TestRepo origin(dir / "origin.git", TestRepo::Kind::bare);
    TestRepo seed = TestRepo::cloneOf(origin, dir / "seed");
    seed.commitFile("a.txt", "a", "first");
    seed.git({"push", "-q", "origin", "main"});
    TestRepo repo = TestRepo::cloneOf(origin, dir / "work");
    seed.commitFile("a.txt", "b", "second");
    seed.git({"push", "-q", "origin", "main"});
    repo.git({"fetch", "-q"});
    repo.commitFile("c.txt", "c", "mine");
    repo.commitFile("d.txt", "d", "mine too");
    repo.git({"branch", "topic"});
    repo.git({"checkout", "-q", "--no-track", "-b", "spike", "origin/main"});
    repo.commitFile("e.txt", "e", "spiked");

    auto tip = [&](const char* branch) {
        return std::pair(
            std::optional(repo.gitLine({"rev-parse", branch})),
            DateHelpers::parseISO(repo.gitLine({"log", "-1", "--format=%cI", branch})));
    };
    auto [mainSha, mainDate] = tip("main");
    auto [spikeSha, spikeDate] = tip("spike");
    // Without an upstream, what no remote-tracking branch holds is still to push.
    EXPECT_EQ(GitScanner(shell_, clock_).localBranches(repo.path()),
              (std::vector<LocalBranchInfo>{{"main", "origin/main", 2, 1, mainSha, mainDate, 2},
                                            {"spike", std::nullopt, 0, 0, spikeSha, spikeDate, 1},
                                            {"topic", std::nullopt, 0, 0, mainSha, mainDate, 2}}));
    EXPECT_TRUE(GitScanner(shell_, clock_).localBranches((dir / "none").string()).empty());

    // Merged means held by the default branch: never the default branch itself, and
    // nothing when that branch is not here.
    auto mergedInto = [&](const std::string& defaultBranch) {
        std::vector<std::string> names;
        for (const LocalBranchInfo& b :
             GitScanner(shell_, clock_).localBranches(repo.path(), defaultBranch))
            if (b.merged) names.push_back(b.name);
        return names;
    };
    EXPECT_EQ(mergedInto("main"), std::vector<std::string>{"topic"});
    EXPECT_EQ(mergedInto("spike"), std::vector<std::string>{});
    EXPECT_EQ(mergedInto("trunk"), std::vector<std::string>{});
}

TEST_F(GitScannerTest, RacilyCleanFilesAreComparedByTheirBytesWithTheRepositorysFiltersOff) {
    testing::TempDir dir;
    TestRepo repo(dir / "repo");
    repo.write(".gitattributes", "*.txt filter=evil\n");
    repo.commitFile("a.txt", "aaaa", "first");
    // A filter of the repository's own that would make every file look changed.
    testing::writeFile(dir / "evil.sh", "#!/bin/sh\ntouch '" + (dir / "ran").string() +
                                            "'\ncat >/dev/null\necho zzzz\n");
    std::filesystem::permissions(dir / "evil.sh", std::filesystem::perms::owner_all);
    repo.git({"config", "filter.evil.clean", (dir / "evil.sh").string()});

    // A file whose time equals the index's cannot be trusted by its stat data, so
    // git compares its content.
    auto makeRacy = [&] {
        struct stat index {};
        ::stat((repo.path() / ".git/index").c_str(), &index);
        timespec times[2] = {index.st_mtim, index.st_mtim};
        ::utimensat(AT_FDCWD, (repo.path() / "a.txt").c_str(), times, 0);
    };
    makeRacy();
    EXPECT_EQ(GitScanner(shell_, clock_).scan(repo.path(), false).files.modified, 0);
    repo.write("a.txt", "bbbb");  // the same size
    makeRacy();
    EXPECT_EQ(GitScanner(shell_, clock_).scan(repo.path(), false).files.modified, 1);
    EXPECT_FALSE(std::filesystem::exists(dir / "ran"));
}

TEST_F(GitScannerTest, AScanNeverRewritesTheIndexNorLeavesALock) {
    testing::TempDir dir;
    TestRepo repo(dir / "repo");
    repo.commitFile("a.txt", "same", "first");
    auto indexIdentity = [&] {
        struct stat info {};
        ::stat((repo.path() / ".git/index").c_str(), &info);
        return std::pair(info.st_ino, info.st_mtim.tv_nsec + info.st_mtim.tv_sec * 1000000000L);
    };
    // Touching a file makes its cached stat data stale, which a plain `git status`
    // repairs by rewriting the index under index.lock.
    auto touch = [&] {
        std::filesystem::last_write_time(repo.path() / "a.txt",
                                         std::filesystem::file_time_type::clock::now());
    };
    touch();
    auto before = indexIdentity();
    repo.git({"status", "--porcelain"});
    ASSERT_NE(indexIdentity(), before)
        << "git no longer refreshes the index; the test proves nothing";

    touch();
    before = indexIdentity();
    testing::FakeClock clock(DateHelpers::parseISO("2030-01-01T00:00:00Z").value());
    RepoSnapshot snapshot = GitScanner(shell_, clock).scan(repo.path(), false);
    EXPECT_FALSE(snapshot.error.has_value());
    EXPECT_EQ(snapshot.files.total(), 0);
    EXPECT_EQ(indexIdentity(), before);
    EXPECT_FALSE(std::filesystem::exists(repo.path() / ".git/index.lock"));
}

}  // namespace
}  // namespace quorvane
