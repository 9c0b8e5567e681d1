// The tool table against the dispatcher it describes: every schema is an object
// schema a client can use, and what it says about arguments and confirmation is
// what the dispatcher does with a call.
#include "agent/AgentTools.hpp"

#include <map>
#include <set>

#include <gtest/gtest.h>

#include "tests/AgentToolFixture.hpp"

namespace quorvane {
namespace {

using testing::repoAt;

Json schemaOf(const AgentTool& tool) {
    return Json::parse(tool.inputSchema, nullptr, false);
}

const Json& propertiesOf(const Json& schema) {
    static const Json none = Json::object();
    auto it = schema.find("properties");
    return it != schema.end() && it->is_object() ? *it : none;
}

std::vector<std::string> requiredOf(const Json& schema) {
    return schema.value("required", std::vector<std::string>{});
}

// The schema type a JSON value has, as a client validating against it would see it.
std::string typeOf(const Json& value) {
    if (value.is_number_integer()) return "integer";
    if (value.is_number()) return "number";
    if (value.is_string()) return "string";
    if (value.is_boolean()) return "boolean";
    if (value.is_array()) return "array";
    if (value.is_object()) return "object";
    return "null";
}

// Every `type` below `schema` names a JSON Schema type, every property says what it
// is for, and every `required` names a declared property.
void expectWellFormed(const Json& schema, const std::string& where) {
    static const std::set<std::string> kTypes = {"object", "array",   "string", "integer",
                                                 "number", "boolean", "null"};
    if (auto type = schema.find("type"); type != schema.end()) {
        for (const Json& name : type->is_array() ? *type : Json::array({*type})) {
            EXPECT_TRUE(name.is_string() && kTypes.contains(name.get<std::string>()))
                << where << ": type " << name;
        }
    }
    for (const std::string& key : requiredOf(schema)) {
        EXPECT_TRUE(propertiesOf(schema).contains(key)) << where << ": requires undeclared " << key;
    }
    for (const auto& [key, property] : propertiesOf(schema).items()) {
        EXPECT_TRUE(property.contains("description")) << where << "." << key;
        expectWellFormed(property, where + "." + key);
    }
    if (auto items = schema.find("items"); items != schema.end()) {
        expectWellFormed(*items, where + "[]");
    }
}

TEST(AgentToolsTest, EveryEntryIsNamedOnceAndHasAWellFormedObjectSchema) {
    std::set<std::string_view> names;
    std::set<std::string_view> titles;
    for (const AgentTool& tool : AgentTools::all()) {
        SCOPED_TRACE(std::string(tool.name));
        EXPECT_TRUE(names.insert(tool.name).second) << "named twice";
        EXPECT_FALSE(tool.title.empty());
        EXPECT_TRUE(titles.insert(tool.title).second) << "title used twice";
        EXPECT_FALSE(tool.description.empty());

        const Json schema = schemaOf(tool);
        ASSERT_TRUE(schema.is_object()) << "not a JSON object: " << tool.inputSchema;
        EXPECT_EQ(schema.value("type", ""), "object");
        EXPECT_TRUE(schema.contains("properties"));
        // A client that refused keys the schema does not name would refuse calls the
        // dispatcher serves, such as a note beside the arguments.
        EXPECT_FALSE(schema.contains("additionalProperties"));
        expectWellFormed(schema, std::string(tool.name));

        // The dispatcher refuses a call without its root argument before the tool runs.
        if (!tool.rootKey.empty()) {
            const std::string key(tool.rootKey);
            EXPECT_EQ(propertiesOf(schema).value(key, Json::object()).value("type", ""), "string");
            const std::vector<std::string> required = requiredOf(schema);
            EXPECT_NE(std::find(required.begin(), required.end(), key), required.end());
        }
    }
    EXPECT_EQ(names.size(), AgentTools::toolCount());
}

// Calls built from the schemas, on a real store and configuration, at the highest
// level and with the licence granted, so only the tools' own checks answer.
class AgentToolsDispatchTest : public testing::ToolTest {
protected:
    void configure(AppConfig& config) override {
        config.repositories = {repoAt("/work/app")};
        config.agent.permissionLevel = AgentPermissionLevel::safeGit;
    }
    void SetUp() override {
        ToolTest::SetUp();
        // The remote the samples name, so a tool that looks it up goes on to its
        // other arguments.
        RemoteRepository remote;
        remote.accountID = "acct";
        remote.owner = "alice";
        remote.name = "app";
        remote.fullName = "alice/app";
        remote.id = remote.composedID();
        env_.store().replaceRemoteRepos("acct", {remote});
    }

