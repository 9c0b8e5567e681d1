#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "git/RepoDiscovery.hpp"
#include "platform/Shell.hpp"
#include "testing/FakeProcessRunner.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::TestRepo;

class RepoDiscoveryTest : public ::testing::Test {
protected:
    // The ids found, in result order.
    std::vector<std::string> found(std::vector<std::string> folders, int maxDepth = 5) {
        std::vector<std::string> ids;
        for (const DiscoveredRepo& repo : RepoDiscovery(shell_).discover(folders, maxDepth, {}))
            ids.push_back(repo.repoID);
        return ids;
    }
    std::string at(const std::string& relative) const { return (dir_ / relative).string(); }

    Shell shell_;
    testing::TempDir dir_{"discovery"};
};

TEST_F(RepoDiscoveryTest, PrunesNestedSkippedHiddenAndLinkedFoldersAndListsEachRepoOnce) {
    for (const char* repo :
         {"code/outer", "code/outer/inner", "code/vendor/lib", "code/node_modules/pkg",
          "code/.hidden/secret", "code/a/b/deep", "elsewhere/linked"})
        TestRepo(dir_ / repo);
    fs::create_directory_symlink(dir_ / "elsewhere/linked", dir_ / "code/link");
    fs::create_directory_symlink(dir_ / "elsewhere", dir_ / "code/linkedFolder");
    fs::create_directory_symlink(dir_ / "code", fs::path(getenv("HOME")) / "discoveryCode");
    testing::writeFile(dir_ / "plain.txt", "not a folder");

    EXPECT_THAT(found({at("code")}), ElementsAre(at("code/a/b/deep"), at("code/outer")));
    // Overlapping, aliased, tilde and unusable starting folders add nothing twice.
    EXPECT_THAT(found({at("code/a"), at("code"), "~/discoveryCode", at("plain.txt"), at("no")}),
                ElementsAre(at("code/a/b/deep"), at("code/outer")));
    // A hidden starting folder is searched; a repository given is found at depth 0.
    EXPECT_THAT(found({at("code/.hidden")}), ElementsAre(at("code/.hidden/secret")));
    EXPECT_THAT(found({at("code/outer")}, 0), ElementsAre(at("code/outer")));
    EXPECT_THAT(found({at("code")}, 0), ElementsAre());
    EXPECT_THAT(found({at("code")}, 2), ElementsAre(at("code/outer")));
    // Counted by the same walk, and without reading any of them.
    testing::FakeProcessRunner none;
    EXPECT_EQ(RepoDiscovery(none).repositoriesUnder("~/discoveryCode", 5), 2u);
    EXPECT_EQ(RepoDiscovery(none).repositoriesUnder(at("code/a"), 1), 0u);
    EXPECT_EQ(RepoDiscovery(none).repositoriesUnder(at("plain.txt"), 5), std::nullopt);
    EXPECT_EQ(RepoDiscovery(none).repositoriesUnder(at("no"), 5), std::nullopt);
    EXPECT_TRUE(none.requests().empty());
    fs::remove(fs::path(getenv("HOME")) / "discoveryCode");
}

TEST_F(RepoDiscoveryTest, SortsByNameAndReadsBranchesFromGit) {
    TestRepo origin(dir_ / "origin");
    origin.commitFile("a.txt", "a", "first");
    TestRepo::cloneOf(origin, dir_ / "x/gamma").git({"checkout", "-q", "-b", "topic"});
    TestRepo(dir_ / "x/Beta").git({"checkout", "-q", "-b", "trunk"});
    TestRepo(dir_ / "x/Émile");  // sorts as an E, not after every ASCII letter
    TestRepo alpha(dir_ / "x/alpha");
    alpha.commitFile("a.txt", "a", "first");
    alpha.git({"checkout", "-q", "--detach"});
    // A linked worktree has a ".git" file rather than a folder.
    origin.git({"worktree", "add", "-q", "-b", "feature", at("x/delta")});

    // Real git, each child counted: enrolling a thousand repositories pays for each.
    testing::FakeProcessRunner counted([this](const ProcessRequest& r) { return shell_.run(r); });
    std::vector<DiscoveredRepo> repos = RepoDiscovery(counted).discover({at("x")}, 1, {});
    ASSERT_EQ(repos.size(), 5u);
    // One child where HEAD is on a branch with a commit, a second otherwise; origin's
    // URL is left to the first scan.
    EXPECT_EQ(counted.requests().size(), 2u + 2u + 1u + 2u + 1u);
    auto fields = [](const DiscoveredRepo& r) {
        return std::vector<std::string>{r.name, r.currentBranch, r.defaultBranch,
                                        r.remoteURL.value_or("-")};
    };
    EXPECT_THAT(fields(repos[0]), ElementsAre("alpha", "", "main", "-"));
    EXPECT_THAT(fields(repos[1]), ElementsAre("Beta", "trunk", "trunk", "-"));
    EXPECT_THAT(fields(repos[2]), ElementsAre("delta", "feature", "feature", "-"));
    EXPECT_THAT(fields(repos[3]), ElementsAre("Émile", "main", "main", "-"));
    EXPECT_THAT(fields(repos[4]), ElementsAre("gamma", "topic", "main", "-"));
    // Tracking one repository by hand reads its URL at once.
    EXPECT_EQ(RepoDiscovery(shell_).makeRepo(at("x/gamma")).remoteURL, at("origin"));
    EXPECT_TRUE(repos[4].hasRemoteBranches);
    EXPECT_FALSE(repos[0].hasRemoteBranches || repos[1].hasRemoteBranches ||
                 repos[2].hasRemoteBranches || repos[3].hasRemoteBranches);
}

TEST_F(RepoDiscoveryTest, AKnownRepositoryCostsNoChildProcess) {
    fs::create_directories(dir_ / "k/tracked/.git");
    fs::create_directories(dir_ / "k/fresh/.git");
    testing::FakeProcessRunner runner;  // every git command fails to start
    std::vector<DiscoveredRepo> repos =
        RepoDiscovery(runner).discover({at("k")}, 3, {at("k/tracked")});

    EXPECT_THAT(
        repos,
        ElementsAre(
            DiscoveredRepo{at("k/fresh"), "fresh", at("k/fresh"), std::nullopt, "", "main"},
            DiscoveredRepo{at("k/tracked"), "tracked", at("k/tracked"), std::nullopt, "", "main"}));
    ASSERT_EQ(runner.requests().size(), 2u);  // the branches, then HEAD's own
    for (const ProcessRequest& request : runner.requests()) EXPECT_EQ(request.cwd, at("k/fresh"));
}

}  // namespace
}  // namespace quorvane
