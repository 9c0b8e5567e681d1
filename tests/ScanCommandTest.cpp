// `quorvane scan --json` against real repositories that each test builds, compared
// with what git itself says about them.
#include <signal.h>
#include <sys/stat.h>

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/TextHelpers.hpp"
#include "persistence/ConfigService.hpp"
#include "platform/Clock.hpp"
#include "records/JsonCodec.hpp"
#include "testing/BackgroundProcess.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using testing::TestRepo;
using namespace std::chrono_literals;

class ScanCommandTest : public ::testing::Test {
protected:
    std::filesystem::path dataDir() const { return dir_ / "data"; }

    void track(const TestRepo& repo) {
        ShellResult added = testing::runQuorvane(dataDir(), {"repos", "add", repo.path().string()});
        ASSERT_EQ(added.exitCode, 0) << added.stdErr;
    }

    // Scans through the program and returns the snapshot of `repo`.
    Json scanOne(const std::filesystem::path& repoPath) {
        ShellResult result = testing::runQuorvane(dataDir(), {"scan", "--json"});
        EXPECT_EQ(result.exitCode, 0) << result.stdErr;
        Json all = Json::parse(result.stdOut);
        for (const Json& snapshot : all) {
            if (snapshot["repoID"] == repoPath.string()) return snapshot;
        }
        ADD_FAILURE() << "no snapshot for " << repoPath << " in " << result.stdOut;
        return Json::object();
    }

    Json trackAndScan(const TestRepo& repo) {
        track(repo);
        return scanOne(repo.path());
    }

    static void setModified(const std::filesystem::path& file, Date when) {
        auto systemTime = std::chrono::system_clock::time_point(when.time_since_epoch());
        std::filesystem::last_write_time(file, std::chrono::file_clock::from_sys(systemTime));
    }

    static Json counts(int modified, int staged, int untracked, int deleted, int renamed) {
        return Json{{"modified", modified},
                    {"staged", staged},
                    {"untracked", untracked},
                    {"deleted", deleted},
                    {"renamed", renamed}};
    }

    Date now() const { return SystemClock().now(); }

    testing::TempDir dir_;
};

TEST_F(ScanCommandTest, ACleanRepositoryMatchesGitLog) {
    TestRepo repo(dir_ / "clean");
    repo.commitFile("old.txt", "old", "last week", now() - 24h * 7);
    repo.commitFile("a.txt", "a", "first today");
    std::string head = repo.commitFile("b.txt", "b", "second today");

    Json snapshot = trackAndScan(repo);
    EXPECT_EQ(snapshot["branch"], repo.gitLine({"branch", "--show-current"}));
    EXPECT_EQ(snapshot["files"], counts(0, 0, 0, 0, 0));
    EXPECT_EQ(snapshot["commitsToday"], 2);
    EXPECT_EQ(snapshot["lastCommitSha"], head);
    EXPECT_EQ(snapshot["lastCommitMessage"], "second today");
    EXPECT_EQ(DateHelpers::parseISO(snapshot["lastCommitAt"].get<std::string>()),
              DateHelpers::parseISO(repo.gitLine({"log", "-1", "--format=%aI"})));
    EXPECT_EQ(snapshot["hasUpstream"], false);
    EXPECT_EQ(snapshot["isDetachedHead"], false);
    EXPECT_EQ(snapshot["ahead"], 0);
    EXPECT_EQ(snapshot["behind"], 0);
    // Empty optionals are left out, as the store writes them.
    for (const char* absent : {"remoteURL", "error", "lastWorkingTreeChangeAt"}) {
        EXPECT_FALSE(snapshot.contains(absent)) << absent;
    }
    EXPECT_EQ(snapshot["id"].get<std::string>().size(), 36u);
    EXPECT_TRUE(DateHelpers::parseISO(snapshot["capturedAt"].get<std::string>()).has_value());
    EXPECT_EQ(snapshot["capturedAt"].get<std::string>().back(), 'Z');
}

