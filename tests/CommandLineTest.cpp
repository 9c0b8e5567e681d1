// The commands that manage what is tracked, driven through the built program.
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/TextHelpers.hpp"
#include "persistence/ConfigService.hpp"
#include "platform/Clock.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using testing::TestRepo;

class CommandLineTest : public ::testing::Test {
protected:
    std::filesystem::path dataDir() const { return dir_ / "data"; }
    ShellResult quorvane(std::vector<std::string> arguments) {
        return testing::runQuorvane(dataDir(), std::move(arguments));
    }
    AppConfig config() {
        SystemClock clock;
        return ConfigService(dataDir() / "config.json", clock).load();
    }

    testing::TempDir dir_;
};

TEST_F(CommandLineTest, ReposAddRefusesAnythingButAWorkTreeAndReadsIdentityRemoteAndBranch) {
    TestRepo origin(dir_ / "origin.git", TestRepo::Kind::bare);
    TestRepo seed = TestRepo::cloneOf(origin, dir_ / "seed");
    seed.commitFile("a.txt", "a", "base");
    seed.git({"push", "-q", "origin", "main:trunk"});
    origin.git({"symbolic-ref", "HEAD", "refs/heads/trunk"});
    TestRepo clone = TestRepo::cloneOf(origin, dir_ / "clone");
    TestRepo local(dir_ / "local");
    local.git({"checkout", "-q", "-b", "work"});
    std::filesystem::create_symlink(local.path(), dir_ / "link");
    std::filesystem::create_directories(clone.path() / "src");
    std::filesystem::create_directories(dir_ / "plain");
    // One folder that is no work tree refuses the whole command.
    ShellResult refused = quorvane({"repos", "add", clone.path().string(),
                                    (dir_ / "plain").string(), (dir_ / "missing").string()});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.stdErr, HasSubstr("cannot track " + (dir_ / "plain").string() +
                                          ": not a git working tree"));
    EXPECT_THAT(refused.stdErr,
                HasSubstr("cannot track " + (dir_ / "missing").string() + ": no such folder"));
    EXPECT_THAT(refused.stdErr, HasSubstr("nothing was added"));
    EXPECT_FALSE(std::filesystem::exists(dataDir() / "config.json"));

    ShellResult added =
        quorvane({"repos", "add", (clone.path() / "src").string(), (dir_ / "link").string()});
    ASSERT_EQ(added.exitCode, 0) << added.stdErr;
    EXPECT_THAT(added.stdOut, HasSubstr("tracking clone (" + clone.path().string() + ")"));

    AppConfig saved = config();
    ASSERT_EQ(saved.repositories.size(), 2u);
    const RepoConfig& first = saved.repositories[0];
    EXPECT_EQ(first.id, clone.path().string());  // the whole repository, not the subfolder
    EXPECT_EQ(first.localPath, first.id);
    EXPECT_EQ(first.name, "clone");
    EXPECT_EQ(first.remoteURL, origin.path().string());
    EXPECT_EQ(first.defaultBranch, "trunk");
    EXPECT_TRUE(first.trackingEnabled);
    const RepoConfig& second = saved.repositories[1];
    EXPECT_EQ(second.id, local.path().string());  // the link is resolved
    EXPECT_FALSE(second.remoteURL.has_value());
    EXPECT_EQ(second.defaultBranch, "work");  // no remote: the current branch

    ShellResult again = quorvane({"repos", "add", local.path().string()});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_THAT(again.stdOut, HasSubstr("already tracked"));
    EXPECT_EQ(config().repositories.size(), 2u);
}