    // A value the tool accepts for `key`: the first of its enum, else one that fits
    // this configuration.
    Json sample(const std::string& key, const Json& property) const {
        if (auto values = property.find("enum"); values != property.end()) return values->at(0);
        const std::map<std::string, Json> byKey = {
            {"repoId", "/work/app"},
            {"localRepoId", "/work/app"},
            {"remoteRepoId", "acct:alice/app"},
            {"path", dir_.path().string()},
            {"rootPath", dir_.path().string()},
            {"folders", Json::array({dir_.path().string()})},
            {"aliases", Json::array({"application"})},
            {"rules", {{"staleDaysThreshold", 7}}},
            {"time", "18:00"},
            {"branch", "main"},
            {"confidence", 0.5},
            {"changes", Json::array({{{"field", "dailyReviewTime"}, {"value", "18:00"}}})}};
        auto found = byKey.find(key);
        return found != byKey.end() ? found->second : Json("x");
    }

    // The tool's required arguments, each with a sample value.
    Json requiredArgs(const Json& schema) const {
        Json args = Json::object();
        for (const std::string& key : requiredOf(schema)) {
            args[key] = sample(key, propertiesOf(schema)[key]);
        }
        return args;
    }

    size_t proposalCount() { return env_.proposals().size(); }
};

TEST_F(AgentToolsDispatchTest, ATokenIsDeclaredAndExplainedExactlyWhereTheDispatcherAsksForOne) {
    int asking = 0;
    for (const AgentTool& tool : AgentTools::all()) {
        if (tool.level < AgentPermissionLevel::applySettings) continue;
        SCOPED_TRACE(std::string(tool.name));
        const Json schema = schemaOf(tool);
        // With its required arguments and no token, a tool that takes one stops at
        // the confirmation step; any other ends some other way.
        AgentResult answer = call(tool.name, requiredArgs(schema));
        const bool asksForToken = answer.errorCode == "confirmation_required";
        asking += asksForToken;
        const Json& properties = propertiesOf(schema);
        ASSERT_EQ(properties.contains("confirmationToken"), asksForToken)
            << answer.hint.value_or("");
        if (!asksForToken) continue;

        EXPECT_EQ(properties["confirmationToken"].value("type", ""), "string");
        EXPECT_NE(
            properties["confirmationToken"].value("description", "").find("get_proposal_status"),
            std::string::npos);
        const std::vector<std::string> required = requiredOf(schema);
        EXPECT_EQ(std::count(required.begin(), required.end(), "confirmationToken"), 0);
        for (const char* step : {"confirmation_required", "quorvane proposals approve ID",
                                 "get_proposal_status", "confirmationToken"}) {
            EXPECT_NE(tool.description.find(step), std::string_view::npos) << step;
        }
    }
    // Thirteen settings and mapping tools and the four git tools.
    EXPECT_EQ(asking, 17);
}

TEST_F(AgentToolsDispatchTest, LeavingOutARequiredArgumentIsRefusedBeforeAnyProposal) {
    for (const AgentTool& tool : AgentTools::all()) {
        const Json schema = schemaOf(tool);
        for (const std::string& key : requiredOf(schema)) {
            Json args = requiredArgs(schema);
            args.erase(key);
            const size_t before = proposalCount();
            AgentResult answer = call(tool.name, args);
            EXPECT_FALSE(answer.ok) << tool.name << " without " << key;
            EXPECT_NE(answer.errorCode, "confirmation_required") << tool.name << " without " << key;
            EXPECT_EQ(proposalCount(), before) << tool.name << " without " << key;
        }
    }
}

TEST_F(AgentToolsDispatchTest, AnArgumentOfAnotherTypeThanDeclaredIsRefused) {
    const std::string root = dir_.path().string();
    const std::vector<std::pair<std::string, Json>> calls = {
        {"get_audit_log", {{"limit", "10"}}},
        {"get_activity_ranking", {{"limit", 2.5}}},
        {"read_git_commits", {{"path", root}, {"limit", "5"}}},
        {"search_local_projects", {{"rootPath", root}, {"maxDepth", "2"}}},
        {"get_mapping_candidates", {{"remoteRepoId", "alice/app"}, {"minConfidence", "high"}}},
        {"get_daily_summary", {{"date", 20261125}}},
        {"get_repositories_status", {{"repoIds", "/work/app"}}},
        {"update_scan_folders", {{"folders", root}}},
        {"update_project_aliases", {{"repoId", "/work/app"}, {"aliases", "app"}}},
        {"set_daily_review_time", {{"time", 1800}}},
        {"set_repository_reminder_rules", {{"repoId", "/work/app"}, {"rules", 7}}},
        {"update_mapping_confidence",
         {{"remoteRepoId", "acct:alice/app"}, {"localRepoId", "/work/app"}, {"confidence", "0.5"}}},
        // Optional arguments: given, but not as declared, they are refused rather
        // than taken as left out, which would do something the agent did not ask.
        {"list_remote_repositories", {{"accountId", 7}}},
        {"get_unmapped_local_repositories", {{"withoutRemoteOnly", "yes"}}},
        {"get_activity_ranking", {{"workedTodayOnly", 1}}},
        {"propose_repository_mapping", {{"remoteRepoId", "alice/app"}, {"minConfidence", "80"}}},
        {"propose_repository_mapping", {{"remoteRepoId", "alice/app"}, {"searchRoots", root}}},
        {"propose_repository_mapping",
         {{"remoteRepoId", "alice/app"}, {"searchRoots", Json::array({root, 3})}}},
        {"propose_cleanup_plan", {{"scope", Json::array({"today"})}}},
        {"set_repository_category", {{"repoId", "/work/app"}, {"value", 5}}},
        {"set_repository_category", {{"repoId", "/work/app"}, {"value", nullptr}}},
        {"git_push", {{"repoId", "/work/app"}, {"branch", Json::array({"main"})}}},
    };
    for (const auto& [name, args] : calls) {
        SCOPED_TRACE(name);
        const AgentTool* tool = AgentTools::find(name);
        ASSERT_NE(tool, nullptr);
        // The call is wrong by the schema: some argument's type is not the declared one.
        const Json schema = schemaOf(*tool);
        const Json& properties = propertiesOf(schema);
        std::vector<std::string> mistyped;
        for (const auto& [key, value] : args.items()) {
            const Json& property = properties.value(key, Json::object());
            const std::string declared = property.value("type", "");
            const Json items = property.value("items", Json::object());
            const bool fits =
                (declared == typeOf(value) || (declared == "number" && value.is_number())) &&
                (!value.is_array() || std::all_of(value.begin(), value.end(), [&](const Json& v) {
                    return items.value("type", "") == typeOf(v);
                }));
            if (!fits) mistyped.push_back(key);
        }
        ASSERT_FALSE(mistyped.empty()) << args;
        const size_t before = proposalCount();
        AgentResult answer = call(name, args);
        EXPECT_FALSE(answer.ok);
        EXPECT_TRUE(answer.errorCode == "invalid_params" || answer.errorCode == "not_found")
            << answer.errorCode.value_or("") << ": " << answer.hint.value_or("");
        // The agent learns which argument to mend.
        for (const std::string& key : mistyped) {
            EXPECT_NE(answer.hint.value_or("").find(key), std::string::npos)
                << key << ": " << answer.hint.value_or("");
        }
        EXPECT_EQ(proposalCount(), before);
    }
}

// A settings change's value has no one declared type: each field says what it
// takes. A list or text of another type is refused before any proposal, since the
// apply tool would refuse it only once the person had approved it; a category,
// priority or rule set of another type is proposed empty, for the person to see.
TEST_F(AgentToolsDispatchTest, ASettingsValueOfAnotherTypeIsRefusedOrProposedEmpty) {
    const std::vector<std::pair<std::string, Json>> values = {
        {"aliases", "application"},
        {"scanFolders", dir_.path().string()},
        {"defaultCloneFolder", false},
        {"dailyReviewTime", 1800},
    };
    for (const auto& [field, value] : values) {
        SCOPED_TRACE(field);
        const Json good = {{"field", "dailyReviewTime"}, {"value", "18:00"}};
        const Json bad = {{"field", field}, {"repoId", "/work/app"}, {"value", value}};
        AgentResult answer =
            call("propose_settings_change", {{"changes", Json::array({good, bad})}});
        EXPECT_EQ(answer.errorCode, "invalid_params") << answer.hint.value_or("");
        EXPECT_NE(answer.hint.value_or("").find(field), std::string::npos);
        EXPECT_EQ(proposalCount(), 0u);
    }
    const Json emptied =
        Json::array({{{"field", "category"}, {"repoId", "/work/app"}, {"value", 5}},
                     {{"field", "reminderRules"}, {"repoId", "/work/app"}, {"value", 7}}});
    EXPECT_TRUE(call("propose_settings_change", {{"changes", emptied}}).ok);
    std::set<std::string> payloads;
    for (const PendingProposal& proposal : env_.proposals()) payloads.insert(proposal.payloadJSON);
    EXPECT_EQ(payloads, (std::set<std::string>{R"({"repoId":"/work/app","value":""})",
                                               R"({"repoId":"/work/app","rules":{}})"}));
}

}  // namespace
}  // namespace quorvane
