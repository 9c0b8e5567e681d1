// An agent's changes through the real daemon, with the person's approval from the
// command line in between: a mapping it proposes, and a push it asks for.
#include <signal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "github/SyncStateEngine.hpp"
#include "persistence/ConfigService.hpp"
#include "persistence/Store.hpp"
#include "platform/Clock.hpp"
#include "testing/BackgroundProcess.hpp"
#include "testing/LineClient.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using testing::LineClient;

class AgentToolsDaemonTest : public ::testing::Test {
protected:
    std::filesystem::path dataDir() const { return dir_ / "data"; }
    std::filesystem::path code() const { return dir_ / "code"; }

    Json quorvaneJson(std::vector<std::string> words) {
        words.push_back("--json");
        ShellResult result = testing::runQuorvane(dataDir(), words);
        EXPECT_EQ(result.exitCode, 0) << result.stdErr;
        return result.exitCode == 0 ? Json::parse(result.stdOut) : Json();
    }

    // The person's approval, typed at a terminal of their own.
    testing::TerminalRun approveOnTerminal(const std::string& id) {
        return testing::runOnTerminal(
            {QUORVANE_BINARY, "proposals", "approve", id, "--data-dir", dataDir().string()},
            {"TERM=dumb", "HOME=" + dir_.path().string(), "PATH=/usr/bin:/bin",
             "DBUS_SESSION_BUS_ADDRESS=unix:path=" + (dir_ / "no-bus").string()},
            100);
    }

    // The agent's side of the road: the call makes a proposal, the person approves
    // it with the command, the agent fetches the token and calls again with it.
    Json approvedCall(LineClient& agent, const std::string& tool, Json args) {
        Json asked = agent.call(tool, args);
        EXPECT_EQ(asked["error"]["code"], "confirmation_required") << asked;
        const std::string hint = asked["error"].value("message", "");
        const size_t at = hint.find("(proposal ");
        if (at == std::string::npos) return asked;
        const std::string id = hint.substr(at + 10, 36);
        testing::TerminalRun approved = approveOnTerminal(id);
        EXPECT_EQ(approved.exitCode, 0) << approved.shown;
        Json status = agent.call("get_proposal_status", {{"proposalId", id}});
        args["confirmationToken"] = status["result"].value("confirmationToken", "");
        return agent.call(tool, args);
    }

    testing::TempDir dir_;
};

