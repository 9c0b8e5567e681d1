#include "screens/ProposalReviewModel.hpp"

#include <map>
#include <set>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/AgentTools.hpp"
#include "agent/ProposalRules.hpp"
#include "testing/FakeProcessRunner.hpp"
#include "testing/RepoConfigs.hpp"

namespace quorvane {

namespace ProposalReviewModel {
void PrintTo(const Row& row, std::ostream* out) {
    *out << "{" << row.what << ": " << row.before << " -> " << row.after << "}";
}
}  // namespace ProposalReviewModel

namespace {

using ProposalReviewModel::Row;

// A proposal exactly as an apply tool called without a token stores it.
PendingProposal proposed(const std::string& tool, const Json& args) {
    PendingProposal proposal;
    proposal.id = "6f1c2a9e-0000-4000-8000-000000000001";
    proposal.kind = ProposalRules::proposalKind(tool).value_or(PendingProposal::Kind::cleanupPlan);
    std::tie(proposal.title, proposal.summary) = ProposalRules::proposalText(tool, args);
    proposal.payloadJSON = ProposalRules::canonicalArgsJSON(tool, args);
    proposal.intendedTool = tool;
    proposal.argsFingerprint = ProposalRules::fingerprint(tool, args);
    return proposal;
}

struct Case {
    std::string tool;
    Json args;
    std::vector<Row> rows;
    std::vector<std::string> warnings = {};
    std::optional<std::string> command = std::nullopt;
};

TEST(ProposalReviewModelTest, EveryProposalShowsWhatItChangesAgainstTheConfigurationAsItStands) {
    const std::string app = "/home/me/code/app", spaced = "/home/me/my code";
    AppConfig config;
    config.dailyReviewTime = "18:00";
    config.scanFolders = {"~/code", "/home/me/old"};
    RepoConfig tracked = testing::repoAt(app);
    tracked.category = "web";
    tracked.priority = RepoConfig::Priority::high;
    tracked.staleDaysThreshold = 5;
    tracked.aliases = {"app", "front"};
    config.repositories = {tracked, testing::repoAt(spaced)};
    RepositoryMapping link;
    link.id = app;
    link.localRepoID = app;
    link.remoteRepoID = "acc:me/app";
    link.kind = RepositoryMapping::Kind::mapped;
    const std::vector<RepositoryMapping> mappings = {link};
    const std::map<std::string, std::optional<size_t>> folders = {
        {"~/code/nowhere", std::nullopt}, {"~/tmp", 0}, {"/home/me/work", 2}};
    std::vector<std::string> searched;
    const ProposalReviewModel::Standing standing{
        config, mappings, "/home/me", [&](const std::string& folder) {
            searched.push_back(folder);
            auto found = folders.find(folder);
            return found == folders.end() ? std::optional<size_t>(1) : found->second;
        }};

    const std::vector<Case> cases = {
        {"set_daily_review_time", {{"time", "20:15"}}, {{"dailyReviewTime", "18:00", "20:15"}}},
        // A value the setting does not take is said before approval.
        {"set_daily_review_time",
         {{"time", "25:00"}},
         {{"dailyReviewTime", "18:00", "25:00"}},
         {"dailyReviewTime takes a local time of day as HH:MM, 00:00 to 23:59, not \"25:00\""}},
        {"set_default_clone_folder",
         {{"path", "/srv/x\x1b[2J"}},
         {{"mapping.defaultCloneFolder", "~/Developer", "/srv/x\\x1b[2J"}},
         {"mapping.defaultCloneFolder takes text without control characters, not "
          "\"/srv/x\\u001b[2J\""}},
        {"update_scan_folders",
         {{"folders", {"~/code", "~/code/nowhere", "~/tmp", "/home/me/work", "src"}}},
         {{"scan folder", "~/old", "-"},
          {"scan folder", "-", "~/code/nowhere"},
          {"scan folder", "-", "~/tmp"},
          {"scan folder", "-", "~/work"},
          {"scan folder", "-", "src"}},
         {"~/code/nowhere does not exist", "~/tmp holds no repository",
          "src is not an absolute folder nor one from ~, which the scan folders take"}},
        {"set_repository_category",
         {{"repoId", app}, {"value", "tools"}},
         {{"category of ~/code/app", "web", "tools"}}},
        {"set_repository_priority",
         {{"repoId", app}, {"value", "low"}},
         {{"priority of ~/code/app", "high", "low"}}},
        {"set_repository_priority",
         {{"repoId", "/home/me/gone"}, {"value", "urgent"}},
         {{"priority of ~/gone", "-", "urgent"}},
         {"~/gone is not a tracked repository", "priority takes low, normal or high"}},
        {"set_repository_reminder_rules",
         {{"repoId", app}, {"rules", {{"staleDaysThreshold", nullptr}}}},
         {{"staleDaysThreshold of ~/code/app", "5", "default (3)"}}},
        {"enable_repository_tracking",
         {{"repoId", app}},
         {{"trackingEnabled of ~/code/app", "true", "true"}}},
        {"disable_repository_tracking",
         {{"repoId", app}},
         {{"trackingEnabled of ~/code/app", "true", "false"}}},
        {"update_project_aliases",
         {{"repoId", app}, {"aliases", {"web"}}},
         {{"aliases of ~/code/app", "app, front", "web"}}},
        {"apply_repository_mapping",
         {{"remoteRepoId", "acc:me/api"}, {"localRepoId", app}},
         {{"mapping of ~/code/app", "mapped to acc:me/app", "mapped to acc:me/api"}}},
        {"apply_repository_mapping",
         {{"remoteRepoId", "acc:me/x"}, {"localRepoId", nullptr}},
         {},
         {"no local repository was found for acc:me/x: approving links nothing"}},
        {"mark_repository_remote_only",
         {{"repoId", "acc:me/app"}},
         {{"mapping of acc:me/app", "mapped to ~/code/app", "remote only"}}},
        {"mark_repository_local_only",
         {{"repoId", spaced}},
         {{"mapping of ~/my code", "-", "local only"}}},
        {"mark_repository_ignored",
         {{"repoId", app}},
         {{"tracking of ~/code/app", "tracked", "ignored"},
          {"stored history of ~/code/app", "kept", "deleted"}},
         {"the stored history of ~/code/app is deleted for good"}},
        {"apply_settings_recipe",
         {{"recipe", "focus"}},
         {{"settings recipe", "-", "focus"}},
         {"settings recipes are not built: approving this changes nothing"}},
        {"git_push",
         {{"repoId", app}, {"branch", "main"}},
         {},
         {},
         "/usr/bin/git -C ~/code/app push --end-of-options origin main"},
        {"git_set_upstream_push",
         {{"repoId", app}, {"branch", "it's"}},
         {},
         {},
         "/usr/bin/git -C ~/code/app push -u --end-of-options origin 'it'\\''s'"},
        {"git_fetch", {{"repoId", spaced}}, {}, {}, "/usr/bin/git -C ~/'my code' fetch --prune"},
        {"git_pull_ff_only",
         {{"repoId", "/home/me/gone"}},
         {},
         {"~/gone is not a tracked repository: nothing runs"}},
    };

    // The git review reads the repository's settings; a runner that starts nothing
    // leaves only the command line, which is what the model shows.
    testing::FakeProcessRunner runner;
    std::set<std::string> covered;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tool + " " + c.args.dump());
        covered.insert(c.tool);
        const PendingProposal proposal = proposed(c.tool, c.args);
        const ProposalReviewModel::Change change = ProposalReviewModel::changeOf(
            proposal, GitProposalReview::of(proposal, config, runner), standing);
        EXPECT_EQ(change.rows, c.rows);
        EXPECT_EQ(change.warnings, c.warnings);
        EXPECT_EQ(change.command, c.command);
    }
    // A folder already scanned, or taken out, is not searched again.
    EXPECT_THAT(searched, ::testing::ElementsAre("~/code/nowhere", "~/tmp", "/home/me/work"));
    // A tool that waits for approval but has no rule here would show the person nothing.
    for (const AgentTool& tool : AgentTools::all()) {
        if (tool.approval) {
            EXPECT_TRUE(covered.contains(std::string(tool.name))) << tool.name;
        }
    }

    // A plan is for reading: it changes nothing and runs nothing.
    PendingProposal plan;
    plan.kind = PendingProposal::Kind::cleanupPlan;
    plan.payloadJSON = R"({"scope":"today"})";
    const Json planned = ProposalReviewModel::review(plan, std::nullopt, standing);
    EXPECT_EQ(planned["change"], Json::parse(R"({"rows":[],"warnings":[],"command":null})"));
    const PendingProposal time = proposed("set_daily_review_time", {{"time", "20:15"}});
    EXPECT_EQ(ProposalReviewModel::review(time, std::nullopt, standing)["change"],
              Json::parse(R"({"rows":[{"what":"dailyReviewTime","before":"18:00",
                                       "after":"20:15"}],"warnings":[],"command":null})"));
}

}  // namespace
}  // namespace quorvane