TEST_F(CommandLineTest, ARepositoryIsListedAndRemovedByPathNameOrDisplayNameButNotAnAmbiguousOne) {
    TestRepo first(dir_ / "one" / "api");
    TestRepo second(dir_ / "two" / "api");
    TestRepo web(dir_ / "web");
    for (const TestRepo* repo : {&first, &second, &web}) repo->commitFile("f", "x", "commit");
    ASSERT_EQ(quorvane({"repos", "add", first.path().string(), second.path().string(),
                        web.path().string()})
                  .exitCode,
              0);
    EXPECT_THAT(quorvane({"repos", "list"}).stdOut, HasSubstr("/two/api "));
    Json listed = Json::parse(quorvane({"repos", "list", "--json"}).stdOut);
    ASSERT_EQ(listed.size(), 3u);
    EXPECT_EQ(listed[1]["id"], second.path().string());
    {
        SystemClock clock;
        ConfigService service(dataDir() / "config.json", clock);
        AppConfig edited = service.load();
        edited.repositories[2].displayName = "Storefront";
        ASSERT_TRUE(service.save(edited).ok());
    }
    ShellResult byDisplayName = quorvane({"commits", "--repo", "STOREFRONT", "--json"});
    ASSERT_EQ(byDisplayName.exitCode, 0) << byDisplayName.stdErr;
    Json commits = Json::parse(byDisplayName.stdOut);
    ASSERT_EQ(commits.size(), 1u);
    EXPECT_EQ(commits[0]["repoID"], web.path().string());
    EXPECT_EQ(quorvane({"sessions", "--repo", "web"}).exitCode, 0);  // its name still works

    ShellResult ambiguous = quorvane({"repos", "remove", "Api"});
    EXPECT_EQ(ambiguous.exitCode, 1);
    EXPECT_THAT(ambiguous.stdErr, HasSubstr("Api names 2 repositories; give one of their paths:"));
    EXPECT_THAT(ambiguous.stdErr, HasSubstr("  " + first.path().string() + "\n"));
    EXPECT_THAT(ambiguous.stdErr, HasSubstr("  " + second.path().string() + "\n"));
    ShellResult unknown = quorvane({"repos", "remove", "/not/tracked"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_THAT(unknown.stdErr, HasSubstr("/not/tracked is not a tracked repository"));
    EXPECT_EQ(config().repositories.size(), 3u);
    EXPECT_EQ(quorvane({"repos", "remove", second.path().string()}).exitCode, 0);
    EXPECT_EQ(quorvane({"repos", "remove", "api"}).exitCode, 0);  // now only one is left

    AppConfig saved = config();
    ASSERT_EQ(saved.repositories.size(), 1u);
    EXPECT_EQ(saved.repositories[0].id, web.path().string());
    EXPECT_EQ(saved.ignoredRepoIDs,
              (std::vector<std::string>{second.path().string(), first.path().string()}));
    // Their recorded history went with them.
    EXPECT_EQ(Json::parse(quorvane({"commits", "--json"}).stdOut).size(), 1u);
    // Adding one again by hand lifts its ignore.
    ASSERT_EQ(quorvane({"repos", "add", first.path().string()}).exitCode, 0);
    EXPECT_EQ(config().ignoredRepoIDs, std::vector<std::string>{second.path().string()});
}

TEST_F(CommandLineTest, AScanFolderIsCanonicalUniqueAndMustExistAndTheNextScanEnrolsWhatItHolds) {
    TestRepo first(dir_ / "code" / "first");
    TestRepo second(dir_ / "code" / "group" / "second");
    first.commitFile("a.txt", "a", "one");
    std::filesystem::create_symlink(dir_ / "code", dir_ / "code-link");
    EXPECT_EQ(quorvane({"folders", "add", (dir_ / "code-link").string()}).exitCode, 0);
    EXPECT_THAT(quorvane({"folders", "add", (dir_ / "code").string()}).stdOut,
                HasSubstr("already a scan folder"));
    ShellResult missing = quorvane({"folders", "add", (dir_ / "nope").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_THAT(missing.stdErr, HasSubstr("no such folder"));
    EXPECT_EQ(config().scanFolders, std::vector<std::string>{(dir_ / "code").string()});
    EXPECT_EQ(quorvane({"folders", "list"}).stdOut, (dir_ / "code").string() + "\n");
    EXPECT_TRUE(config().repositories.empty());

    ShellResult scan = quorvane({"scan"});
    ASSERT_EQ(scan.exitCode, 0) << scan.stdErr;
    EXPECT_THAT(scan.stdOut, HasSubstr("newly tracked: " + first.path().string()));
    EXPECT_THAT(scan.stdOut, HasSubstr("newly tracked: " + second.path().string()));
    ASSERT_EQ(config().repositories.size(), 2u);
    // Its history came along: the commit is stored before any scan of the day reads it.
    EXPECT_EQ(Json::parse(quorvane({"commits", "--json"}).stdOut).size(), 1u);
    EXPECT_THAT(quorvane({"scan"}).stdOut, ::testing::Not(HasSubstr("newly tracked")));
    ASSERT_EQ(quorvane({"repos", "remove", second.path().string()}).exitCode, 0);
    EXPECT_THAT(quorvane({"scan"}).stdOut, ::testing::Not(HasSubstr("newly tracked")));
    EXPECT_EQ(config().repositories.size(), 1u);

    EXPECT_EQ(quorvane({"folders", "remove", (dir_ / "nope").string()}).exitCode, 1);
    EXPECT_EQ(quorvane({"folders", "remove", (dir_ / "code-link").string()}).exitCode, 0);
    EXPECT_TRUE(config().scanFolders.empty());
}

TEST_F(CommandLineTest, ScanPrintsARowPerRepositoryAndStoresWhatStatusAndCommitsReadBack) {
    TestRepo repo(dir_ / "repo");
    Date now = SystemClock().now();
    std::string first = repo.commitFile("a.txt", "a", "first today", now - std::chrono::minutes(2));
    TestRepo busy(dir_ / "busy");
    busy.commitFile("b.txt", "b", "elsewhere");
    busy.write("b.txt", "changed");
    busy.write("new.txt", "new");
    TestRepo broken(dir_ / "broken");
    ASSERT_EQ(quorvane({"repos", "add", repo.path().string(), busy.path().string(),
                        broken.path().string()})
                  .exitCode,
              0);
    std::filesystem::remove_all(broken.path() / ".git");
    EXPECT_EQ(Json::parse(quorvane({"status", "--json"}).stdOut).size(), 0u);
    EXPECT_THAT(quorvane({"status"}).stdOut, HasSubstr("not scanned yet"));

    ShellResult scanned = quorvane({"scan"});
    ASSERT_EQ(scanned.exitCode, 0) << scanned.stdErr;
    std::vector<std::string_view> lines = Text::nonEmptyLines(scanned.stdOut);
    // git's error is too long for the 80 columns of a pipe: it goes below its row.
    ASSERT_EQ(lines.size(), 5u) << scanned.stdOut;
    EXPECT_THAT(
        std::string(lines[2]),
        ::testing::MatchesRegex("busy +main +1 modified, 1 untracked +no remote +1 commit"));
    EXPECT_THAT(std::string(lines[3]), ::testing::MatchesRegex("broken +- +- +- +-"));
    EXPECT_THAT(std::string(lines[4]),
                ::testing::MatchesRegex("  error: fatal: not a git repository.*"));

    std::string second =
        repo.commitFile("a.txt", "b", "second today", now - std::chrono::minutes(1));
    ASSERT_EQ(quorvane({"scan"}).exitCode, 0);
    // The stored snapshot is the newest one; commits from both scans are kept once each.
    Json status = Json::parse(quorvane({"status", "--json"}).stdOut);
    ASSERT_EQ(status.size(), 3u);
    EXPECT_EQ(status[0]["repoID"], repo.path().string());
    EXPECT_EQ(status[0]["lastCommitSha"], second);
    Json commits =
        Json::parse(quorvane({"commits", "--repo", repo.path().string(), "--json"}).stdOut);
    ASSERT_EQ(commits.size(), 2u);
    EXPECT_EQ(commits[0]["sha"], second);
    EXPECT_EQ(commits[1]["sha"], first);
    EXPECT_EQ(Json::parse(quorvane({"commits", "--json", "--limit", "1"}).stdOut).size(), 1u);
    EXPECT_EQ(Json::parse(quorvane({"commits", "--json", "--all"}).stdOut).size(), 3u);
    ShellResult text = quorvane({"commits", "--repo", repo.path().string()});
    EXPECT_THAT(text.stdOut, HasSubstr(second.substr(0, 7) + " "));
    EXPECT_THAT(text.stdOut, HasSubstr("second today"));
    EXPECT_EQ(quorvane({"commits", "--repo", "/not/tracked"}).exitCode, 1);
}

// Every command's help is walked by ReferenceCommandsTest and fitted to a pipe by
// TerminalOutputTest; here, what the program says of itself and of a typo.
TEST_F(CommandLineTest, TheVersionAndAnUnknownCommandExitAsTheyShould) {
    ShellResult version = quorvane({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_THAT(version.stdOut, ::testing::MatchesRegex("quorvane [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(quorvane({"-V"}).stdOut, version.stdOut);

    // A typo's answer is the next case's; a hidden command is never what one meant.
    EXPECT_THAT(quorvane({"manpag"}).stdErr, ::testing::Not(HasSubstr("Did you mean")));
    EXPECT_EQ(quorvane({"repos", "add"}).exitCode, 2);
}

// The data folder may be named before the command; a slip at any depth is answered
// with what was meant, and a bare call lists the commands rather than refusing.
TEST_F(CommandLineTest, MistakesAreNamedAtEveryDepthWhereverTheDataFolderIsGiven) {
    auto run = [&](std::vector<std::string> words) {
        ProcessRequest request;
        request.executable = QUORVANE_BINARY;
        request.arguments = {"--data-dir", dataDir().string()};
        request.arguments.insert(request.arguments.end(), words.begin(), words.end());
        request.timeout = 60;
        return Shell().run(request);
    };
    ShellResult command = run({"staus"});
    EXPECT_EQ(command.exitCode, 2);
    EXPECT_THAT(command.stdErr, HasSubstr("'staus' is not a command. Did you mean 'status'?"));
    ShellResult help = run({"help", "scan"});
    EXPECT_EQ(help.exitCode, 0) << help.stdErr;
    EXPECT_EQ(help.stdOut, quorvane({"scan", "--help"}).stdOut);

    ShellResult sub = quorvane({"repos", "ad", "x"});
    EXPECT_EQ(sub.exitCode, 2);
    EXPECT_THAT(sub.stdErr,
                HasSubstr("'ad' is not a command of 'quorvane repos'. Did you mean 'add'?"));
    ShellResult option = run({"today", "--jsn"});
    EXPECT_EQ(option.exitCode, 2);
    EXPECT_THAT(option.stdErr,
                HasSubstr("'--jsn' is not an option of 'quorvane today'. Did you mean '--json'?"));
    EXPECT_THAT(quorvane({"report", "daily", "--fromat=json"}).stdErr,
                HasSubstr("Did you mean '--format'?"));
    EXPECT_FALSE(std::filesystem::exists(dataDir() / "config.json"));  // nothing ran

    ProcessRequest bare;
    bare.executable = QUORVANE_BINARY;
    ShellResult shortHelp = Shell().run(bare);
    EXPECT_EQ(shortHelp.exitCode, 0);
    EXPECT_EQ(shortHelp.stdErr, "");
    EXPECT_THAT(shortHelp.stdOut, HasSubstr("  status"));
    EXPECT_LT(shortHelp.stdOut.size(), quorvane({"--help"}).stdOut.size());
}

TEST_F(CommandLineTest, ADataFolderOthersCanWriteToOrOwnIsRefusedAndDoctorSaysWhy) {
    std::filesystem::create_directories(dataDir());
    ::chmod(dataDir().c_str(), 0777);
    for (std::vector<std::string> command :
         {std::vector<std::string>{"scan"}, {"status"}, {"repos", "list"}}) {
        ShellResult refused = quorvane(command);
        EXPECT_EQ(refused.exitCode, 1) << command[0];
        EXPECT_THAT(refused.stdErr, HasSubstr("can be written by other users (mode 0777)"));
        EXPECT_THAT(refused.stdErr, HasSubstr("chmod 700 " + dataDir().string()));
    }
    EXPECT_FALSE(std::filesystem::exists(dataDir() / "config.json"));  // nothing touched
    ShellResult doctor = quorvane({"doctor"});
    EXPECT_EQ(doctor.exitCode, 1);
    EXPECT_THAT(doctor.stdOut, HasSubstr("unsafe: "));

    ::chmod(dataDir().c_str(), 0700);
    EXPECT_EQ(quorvane({"scan"}).exitCode, 0);

    // Someone else's folder, even a private one; only root can make one here.
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(dataDir().c_str(), testing::kUnprivilegedUser, 0), 0);
        ShellResult foreign = quorvane({"scan"});
        EXPECT_EQ(foreign.exitCode, 1);
        EXPECT_THAT(foreign.stdErr, HasSubstr("belongs to another user (uid 65534)"));
    }
}

}  // namespace
}  // namespace quorvane
