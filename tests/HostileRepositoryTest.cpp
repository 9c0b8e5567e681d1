// A repository is untrusted input: it may have been unpacked from anywhere with its
// .git folder. Tracking and scanning one must never run a program its
// configuration names. Each such program here only leaves a marker file behind.
#include <sys/stat.h>

#include <chrono>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "git/GitScanner.hpp"
#include "platform/Clock.hpp"
#include "platform/Shell.hpp"
#include "records/JsonCodec.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using testing::TestRepo;

class HostileRepositoryTest : public ::testing::Test {
protected:
    fs::path markers() const { return dir_ / "markers"; }
    fs::path tools() const { return dir_ / "tools"; }

    // A program that records that it ran, then passes its input through, as a
    // filter would.
    std::string tool(const std::string& name) const {
        fs::create_directories(markers());
        fs::path path = tools() / name;
        if (!fs::exists(path)) {
            testing::writeFile(path, "#!/bin/sh\ntouch '" + (markers() / name).string() +
                                         "'\nexec cat 2>/dev/null\n");
            fs::permissions(path, fs::perms::owner_all);
        }
        return path.string();
    }

    // The names of the programs that ran.
    std::vector<std::string> ran() const {
        std::vector<std::string> names;
        std::error_code ec;
        for (const auto& entry : fs::directory_iterator(markers(), ec))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    // A repository with a commit of today, work tree files whose stat data no longer
    // match the index (so git compares their content), a submodule with changes, and
    // a configuration that names a program in every place git offers one.
    TestRepo plant(const fs::path& path) {
        TestRepo sub(dir_ / ("sub-of-" + path.filename().string()));
        sub.write(".gitattributes", "* filter=subfilter\n");
        sub.commitFile("s.txt", "sub", "sub first");

        TestRepo repo(path);
        repo.write(".gitattributes", "a.txt filter=evil diff=evil\nb.txt filter=proc\n");
        repo.write("a.txt", "alpha\n");
        repo.write("b.txt", "beta\n");
        repo.git({"-c", "protocol.file.allow=always", "submodule", "add", "-q", sub.path().string(),
                  "sm"});
        repo.commitAll("first");
        // A commit that looks signed: with log.showSignature, `git log` hands it to gpg.
        std::string raw = repo.git({"cat-file", "commit", "HEAD"});
        size_t body = raw.find("\n\n");
        std::string signedCommit = raw.substr(0, body) +
                                   "\ngpgsig -----BEGIN PGP SIGNATURE-----\n \n "
                                   "AAAA\n -----END PGP SIGNATURE-----" +
                                   raw.substr(body);
        testing::writeFile(dir_ / "commit.txt", signedCommit);
        std::string sha =
            repo.gitLine({"hash-object", "-t", "commit", "-w", (dir_ / "commit.txt").string()});
        repo.git({"update-ref", "HEAD", sha});

        std::string include = (path.parent_path() / (path.filename().string() + ".inc")).string();
        testing::writeFile(include, "[core]\n\tfsmonitor = " + tool("fsmonitor") + "\n");
        fs::create_directories(tools() / "hooks");
        fs::create_directories(markers());
        for (const char* hook : {"pre-commit", "post-checkout", "post-index-change",
                                 "reference-transaction", "pre-auto-gc", "post-rewrite"}) {
            testing::writeFile(tools() / "hooks" / hook,
                               "#!/bin/sh\ntouch '" + (markers() / "hook").string() + "'\n");
            fs::permissions(tools() / "hooks" / hook, fs::perms::owner_all);
        }
        for (auto [key, value] : std::vector<std::pair<std::string, std::string>>{
                 {"include.path", include},
                 {"filter.evil.clean", tool("clean")},
                 {"filter.evil.smudge", tool("smudge")},
                 {"filter.evil.required", "true"},
                 {"filter.proc.process", tool("process")},
                 {"diff.evil.textconv", tool("textconv")},
                 {"diff.evil.command", tool("diffcommand")},
                 {"diff.external", tool("externaldiff")},
                 {"core.pager", tool("pager")},
                 {"pager.log", tool("pager")},
                 {"pager.status", tool("pager")},
                 {"core.hooksPath", (tools() / "hooks").string()},
                 {"core.sshCommand", tool("ssh")},
                 {"core.askPass", tool("askpass")},
                 {"credential.helper", tool("credential")},
                 {"protocol.ssh.allow", "always"},
                 {"protocol.ext.allow", "always"},
                 {"remote.origin.url", "ssh://example.invalid/hostile.git"},
                 {"remote.origin.fetch", "+refs/heads/*:refs/remotes/origin/*"},
                 {"remote.other.url", "ext::" + tool("ext") + " %S"},
                 {"branch.main.remote", "origin"},
                 {"branch.main.merge", "refs/heads/main"},
                 {"log.showSignature", "true"},
                 {"gpg.program", tool("gpg")},
             }) {
            repo.git({"config", "--add", key, value});
        }
        fs::path moduleConfig = path / ".git/modules/sm/config";
        std::ofstream(moduleConfig, std::ios::app)
            << "[filter \"subfilter\"]\n\tclean = " << tool("subclean") << "\n"
            << "[core]\n\tfsmonitor = " << tool("subfsmonitor") << "\n";

        // Stat data that no longer match the index make git read these files again.
        auto later = fs::file_time_type::clock::now() + std::chrono::seconds(5);
        for (const char* file : {"a.txt", "b.txt", "sm/s.txt"})
            fs::last_write_time(path / file, later);
        return repo;
    }

    testing::TempDir dir_{"hostile"};
};

TEST_F(HostileRepositoryTest, TrackingScanningAndReadingRunNoneOfTheRepositorysPrograms) {
    plant(dir_ / "code/found");
    TestRepo added = plant(dir_ / "elsewhere/added");
    ASSERT_TRUE(ran().empty()) << "the setup itself ran " << ran().front();
    fs::path data = dir_ / "data";

    // Enrolment by hand and by discovery, each reading 90 days of history, then scans.
    ShellResult add = testing::runQuorvane(data, {"repos", "add", added.path().string()});
    EXPECT_EQ(add.exitCode, 0) << add.stdErr;
    ShellResult folders = testing::runQuorvane(data, {"folders", "add", (dir_ / "code").string()});
    EXPECT_EQ(folders.exitCode, 0) << folders.stdErr;
    ShellResult scan = testing::runQuorvane(data, {"scan", "--json"});
    ASSERT_EQ(scan.exitCode, 0) << scan.stdErr;
    EXPECT_EQ(testing::runQuorvane(data, {"today"}).exitCode, 0);

    // Local branches are read as the sync cycle reads them.
    Shell shell;
    SystemClock clock;
    std::vector<LocalBranchInfo> branches = GitScanner(shell, clock).localBranches(added.path());
    ASSERT_EQ(branches.size(), 1u);
    EXPECT_EQ(branches[0].name, "main");

    EXPECT_THAT(ran(), ::testing::IsEmpty());

    // With the filters off the files still read as unchanged: the scan counts what
    // is really there, and a moved submodule would still count.
    Json snapshots = JsonCodec::parse(scan.stdOut);
    ASSERT_EQ(snapshots.size(), 2u);
    for (const Json& snapshot : snapshots) {
        EXPECT_EQ(snapshot.at("branch"), "main");
        EXPECT_EQ(snapshot.at("remoteURL"), "ssh://example.invalid/hostile.git");
        EXPECT_EQ(snapshot.at("commitsToday"), 1);
        EXPECT_EQ(snapshot.at("files").at("modified"), 0) << snapshot.dump();
    }
}

}  // namespace
}  // namespace quorvane
