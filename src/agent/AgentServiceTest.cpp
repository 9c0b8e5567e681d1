#include "agent/AgentService.hpp"

#include <unistd.h>

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "agent/AgentTools.hpp"
#include "tests/AgentToolFixture.hpp"

namespace quorvane {
namespace {

using testing::repoAt;

using namespace std::chrono_literals;

// The application's own access, with the licence answer the test chooses.
class LicensedAccess final : public AgentEnvAccess {
public:
    LicensedAccess(AgentEnvAccess& inner, bool grants) : inner_(inner), grants_(grants) {}
    AppConfig currentConfig() override { return inner_.currentConfig(); }
    std::vector<std::string> rescanNow() override { return inner_.rescanNow(); }
    void repositoryChanged(const std::string& repoID) override { inner_.repositoryChanged(repoID); }
    RemoteSyncSummary syncNow(bool includeLocalScan) override {
        return inner_.syncNow(includeLocalScan);
    }
    std::optional<std::string> applyConfigChange(
        const std::function<void(AppConfig&)>& change) override {
        return inner_.applyConfigChange(change);
    }
    bool licenceGrants() override { return grants_; }

private:
    AgentEnvAccess& inner_;
    bool grants_;
};

class AgentServiceTest : public testing::ToolTest {
protected:
    void configure(AppConfig& config) override {
        config.repositories.push_back(repoAt("/work/app"));
    }
    size_t auditCount() { return env_.store().auditEntries().size(); }
    std::string proposalFor(std::string_view tool, const Json& args) {
        return proposalIn(call(tool, args));
    }
};

TEST_F(AgentServiceTest, ChecksRunInOrderAndEachCallLeavesOneAuditEntry) {
    size_t before = auditCount();
    AgentResult unknown = call("drop_database");
    EXPECT_EQ(unknown.errorCode, "not_found");
    EXPECT_EQ(unknown.hint, "unknown tool `drop_database`");
    EXPECT_EQ(unknown.json, "{}");
    EXPECT_EQ(lastAudit().status, "error");
    EXPECT_EQ(lastAudit().detail, "unknown tool");
    EXPECT_EQ(lastAudit().actor, "claude");

    setLevel(AgentPermissionLevel::readOnly);
    AgentResult low = call("propose_settings_change", {{"changes", Json::array()}});
    EXPECT_EQ(low.errorCode, "permission_denied");
    EXPECT_EQ(low.hint, "Raise permission in Quorvane → MCP/Settings");
    EXPECT_EQ(lastAudit().status, "denied");
    EXPECT_EQ(lastAudit().detail, "needs propose, have readOnly");
    EXPECT_EQ(call("git_push", {{"repoId", "/work/app"}}).errorCode, "permission_denied");

    setLevel(AgentPermissionLevel::safeGit);
    // Every tool of the table passes the level check at the highest level.
    for (const AgentTool& tool : AgentTools::all()) {
        EXPECT_NE(call(std::string(tool.name)).errorCode, "permission_denied") << tool.name;
    }

    AgentResult emptyRoot = call("search_local_projects", {{"rootPath", ""}});
    EXPECT_EQ(emptyRoot.errorCode, "not_found");
    EXPECT_EQ(emptyRoot.hint, "`rootPath` is required");
    EXPECT_EQ(lastAudit().detail, "missing rootPath");
    AgentResult numberRoot = call("read_git_status", {{"path", 7}});
    EXPECT_EQ(numberRoot.hint, "`path` is required");
    AgentResult outside = call("read_git_status", {{"path", "/etc"}});
    EXPECT_EQ(outside.errorCode, "not_in_allowed_root");
    EXPECT_EQ(outside.hint, "Add this folder to Allowed Roots in Quorvane → MCP");
    EXPECT_EQ(lastAudit().detail, "path outside allowedRoots");
    // Inside the root, the call reaches the tool itself.
    AgentResult inside = call("read_git_status", {{"path", dir_.path().string()}});
    EXPECT_EQ(inside.errorCode, "not_found");
    EXPECT_EQ(inside.hint, "not a git repo");

    // Arguments that are not an object only look absent to the tool.
    AgentResult malformed = env_.agentService().handle("get_proposal_status", "{\"proposalId\":");
    EXPECT_EQ(malformed.hint, "missing proposalId");
    EXPECT_EQ(env_.agentService().handle("get_proposal_status", "[1]").hint, "missing proposalId");

    EXPECT_EQ(auditCount(), before + 9 + AgentTools::all().size());

    env_.applyConfigChange([](AppConfig& config) { config.agent.enabled = false; });
    for (const char* tool : {"resources/read", "list_accounts", "get_settings"}) {
        AgentResult off = call(tool, {{"uri", "quorvane://settings"}});
        EXPECT_EQ(off.errorCode, "permission_denied") << tool;
        EXPECT_EQ(off.hint, "The agent is disabled in Quorvane → MCP/Settings.");
        EXPECT_EQ(lastAudit().detail, "agent disabled");
    }
}

TEST_F(AgentServiceTest, TheLicenceGatesApplyAndGitToolsButNotRejectingAMapping) {
    LicensedAccess refusing(env_.agentAccess(), false);
    AgentService service(env_.store(), refusing, clock_, shell_);
    for (const char* tool : {"set_daily_review_time", "git_push", "apply_repository_mapping"}) {
        setLevel(AgentPermissionLevel::safeGit);
        AgentResult answer = service.handle(tool, R"({"time":"18:00"})");
        EXPECT_EQ(answer.errorCode, "license_required") << tool;
        EXPECT_EQ(env_.store().auditEntries(1).at(0).status, "denied");
    }
    EXPECT_TRUE(env_.proposals().empty()) << "a refused licence creates no proposal";

    setLevel(AgentPermissionLevel::applySettings);
    AgentResult reject = service.handle("reject_repository_mapping", R"({"proposalId":"nope"})");
    EXPECT_EQ(reject.hint, "proposal not found") << "past the licence, to the tool itself";
    setLevel(AgentPermissionLevel::propose);
    EXPECT_EQ(service.handle("reject_repository_mapping", "{}").errorCode, "permission_denied");
}

TEST_F(AgentServiceTest, TheAuditSummarySortsCutsAndNeverHoldsTheToken) {
    const std::string longText(70, 'x');
    EXPECT_EQ(AgentService::argsSummary(
                  {{"zeta", 1}, {"alpha", longText}, {"confirmationToken", "SECRET"}}),
              "alpha=" + std::string(60, 'x') + " zeta=1");
    // Characters, not bytes: a cut never splits one.
    EXPECT_EQ(AgentService::argsSummary({{"name", std::string(61, 'x') + "é"}}),
              "name=" + std::string(60, 'x'));
    EXPECT_EQ(AgentService::argsSummary({{"name", std::string(59, 'x') + "éé"}}),
              "name=" + std::string(59, 'x') + "é");
    Json list = Json::array();
    for (int i = 0; i < 40; ++i) list.push_back(i);
    const std::string item = AgentService::argsSummary({{"folders", list}});
    EXPECT_EQ(item.size(), 80u);
    EXPECT_TRUE(item.starts_with("folders=[0,1,2,"));
    Json many;
    for (char key = 'a'; key <= 'f'; ++key) many[std::string(1, key)] = list;
    EXPECT_EQ(AgentService::argsSummary(many).size(), 200u);
}

TEST_F(AgentServiceTest, ARepeatedCallNamesOneProposalAndOnlyRelevantArgumentsCount) {
    const std::string first = proposalFor("set_daily_review_time", {{"time", "18:00"}});
    ASSERT_EQ(first.size(), 36u);
    EXPECT_EQ(lastAudit().status, "confirmation_required");
    EXPECT_EQ(lastAudit().detail, "proposalId=" + first);
    EXPECT_EQ(proposalFor("set_daily_review_time", {{"time", "18:00"}, {"note", "again"}}), first);
    EXPECT_NE(proposalFor("set_daily_review_time", {{"time", "18:30"}}), first);
    EXPECT_EQ(env_.store().proposals(PendingProposal::Status::pending).size(), 2u);

    // Key order in the request never changes the fingerprint: keys are sorted.
    EXPECT_EQ(env_.agentService()
                  .handle("enable_repository_tracking", R"({"repoId":"/work/app","x":1})")
                  .hint,
              env_.agentService()
                  .handle("enable_repository_tracking", R"({"x":2,"repoId":"/work/app"})")
                  .hint);

    std::optional<PendingProposal> stored = env_.store().proposal(first);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->kind, PendingProposal::Kind::settingsChange);
    EXPECT_EQ(stored->title, "Apply set_daily_review_time");
    EXPECT_EQ(stored->summary, "time=18:00");
    EXPECT_EQ(stored->payloadJSON, R"({"time":"18:00"})");
    EXPECT_EQ(stored->argsFingerprint, R"(set_daily_review_time|{"time":"18:00"})");

