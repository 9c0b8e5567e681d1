// The agent's tools through the service's front door, on a real store and
// configuration in a folder of the test's own, which is also the allowed root.
#pragma once

#include <gtest/gtest.h>

#include "agent/AgentService.hpp"
#include "app/AppEnvironment.hpp"
#include "platform/Shell.hpp"
#include "testing/FakeClock.hpp"
#include "testing/RepoConfigs.hpp"
#include "testing/TempDir.hpp"

namespace quorvane::testing {

class ToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        env_.load();
        env_.applyConfigChange([&](AppConfig& config) {
            config.agent.allowedRoots = {root_};
            configure(config);
        });
    }
    // What a test needs beyond the default configuration.
    virtual void configure(AppConfig& /*config*/) {}

    AgentResult call(std::string_view tool, const Json& args = Json::object()) {
        return env_.agentService().handle(std::string(tool), args.dump());
    }
    // The answer's JSON; a refusal fails the test with its hint.
    Json result(const AgentResult& answer) {
        EXPECT_TRUE(answer.ok) << answer.hint.value_or("");
        return Json::parse(answer.json);
    }
    AuditLogEntry lastAudit() { return env_.store().auditEntries(1).at(0); }
    void setLevel(AgentPermissionLevel level) {
        env_.applyConfigChange([&](AppConfig& config) { config.agent.permissionLevel = level; });
    }
    // The proposal id a change without a token was answered with.
    std::string proposalIn(const AgentResult& answer) {
        EXPECT_EQ(answer.errorCode, "confirmation_required") << answer.hint.value_or("");
        const std::string prefix = "(proposal ";
        size_t at = answer.hint.value_or("").find(prefix);
        return at == std::string::npos ? "" : answer.hint->substr(at + prefix.size(), 36);
    }
    // The person's approval; the token it hands out.
    std::string approve(const std::string& id) {
        AppEnvironment::ProposalDecision decision = env_.approveProposal(id);
        EXPECT_EQ(decision.problem, "");
        return decision.token;
    }
    // The whole road: the call makes a proposal, the person approves it, the same
    // call with the token applies it.
    AgentResult applyApproved(std::string_view tool, Json args) {
        args["confirmationToken"] = approve(proposalIn(call(tool, args)));
        return call(tool, args);
    }

    // What the person was shown and what was taken down again, by key.
    struct ShownNotifications final : Notifier {
        void post(const Notification& notification) override { posted.push_back(notification); }
        void close(const std::string& key) override { closed.push_back(key); }
        std::vector<Notification> posted;
        std::vector<std::string> closed;
    };

    TempDir dir_;
    const std::string root_ = dir_.path().string();
    FakeClock clock_{*DateHelpers::parseISO("2026-11-25T10:00:00Z")};
    Shell shell_;
    ShownNotifications notifier_;
    AppEnvironment env_{dir_ / "data", clock_, shell_, &notifier_};
};

}  // namespace quorvane::testing
