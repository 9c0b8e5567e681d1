// `quorvane scan --json` against real repositories that each test builds, compared
// with what git itself says about them.
#include <signal.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

    // Scans through the program: the snapshots in the order printed.
    Json scan() {
        ShellResult result = testing::runQuorvane(dataDir(), {"scan", "--json"});
        EXPECT_EQ(result.exitCode, 0) << result.stdErr;
        return Json::parse(result.stdOut);
    }

    static Json find(const Json& snapshots, const std::filesystem::path& repoPath) {
        for (const Json& snapshot : snapshots) {
            if (snapshot["repoID"] == repoPath.string()) return snapshot;
        }
        ADD_FAILURE() << "no snapshot for " << repoPath << " in " << snapshots.dump();
        return Json::object();
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

TEST_F(ScanCommandTest, ARepositorysSnapshotSaysWhatGitSaysCleanAndWithEveryKindOfChange) {
    TestRepo repo(dir_ / "work");
    repo.commitFile("old.txt", "old", "last week", now() - 24h * 7);
    for (const char* name : {"modify.txt", "delete.txt", "rename.txt"}) repo.write(name, name);
    repo.commitAll("first today");
    std::string head = repo.commitFile("b.txt", "b", "feat: a | b || c |");
    track(repo);

    Json clean = find(scan(), repo.path());
    EXPECT_EQ(clean["branch"], repo.gitLine({"branch", "--show-current"}));
    EXPECT_EQ(clean["files"], counts(0, 0, 0, 0, 0));
    EXPECT_EQ(clean["commitsToday"], 2);
    EXPECT_EQ(clean["lastCommitSha"], head);
    EXPECT_EQ(clean["lastCommitMessage"], repo.gitLine({"log", "-1", "--format=%s"}));
    EXPECT_EQ(DateHelpers::parseISO(clean["lastCommitAt"].get<std::string>()),
              DateHelpers::parseISO(repo.gitLine({"log", "-1", "--format=%aI"})));
    EXPECT_EQ(clean["hasUpstream"], false);
    EXPECT_EQ(clean["isDetachedHead"], false);
    EXPECT_EQ(clean["ahead"], 0);
    // Empty optionals are left out, as the store writes them.
    for (const char* absent : {"remoteURL", "error", "lastWorkingTreeChangeAt"}) {
        EXPECT_FALSE(clean.contains(absent)) << absent;
    }
    EXPECT_EQ(clean["id"].get<std::string>().size(), 36u);
    EXPECT_EQ(clean["capturedAt"].get<std::string>().back(), 'Z');

    // Every kind of change. The newest change is found by a renamed file's new name;
    // a name git quotes and a file dated in the future count, but say nothing
    // about when work happened.
    repo.write("modify.txt", "changed");
    std::filesystem::remove(repo.path() / "delete.txt");
    repo.git({"mv", "rename.txt", "renamed.txt"});
    repo.write("staged.txt", "new");
    repo.git({"add", "staged.txt"});
    repo.write("untracked.txt", "loose");
    repo.write("caf\xC3\xA9.txt", "new");
    repo.write("future.txt", "new");
    Date base = now() - 1h;
    setModified(repo.path() / "modify.txt", base + 10s);
    setModified(repo.path() / "renamed.txt", base + 40s);
    setModified(repo.path() / "staged.txt", base + 20s);
    setModified(repo.path() / "untracked.txt", base + 30s);
    setModified(repo.path() / "caf\xC3\xA9.txt", base + 50s);
    setModified(repo.path() / "future.txt", now() + 24h * 365);
    ASSERT_THAT(repo.git({"status", "--porcelain=v1"}),
                ::testing::HasSubstr("?? \"caf\\303\\251.txt\"\n"));

    Json dirty = find(scan(), repo.path());
    EXPECT_EQ(dirty["files"], counts(1, 2, 3, 1, 1));
    EXPECT_EQ(dirty["lastWorkingTreeChangeAt"], DateHelpers::isoString(base + 40s));
}

TEST_F(ScanCommandTest, UpstreamsDetachedEmptyAndBrokenRepositoriesInConfigurationOrder) {
    TestRepo origin(dir_ / "origin.git", TestRepo::Kind::bare);
    TestRepo seed = TestRepo::cloneOf(origin, dir_ / "seed");
    seed.commitFile("a.txt", "a", "base");
    seed.git({"push", "-q", "origin", "main"});
    TestRepo diverged = TestRepo::cloneOf(origin, dir_ / "zeta");
    diverged.commitFile("x.txt", "1", "local one");
    diverged.commitFile("y.txt", "2", "local two");
    seed.commitFile("a.txt", "b", "upstream one");
    seed.git({"push", "-q", "origin", "main"});
    diverged.git({"fetch", "-q"});
    TestRepo detached(dir_ / "mid");
    detached.commitFile("a.txt", "a", "one");
    detached.git({"checkout", "-q", "--detach", "HEAD"});
    TestRepo empty(dir_ / "alpha");
    TestRepo gone(dir_ / "omega");
    gone.commitFile("a.txt", "a", "one");
    for (const TestRepo* repo : {&diverged, &detached, &empty, &gone}) track(*repo);
    TestRepo bare(dir_ / "beta.git", TestRepo::Kind::bare);
    // A bare repository cannot be added by hand; a configuration can still name one.
    SystemClock clock;
    ConfigService service(dataDir() / "config.json", clock);
    AppConfig config = service.load();
    RepoConfig bareRepo = config.repositories.at(0);
    bareRepo.id = bareRepo.localPath = bare.path().string();
    config.repositories.push_back(bareRepo);
    service.save(config);
    std::filesystem::remove_all(gone.path() / ".git");

    Json snapshots = scan();
    std::vector<std::string> order;
    for (const Json& snapshot : snapshots) order.push_back(snapshot["repoID"]);
    EXPECT_EQ(order, (std::vector<std::string>{diverged.path(), detached.path(), empty.path(),
                                               gone.path(), bare.path()}));

    // How each field is read and each failure worded is GitScannerTest's and
    // GitParsingTest's; here, that the stored snapshot carries what git says.
    Json standing = find(snapshots, diverged.path());
    EXPECT_EQ(diverged.gitLine({"rev-list", "--left-right", "--count", "@{u}...HEAD"}), "1\t2");
    EXPECT_EQ(standing["ahead"], 2);
    EXPECT_EQ(standing["behind"], 1);
    EXPECT_EQ(standing["remoteURL"], origin.path().string());
    EXPECT_EQ(find(snapshots, detached.path())["isDetachedHead"], true);
    Json unborn = find(snapshots, empty.path());
    EXPECT_EQ(unborn["branch"], "main");
    EXPECT_FALSE(unborn.contains("lastCommitSha"));
    EXPECT_TRUE(find(snapshots, gone.path()).contains("error"));
    EXPECT_EQ(find(snapshots, bare.path())["error"], "Not a git working tree");
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
        ASSERT_TRUE(testing::eventually(60s, [&] {
            return !testing::gitProcessesIn(repo.path()).empty();
        })) << scan.output();
        scan.signal(signal);
        EXPECT_EQ(scan.waitForExit(60s), 128 + signal) << scan.output();
        EXPECT_TRUE(
            testing::eventually(10s, [&] { return testing::gitProcessesIn(repo.path()).empty(); }))
            << "left running: " << testing::gitProcessesIn(repo.path()).front();
    }
}

}  // namespace
}  // namespace quorvane
