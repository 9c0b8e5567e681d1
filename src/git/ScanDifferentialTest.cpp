// The reading a scan does, with what it remembers from the previous scan, compared
// field by field with the literal command list, over real repositories in the
// states a user's repositories go through.
#include <atomic>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "git/GitScanner.hpp"
#include "platform/Clock.hpp"
#include "platform/Shell.hpp"
#include "testing/FakeClock.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane {
namespace {

using testing::TestRepo;
using namespace std::chrono_literals;

class CountingRunner final : public ProcessRunner {
public:
    ShellResult run(const ProcessRequest& request) const override {
        ++started;
        return shell_.run(request);
    }
    LaunchResult startDetached(const ProcessRequest& request) const override {
        ++started;
        return shell_.startDetached(request);
    }
    mutable std::atomic<int> started{0};

private:
    Shell shell_;
};

class ScanDifferentialTest : public ::testing::Test {
protected:
    // Reads `path` both ways, expects the same snapshot and commits, keeps what the
    // fast reading remembers for the next one, and returns its number of children.
    int readBoth(const TestRepo& repo, bool ignoreUntracked = false) {
        return readBoth(repo.path().string(), ignoreUntracked);
    }
    int readBoth(const std::string& path, bool ignoreUntracked = false) {
        auto memo = memos_.find(path);
        runner_.started = 0;
        RepoReading fast = scanner_.read(path, ignoreUntracked, since_,
                                         memo == memos_.end() ? nullptr : &memo->second);
        int children = runner_.started;
        RepoSnapshot literal = scanner_.scan(path, ignoreUntracked);
        std::vector<CommitRecord> commits =
            scanner_.todaysCommits(path, since_, literal.isDetachedHead);
        // Only these two differ by nature: a new id and the moment of each reading.
        literal.id = fast.snapshot.id;
        literal.capturedAt = fast.snapshot.capturedAt;
        EXPECT_EQ(toJson(fast.snapshot).dump(1), toJson(literal).dump(1)) << path;
        EXPECT_EQ(toJson(fast.commits).dump(1), toJson(commits).dump(1)) << path;
        if (fast.memo) {
            memos_[path] = *fast.memo;
        } else {
            memos_.erase(path);
        }
        return children;
    }

    static Date daysAgo(int days) { return SystemClock().now() - std::chrono::hours(24 * days); }

    testing::TempDir dir_;
    CountingRunner runner_;
    // Now, but movable: a test can make the next day begin.
    testing::FakeClock clock_{SystemClock().now()};
    GitScanner scanner_{runner_, clock_};
    std::string since_ = GitScanner::startOfDayArgument(clock_.now());
    std::map<std::string, ScanMemo> memos_;
};

TEST_F(ScanDifferentialTest, EveryWorkTreeStateReadsAsTheLiteralCommandsReadIt) {
    TestRepo repo(dir_ / "app");
    repo.commitFile("a.txt", "a\n", "first | with a pipe", daysAgo(3));
    repo.commitFile("b.txt", "b\n", "second", daysAgo(2));
    repo.commitFile("c.txt", "c\n", "third", daysAgo(2));

    // A repository seen for the first time, then again with nothing changed.
    EXPECT_LE(readBoth(repo), 4);
    EXPECT_EQ(readBoth(repo), 1);

    // Every kind of change, with names git quotes in every way it does.
    repo.write("a.txt", "edited\n");
    repo.write("new file.txt", "untracked with a space\n");
    repo.write("caf\xc3\xa9.txt", "non-ASCII\n");
    repo.write("say \"hi\".txt", "a quote\n");
    repo.write("a -> b.txt", "an arrow\n");
    repo.write("tab\there.txt", "a tab\n");
    repo.write("staged.txt", "staged\n");
    repo.git({"add", "staged.txt", "tab\there.txt"});
    repo.git({"mv", "b.txt", "moved b.txt"});
    std::filesystem::remove(repo.path() / "c.txt");
    EXPECT_EQ(readBoth(repo), 1);
    EXPECT_EQ(readBoth(repo, true), 1);

    // How paths are quoted follows core.quotePath, which the scan must notice. A
    // changed configuration can change how log prints too, so the logs are read again.
    repo.git({"config", "core.quotePath", "false"});
    EXPECT_EQ(readBoth(repo), 4);
    // Whoever the repository says its owner commits as, besides the user's own address.
    repo.git({"config", "--add", "user.email", "me@work.example"});
    readBoth(repo);

    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "-m", "everything"});

    // Copies are told apart from additions only when status is asked to look.
    repo.git({"config", "status.renames", "copies"});
    std::string body;
    for (int line = 0; line < 40; ++line) body += "line " + std::to_string(line) + "\n";
    repo.commitFile("long.txt", body, "long");
    repo.write("long copy.txt", body);
    repo.write("long.txt", body + "changed\n");
    repo.git({"add", "long copy.txt", "long.txt"});
    ASSERT_THAT(repo.git({"status", "--porcelain=v1"}), ::testing::HasSubstr("C  "));
    readBoth(repo);
    repo.git({"commit", "-q", "-m", "copied"});

    // An unmerged path from a conflicting merge.
    repo.git({"checkout", "-q", "-b", "other", "HEAD~1"});
    repo.commitFile("a.txt", "theirs\n", "theirs");
    repo.git({"checkout", "-q", "main"});
    repo.commitFile("a.txt", "ours\n", "ours");
    repo.gitResult({"merge", "-q", "other"});
    ASSERT_THAT(repo.git({"status", "--porcelain=v1"}), ::testing::HasSubstr("UU a.txt"));
    readBoth(repo);
}

