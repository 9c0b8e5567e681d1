#include <gtest/gtest.h>

#include "agent/AgentService.hpp"
#include "app/AppEnvironment.hpp"
#include "platform/Shell.hpp"
#include "testing/FakeClock.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using testing::TestRepo;

std::vector<std::string> keys(const Json& object) {
    std::vector<std::string> out;
    for (const auto& [key, value] : object.items()) out.push_back(key);
    return out;
}

// The disk tools through the service's front door, on a real application
// environment whose allowed root is the test's folder.
class AgentDiskToolsTest : public ::testing::Test {
protected:
    void SetUp() override {
        env_.load();
        env_.applyConfigChange([&](AppConfig& config) {
            config.agent.allowedRoots = {root_};
            config.agent.maxScanDepth = 2;
        });
    }

    AgentResult call(const std::string& tool, const Json& args = Json::object()) {
        return env_.agentService().handle(tool, args.dump());
    }
    Json result(const AgentResult& answer) {
        EXPECT_TRUE(answer.ok) << answer.hint.value_or("");
        return Json::parse(answer.json);
    }
    std::vector<AuditLogEntry> audit() { return env_.store().auditEntries(); }
    // Tracks each folder under its own name, as enrolment would.
    void track(const std::vector<std::string>& paths) {
        env_.applyConfigChange([&](AppConfig& config) {
            for (const std::string& path : paths) {
                RepoConfig& repo = config.repositories.emplace_back();
                repo.id = repo.localPath = path;
                repo.name = fs::path(path).filename().string();
            }
        });
    }

    testing::TempDir dir_;
    const std::string root_ = fs::canonical(dir_.path()).string();
    testing::FakeClock clock_{*DateHelpers::parseISO("2026-11-25T10:00:00Z")};
    Shell shell_;
    AppEnvironment env_{dir_ / "data", clock_, shell_};
};

TEST_F(AgentDiskToolsTest, SearchAndScanWalkTheRootNoDeeperThanTheSettingAllows) {
    TestRepo ledger(dir_ / "code/ledger");
    ledger.git({"remote", "add", "origin", "git@github.com:acme/ledger.git"});
    ledger.commitFile("README.md", "# Ledger\n", "start");
    TestRepo(dir_ / "code/other");
    TestRepo(dir_ / "code/deep/er/repo");  // three below the root, past the setting
    TestRepo(dir_ / "code/vendor/lib");
    const std::string code = root_ + "/code";
    const size_t before = audit().size();

    Json found = result(call("search_local_projects", {{"rootPath", code}, {"query", "LEDGER"}}));
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0]["path"], code + "/ledger");
    EXPECT_EQ(found[0]["remoteOwnerRepo"], "acme/ledger");
    EXPECT_EQ(found[0]["readmeTitle"], "Ledger");
    EXPECT_EQ(found[0]["pkgName"], nullptr);
    EXPECT_EQ(found[0]["recentShas"].size(), 1u);
    EXPECT_EQ(found[0]["confidence"], 95);
    EXPECT_EQ(found[0]["evidence"].size(), 1u);
    EXPECT_EQ(keys(found[0]),
              (std::vector<std::string>{"confidence", "evidence", "path", "pkgName", "readmeTitle",
                                        "recentShas", "remoteOwnerRepo"}));
    EXPECT_EQ(found[1]["path"], code + "/other");
    EXPECT_EQ(found[1]["confidence"], 0);

    // An agent may ask for less depth, never more.
    EXPECT_EQ(
        result(call("scan_folder_for_git_repos", {{"rootPath", code}, {"maxDepth", 9}})).size(),
        2u);
    EXPECT_EQ(
        result(call("scan_folder_for_git_repos", {{"rootPath", code}, {"maxDepth", 0}})).size(),
        0u);
    Json all = result(call("scan_folder_for_git_repos", {{"rootPath", code}, {"query", "other"}}));
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0]["path"], code + "/ledger") << "a scan takes no query";

    for (const Json& depth : {Json(-1), Json("2"), Json(1.5)}) {
        AgentResult bad = call("search_local_projects", {{"rootPath", code}, {"maxDepth", depth}});
        EXPECT_EQ(bad.errorCode, "invalid_params") << depth;
        EXPECT_EQ(bad.hint, "`maxDepth` must be a whole number, 0 or more");
    }
    AgentResult missing = call("search_local_projects", {{"rootPath", code + "/gone"}});
    EXPECT_EQ(missing.errorCode, "not_found");
    EXPECT_EQ(missing.hint, "no folder at " + code + "/gone");

    // One audit entry per call, the refusals as errors.
    std::vector<AuditLogEntry> entries = audit();
    ASSERT_EQ(entries.size(), before + 8);
    EXPECT_EQ(entries[0].status, "error");
    EXPECT_EQ(entries[0].detail, "no such folder");
    EXPECT_EQ(entries[4].status, "ok");
    EXPECT_EQ(entries[4].tool, "scan_folder_for_git_repos");
}

