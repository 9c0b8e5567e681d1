#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "agent/AgentTools.hpp"
#include "testing/TestRepo.hpp"
#include "tests/AgentToolFixture.hpp"

namespace quorvane {
namespace {

using testing::repoAt;

namespace fs = std::filesystem;
using testing::TestRepo;

Date at(const char* iso) {
    return *DateHelpers::parseISO(iso);
}

RemoteRepository remote(const std::string& account, const std::string& owner,
                        const std::string& name) {
    RemoteRepository repo;
    repo.accountID = account;
    repo.owner = owner;
    repo.name = name;
    repo.fullName = owner + "/" + name;
    repo.id = repo.composedID();
    repo.defaultBranch = "main";
    return repo;
}

GitHubAccount account(const std::string& id, const std::string& displayName) {
    GitHubAccount account;
    account.id = id;
    account.displayName = displayName;
    account.username = id;
    account.keychainRef = "ref." + id;
    return account;
}

std::string readText(const fs::path& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// A Wednesday, with the test process in UTC: today is 2026-11-25, its week began on
// Monday 2026-11-23.
class ReadToolsTest : public testing::ToolTest {
protected:
    void configure(AppConfig& config) override {
        config.repositories = {repoAt("/work/app", "git@github.com:alice/app.git"),
                               repoAt("/work/lib"),
                               repoAt("/work/web", "https://github.com/alice/web.git")};
        RepoConfig off = repoAt("/work/off");
        off.trackingEnabled = false;
        config.repositories.push_back(off);
    }
    Json resource(const std::string& uri) { return result(call("resources/read", {{"uri", uri}})); }
    Store& store() { return env_.store(); }

    // The GitHub side as a sync would leave it: two accounts, one holding a
    // repository the other also holds, and /work/app linked to alice/app.
    void fillInventory() {
        store().upsertAccount(account("acct-a", "Alice"));
        GitHubAccount b = account("acct-b", "Bob");
        b.lastSyncAt = at("2026-11-25T09:00:00Z");
        store().upsertAccount(b);
        store().replaceRemoteRepos(
            "acct-a", {remote("acct-a", "alice", "app"), remote("acct-a", "alice", "site")});
        store().replaceRemoteRepos(
            "acct-b", {remote("acct-b", "alice", "site"), remote("acct-b", "org", "tools")});
        RepositoryMapping mapped;
        mapped.id = "/work/app";
        mapped.localRepoID = "/work/app";
        mapped.remoteRepoID = "acct-a:alice/app";
        mapped.kind = RepositoryMapping::Kind::mapped;
        mapped.confidence = 1.0;
        RepositoryMapping remoteOnly;
        remoteOnly.id = "acct-b:org/tools";
        remoteOnly.remoteRepoID = "acct-b:org/tools";
        remoteOnly.kind = RepositoryMapping::Kind::remoteOnly;
        RepositoryMapping localOnly;
        localOnly.id = "/work/lib";
        localOnly.localRepoID = "/work/lib";
        localOnly.kind = RepositoryMapping::Kind::localOnly;
        store().replaceMappings({mapped, remoteOnly, localOnly});
    }

    // A proposal to map `remoteID`, as the propose tool stores one.
    std::string mappingProposal(const std::string& remoteID, std::optional<int> confidence,
                                PendingProposal::Status status = PendingProposal::Status::pending) {
        PendingProposal proposal;
        proposal.id = "P" + std::to_string(++proposals_);
        proposal.kind = PendingProposal::Kind::mapping;
        proposal.title = "Map " + remoteID;
        proposal.payloadJSON = R"({"localRepoId":"/work/web","remoteRepoId":")" + remoteID + "\"}";
        proposal.confidence = confidence;
        proposal.evidence = {"same name"};
        proposal.status = status;
        proposal.createdAt = clock_.now();
        proposal.intendedTool = "apply_repository_mapping";
        proposal.confirmationToken = "TOKEN-" + proposal.id;
        store().upsertProposal(proposal);
        return proposal.id;
    }

    int proposals_ = 0;
};

TEST_F(ReadToolsTest, StoreReadsAnswerFromTheInventoryAndLeaveOutWhatIsUnknown) {
    fillInventory();
    RepoSnapshot snapshot;
    snapshot.repoID = "/work/app";
    snapshot.branch = "main";
    snapshot.files.modified = 2;
    snapshot.lastCommitSha = "abc123";
    snapshot.capturedAt = clock_.now();
    store().replaceSnapshot(snapshot);
    SyncState state;
    state.id = "/work/app";
    state.status = SyncState::Status::needsPush;
    state.localAhead = 3;
    store().replaceSyncStates({state});
    ProjectHealthSnapshot health{
        "/work/app", "/work/app", 70, {"recent commits"}, {"3 commits unpushed", "dirty"},
        clock_.now()};
    ProjectHealthSnapshot web{"/work/web", "/work/web", 95, {}, {}, clock_.now()};
    store().upsertHealth({web, health});

    Json accounts = result(call("list_accounts"));
    ASSERT_EQ(accounts.size(), 2u);
    EXPECT_EQ(accounts[0]["displayName"], "Alice");
    EXPECT_EQ(accounts[0]["remoteRepositoryCount"], 2);
    EXPECT_TRUE(accounts[0]["lastSyncAt"].is_null());
    EXPECT_EQ(accounts[1]["lastSyncAt"], "2026-11-25T09:00:00Z");
    EXPECT_EQ(result(call("list_remote_repositories")).size(), 4u);
    Json bobs = result(call("list_remote_repositories", {{"accountId", "acct-b"}}));
    ASSERT_EQ(bobs.size(), 2u);
    EXPECT_EQ(bobs[1]["id"], "acct-b:org/tools");

    Json app = result(call("get_repository", {{"repoId", "/work/app"}}));
    EXPECT_EQ(app["snapshot"]["isDirty"], true);
    EXPECT_EQ(app["snapshot"]["modified"], 2);
    EXPECT_TRUE(app["snapshot"]["lastCommitMessage"].is_null());
    EXPECT_EQ(app["syncState"]["status"], "needsPush");
    EXPECT_EQ(app["syncState"]["localAhead"], 3);
    EXPECT_EQ(app["health"]["score"], 70);
    EXPECT_EQ(app["mapping"]["remoteRepoId"], "acct-a:alice/app");
    EXPECT_EQ(app["remoteURL"], "git@github.com:alice/app.git");
    Json status = result(call("get_repository_status", {{"repoId", "/work/app"}}));
    EXPECT_EQ(status["snapshot"], app["snapshot"]);
    EXPECT_FALSE(status.contains("health"));
    Json lib = result(call("get_repository", {{"repoId", "/work/lib"}}));
    for (const char* absent : {"snapshot", "syncState", "health", "remoteURL"}) {
        EXPECT_FALSE(lib.contains(absent)) << absent;
    }

    AgentResult unknown = call("get_repository", {{"repoId", "/work/nope"}});
    EXPECT_EQ(unknown.errorCode, "not_found");
    EXPECT_EQ(unknown.hint, "repo not found");
    EXPECT_EQ(unknown.json, "{}");
    EXPECT_EQ(lastAudit().status, "error");
    EXPECT_EQ(call("get_repository").hint, "missing repoId");
    EXPECT_EQ(lastAudit().detail, "missing repoId");
    EXPECT_EQ(call("get_repositories_status", {{"repoIds", "/work/app"}}).hint, "missing repoIds");
    Json several =
        result(call("get_repositories_status", {{"repoIds", {"/work/nope", "/work/app"}}}));
    ASSERT_EQ(several.size(), 2u);
    EXPECT_EQ(several[0]["error"], "repo not found");
    EXPECT_EQ(several[1]["syncState"]["status"], "needsPush");

    Json unmappedRemote = result(call("get_unmapped_remote_repositories"));
    ASSERT_EQ(unmappedRemote.size(), 3u) << "all but the linked alice/app";
    for (const Json& item : unmappedRemote) EXPECT_NE(item["id"], "acct-a:alice/app");
    // The linked app and the repository not tracked are left out; lib's localOnly
    // row is no link.
    Json unmappedLocal = result(call("get_unmapped_local_repositories"));
    ASSERT_EQ(unmappedLocal.size(), 2u);
    EXPECT_EQ(unmappedLocal[0]["repoId"], "/work/lib");
    EXPECT_EQ(unmappedLocal[1]["remoteURL"], "https://github.com/alice/web.git");
    Json withoutRemote =
        result(call("get_unmapped_local_repositories", {{"withoutRemoteOnly", true}}));
    ASSERT_EQ(withoutRemote.size(), 1u);
    EXPECT_EQ(withoutRemote[0]["repoId"], "/work/lib");

    Json healthOverview = result(call("get_project_health_overview"));
    ASSERT_EQ(healthOverview.size(), 2u);
    EXPECT_EQ(healthOverview[0]["repoId"], "/work/app") << "the worst first";
    EXPECT_EQ(healthOverview[0]["topConcern"], "3 commits unpushed");
    EXPECT_TRUE(healthOverview[1]["topConcern"].is_null());
}

TEST_F(ReadToolsTest, MappingCandidatesAreTheWaitingProposalsForOneRemote) {
    AgentResult missing = call("get_mapping_candidates");
    EXPECT_EQ(missing.hint, "`remoteRepoId` is required");
    EXPECT_EQ(missing.errorCode, "not_found");
    EXPECT_EQ(call("get_mapping_candidates", {{"remoteRepoId", "org/tools"}}).hint,
              "the GitHub inventory is empty — run `sync_remote_inventory_now` first, then look "
              "`org/tools` up with `list_remote_repositories`");

    fillInventory();
    const std::string strong = mappingProposal("acct-b:org/tools", 80);
    const std::string weak = mappingProposal("acct-b:org/tools", 40);
    const std::string approved =
        mappingProposal("acct-b:org/tools", 90, PendingProposal::Status::approved);
    mappingProposal("acct-b:org/tools", 95, PendingProposal::Status::rejected);
    mappingProposal("acct-a:alice/site", 99);

    // Every way of naming the one remote finds the same proposals.
    for (const char* name : {"acct-b:org/tools", "ORG/Tools", "https://github.com/org/tools.git",
                             "git@github.com:org/tools", "tools"}) {
        AgentResult answer = call("get_mapping_candidates", {{"remoteRepoId", name}});
        ASSERT_TRUE(answer.ok) << name << ": " << answer.hint.value_or("");
        Json items = result(answer);
        ASSERT_EQ(items.size(), 2u) << name;
        std::set<std::string> ids = {items[0]["proposalId"].get<std::string>(),
                                     items[1]["proposalId"].get<std::string>()};
        EXPECT_EQ(ids, (std::set<std::string>{strong, approved})) << name;
    }
    Json all = result(call("get_mapping_candidates",
                           {{"remoteRepoId", "acct-b:org/tools"}, {"minConfidence", 30}}));
    ASSERT_EQ(all.size(), 3u);
    for (const Json& item : all) {
        EXPECT_EQ(item["remoteRepoId"], "acct-b:org/tools");
        EXPECT_EQ(item["localRepoId"], "/work/web");
        EXPECT_EQ(item["evidence"], Json::array({"same name"}));
        EXPECT_FALSE(item.contains("confirmationToken"));
        EXPECT_EQ(item["proposalId"] == weak, item["confidence"] == 40);
    }
    EXPECT_EQ(
        call("get_mapping_candidates", {{"remoteRepoId", "org/tools"}, {"minConfidence", "high"}})
            .errorCode,
        "invalid_params");

    // alice/site is held by both accounts: the short forms cannot choose.
    for (const char* name : {"alice/site", "site"}) {
        EXPECT_EQ(call("get_mapping_candidates", {{"remoteRepoId", name}}).hint,
                  std::string("`") + name +
                      "` matches repositories on more than one account — pass the full "
                      "`<accountId>:<owner>/<name>` id from `list_remote_repositories`");
    }
    EXPECT_TRUE(call("get_mapping_candidates", {{"remoteRepoId", "acct-a:alice/site"}}).ok);
    AgentResult none = call("get_mapping_candidates", {{"remoteRepoId", "org/missing"}});
    EXPECT_EQ(none.hint,
              "no remote matches `org/missing` — list them with `list_remote_repositories`");
    EXPECT_EQ(none.errorCode, "not_found");
}

TEST_F(ReadToolsTest, SummariesAndRankingCountTheDayAskedFor) {
    for (const char* id : {"/work/app", "/work/web"}) {
        RepoSnapshot snapshot;
        snapshot.repoID = id;
        snapshot.branch = "main";
        snapshot.remoteURL = "git@github.com:alice/x.git";
        snapshot.hasUpstream = true;
        store().replaceSnapshot(snapshot);
    }
    RepoSnapshot web = *store().snapshot("/work/web");
    web.lastWorkingTreeChangeAt = at("2026-11-25T08:00:00Z");
    web.files.untracked = 1;
    store().replaceSnapshot(web);
    RepoSnapshot app = *store().snapshot("/work/app");
    app.lastCommitAt = at("2026-11-25T09:30:00Z");
    store().replaceSnapshot(app);
    auto commit = [](const std::string& sha, const char* when) {
        CommitRecord record;
        record.repoID = "/work/app";
        record.sha = sha;
        record.shortSha = sha.substr(0, 7);
        record.message = "work " + sha;
        record.committedAt = at(when);
        return record;
    };
    store().upsertCommits({commit("aaaaaaa1", "2026-11-25T09:30:00Z"),
                           commit("bbbbbbb2", "2026-11-25T08:00:00Z"),
                           commit("ccccccc3", "2026-11-24T16:00:00Z")});
    Json today = result(call("get_daily_summary"));
    EXPECT_EQ(today["dateKey"], "2026-11-25");
    EXPECT_EQ(today["totalCommits"], 2);
    ASSERT_EQ(today["lines"].size(), 2u) << "app worked, web only dirty";
    EXPECT_EQ(today["lines"][0]["repoId"], "/work/app");
    EXPECT_EQ(today["lines"][0]["commitsToday"], 2);
    EXPECT_EQ(today["lines"][1]["workedInWindow"], false);
    EXPECT_EQ(resource("quorvane://reports/today"), today);
    Json yesterday = result(call("get_daily_summary", {{"date", "2026-11-24"}}));
    EXPECT_EQ(yesterday["dateKey"], "2026-11-24");
    EXPECT_EQ(yesterday["totalCommits"], 1);
    EXPECT_EQ(yesterday["lines"].size(), 1u) << "a past day leaves out the only-dirty repository";
    EXPECT_EQ(result(call("get_daily_summary", {{"day", "2026-11-24"}})), yesterday);
    AgentResult badDay = call("get_daily_summary", {{"date", "2026-02-30"}});
    EXPECT_EQ(badDay.errorCode, "invalid_params");
    EXPECT_EQ(badDay.hint, "`date` must be a day, yyyy-MM-dd");

    // Where a week starts and what its days count is AggregatorTest's; here, which
    // week the tool is asked for.
    Json week = result(call("get_weekly_summary"));
    EXPECT_EQ(week["weekKey"], "2026-11-23");
    EXPECT_EQ(resource("quorvane://reports/week"), week);
    EXPECT_EQ(result(call("get_weekly_summary", {{"date", "2026-11-22"}}))["weekKey"],
              "2026-11-16");

    Json ranking = result(call("get_activity_ranking"));
    ASSERT_EQ(ranking.size(), 2u) << "the repository not tracked is left out";
    EXPECT_EQ(ranking[0]["repoId"], "/work/app");
    EXPECT_EQ(ranking[0]["lastActivityAt"], "2026-11-25T09:30:00Z");
    EXPECT_EQ(ranking[1]["lastWorkingTreeChangeAt"], "2026-11-25T08:00:00Z");
    Json byTree = result(call("get_activity_ranking", {{"sort", "lastWorkingTreeChangeAt"}}));
    EXPECT_EQ(byTree[0]["repoId"], "/work/web");
    EXPECT_EQ(result(call("get_activity_ranking", {{"limit", 1}})).size(), 1u);
    // Move to the next morning: nothing is worked yet that day.
    clock_.set(at("2026-11-26T07:00:00Z"));
    EXPECT_TRUE(result(call("get_activity_ranking", {{"workedTodayOnly", true}})).empty());
    EXPECT_EQ(result(call("get_activity_ranking")).size(), 2u);
    EXPECT_EQ(call("get_activity_ranking", {{"sort", "name"}}).errorCode, "invalid_params");
    EXPECT_EQ(call("get_activity_ranking", {{"limit", -1}}).hint,
              "`limit` must be a whole number, 0 or more");
}

TEST_F(ReadToolsTest, GitReadsAnswerForARepositoryInsideTheRootsAndNothingElse) {
    TestRepo repo(dir_ / "ws" / "app");
    repo.commitFile("a.txt", "one\n", "first", at("2026-11-20T10:00:00Z"));
    repo.commitFile("b.txt", "two\n", "second | with a bar", at("2026-11-21T10:00:00Z"));
    repo.git({"branch", "feature"});
    repo.commitFile("c.txt", "three\n", "third", at("2026-11-22T10:00:00Z"));
    repo.git({"remote", "add", "origin", "git@github.com:alice/app.git"});
    repo.git({"remote", "set-url", "--push", "origin", "https://example.com/mirror.git"});
    repo.write("a.txt", "changed\n");
    repo.write("staged.txt", "new\n");
    repo.git({"add", "staged.txt"});
    repo.write("loose.txt", "untracked\n");
    const Json here = {{"path", repo.path().string()}};

    Json remotes = result(call("read_git_remote", here));
    EXPECT_EQ(remotes["path"], fs::canonical(repo.path()).string());
    ASSERT_EQ(remotes["remotes"].size(), 1u);
    EXPECT_EQ(remotes["remotes"][0]["name"], "origin");
    EXPECT_EQ(remotes["remotes"][0]["fetchURL"], "git@github.com:alice/app.git");
    EXPECT_EQ(remotes["remotes"][0]["pushURL"], "https://example.com/mirror.git");
    EXPECT_EQ(remotes["remotes"][0]["ownerRepo"], "alice/app");

    Json branches = result(call("read_git_branches", here))["branches"];
    ASSERT_EQ(branches.size(), 2u);
    EXPECT_EQ(branches[0]["name"], "feature");
    EXPECT_EQ(branches[1]["name"], "main");
    EXPECT_EQ(branches[1]["lastSha"], repo.gitLine({"rev-parse", "main"}));

    Json commits = result(call("read_git_commits", here))["commits"];
    ASSERT_EQ(commits.size(), 3u);
    EXPECT_EQ(commits[0]["message"], "third");
    EXPECT_EQ(commits[1]["message"], "second | with a bar");
    EXPECT_EQ(commits[1]["committedAt"], "2026-11-21T10:00:00Z");
    EXPECT_EQ(commits[2]["shortSha"], commits[2]["sha"].get<std::string>().substr(0, 7));
    Json two = result(call("read_git_commits", {{"path", repo.path().string()}, {"limit", 2}}));
    EXPECT_EQ(two["commits"].size(), 2u);

    Json status = result(call("read_git_status", here));
    EXPECT_EQ(status["files"]["modified"], 1);
    EXPECT_EQ(status["files"]["staged"], 1);
    EXPECT_EQ(status["files"]["untracked"], 1);

    // A new repository has no history yet, which is no failure.
    TestRepo fresh(dir_ / "ws" / "fresh");
    EXPECT_TRUE(
        result(call("read_git_commits", {{"path", fresh.path().string()}}))["commits"].empty());

    fs::create_directories(dir_ / "ws" / "plain");
    for (const char* tool :
         {"read_git_remote", "read_git_branches", "read_git_commits", "read_git_status"}) {
        AgentResult answer = call(tool, {{"path", (dir_ / "ws" / "plain").string()}});
        EXPECT_EQ(answer.errorCode, "not_found") << tool;
        EXPECT_EQ(answer.hint, "not a git repo") << tool;
        EXPECT_EQ(answer.json, "{}");
        EXPECT_EQ(lastAudit().status, "error");
    }

    // A folder inside a repository is read as that repository while the allowed
    // root holds the repository, and not when the root lies inside it.
    fs::create_directories(repo.path() / "docs");
    const Json inner = {{"path", (repo.path() / "docs").string()}};
    EXPECT_EQ(result(call("read_git_status", inner))["files"]["staged"], 1);
    env_.applyConfigChange(
        [&](AppConfig& config) { config.agent.allowedRoots = {(repo.path() / "docs").string()}; });
    for (const char* tool : {"read_git_status", "read_git_commits", "read_git_remote"}) {
        EXPECT_EQ(call(tool, inner).hint, "not a git repo") << tool;
    }
}

TEST_F(ReadToolsTest, GitReadsRefuseARepositoryKeptOutsideTheRoots) {
    const fs::path roots = dir_ / "ws";
    env_.applyConfigChange(
        [&](AppConfig& config) { config.agent.allowedRoots = {roots.string()}; });
    TestRepo outside(dir_ / "outside");
    outside.commitFile("secret.txt", "secret\n", "secret history");
    outside.git({"remote", "add", "origin", "git@github.com:alice/secret.git"});

    // A folder whose .git is a file naming the outside repository's git folder; a
    // repository whose work tree is set to the outside one; a linked worktree of the
    // outside repository, whose branches and history are all that one's; and a git
    // folder inside whose common folder, where history is kept, is the outside one.
    fs::create_directories(roots / "pointer");
    testing::writeFile(roots / "pointer" / ".git",
                       "gitdir: " + (outside.path() / ".git").string() + "\n");
    TestRepo redirected(roots / "redirected");
    redirected.git({"config", "core.worktree", outside.path().string()});
    outside.git({"worktree", "add", "-q", "-b", "linked", (roots / "linked").string()});
    testing::writeFile(roots / "shared" / ".git" / "HEAD", "ref: refs/heads/main\n");
    testing::writeFile(roots / "shared" / ".git" / "commondir",
                       (outside.path() / ".git").string() + "\n");
    for (const fs::path& folder :
         {roots / "pointer", roots / "redirected", roots / "linked", roots / "shared"}) {
        for (const char* tool :
             {"read_git_remote", "read_git_branches", "read_git_commits", "read_git_status",
              "inspect_local_git_repo", "compute_repo_fingerprint"}) {
            AgentResult answer = call(tool, {{"path", folder.string()}});
            EXPECT_EQ(answer.errorCode, "not_in_allowed_root") << tool << " " << folder;
            EXPECT_EQ(answer.hint, "Add this folder to Allowed Roots in Quorvane → MCP");
            EXPECT_EQ(answer.json, "{}");
            EXPECT_EQ(lastAudit().status, "denied");
        }
    }

    // A repository inside the roots is read, also from a worktree of its own inside
    // them, and so is a bare one, which has history without a work tree.
    TestRepo mine(roots / "mine");
    mine.commitFile("a.txt", "a\n", "my history");
    mine.git({"worktree", "add", "-q", "-b", "topic", (roots / "mine-topic").string()});
    mine.git({"clone", "-q", "--bare", mine.path().string(), (roots / "mine.git").string()});
    for (const fs::path& folder : {roots / "mine", roots / "mine-topic", roots / "mine.git"}) {
        Json commits = result(call("read_git_commits", {{"path", folder.string()}}))["commits"];
        ASSERT_EQ(commits.size(), 1u) << folder;
        EXPECT_EQ(commits[0]["message"], "my history");
    }
    // A search of the roots finds the work trees kept there, and none of the others.
    std::vector<std::string> found;
    for (const Json& match :
         result(call("search_local_projects", {{"rootPath", roots.string()}, {"query", "x"}}))) {
        found.push_back(match["path"]);
    }
    EXPECT_EQ(found, (std::vector<std::string>{(roots / "mine").string(),
                                               (roots / "mine-topic").string()}));
}

TEST_F(ReadToolsTest, StatusNeverRunsTheRepositorysOwnFilters) {
    TestRepo repo(dir_ / "ws" / "hostile");
    repo.write(".gitattributes", "*.txt filter=evil\n");
    repo.commitFile("a.txt", "aaaa", "first");
    testing::writeFile(dir_ / "evil.sh",
                       "#!/bin/sh\ntouch '" + (dir_ / "ran").string() + "'\ncat\n");
    fs::permissions(dir_ / "evil.sh", fs::perms::owner_all);
    repo.git({"config", "filter.evil.clean", (dir_ / "evil.sh").string()});
    // A file stamped like the index cannot be trusted by its stat data, so git
    // reads its content, through the clean filter unless that is switched off.
    struct stat index {};
    ::stat((repo.path() / ".git/index").c_str(), &index);
    timespec times[2] = {index.st_mtim, index.st_mtim};
    ::utimensat(AT_FDCWD, (repo.path() / "a.txt").c_str(), times, 0);

    EXPECT_EQ(
        result(call("read_git_status", {{"path", repo.path().string()}}))["files"]["modified"], 0);
    EXPECT_FALSE(fs::exists(dir_ / "ran"));
}

TEST_F(ReadToolsTest, ReportsRenderTheStoreAndExportWritesThemPrivately) {
    fillInventory();
    CommitRecord commit;
    commit.repoID = "/work/app";
    commit.sha = "1234567890abcdef1234567890abcdef12345678";
    commit.shortSha = "1234567";
    commit.message = "fix the parser\n\nlong body";
    commit.committedAt = at("2026-11-25T08:00:00Z");
    RepoSnapshot snapshot;
    snapshot.repoID = "/work/app";
    snapshot.branch = "main";
    store().replaceSnapshot(snapshot);
    store().upsertCommits({commit});

    // What a report holds is MarkdownReportTest's; here, that each tool renders the
    // store for the day or week asked.
    const std::string daily = result(call("generate_daily_report"))["markdown"];
    EXPECT_TRUE(daily.starts_with("# Daily Report — 2026-11-25\n")) << daily;
    EXPECT_NE(daily.find("  - `1234567` fix the parser\n"), std::string::npos) << daily;
    const std::string yesterday =
        result(call("generate_daily_report", {{"date", "2026-11-24"}}))["markdown"];
    EXPECT_NE(yesterday.find("no scan recorded on that day"), std::string::npos) << yesterday;
    const std::string weekly = result(call("generate_weekly_report"))["markdown"];
    EXPECT_TRUE(weekly.starts_with("# Weekly Report — 2026-11-23\n")) << weekly;

    const std::string mapping = result(call("generate_mapping_report"))["markdown"];
    EXPECT_TRUE(mapping.starts_with("# Mapping Report\n\n- Mapped: **1**\n")) << mapping;
    EXPECT_NE(mapping.find("## Remote only (1)\n\n- org/tools (acct-b)\n"), std::string::npos)
        << mapping;
    EXPECT_NE(mapping.find("## Local only (1)\n\n- lib (/work/lib)\n"), std::string::npos);
    EXPECT_NE(mapping.find("## Account mismatch (0)\n\n- none\n"), std::string::npos);
    EXPECT_NE(mapping.find("## Remote inaccessible (0)"), std::string::npos);

    EXPECT_EQ(call("generate_project_health_report").hint, "missing repoId");
    AgentResult unscored = call("generate_project_health_report", {{"repoId", "/work/app"}});
    EXPECT_EQ(unscored.hint, "no health snapshot");
    EXPECT_EQ(unscored.errorCode, "not_found");
    ProjectHealthSnapshot scored{"/work/app", "/work/app", 82, {"pushed today"}, {}, clock_.now()};
    store().upsertHealth({scored});
    Json health = result(call("generate_project_health_report", {{"repoId", "/work/app"}}));
    EXPECT_EQ(health["score"], 82);
    EXPECT_EQ(health["markdown"],
              "# Project Health — app\n\nScore: **82**/100\n\n## Strengths\n\n- pushed today\n\n"
              "## Concerns\n\n- none\n");

    AgentResult monthly = call("export_report_markdown", {{"kind", "monthly"}});
    EXPECT_EQ(monthly.errorCode, "invalid_params");
    EXPECT_EQ(monthly.hint, "kind must be \"daily\" or \"weekly\"");
    EXPECT_EQ(monthly.json, "{}");

    const fs::path reports = fs::path(getenv("HOME")) / "Documents" / "QVNQuorvane" / "Reports";
    const fs::path written = result(call("export_report_markdown"))["path"].get<std::string>();
    EXPECT_EQ(written, reports / "daily-2026-11-25.md");
    EXPECT_EQ(readText(written), daily);
    EXPECT_EQ(fs::status(written).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    const fs::path week =
        result(call("export_report_markdown", {{"kind", "weekly"}, {"date", "2026-11-29"}}))["path"]
            .get<std::string>();
    EXPECT_EQ(week, reports / "weekly-2026-11-23.md");
    EXPECT_EQ(readText(week), weekly);

    // A folder where the file should go: the write fails and says why.
    fs::create_directories(reports / "daily-2026-11-24.md");
    AgentResult blocked = call("export_report_markdown", {{"date", "2026-11-24"}});
    EXPECT_EQ(blocked.errorCode, "not_found");
    EXPECT_TRUE(blocked.hint->starts_with("write failed: ")) << *blocked.hint;
    EXPECT_EQ(blocked.json, "{}");
    fs::remove_all(reports / "daily-2026-11-24.md");
}

TEST_F(ReadToolsTest, ResourcesAnswerTheirExactNamesOnly) {
    fillInventory();
    SyncState synced, behind;
    synced.id = "/work/web";
    synced.status = SyncState::Status::synced;
    behind.id = "/work/app";
    behind.status = SyncState::Status::needsPull;
    behind.localBehind = 4;
    store().replaceSyncStates({synced, behind});
    const std::string pending = mappingProposal("acct-b:org/tools", 70);
    mappingProposal("acct-b:org/tools", 90, PendingProposal::Status::approved);

    EXPECT_EQ(resource("quorvane://repositories/local"), result(call("list_local_repositories")));
    EXPECT_EQ(resource("quorvane://repositories/remote"), result(call("list_remote_repositories")));
    Json unmapped = resource("quorvane://repositories/unmapped");
    EXPECT_EQ(unmapped["remote"], result(call("get_unmapped_remote_repositories")));
    EXPECT_EQ(unmapped["local"], result(call("get_unmapped_local_repositories")));
    Json attention = resource("quorvane://repositories/needs-attention");
    ASSERT_EQ(attention.size(), 1u);
    EXPECT_EQ(attention[0]["repoId"], "/work/app");
    EXPECT_EQ(attention[0]["status"], "needsPull");
    EXPECT_EQ(attention[0]["localBehind"], 4);
    Json candidates = resource("quorvane://mappings/candidates");
    ASSERT_EQ(candidates.size(), 1u);
    EXPECT_EQ(candidates[0]["id"], pending);
    EXPECT_EQ(candidates[0]["confidence"], 70);
    for (const char* secret :
         {"confirmationToken", "payloadJSON", "argsFingerprint", "intendedTool"}) {
        EXPECT_FALSE(candidates[0].contains(secret)) << secret;
    }
    Json settings = result(call("get_settings"));
    EXPECT_EQ(resource("quorvane://settings"), settings);
    Json log = resource("quorvane://audit-log");
    EXPECT_EQ(log[0]["tool"], "resources/read") << "the settings read before it";
    EXPECT_EQ(log[1]["tool"], "get_settings");
    EXPECT_EQ(lastAudit().tool, "resources/read");
    EXPECT_EQ(lastAudit().argsSummary, "uri=quorvane://audit-log");

    for (const char* uri : {"quorvane://repositories/local/extra", "quorvane://reports",
                            "quorvane://reports/today?x=1"}) {
        AgentResult refused = call("resources/read", {{"uri", uri}});
        EXPECT_EQ(refused.errorCode, "not_found");
        EXPECT_EQ(refused.hint, std::string("unknown resource `") + uri + "`");
        EXPECT_EQ(lastAudit().detail, std::string("unknown uri ") + uri);
    }
    EXPECT_EQ(call("resources/read", {{"uri", 3}}).hint, "`uri` required");
    // What a bridge lists, it can read.
    for (const AgentResource& listed : AgentTools::resources()) resource(std::string(listed.uri));
}

TEST_F(ReadToolsTest, RefreshingTellsWhatWasFoundAndNeedsAnAccountToSync) {
    AgentResult sync = call("sync_remote_inventory_now");
    EXPECT_EQ(sync.errorCode, "not_found");
    EXPECT_EQ(sync.hint, "no GitHub account is connected — add one in Quorvane → Accounts");
    EXPECT_EQ(sync.json, "{}");
    EXPECT_EQ(lastAudit().status, "error");

    TestRepo found(dir_ / "ws" / "found");
    found.commitFile("a.txt", "a", "first");
    env_.applyConfigChange([&](AppConfig& config) {
        config.scanFolders = {(dir_ / "ws").string()};
        config.autoTrackNewRepos = true;
    });
    Json rescan = result(call("rescan_now"));
    EXPECT_EQ(rescan["newlyTrackedCount"], 1);
    EXPECT_EQ(rescan["newlyTracked"], Json::array({fs::canonical(found.path()).string()}));
    EXPECT_EQ(lastAudit().detail, "newRepos=1");
    EXPECT_EQ(result(call("rescan_now"))["newlyTrackedCount"], 0) << "tracked once only";
}

}  // namespace
}  // namespace quorvane
