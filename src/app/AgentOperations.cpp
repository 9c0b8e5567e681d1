// The application's side of the agent server: starting and stopping it with the
// configuration, what its tools reach through, and the person's decisions on
// proposals.

#include <fmt/format.h>

#include "agent/AgentTools.hpp"
#include "agent/MCPSocketServer.hpp"
#include "app/AppEnvironment.hpp"
#include "base/EnumNames.hpp"
#include "base/Log.hpp"
#include "base/PathHelpers.hpp"
#include "base/Uuid.hpp"

namespace quorvane {

namespace {

class EnvironmentAccess final : public AgentEnvAccess {
public:
    EnvironmentAccess(AppEnvironment& env, const LicenceCheck& licence)
        : env_(env), licence_(licence) {}

    AppConfig currentConfig() override { return env_.config(); }
    std::vector<std::string> rescanNow() override { return env_.rescanNowOnMain(); }
    void repositoryChanged(const std::string& repoID) override { env_.refreshAfterGit(repoID); }
    RemoteSyncSummary syncNow(bool includeLocalScan) override {
        return env_.syncNow(includeLocalScan);
    }
    std::optional<std::string> applyConfigChange(
        const std::function<void(AppConfig&)>& change) override {
        if (env_.applyConfigChange(change)) return std::nullopt;
        return env_.saveProblem();
    }
    bool licenceGrants() override { return licence_.grants(); }
    void proposalsAdded(const std::vector<PendingProposal>& proposals) override {
        env_.proposalNotices().added(proposals);
        for (const PendingProposal& proposal : proposals) {
            env_.events().publish(
                "proposal",
                Json{{"id", proposal.id}, {"status", enumName(proposal.status)}}.dump());
        }
    }
    void proposalWithdrawn(const std::string& id) override {
        env_.proposalNotices().decided(id);
        env_.events().publish("proposal", Json{{"id", id}, {"status", "rejected"}}.dump());
    }

private:
    AppEnvironment& env_;
    const LicenceCheck& licence_;
};

}  // namespace

std::unique_ptr<AgentEnvAccess> AppEnvironment::makeAgentAccess(AppEnvironment& env,
                                                                const LicenceCheck& licence) {
    return std::make_unique<EnvironmentAccess>(env, licence);
}

AgentEnvAccess& AppEnvironment::agentAccess() {
    return *agentAccess_;
}

size_t AppEnvironment::mcpToolCount() {
    return AgentTools::toolCount();
}

std::filesystem::path AppEnvironment::agentSocketPath() const {
    return agentSocketPath(config(), dataDir_);
}

std::filesystem::path AppEnvironment::agentSocketPath(const AppConfig& config,
                                                      const std::filesystem::path& dataDir) {
    if (!config.agent.socketPath.empty()) return PathHelpers::expandTilde(config.agent.socketPath);
    return dataDir / "quorvane-agent.sock";
}

void AppEnvironment::startAgentServer() {
    std::lock_guard lifecycle(agentLifecycle_);
    if (mcpServer_ || stopping_) return;
    mcpServerPath_ = agentSocketPath();
    mcpServer_ = std::make_unique<MCPSocketServer>(*agentService_, mcpServerPath_);
    mcpServer_->start();
}

void AppEnvironment::stopAgentServer() {
    std::unique_ptr<MCPSocketServer> server;
    {
        std::lock_guard lifecycle(agentLifecycle_);
        server = std::move(mcpServer_);
    }
    // Outside the lock: stopping waits for calls in flight, which may read whether
    // the server runs.
    if (server) server->stop();
}

bool AppEnvironment::isAgentServerRunning() const {
    std::lock_guard lifecycle(agentLifecycle_);
    return mcpServer_ && mcpServer_->running();
}

void AppEnvironment::followAgentSettings() {
    {
        std::lock_guard lock(agentFollowMutex_);
        agentFollowRequested_ = true;
    }
    agentFollowWake_.notify_all();
}

void AppEnvironment::agentFollowLoop(std::stop_token stop) {
    for (;;) {
        {
            std::unique_lock lock(agentFollowMutex_);
            if (!agentFollowWake_.wait(lock, stop, [this] { return agentFollowRequested_; })) {
                return;
            }
            agentFollowRequested_ = false;
        }
        const AppConfig current = config();
        bool running = false;
        std::filesystem::path path;
        {
            std::lock_guard lifecycle(agentLifecycle_);
            running = mcpServer_ != nullptr;
            path = mcpServerPath_;
        }
        if (!current.agent.enabled) {
            if (running) {
                Log::app().info("agent disabled: the agent socket is closed");
                stopAgentServer();
            }
        } else if (!running) {
            startAgentServer();
        } else if (path != agentSocketPath()) {
            stopAgentServer();
            startAgentServer();
        }
    }
}

std::vector<PendingProposal> AppEnvironment::proposals() const {
    return store_.proposals(std::nullopt);
}

size_t AppEnvironment::pendingProposalCount() const {
    return store_.proposals(PendingProposal::Status::pending).size();
}

void AppEnvironment::recordDecision(const PendingProposal& proposal, const std::string& tool,
                                    const std::string& detail) {
    AuditLogEntry entry;
    entry.id = newUUID();
    entry.at = clock_.now();
    entry.actor = "user";
    entry.tool = tool;
    entry.argsSummary = "proposalId=" + proposal.id + " title=" + proposal.title;
    entry.status = "ok";
    entry.detail = detail;
    entry.proposalId = proposal.id;
    store_.appendAudit(entry);
    events_.publish("proposal",
                    Json{{"id", proposal.id}, {"status", enumName(proposal.status)}}.dump());
}

AppEnvironment::ProposalDecision AppEnvironment::approveProposal(const std::string& id) {
    ProposalDecision decision;
    const std::string token = newUUID();
    const Date expiresAt = clock_.now() + std::chrono::seconds(kTokenLifetimeSeconds);
    decision.proposal = store_.updateProposal(id, [&](PendingProposal& proposal) {
        using enum PendingProposal::Status;
        if (proposal.status != pending && proposal.status != approved) {
            decision.problem =
                fmt::format("proposal {} is {}; only a pending proposal can be approved", id,
                            enumName(proposal.status));
            return false;
        }
        proposal.status = approved;
        proposal.confirmationToken = token;
        proposal.expiresAt = expiresAt;
        return true;
    });
    if (!decision.proposal) {
        decision.problem = "no proposal " + id;
        return decision;
    }
    if (!decision.problem.empty()) return decision;
    proposalNotices_.decided(id);
    decision.token = token;
    recordDecision(*decision.proposal, "agent_review.confirm",
                   fmt::format("approved {}; token valid 15m", enumName(decision.proposal->kind)));
    return decision;
}

AppEnvironment::ProposalDecision AppEnvironment::rejectProposal(const std::string& id) {
    ProposalDecision decision;
    decision.proposal = store_.updateProposal(id, [&](PendingProposal& proposal) {
        using enum PendingProposal::Status;
        if (proposal.status != pending && proposal.status != approved) {
            decision.problem = fmt::format(
                "proposal {} is {}; only a pending or approved proposal can be "
                "rejected",
                id, enumName(proposal.status));
            return false;
        }
        proposal.status = rejected;
        return true;
    });
    if (!decision.proposal) {
        decision.problem = "no proposal " + id;
        return decision;
    }
    if (!decision.problem.empty()) return decision;
    proposalNotices_.decided(id);
    recordDecision(*decision.proposal, "agent_review.reject", "rejected by user");
    return decision;
}

}  // namespace quorvane