TEST_F(AgentToolsDaemonTest, AnAgentMapsARepositoryAndPushesOnlyWhatThePersonApproved) {
    // "site" has no remote yet; GitHub has octocat/site. "app" is one commit ahead
    // of its origin, a bare repository on this disk.
    testing::TestRepo site(code() / "site");
    site.commitFile("index.html", "<h1>site</h1>", "first page");
    testing::TestRepo origin(dir_ / "origin.git", testing::TestRepo::Kind::bare);
    testing::TestRepo app = testing::TestRepo::cloneOf(origin, code() / "app");
    app.commitFile("main.c", "int main;", "first");
    app.git({"push", "-q", "origin", "HEAD:main"});
    const std::string unpushed = app.commitFile("main.c", "int main(void);", "second");

    ASSERT_EQ(testing::runQuorvane(dataDir(), {"folders", "add", code().string()}).exitCode, 0);
    ASSERT_EQ(testing::runQuorvane(dataDir(), {"scan"}).exitCode, 0);
    // Git needs the highest level; the default stops at settings.
    ASSERT_EQ(testing::runQuorvane(dataDir(), {"config", "set", "agent.permissionLevel", "safeGit"})
                  .exitCode,
              0);
    // No sync beside the agent: what the standing against GitHub shows after the
    // push comes from the push alone.
    ASSERT_EQ(
        testing::runQuorvane(dataDir(), {"config", "set", "sync.syncOnStart", "false"}).exitCode,
        0);
    const std::string appID = std::filesystem::canonical(app.path()).string();
    // A shell without a terminal, as an agent's own, approves nothing: refused before
    // the proposal is even looked for.
    ShellResult unattended = testing::runQuorvane(dataDir(), {"proposals", "approve", "0000"});
    EXPECT_EQ(unattended.exitCode, 1);
    EXPECT_THAT(unattended.stdErr, ::testing::HasSubstr("(quorvane open review)"));
    {
        SystemClock clock;
        Store store(dataDir(), clock);
        store.load();
        GitHubAccount account;
        account.id = "acct";
        account.displayName = "Work";
        account.username = "octocat";
        store.upsertAccount(account);
        RemoteRepository remote;
        remote.id = "acct:octocat/site";
        remote.accountID = "acct";
        remote.owner = "octocat";
        remote.name = "site";
        remote.fullName = "octocat/site";
        remote.defaultBranch = "main";
        RemoteRepository appRemote = remote;
        appRemote.id = "acct:octocat/app";
        appRemote.name = "app";
        appRemote.fullName = "octocat/app";
        store.replaceRemoteRepos("acct", {remote, appRemote});
        // As the last sync left app: linked, and one commit to push.
        RepositoryMapping link;
        link.id = appID;
        link.localRepoID = appID;
        link.remoteRepoID = appRemote.id;
        link.accountID = "acct";
        link.kind = RepositoryMapping::Kind::mapped;
        link.confidence = 1.0;
        link.confirmedByUser = true;
        store.replaceMappings({link});
        SyncState standing =
            SyncStateEngine::compute(appID, store.snapshot(appID), link, appRemote, clock.now());
        ASSERT_EQ(standing.status, SyncState::Status::needsPush);
        store.replaceSyncStates({standing});
        ASSERT_TRUE(store.flush());
    }
    testing::BackgroundProcess daemon(QUORVANE_BINARY, {"daemon", "--data-dir", dataDir().string()},
                                      dir_ / "daemon.log");
    ASSERT_TRUE(testing::eventually(60s, [&] {
        return daemon.output().find("quorvane daemon: ready") != std::string::npos;
    })) << daemon.output();
    LineClient agent(dataDir() / "quorvane-agent.sock");
    ASSERT_TRUE(agent.connected());

    Json proposed = agent.call("propose_repository_mapping", {{"remoteRepoId", "octocat/site"}});
    ASSERT_EQ(proposed["ok"], true) << proposed;
    const std::string sitePath = std::filesystem::canonical(site.path()).string();
    ASSERT_FALSE(proposed["result"]["candidates"].empty());
    EXPECT_EQ(proposed["result"]["candidates"][0]["localPath"], sitePath);
    const std::string proposalId = proposed["result"]["proposalId"];
    // Also when the daemon would do the approving: the client asks before sending.
    ShellResult fromShell = testing::runQuorvane(dataDir(), {"proposals", "approve", proposalId});
    EXPECT_EQ(fromShell.exitCode, 1);
    EXPECT_THAT(fromShell.stdErr,
                ::testing::HasSubstr("quorvane config set agent.requireGuiConfirmation false"));
    Json waiting = agent.call("get_proposal_status", {{"proposalId", proposalId}});
    EXPECT_EQ(waiting["result"]["status"], "pending");
    EXPECT_FALSE(waiting["result"].contains("confirmationToken")) << "a token was minted";
    testing::TerminalRun approved = approveOnTerminal(proposalId);
    ASSERT_EQ(approved.exitCode, 0) << approved.shown;
    Json status = agent.call("get_proposal_status", {{"proposalId", proposalId}});
    Json applied = agent.call("apply_repository_mapping",
                              {{"remoteRepoId", "acct:octocat/site"},
                               {"localRepoId", sitePath},
                               {"confirmationToken", status["result"]["confirmationToken"]}});
    ASSERT_EQ(applied["ok"], true) << applied;
    bool shown = false;
    for (const Json& row : quorvaneJson({"inventory"})) {
        if (row["name"] == "site" && row["kind"] == "mapped") shown = row["localPath"] == sitePath;
    }
    EXPECT_TRUE(shown) << "the inventory shows the confirmed link";

    Json pushed = approvedCall(agent, "git_push", {{"repoId", appID}});
    ASSERT_EQ(pushed["ok"], true) << pushed;
    EXPECT_EQ(pushed["result"]["action"], "push");
    EXPECT_EQ(origin.gitLine({"rev-parse", "main"}), unpushed) << "the remote has the commit";
    // The standing follows the push at once, before any sync reads GitHub again.
    {
        SystemClock clock;
        Store store(dataDir(), clock, Store::Access::readOnly);
        store.load();
        std::optional<SyncState> standing = store.syncState(appID);
        ASSERT_TRUE(standing.has_value());
        EXPECT_EQ(standing->status, SyncState::Status::synced);
        EXPECT_EQ(standing->localAhead, 0);
        EXPECT_EQ(standing->lastLocalCommitSha, unpushed);
    }

    // A push the runner would refuse is refused at once: nothing waits for approval.
    for (const char* branch : {"terraform", "clean"}) {
        app.git({"branch", branch});
        Json blocked = agent.call("git_push", {{"repoId", appID}, {"branch", branch}});
        EXPECT_EQ(blocked["error"]["code"], "dangerous_blocked") << blocked;
        EXPECT_NE(origin.gitResult({"rev-parse", "--verify", "--quiet", branch}).exitCode, 0)
            << branch << " never reached the remote";
    }
    EXPECT_EQ(quorvaneJson({"proposals"}), Json::array());
    Json log = agent.call("get_audit_log", {{"limit", 3}});
    EXPECT_EQ(log["result"][0]["status"], "blocked");

    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.waitForExit(60s), 0) << daemon.output();
}

}  // namespace
}  // namespace quorvane
