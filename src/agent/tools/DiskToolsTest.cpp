#include "testing/TestRepo.hpp"
#include "tests/AgentToolFixture.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using testing::TestRepo;

class DiskToolsTest : public testing::ToolTest {
protected:
    void configure(AppConfig& config) override { config.agent.maxScanDepth = 2; }
    // The refusal's code and hint, and the status its audit entry was written with.
    std::string refusal(const std::string& tool, const Json& args) {
        AgentResult answer = call(tool, args);
        EXPECT_EQ(answer.json, "{}");
        return answer.errorCode.value_or("") + ": " + answer.hint.value_or("") + " (" +
               env_.store().auditEntries(1).at(0).status + ")";
    }
    // A GitHub repository of account "acct", linked to `localPath` when given.
    void addRemote(const std::string& fullName, std::optional<std::string> localPath,
                   std::optional<std::string> description = {}, bool archived = false) {
        RemoteRepository remote;
        remote.id = "acct:" + fullName;
        remote.accountID = "acct";
        remote.fullName = fullName;
        remote.description = std::move(description);
        remote.isArchived = archived;
        std::vector<RemoteRepository> remotes = env_.store().remoteRepos("acct");
        remotes.push_back(remote);
        env_.store().replaceRemoteRepos("acct", remotes);
        if (!localPath) return;
        RepositoryMapping mapping;
        mapping.id = *localPath;
        mapping.localRepoID = localPath;
        mapping.remoteRepoID = remote.id;
        env_.store().upsertMappings({mapping});
    }
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
};

TEST_F(DiskToolsTest, SearchAndScanWalkTheRootNoDeeperThanTheSettingAllows) {
    TestRepo ledger(dir_ / "code/ledger");
    ledger.git({"remote", "add", "origin", "git@github.com:acme/ledger.git"});
    const std::string sha = ledger.commitFile("README.md", "# Ledger\n", "start");
    TestRepo(dir_ / "code/other");
    TestRepo(dir_ / "code/deep/er/repo");  // three below the root, past the setting
    TestRepo(dir_ / "code/vendor/lib");
    const std::string code = root_ + "/code";
    const size_t before = env_.store().auditEntries().size();

    Json found = result(call("search_local_projects", {{"rootPath", code}, {"query", "LEDGER"}}));
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0], (Json{{"path", code + "/ledger"},
                              {"remoteOwnerRepo", "acme/ledger"},
                              {"pkgName", nullptr},
                              {"readmeTitle", "Ledger"},
                              {"recentShas", {sha}},
                              {"confidence", 95},
                              {"evidence", {"origin repository acme/ledger is named ledger"}}}));
    EXPECT_EQ(found[1]["path"], code + "/other") << "a weaker match still listed, after";
    EXPECT_EQ(found[1]["remoteOwnerRepo"], nullptr);
    // An agent may ask for less depth, never more; a scan takes no query.
    auto scanned = [&](const Json& args) {
        std::vector<std::string> paths;
        for (const Json& match : result(call("scan_folder_for_git_repos", args))) {
            paths.push_back(match["path"]);
        }
        return paths;
    };
    const std::vector<std::string> both = {code + "/ledger", code + "/other"};
    EXPECT_EQ(scanned({{"rootPath", code}, {"maxDepth", 9}}), both);
    EXPECT_EQ(scanned({{"rootPath", code}, {"query", "other"}}), both);
    EXPECT_TRUE(scanned({{"rootPath", code}, {"maxDepth", 0}}).empty());

    for (const Json& depth : {Json(-1), Json("2"), Json(1.5)}) {
        EXPECT_EQ(refusal("search_local_projects", {{"rootPath", code}, {"maxDepth", depth}}),
                  "invalid_params: `maxDepth` must be a whole number, 0 or more (error)");
    }
    EXPECT_EQ(refusal("search_local_projects", {{"rootPath", code + "/gone"}}),
              "not_found: no folder at " + code + "/gone (error)");
    EXPECT_EQ(env_.store().auditEntries().size(), before + 8) << "one entry per call";
}

TEST_F(DiskToolsTest, InspectFingerprintAndMetadataReadOneFolder) {
    TestRepo repo(dir_ / "shop");
    repo.git({"remote", "add", "origin", "https://github.com/Acme/Shop"});
    const std::string first =
        repo.commitFile("package.json", R"({"name":"shop","dependencies":{"react":"18"}})", "a");
    repo.commitFile("README.md", "Shop\n====\n", "b");
    const std::string path = root_ + "/shop";

    Json inspected = result(call("inspect_local_git_repo", {{"path", path + "/"}}));
    EXPECT_EQ(inspected["path"], path);
    EXPECT_EQ(inspected["recentShas"].size(), 2u);
    EXPECT_EQ(result(call("compute_repo_fingerprint", {{"path", path}})),
              (Json{{"path", path},
                    {"firstCommitSha", first},
                    {"remoteOwnerRepo", "Acme/Shop"},
                    {"pkgName", "shop"},
                    {"readmeTitle", "Shop"}}));
    fs::create_directories(dir_ / "plain");
    for (const char* tool : {"inspect_local_git_repo", "compute_repo_fingerprint"}) {
        EXPECT_EQ(refusal(tool, {{"path", root_ + "/plain"}}), "not_found: not a git repo (error)");
    }

    // The linked GitHub repository's description and archived flag are used, and
    // nothing is stored: reading tools change nothing.
    track({path});
    addRemote("acme/shop", path, "The shop front", true);
    EXPECT_EQ(
        result(call("infer_project_metadata", {{"path", path}})),
        (Json{{"repoId", path},
              {"projectType", "web app"},
              {"stack", {"JavaScript", "React"}},
              {"category", "app"},
              {"priority", "low"},
              {"summary", "The shop front"},
              {"nextAction",
               "The GitHub repository is archived: keep this clone only if you still need it"},
              {"inferredAt", "2026-11-25T10:00:00Z"}}));
    EXPECT_FALSE(env_.store().metadata(path));
    EXPECT_EQ(refusal("infer_project_metadata", {{"path", root_ + "/gone"}}),
              "not_found: no folder at " + root_ + "/gone (error)");
}

TEST_F(DiskToolsTest, DuplicatesMissingClonesAndThePlanReadTheTrackedRepositories) {
    TestRepo(dir_ / "one/site").git({"remote", "add", "origin", "https://github.com/Acme/Site"});
    TestRepo(dir_ / "two/copy").git({"remote", "add", "origin", "git@github.com:acme/site.git"});
    TestRepo(dir_ / "three/tool");
    track({root_ + "/one/site", root_ + "/two/copy", root_ + "/three/tool", root_ + "/not/there"});
    EXPECT_EQ(result(call("find_duplicate_clones")),
              (Json{{{"key", "remote:acme/site"},
                     {"paths", {root_ + "/one/site", root_ + "/two/copy"}}}}));

    addRemote("acme/site", root_ + "/one/site");
    addRemote("acme/lost", std::nullopt);
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
}

}  // namespace
}  // namespace quorvane