TEST_F(ScanCommandTest, EachOfTheFiveCountsAndTheNewestChangeTime) {
    TestRepo repo(dir_ / "dirty");
    for (const char* name : {"modify.txt", "delete.txt", "rename.txt"}) repo.write(name, name);
    repo.commitAll("base");
    repo.write("modify.txt", "changed");
    std::filesystem::remove(repo.path() / "delete.txt");
    repo.git({"mv", "rename.txt", "renamed.txt"});
    repo.write("staged.txt", "new");
    repo.git({"add", "staged.txt"});
    repo.write("untracked.txt", "loose");
    Date base = now() - 1h;
    setModified(repo.path() / "modify.txt", base + 10s);
    setModified(repo.path() / "renamed.txt", base + 40s);  // the newest: found by its new name
    setModified(repo.path() / "staged.txt", base + 20s);
    setModified(repo.path() / "untracked.txt", base + 30s);

    Json snapshot = trackAndScan(repo);
    EXPECT_EQ(snapshot["files"], counts(1, 2, 1, 1, 1));
    EXPECT_EQ(Text::nonEmptyLines(repo.git({"status", "--porcelain=v1"})).size(), 5u);
    EXPECT_EQ(snapshot["lastWorkingTreeChangeAt"], DateHelpers::isoString(base + 40s));
}

TEST_F(ScanCommandTest, AStagedRenameCountsAsStagedAndRenamed) {
    TestRepo repo(dir_ / "rename");
    repo.commitFile("before.txt", "content", "base");
    repo.git({"mv", "before.txt", "after.txt"});
    Date when = now() - 2h;
    setModified(repo.path() / "after.txt", when);

    Json snapshot = trackAndScan(repo);
    EXPECT_EQ(repo.git({"status", "--porcelain=v1"}), "R  before.txt -> after.txt\n");
    EXPECT_EQ(snapshot["files"], counts(0, 1, 0, 0, 1));
    EXPECT_EQ(snapshot["lastWorkingTreeChangeAt"], DateHelpers::isoString(when));
}

TEST_F(ScanCommandTest, AheadBehindAndDivergedAgainstAnUpstream) {
    TestRepo origin(dir_ / "origin.git", TestRepo::Kind::bare);
    TestRepo seed = TestRepo::cloneOf(origin, dir_ / "seed");
    seed.commitFile("a.txt", "a", "base");
    seed.git({"push", "-q", "origin", "main"});
    TestRepo ahead = TestRepo::cloneOf(origin, dir_ / "ahead");
    TestRepo behind = TestRepo::cloneOf(origin, dir_ / "behind");
    TestRepo diverged = TestRepo::cloneOf(origin, dir_ / "diverged");
    ahead.commitFile("x.txt", "1", "local one");
    ahead.commitFile("y.txt", "2", "local two");
    seed.commitFile("a.txt", "b", "upstream one");
    seed.git({"push", "-q", "origin", "main"});
    behind.git({"fetch", "-q"});
    diverged.commitFile("z.txt", "3", "local three");
    diverged.git({"fetch", "-q"});

    track(ahead);
    track(behind);
    track(diverged);
    struct Expected {
        const TestRepo* repo;
        int ahead, behind;
    };
    for (Expected expected :
         {Expected{&ahead, 2, 0}, Expected{&behind, 0, 1}, Expected{&diverged, 1, 1}}) {
        Json snapshot = scanOne(expected.repo->path());
        std::string gitSays =
            expected.repo->gitLine({"rev-list", "--left-right", "--count", "@{u}...HEAD"});
        EXPECT_EQ(gitSays, std::to_string(expected.behind) + "\t" + std::to_string(expected.ahead));
        EXPECT_EQ(snapshot["hasUpstream"], true);
        EXPECT_EQ(snapshot["ahead"], expected.ahead) << expected.repo->path();
        EXPECT_EQ(snapshot["behind"], expected.behind) << expected.repo->path();
        EXPECT_EQ(snapshot["remoteURL"], origin.path().string());
    }
}