TEST_F(ScanDifferentialTest, StandingAgainstAnUpstreamIncludingAGoneOne) {
    TestRepo origin(dir_ / "origin.git", TestRepo::Kind::bare);
    TestRepo seed(dir_ / "seed");
    seed.commitFile("a.txt", "a\n", "base", daysAgo(5));
    seed.git({"remote", "add", "origin", origin.path().string()});
    seed.git({"push", "-q", "origin", "main"});
    TestRepo clone = TestRepo::cloneOf(origin, dir_ / "clone");
    readBoth(clone);

    seed.commitFile("b.txt", "b\n", "upstream moves", daysAgo(4));
    seed.git({"push", "-q", "origin", "main"});
    clone.git({"fetch", "-q"});
    clone.commitFile("c.txt", "c\n", "local work", daysAgo(4));
    // Status, and the logs of the new HEAD and of the day the moved refs may change.
    EXPECT_EQ(readBoth(clone), 3) << "diverged";

    // The upstream's ref deleted: configured, but nothing to compare with.
    clone.git({"update-ref", "-d", "refs/remotes/origin/main"});
    readBoth(clone);

    clone.git({"checkout", "-q", "--detach", "HEAD~1"});
    readBoth(clone);

    TestRepo empty(dir_ / "empty");
    EXPECT_LE(readBoth(empty), 3);
    EXPECT_EQ(readBoth(empty), 1);
}

TEST_F(ScanDifferentialTest, WhatHappensBetweenTwoScansIsSeen) {
    TestRepo origin(dir_ / "origin.git", TestRepo::Kind::bare);
    TestRepo repo(dir_ / "app");
    repo.commitFile("a.txt", "a\n", "old", daysAgo(3));
    repo.git({"remote", "add", "origin", origin.path().string()});
    repo.git({"push", "-q", "-u", "origin", "main"});
    readBoth(repo);

    // A commit today: HEAD moves and the commit is not pushed yet.
    repo.commitFile("b.txt", "b\n", "today's work");
    readBoth(repo);
    ASSERT_EQ(memos_.begin()->second.todaysCommits.size(), 1u);
    EXPECT_TRUE(memos_.begin()->second.todaysCommits[0].isLocalOnly);

    // Pushed: HEAD stays where it was, the remote-tracking ref moves.
    repo.git({"push", "-q", "origin", "main"});
    EXPECT_EQ(readBoth(repo), 3);
    EXPECT_FALSE(memos_.begin()->second.todaysCommits[0].isLocalOnly);

    // Amended, so the pushed commit is replaced by a local one.
    repo.write("b.txt", "b, amended\n");
    repo.git({"commit", "-q", "-a", "--amend", "-m", "today's work, amended"});
    readBoth(repo);

    // Another branch, a commit there, and back: it stays one of today's commits.
    repo.git({"checkout", "-q", "-b", "topic", "HEAD~1"});
    readBoth(repo);
    repo.commitFile("t.txt", "t\n", "work on the side");
    repo.git({"checkout", "-q", "main"});
    readBoth(repo);
    const std::vector<CommitRecord>& today = memos_.begin()->second.todaysCommits;
    ASSERT_EQ(today.size(), 2u);
    auto side = std::find_if(today.begin(), today.end(), [](const CommitRecord& commit) {
        return commit.message == "work on the side";
    });
    ASSERT_NE(side, today.end());
    EXPECT_EQ(side->branch, "topic");
    // On a detached HEAD, what is made there counts too.
    repo.git({"checkout", "-q", "--detach"});
    repo.commitFile("d.txt", "d\n", "detached work");
    readBoth(repo);
    EXPECT_EQ(memos_.begin()->second.todaysCommits.size(), 3u);
    repo.git({"checkout", "-q", "main"});

    // A new day: yesterday's commits are no longer today's.
    clock_.advance(24h);
    since_ = GitScanner::startOfDayArgument(clock_.now());
    readBoth(repo);

    // The remote's address edited, then rewritten by an included file.
    repo.git({"remote", "set-url", "origin", "https://example.invalid/app.git"});
    readBoth(repo);
    repo.write("../rewrites.cfg", "");
    repo.git({"config", "include.path", "../../rewrites.cfg"});
    readBoth(repo);
    repo.write("../rewrites.cfg",
               "[url \"https://mirror.invalid/\"]\n\tinsteadOf = https://example.invalid/\n");
    readBoth(repo);
    EXPECT_EQ(memos_.begin()->second.remoteURL, "https://mirror.invalid/app.git");
}

TEST_F(ScanDifferentialTest, WhatIsNotAWorkTreeReadsAsTheLiteralScanSaysIt) {
    TestRepo bare(dir_ / "bare.git", TestRepo::Kind::bare);
    readBoth(bare);
    std::filesystem::create_directories(dir_ / "plain");
    readBoth((dir_ / "plain").string());
    readBoth((dir_ / "missing").string());
    TestRepo repo(dir_ / "inside");
    repo.commitFile("a.txt", "a\n", "first");
    readBoth((repo.path() / ".git").string());
}

}  // namespace
}  // namespace quorvane