    // Arguments are checked before any proposal: a bad one creates none.
    size_t proposals = env_.proposals().size();
    EXPECT_EQ(call("set_daily_review_time", {{"time", "25:00"}}).errorCode, "invalid_params");
    EXPECT_EQ(call("set_daily_review_time").hint, "missing time");
    EXPECT_EQ(call("disable_repository_tracking", {{"repoId", "/nowhere"}}).hint, "repo not found");
    EXPECT_EQ(call("update_scan_folders", {{"folders", {"relative/path"}}}).errorCode,
              "invalid_params");
    setLevel(AgentPermissionLevel::safeGit);
    EXPECT_EQ(call("git_set_upstream_push", {{"repoId", "/work/app"}}).hint, "missing branch");
    // Whatever the runner would refuse to run is never put to the person: an option, a
    // forced refspec, a name git reads as a pattern or cannot make a ref of, and a
    // name that is itself one of the runner's forbidden words ("rm " ends "terraform").
    for (const char* tool : {"git_push", "git_set_upstream_push"}) {
        for (const char* branch :
             {"*",        "refs/heads/*", "main~1",        "a..b",     "--force", "-f",
              "-x",       "+main",        "a:b",           "a b",      "main\n",  "clean",
              "reset",    "merge",        "rebase",        "gc",       "prune",   "REVERT",
              "checkout", "cherry-pick",  "filter-branch", "terraform"}) {
            const size_t before = env_.store().proposals(std::nullopt).size();
            AgentResult refused = call(tool, {{"repoId", "/work/app"}, {"branch", branch}});
            EXPECT_EQ(refused.errorCode, "dangerous_blocked") << tool << " " << branch;
            EXPECT_EQ(lastAudit().status, "blocked") << tool << " " << branch;
            EXPECT_EQ(env_.store().proposals(std::nullopt).size(), before)
                << tool << " " << branch << " stored a proposal";
        }
    }
    // A branch of a safe push stays one to approve, though it holds a forbidden word.
    EXPECT_EQ(
        proposalFor("git_push", {{"repoId", "/work/app"}, {"branch", "feature/clean"}}).size(),
        36u);
    EXPECT_EQ(call("git_push", {{"repoId", "/work/app"}, {"branch", "*"}}).hint,
              "unsafe branch name: *");
    EXPECT_EQ(call("git_push", {{"repoId", "/work/app"}, {"branch", "clean"}}).hint,
              "refusing unsafe git invocation: push --end-of-options origin clean");
    EXPECT_EQ(env_.proposals().size(), proposals + 1);
}

TEST_F(AgentServiceTest, WaitingProposalsAreCappedPerToolAndInAll) {
    setLevel(AgentPermissionLevel::applySettings);
    AgentService service(env_.store(), env_.agentAccess(), clock_, shell_,
                         ProposalLimits{.perTool = 3, .overall = 5});
    auto propose = [&](const std::string& tool, const Json& args) {
        return service.handle(tool, args.dump());
    };
    auto time = [](int minute) { return Json{{"time", "10:0" + std::to_string(minute)}}; };
    auto waiting = [&] { return env_.store().proposals(PendingProposal::Status::pending); };
    for (int minute = 0; minute < 3; ++minute) {
        EXPECT_EQ(propose("set_daily_review_time", time(minute)).errorCode,
                  "confirmation_required");
    }
    AgentResult full = propose("set_daily_review_time", time(3));
    EXPECT_EQ(full.errorCode, "too_many_proposals");
    EXPECT_EQ(full.hint,
              "The person has 3 proposals for set_daily_review_time waiting, the most allowed: "
              "ask them to review or reject those (for example with `quorvane proposals`) "
              "before proposing more.");
    EXPECT_EQ(lastAudit().status, "denied");
    EXPECT_EQ(waiting().size(), 3u);
    // The same action again is the proposal already waiting, full or not.
    EXPECT_EQ(propose("set_daily_review_time", time(0)).errorCode, "confirmation_required");

    // Other tools fill the rest; then nothing more may wait, from any tool.
    EXPECT_TRUE(propose("propose_cleanup_plan", Json::object()).ok);
    EXPECT_EQ(propose("enable_repository_tracking", {{"repoId", "/work/app"}}).errorCode,
              "confirmation_required");
    const Json cloneFolder = {{"changes", {{{"field", "defaultCloneFolder"}, {"value", "~/src"}}}}};
    for (const AgentResult& refused :
         {propose("propose_settings_change", cloneFolder), propose("propose_cleanup_plan", {}),
          propose("disable_repository_tracking", {{"repoId", "/work/app"}})}) {
        EXPECT_EQ(refused.errorCode, "too_many_proposals");
        EXPECT_EQ(refused.hint,
                  "The person has 5 proposals waiting, the most allowed: ask them to review or "
                  "reject those (for example with `quorvane proposals`) before proposing more.");
    }
    EXPECT_EQ(waiting().size(), 5u);

    // A decided or lapsed proposal no longer waits, and makes room.
    auto waitingId = [&](std::optional<std::string> tool) {
        for (const PendingProposal& proposal : waiting()) {
            if (proposal.intendedTool == tool) return proposal.id;
        }
        return std::string();
    };
    EXPECT_EQ(env_.rejectProposal(waitingId(std::nullopt)).problem, "") << "the cleanup plan";
    EXPECT_EQ(propose("disable_repository_tracking", {{"repoId", "/work/app"}}).errorCode,
              "confirmation_required");
    ASSERT_TRUE(env_.store().updateProposal(waitingId("set_daily_review_time"),
                                            [](PendingProposal& proposal) {
                                                proposal.status = PendingProposal::Status::expired;
                                                return true;
                                            }));
    const Json reviewTime = {{"changes", {{{"field", "dailyReviewTime"}, {"value", "06:00"}}}}};
    EXPECT_TRUE(propose("propose_settings_change", reviewTime).ok);
    EXPECT_EQ(waiting().size(), 5u);
}

TEST_F(AgentServiceTest, AnApprovedTokenAppliesOnceAndIsBurntByAnyWrongPresentation) {
    const Json args = {{"time", "18:00"}};
    const std::string id = proposalFor("set_daily_review_time", args);
    // Before approval the status holds no token.
    Json pending = result(call("get_proposal_status", {{"proposalId", id}}));
    EXPECT_EQ(pending["status"], "pending");
    EXPECT_FALSE(pending.contains("confirmationToken"));
    EXPECT_EQ(lastAudit().status, "ok");

    const std::string token = approve(id);
    Json approved = result(call("get_proposal_status", {{"proposalId", id}}));
    EXPECT_TRUE(approved["confirmationToken"] == token) << "the agent is handed the token";
    EXPECT_EQ(approved["intendedTool"], "set_daily_review_time");
    EXPECT_EQ(lastAudit().status, "token_disclosed");
    EXPECT_EQ(lastAudit().detail, "token handed to caller for set_daily_review_time");
    EXPECT_EQ(lastAudit().proposalId, id);

    Json withToken = args;
    withToken["confirmationToken"] = token;
    AgentResult applied = call("set_daily_review_time", withToken);
    ASSERT_TRUE(applied.ok) << applied.hint.value_or("");
    EXPECT_EQ(result(applied)["dailyReviewTime"], "18:00");
    EXPECT_EQ(env_.config().dailyReviewTime, "18:00");
    EXPECT_EQ(env_.store().proposal(id)->status, PendingProposal::Status::applied);
    EXPECT_EQ(lastAudit().proposalId, id);

    AgentResult again = call("set_daily_review_time", withToken);
    EXPECT_EQ(again.errorCode, "invalid_token");
    EXPECT_EQ(again.hint,
              "Token invalid or expired. Re-confirm the proposal in Quorvane → Agent Review.");
    EXPECT_EQ(lastAudit().detail, "proposal not approved (applied)");
    EXPECT_EQ(lastAudit().status, "error");

    // Another tool of the same family: the binding refuses it, and the token is gone.
    const std::string other = approve(proposalFor("set_daily_review_time", {{"time", "07:15"}}));
    AgentResult wrongTool =
        call("enable_repository_tracking", {{"repoId", "/work/app"}, {"confirmationToken", other}});
    EXPECT_EQ(wrongTool.errorCode, "invalid_token");
    EXPECT_EQ(lastAudit().detail,
              "token approved for set_daily_review_time, not enable_repository_tracking");
    EXPECT_EQ(
        call("set_daily_review_time", {{"time", "07:15"}, {"confirmationToken", other}}).errorCode,
        "invalid_token")
        << "burnt by the wrong presentation";

    // Other arguments.
    const std::string third = approve(proposalFor("set_daily_review_time", {{"time", "09:00"}}));
    call("set_daily_review_time", {{"time", "09:01"}, {"confirmationToken", third}});
    EXPECT_EQ(lastAudit().detail, "arguments differ from the approved proposal");
    EXPECT_EQ(env_.config().dailyReviewTime, "18:00");

    // A token is good at the very second it expires, and not one second later.
    const std::string late = approve(proposalFor("set_daily_review_time", {{"time", "10:00"}}));
    const std::string onTime = approve(proposalFor("set_daily_review_time", {{"time", "11:00"}}));
    clock_.advance(900s);
    EXPECT_TRUE(
        call("set_daily_review_time", {{"time", "11:00"}, {"confirmationToken", onTime}}).ok);
    clock_.advance(1s);
    call("set_daily_review_time", {{"time", "10:00"}, {"confirmationToken", late}});
    EXPECT_EQ(lastAudit().detail, "token missing or expired");
    EXPECT_EQ(env_.config().dailyReviewTime, "11:00");

    call("set_daily_review_time", {{"time", "10:00"}, {"confirmationToken", "made-up"}});
    EXPECT_EQ(lastAudit().detail, "no matching proposal");

    // No token ever reaches the audit log, whatever happened above.
    std::ifstream file(dir_ / "data" / "agent_audit.json");
    std::stringstream text;
    text << file.rdbuf();
    for (const std::string& spent : {token, other, third, late, onTime}) {
        EXPECT_EQ(text.str().find(spent), std::string::npos) << "a token is in the audit log";
    }
}

TEST_F(AgentServiceTest, AProposalAuthorisesOnlyWhatItsKindAndBindingAllow) {
    auto stored = [&](PendingProposal::Kind kind, std::optional<std::string> tool) {
        PendingProposal proposal;
        proposal.id = "P-" + std::to_string(env_.proposals().size());
        proposal.kind = kind;
        proposal.createdAt = clock_.now();
        proposal.intendedTool = std::move(tool);
        env_.store().upsertProposal(proposal);
        return approve(proposal.id);
    };
    // A cleanup plan is read, never acted on.
    call(
        "set_daily_review_time",
        {{"time", "12:00"}, {"confirmationToken", stored(PendingProposal::Kind::cleanupPlan, {})}});
    EXPECT_EQ(lastAudit().detail, "token approved for cleanupPlan, not set_daily_review_time");
    // One made before tokens were bound to a tool authorises nothing.
    call("set_daily_review_time",
         {{"time", "12:00"},
          {"confirmationToken", stored(PendingProposal::Kind::settingsChange, std::nullopt)}});
    EXPECT_EQ(lastAudit().detail, "proposal is not bound to a tool");
    // Without a fingerprint, the tool binding alone decides.
    AgentResult unbound = call("set_daily_review_time",
                               {{"time", "12:00"},
                                {"confirmationToken", stored(PendingProposal::Kind::scanFolders,
                                                             "set_daily_review_time")}});
    EXPECT_TRUE(unbound.ok);
}

TEST_F(AgentServiceTest, TheReadToolsAnswerFromTheStoreAndConfiguration) {
    Json settings = result(call("get_settings"));
    EXPECT_EQ(settings["repositoryCount"], 1);
    EXPECT_EQ(settings["agent"]["permissionLevel"], "applySettings");
    EXPECT_EQ(settings["dailyReviewTime"], "21:30");

    Json repos = result(call("list_local_repositories"));
    ASSERT_EQ(repos.size(), 1u);
    EXPECT_EQ(repos[0]["repoId"], "/work/app");
    EXPECT_EQ(repos[0]["trackingEnabled"], true);

    const std::string id = proposalFor("disable_repository_tracking", {{"repoId", "/work/app"}});
    Json listed = result(call("list_pending_proposals", {{"status", "pending"}}));
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0]["proposalId"], id);
    EXPECT_EQ(listed[0]["title"], "Apply disable_repository_tracking");
    EXPECT_TRUE(result(call("list_pending_proposals", {{"status", "applied"}})).empty());
    EXPECT_EQ(call("list_pending_proposals", {{"status", "done"}}).hint, "unknown status `done`");

    Json log = result(call("get_audit_log", {{"limit", 2}}));
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0]["tool"], "list_pending_proposals") << "newest first";
    EXPECT_EQ(log[0]["status"], "error");
    EXPECT_EQ(call("get_audit_log", {{"limit", -1}}).errorCode, "invalid_params");

    EXPECT_TRUE(call("reject_repository_mapping", {{"proposalId", id}}).ok);
    EXPECT_EQ(env_.store().proposal(id)->status, PendingProposal::Status::rejected);
    ASSERT_EQ(notifier_.posted.size(), 1u);
    EXPECT_EQ(notifier_.posted[0].key, id);
    EXPECT_EQ(notifier_.closed, std::vector<std::string>{id}) << "withdrawn, it is taken down";
    EXPECT_FALSE(env_.approveProposal(id).problem.empty()) << "a rejected proposal stays so";
}