TEST_F(ScanCommandTest, ADetachedHeadHasNoBranchAndNoUpstream) {
    TestRepo repo(dir_ / "detached");
    repo.commitFile("a.txt", "a", "one");
    repo.commitFile("a.txt", "b", "two");
    repo.git({"checkout", "-q", "--detach", "HEAD~1"});

    Json snapshot = trackAndScan(repo);
    EXPECT_EQ(snapshot["branch"], "");
    EXPECT_EQ(snapshot["isDetachedHead"], true);
    EXPECT_EQ(snapshot["hasUpstream"], false);
    EXPECT_EQ(snapshot["lastCommitMessage"], "one");
    EXPECT_FALSE(snapshot.contains("error"));
}

TEST_F(ScanCommandTest, ARepositoryWithoutCommits) {
    TestRepo repo(dir_ / "empty");
    Json snapshot = trackAndScan(repo);
    EXPECT_EQ(snapshot["branch"], "main");
    EXPECT_EQ(snapshot["isDetachedHead"], false);
    EXPECT_EQ(snapshot["commitsToday"], 0);
    for (const char* absent : {"lastCommitSha", "lastCommitMessage", "lastCommitAt", "error"}) {
        EXPECT_FALSE(snapshot.contains(absent)) << absent;
    }
}

TEST_F(ScanCommandTest, WhatIsNotAWorkTreeGetsAnErrorAndNothingElse) {
    TestRepo gone(dir_ / "gone");
    gone.commitFile("a.txt", "a", "one");
    track(gone);
    TestRepo bare(dir_ / "bare.git", TestRepo::Kind::bare);
    // A bare repository cannot be added by hand; a configuration can still name one.
    SystemClock clock;
    ConfigService service(dataDir() / "config.json", clock);
    AppConfig config = service.load();
    RepoConfig bareRepo = config.repositories.at(0);
    bareRepo.id = bareRepo.localPath = bare.path().string();
    config.repositories.push_back(bareRepo);
    service.save(config);
    std::filesystem::remove_all(gone.path() / ".git");

    ShellResult gitSays = gone.gitResult({"rev-parse", "--is-inside-work-tree"});
    ASSERT_NE(gitSays.exitCode, 0);
    Json snapshot = scanOne(gone.path());
    EXPECT_EQ(snapshot["error"], std::string(Text::trim(gitSays.stdErr)).substr(0, 200));
    EXPECT_EQ(snapshot["branch"], "");
    EXPECT_EQ(snapshot["files"], counts(0, 0, 0, 0, 0));
    EXPECT_EQ(snapshot["isDetachedHead"], false);
    EXPECT_FALSE(snapshot.contains("lastCommitSha"));

    EXPECT_EQ(bare.gitLine({"rev-parse", "--is-inside-work-tree"}), "false");
    EXPECT_EQ(scanOne(bare.path())["error"], "Not a git working tree");
}

TEST_F(ScanCommandTest, SubjectsWithPipesSurviveWhole) {
    TestRepo repo(dir_ / "pipes");
    repo.commitFile("a.txt", "a", "feat: a | b || c |");
    Json snapshot = trackAndScan(repo);
    EXPECT_EQ(snapshot["lastCommitMessage"], "feat: a | b || c |");
    EXPECT_EQ(snapshot["lastCommitMessage"], repo.gitLine({"log", "-1", "--format=%s"}));
}