TEST_F(AgentDiskToolsTest, InspectAndFingerprintReadOneWorkingTree) {
    TestRepo repo(dir_ / "site");
    repo.git({"remote", "add", "origin", "https://github.com/Acme/Site"});
    const std::string first = repo.commitFile("package.json", R"({"name":"site"})", "one");
    repo.commitFile("README.md", "Site\n====\n", "two");
    const std::string path = root_ + "/site";

    Json inspected = result(call("inspect_local_git_repo", {{"path", path + "/"}}));
    EXPECT_EQ(inspected["path"], path);
    EXPECT_EQ(inspected["remoteOwnerRepo"], "Acme/Site");
    EXPECT_EQ(inspected["pkgName"], "site");
    EXPECT_EQ(inspected["recentShas"].size(), 2u);
    EXPECT_EQ(inspected["recentShas"][1], first);

    Json fingerprint = result(call("compute_repo_fingerprint", {{"path", path}}));
    EXPECT_EQ(fingerprint, (Json{{"path", path},
                                 {"firstCommitSha", first},
                                 {"remoteOwnerRepo", "Acme/Site"},
                                 {"pkgName", "site"},
                                 {"readmeTitle", "Site"}}));

    fs::create_directories(dir_ / "plain");
    for (const char* tool : {"inspect_local_git_repo", "compute_repo_fingerprint"}) {
        AgentResult none = call(tool, {{"path", root_ + "/plain"}});
        EXPECT_EQ(none.errorCode, "not_found") << tool;
        EXPECT_EQ(none.hint, "not a git repo");
        EXPECT_EQ(none.json, "{}");
        EXPECT_EQ(audit().at(0).status, "error");
        EXPECT_EQ(audit().at(0).detail, "not a git repo");
    }
}

TEST_F(AgentDiskToolsTest, InferredMetadataUsesTheLinkedGitHubRepository) {
    TestRepo repo(dir_ / "shop");
    repo.write("package.json", R"({"dependencies":{"react":"18"}})");
    const std::string path = root_ + "/shop";
    track({path});
    RemoteRepository remote;
    remote.id = "acct:acme/shop";
    remote.accountID = "acct";
    remote.fullName = "acme/shop";
    remote.description = "The shop front";
    remote.isArchived = true;
    env_.store().replaceRemoteRepos("acct", {remote});
    RepositoryMapping mapping;
    mapping.id = mapping.localRepoID.emplace(path);
    mapping.remoteRepoID = remote.id;
    mapping.kind = RepositoryMapping::Kind::mapped;
    env_.store().upsertMappings({mapping});

    Json metadata = result(call("infer_project_metadata", {{"path", path}}));
    EXPECT_EQ(metadata, (Json{{"repoId", path},
                              {"projectType", "web app"},
                              {"stack", {"JavaScript", "React"}},
                              {"category", "app"},
                              {"priority", "low"},
                              {"summary", "The shop front"},
                              {"nextAction",
                               "The GitHub repository is archived: keep this clone "
                               "only if you still need it"},
                              {"inferredAt", "2026-11-25T10:00:00Z"}}));
    // Nothing was stored: reading tools change nothing.
    EXPECT_FALSE(env_.store().metadata(path));

    AgentResult gone = call("infer_project_metadata", {{"path", root_ + "/gone"}});
    EXPECT_EQ(gone.errorCode, "not_found");
    EXPECT_EQ(gone.hint, "no folder at " + root_ + "/gone");
}

TEST_F(AgentDiskToolsTest, DuplicatesMissingClonesAndThePlanReadTheTrackedRepositories) {
    TestRepo a(dir_ / "one/site");
    a.git({"remote", "add", "origin", "https://github.com/Acme/Site.git"});
    TestRepo b(dir_ / "two/site-copy");
    b.git({"remote", "add", "origin", "git@github.com:acme/site.git"});
    TestRepo c(dir_ / "three/tool");
    track({root_ + "/one/site", root_ + "/two/site-copy", root_ + "/three/tool",
           root_ + "/not/there"});

    EXPECT_EQ(result(call("find_duplicate_clones")),
              (Json{{{"key", "remote:acme/site"},
                     {"paths", {root_ + "/one/site", root_ + "/two/site-copy"}}}}));

    RemoteRepository cloned, missing;
    cloned.id = "acct:acme/site";
    cloned.accountID = missing.accountID = "acct";
    cloned.fullName = "acme/site";
    missing.id = "acct:acme/lost";
    missing.fullName = "acme/lost";
    env_.store().replaceRemoteRepos("acct", {cloned, missing});
    RepositoryMapping linked;
    linked.id = linked.localRepoID.emplace(root_ + "/one/site");
    linked.remoteRepoID = cloned.id;
    env_.store().upsertMappings({linked});
    EXPECT_EQ(result(call("find_missing_local_clones")),
              (Json{{{"remoteRepoId", "acct:acme/lost"}, {"fullName", "acme/lost"}}}));

    EXPECT_EQ(
        result(call("generate_cleanup_plan")),
        (Json{{"markdown",
               "# Daily cleanup plan\n\nEverything looks aligned — nothing to clean up.\n"}}));
    RepoSnapshot dirty;
    dirty.repoID = root_ + "/three/tool";
    dirty.branch = "main";
    dirty.files.modified = 2;
    env_.store().replaceSnapshot(dirty);
    const std::string plan = result(call("generate_cleanup_plan"))["markdown"];
    EXPECT_NE(plan.find("## 1. Commit first\n\n- **tool** — 2 dirty file(s) on `main`\n"),
              std::string::npos)
        << plan;
    EXPECT_EQ(audit().at(0).tool, "generate_cleanup_plan");
    EXPECT_EQ(audit().at(0).status, "ok");
}

}  // namespace
}  // namespace quorvane