// Paths built from pieces that try every way out: "..", links leading out and in,
// dangling links, a sibling whose name starts like the root, "." and doubled
// slashes. Whatever is accepted must, resolved by the file system itself, lie
// inside the root component by component.
TEST_F(AgentServiceTest, NoGeneratedPathEscapesTheAllowedRoots) {
    const std::filesystem::path base = dir_ / "tree";
    const std::filesystem::path root = base / "allowed";
    std::filesystem::create_directories(root / "a" / "deep");
    std::filesystem::create_directories(base / "allowedX");
    std::filesystem::create_directories(base / "outside");
    std::filesystem::create_directory_symlink(base / "outside", root / "out");
    std::filesystem::create_directory_symlink(root / "a", root / "in");
    std::filesystem::create_directory_symlink("../allowedX", root / "sibling");
    std::filesystem::create_symlink(base / "outside" / "missing", root / "dangling");
    std::filesystem::create_directory_symlink(root, base / "outside" / "back");
    const std::vector<std::string> roots = {root.string() + "/"};

    const std::vector<std::string> pieces = {"allowed", "allowedX", "outside", "a",        "deep",
                                             "out",     "in",       "sibling", "dangling", "back",
                                             "..",      ".",        "",        "new"};
    const std::filesystem::path physicalRoot = std::filesystem::canonical(root);
    auto inside = [&](const std::filesystem::path& resolved) {
        return std::mismatch(physicalRoot.begin(), physicalRoot.end(), resolved.begin(),
                             resolved.end())
                   .first == physicalRoot.end();
    };
    size_t accepted = 0, tried = 0;
    std::vector<std::string> paths;
    std::function<void(std::string, int)> build = [&](std::string path, int depth) {
        paths.push_back(path);
        if (depth == 4) return;
        for (const std::string& piece : pieces) build(path + "/" + piece, depth + 1);
    };
    build(base.string(), 0);
    for (const std::string& path : paths) {
        ++tried;
        if (!AgentService::isInsideAllowedRoot(path, roots)) continue;
        ++accepted;
        std::error_code error;
        std::filesystem::path resolved = std::filesystem::weakly_canonical(path, error);
        ASSERT_FALSE(error) << path;
        EXPECT_TRUE(inside(resolved)) << path << " escapes to " << resolved;
    }
    EXPECT_GT(tried, 40000u);
    EXPECT_GT(accepted, 1000u) << "the root itself and what lies in it are accepted";

    for (const char* good : {"/allowed", "/allowed/a/deep", "/allowed/in/deep", "/allowed//./a/",
                             "/outside/back/a", "/allowed/new/file"}) {
        EXPECT_TRUE(AgentService::isInsideAllowedRoot(base.string() + good, roots)) << good;
    }
    for (const char* bad : {"/allowedX", "/allowed/out", "/allowed/sibling", "/allowed/dangling",
                            "/allowed/dangling/x", "/allowed/a/..", "/allowed/../allowed"}) {
        EXPECT_FALSE(AgentService::isInsideAllowedRoot(base.string() + bad, roots)) << bad;
    }
    EXPECT_FALSE(AgentService::isInsideAllowedRoot("relative/allowed", roots));
    EXPECT_FALSE(AgentService::isInsideAllowedRoot((root / "a").string(), {}));
    EXPECT_FALSE(AgentService::isInsideAllowedRoot((root / "a").string(), {"relative", "/x/../y"}));
    EXPECT_TRUE(AgentService::isInsideAllowedRoot((root / "a").string(), {"/"}));
}

}  // namespace
}  // namespace quorvane