TEST_F(ScanCommandTest, NonAsciiNamesCountButGiveNoChangeTime) {
    TestRepo repo(dir_ / "names");
    repo.commitFile("plain.txt", "a", "base");
    repo.write("caf\xC3\xA9.txt", "new");
    Date older = now() - 3h;
    Date newer = now() - 1h;
    setModified(repo.path() / "caf\xC3\xA9.txt", newer);

    EXPECT_EQ(repo.git({"status", "--porcelain=v1"}), "?? \"caf\\303\\251.txt\"\n");
    Json alone = trackAndScan(repo);
    EXPECT_EQ(alone["files"], counts(0, 0, 1, 0, 0));
    EXPECT_FALSE(alone.contains("lastWorkingTreeChangeAt"));

    repo.write("plain.txt", "changed");
    setModified(repo.path() / "plain.txt", older);
    Json both = scanOne(repo.path());
    EXPECT_EQ(both["files"], counts(1, 0, 1, 0, 0));
    EXPECT_EQ(both["lastWorkingTreeChangeAt"], DateHelpers::isoString(older));
}

TEST_F(ScanCommandTest, AFileDatedInTheFutureSaysNothingAboutWhenWorkHappened) {
    TestRepo repo(dir_ / "future");
    repo.commitFile("a.txt", "a", "base");
    repo.commitFile("b.txt", "b", "base too");
    repo.write("a.txt", "edited");
    repo.write("b.txt", "edited");
    Date past = now() - 30min;
    setModified(repo.path() / "a.txt", now() + 24h * 365);
    setModified(repo.path() / "b.txt", past);

    Json snapshot = trackAndScan(repo);
    EXPECT_EQ(snapshot["files"], counts(2, 0, 0, 0, 0));
    EXPECT_EQ(snapshot["lastWorkingTreeChangeAt"], DateHelpers::isoString(past));

    setModified(repo.path() / "b.txt", now() + 24h * 365);
    EXPECT_FALSE(scanOne(repo.path()).contains("lastWorkingTreeChangeAt"));
}

TEST_F(ScanCommandTest, SnapshotsComeInConfigurationOrder) {
    std::vector<std::string> expected;
    for (const char* name : {"zeta", "alpha", "mid", "beta", "omega", "x", "y", "k", "j", "a"}) {
        TestRepo repo(dir_ / name);
        track(repo);
        expected.push_back(repo.path().string());
    }
    ShellResult result = testing::runQuorvane(dataDir(), {"scan", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.stdErr;
    std::vector<std::string> order;
    for (const Json& snapshot : Json::parse(result.stdOut)) order.push_back(snapshot["repoID"]);
    EXPECT_EQ(order, expected);
}

// The git processes whose working folder is `folder`, by process id.
std::vector<std::string> gitProcessesIn(const std::filesystem::path& folder) {
    std::vector<std::string> found;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ec)) {
        std::error_code linkError;
        std::filesystem::path cwd = std::filesystem::read_symlink(entry.path() / "cwd", linkError);
        std::string name;
        std::ifstream(entry.path() / "comm") >> name;
        if (!linkError && cwd == folder && name == "git") {
            found.push_back(entry.path().filename().string());
        }
    }
    return found;
}

TEST_F(ScanCommandTest, CtrlCStopsTheGitChildrenOfAScan) {
    // An exclude file that is a FIFO: git status waits on it for as long as nobody
    // writes, well past any patience of the person who pressed Ctrl-C.
    TestRepo repo(dir_ / "stuck");
    repo.commitFile("a.txt", "a", "first");
    std::filesystem::path exclude = repo.path() / ".git/info/exclude";
    std::filesystem::remove(exclude);
    ASSERT_EQ(::mkfifo(exclude.c_str(), 0600), 0);
    track(repo);

    for (int signal : {SIGINT, SIGTERM}) {
        testing::BackgroundProcess scan(QUORVANE_BINARY, {"scan", "--data-dir", dataDir().string()},
                                        dir_ / "scan.log");
        ASSERT_TRUE(testing::eventually(60s, [&] { return !gitProcessesIn(repo.path()).empty(); }))
            << scan.output();
        scan.signal(signal);
        EXPECT_EQ(scan.waitForExit(60s), 128 + signal) << scan.output();
        EXPECT_TRUE(testing::eventually(10s, [&] { return gitProcessesIn(repo.path()).empty(); }))
            << "left running: " << gitProcessesIn(repo.path()).front();
    }
}

}  // namespace
}  // namespace quorvane
