// The propose and apply tools, through the dispatcher on a real store and
// configuration: each change waits for the person's approval and is carried out
// once, exactly as approved.
#include "tests/AgentToolFixture.hpp"

namespace quorvane {
namespace {

using testing::repoAt;

class ChangeToolsTest : public testing::ToolTest {
protected:
    void configure(AppConfig& config) override {
        config.repositories = {repoAt("/work/app"), repoAt("/work/lib")};
    }
    const RepoConfig* repo(const std::string& id) {
        config_ = env_.config();
        for (const RepoConfig& r : config_.repositories) {
            if (r.id == id) return &r;
        }
        return nullptr;
    }

    AppConfig config_;
};

TEST_F(ChangeToolsTest, ASettingsProposalMakesOneProposalPerToolOrNoneAtAll) {
    AgentResult bad =
        call("propose_settings_change", {{"changes",
                                          {{{"field", "dailyReviewTime"}, {"value", "19:00"}},
                                           {{"field", "colour"}, {"value", "red"}}}}});
    EXPECT_EQ(bad.errorCode, "not_found");
    EXPECT_EQ(bad.hint,
              "unsupported settings field `colour`; supported: aliases, category, "
              "dailyReviewTime, defaultCloneFolder, priority, reminderRules, scanFolders, "
              "trackingEnabled");
    EXPECT_TRUE(env_.proposals().empty()) << "one refused change stores none";
    EXPECT_EQ(call("propose_settings_change", {{"changes", Json::array()}}).hint,
              "`changes` must be a non-empty array of {repoId?, field, value}");
    EXPECT_EQ(call("propose_settings_change", {{"changes", {{{"value", 1}}}}}).hint,
              "each change needs a `field`");

    const Json changes = {
        {"changes",
         {{{"field", "dailyReviewTime"}, {"value", "19:00"}},
          {{"field", "trackingEnabled"}, {"repoId", "/work/lib"}, {"value", false}},
          {{"field", "priority"}, {"repoId", "/work/app"}, {"value", "high"}}}}};
    AgentResult proposed = call("propose_settings_change", changes);
    ASSERT_TRUE(proposed.ok) << proposed.hint.value_or("");
    Json ids = result(proposed)["proposalIds"];
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_EQ(result(proposed)["proposalId"], ids[0]);
    EXPECT_EQ(lastAudit().detail, "proposals=3");
    EXPECT_EQ(env_.store().proposal(ids[1])->intendedTool, "disable_repository_tracking");
    EXPECT_EQ(env_.store().proposal(ids[2])->summary, "repoId=/work/app, value=high");
    // Proposing the same again names the same proposals.
    EXPECT_EQ(result(call("propose_settings_change", changes))["proposalIds"], ids);

    // Each is applied by its own tool with its own token.
    const std::string token = approve(ids[1]);
    AgentResult applied = call("disable_repository_tracking",
                               {{"repoId", "/work/lib"}, {"confirmationToken", token}});
    EXPECT_TRUE(applied.ok) << applied.hint.value_or("");
    EXPECT_FALSE(repo("/work/lib")->trackingEnabled);
}

TEST_F(ChangeToolsTest, EachRepositorySettingIsAppliedOnlyAsApproved) {
    EXPECT_TRUE(
        applyApproved("set_repository_category", {{"repoId", "/work/app"}, {"value", "client"}})
            .ok);
    EXPECT_EQ(repo("/work/app")->category, "client");
    EXPECT_TRUE(
        applyApproved("set_repository_priority", {{"repoId", "/work/app"}, {"value", "low"}}).ok);
    EXPECT_EQ(repo("/work/app")->priority, RepoConfig::Priority::low);
    EXPECT_TRUE(applyApproved("set_repository_reminder_rules",
                              {{"repoId", "/work/app"}, {"rules", {{"staleDaysThreshold", 9}}}})
                    .ok);
    EXPECT_EQ(repo("/work/app")->staleDaysThreshold, 9);
    EXPECT_TRUE(applyApproved("update_project_aliases",
                              {{"repoId", "/work/app"}, {"aliases", {"front", "web"}}})
                    .ok);
    EXPECT_EQ(repo("/work/app")->aliases, (std::vector<std::string>{"front", "web"}));
    EXPECT_TRUE(applyApproved("set_default_clone_folder", {{"path", "~/src"}}).ok);
    EXPECT_EQ(env_.config().mapping.defaultCloneFolder, "~/src");
    EXPECT_TRUE(
        applyApproved("set_repository_category", {{"repoId", "/work/app"}, {"value", ""}}).ok);
    EXPECT_EQ(repo("/work/app")->category, std::nullopt) << "empty text clears it";

    // Refused before any proposal is made, so no token is ever spent on them.
    const size_t proposals = env_.proposals().size();
    EXPECT_EQ(
        call("set_repository_priority", {{"repoId", "/work/app"}, {"value", "urgent"}}).errorCode,
        "invalid_params");
    EXPECT_EQ(call("set_repository_category", {{"repoId", "/gone"}, {"value", "x"}}).hint,
              "repo not found");
    EXPECT_EQ(call("update_project_aliases", {{"repoId", "/work/app"}}).hint, "missing args");
    EXPECT_EQ(call("set_default_clone_folder", {{"path", "src"}}).errorCode, "invalid_params");
    EXPECT_EQ(call("set_repository_reminder_rules",
                   {{"repoId", "/work/app"}, {"rules", {{"staleDaysThreshold", -1}}}})
                  .errorCode,
              "invalid_params");
    EXPECT_EQ(env_.proposals().size(), proposals);

    AgentResult recipe = call("apply_settings_recipe", {{"recipeId", "focus"}});
    EXPECT_EQ(recipe.errorCode, "not_implemented");
    EXPECT_EQ(recipe.hint,
              "settings recipes are not implemented (recipe=focus); use propose_settings_change "
              "+ the matching set_* apply tool");
    EXPECT_EQ(env_.proposals().size(), proposals) << "a recipe never asks for a token";
}

TEST_F(ChangeToolsTest, MappingsFollowTheApprovedProposalAndMarksAreKeptOnce) {
    EXPECT_EQ(
        call("update_mapping_confidence",
             {{"remoteRepoId", "acct:me/app"}, {"localRepoId", "/work/app"}, {"confidence", 0.5}})
            .hint,
        "no mapping for /work/app — use apply_repository_mapping first");
    EXPECT_EQ(call("apply_repository_mapping", {{"remoteRepoId", "acct:me/app"}}).hint,
              "missing repo ids");

    // A proposal stored without a fingerprint: what the person saw wins over the call.
    PendingProposal shown;
    shown.id = "MAP-1";
    shown.kind = PendingProposal::Kind::mapping;
    shown.intendedTool = "apply_repository_mapping";
    shown.payloadJSON = R"({"localRepoId":"/work/app","remoteRepoId":"acct:me/app"})";
    shown.createdAt = clock_.now();
    env_.store().upsertProposal(shown);
    const std::string token = approve("MAP-1");
    AgentResult mapped = call("apply_repository_mapping", {{"remoteRepoId", "acct:me/other"},
                                                           {"localRepoId", "/work/lib"},
                                                           {"confirmationToken", token}});
    ASSERT_TRUE(mapped.ok) << mapped.hint.value_or("");
    EXPECT_EQ(lastAudit().detail, "mapped /work/app → acct:me/app");
    std::vector<RepositoryMapping> mappings = env_.store().mappings();
    ASSERT_EQ(mappings.size(), 1u);
    EXPECT_EQ(mappings[0].localRepoID, "/work/app");
    EXPECT_EQ(mappings[0].remoteRepoID, "acct:me/app");
    EXPECT_TRUE(mappings[0].confirmedByUser);

    AgentResult adjusted =
        call("update_mapping_confidence",
             {{"remoteRepoId", "acct:me/app"}, {"localRepoId", "/work/app"}, {"confidence", 80}});
    EXPECT_TRUE(adjusted.ok) << "no token needed";
    EXPECT_DOUBLE_EQ(env_.store().mappings()[0].confidence, 0.8);

    EXPECT_TRUE(applyApproved("mark_repository_local_only", {{"repoId", "/work/lib"}}).ok);
    EXPECT_TRUE(applyApproved("mark_repository_remote_only", {{"repoId", "acct:me/site"}}).ok);
    Store reread(dir_ / "data", clock_, Store::Access::readOnly);
    reread.load();
    EXPECT_EQ(reread.mappings().size(), 3u) << "written at once, not at the next scan";

    // Ignoring is destructive and says so; used twice, the id is kept once.
    const std::string ignore =
        proposalIn(call("mark_repository_ignored", {{"repoId", "/work/lib"}}));
    EXPECT_TRUE(env_.store().proposal(ignore)->summary.starts_with(
        "DESTRUCTIVE: stops tracking /work/lib"));
    EXPECT_TRUE(applyApproved("mark_repository_ignored", {{"repoId", "/work/lib"}}).ok);
    EXPECT_TRUE(applyApproved("mark_repository_ignored", {{"repoId", "/work/lib"}}).ok);
    EXPECT_EQ(env_.config().ignoredRepoIDs, (std::vector<std::string>{"/work/lib"}));
    EXPECT_EQ(repo("/work/lib"), nullptr);
    for (const RepositoryMapping& mapping : env_.store().mappings()) {
        EXPECT_NE(mapping.localRepoID, "/work/lib") << "its stored history is purged";
    }
}

}  // namespace
}  // namespace quorvane
