// The agent's read tools and resources: what the tracker knows, as JSON. They
// change nothing.
#include <set>

#include "agent/AgentService.hpp"
#include "agent/AgentToolSupport.hpp"
#include "base/EnumNames.hpp"

namespace quorvane {

using namespace AgentToolSupport;

namespace {

AgentJSON auditJSON(const AuditLogEntry& entry) {
    return AgentJSON(AgentJSON::Object{{"id", entry.id},
                                       {"at", DateHelpers::isoString(entry.at)},
                                       {"actor", entry.actor},
                                       {"tool", entry.tool},
                                       {"argsSummary", entry.argsSummary},
                                       {"status", entry.status},
                                       {"detail", optionalText(entry.detail)},
                                       {"proposalId", optionalText(entry.proposalId)}});
}

}  // namespace

std::optional<AgentResult> AgentService::runReadTool(const Call& call) {
    const std::string& tool = call.tool;
    if (tool == "get_settings") return getSettings(call);
    if (tool == "get_audit_log") return getAuditLog(call);
    if (tool == "get_proposal_status") return getProposalStatus(call);
    if (tool == "list_pending_proposals") return listPendingProposals(call);
    if (tool == "list_local_repositories") return listLocalRepositories(call);
    return std::nullopt;
}

AgentJSON AgentService::settingsResource(const AppConfig& config) const {
    return AgentJSON(AgentJSON::Object{
        {"scanFolders", textList(config.scanFolders)},
        {"scanIntervalMinutes", config.scanIntervalMinutes},
        {"autoTrackNewRepos", config.autoTrackNewRepos},
        {"dailyReviewTime", config.dailyReviewTime},
        {"theme", std::string(enumName(config.theme))},
        {"mapping", AgentJSON::Object{{"autoMapByURL", config.mapping.autoMapByURL},
                                      {"defaultCloneFolder", config.mapping.defaultCloneFolder}}},
        {"agent",
         AgentJSON::Object{{"enabled", config.agent.enabled},
                           {"permissionLevel", std::string(enumName(config.agent.permissionLevel))},
                           {"allowedRoots", textList(config.agent.allowedRoots)},
                           {"maxScanDepth", config.agent.maxScanDepth},
                           {"requireGuiConfirmation", config.agent.requireGuiConfirmation}}},
        {"repositoryCount", static_cast<int>(config.repositories.size())}});
}

AgentJSON AgentService::localRepositories(const AppConfig& config) const {
    AgentJSON::Array repos;
    for (const RepoConfig& repo : config.repositories) {
        std::optional<RepoSnapshot> snapshot = store_.snapshot(repo.id);
        std::optional<std::string> remoteURL =
            snapshot && snapshot->remoteURL ? snapshot->remoteURL : repo.remoteURL;
        AgentJSON::Array aliases;
        for (const std::string& alias : repo.aliases) aliases.emplace_back(alias);
        repos.emplace_back(AgentJSON::Object{{"repoId", repo.id},
                                             {"name", repo.name},
                                             {"displayName", optionalText(repo.displayName)},
                                             {"localPath", repo.localPath},
                                             {"defaultBranch", repo.defaultBranch},
                                             {"trackingEnabled", repo.trackingEnabled},
                                             {"aliases", std::move(aliases)},
                                             {"remoteURL", optionalText(remoteURL)}});
    }
    return AgentJSON(std::move(repos));
}

AgentJSON AgentService::auditLog(std::optional<size_t> limit) const {
    AgentJSON::Array entries;
    for (const AuditLogEntry& entry : store_.auditEntries(limit)) {
        entries.push_back(auditJSON(entry));
    }
    return AgentJSON(std::move(entries));
}

AgentResult AgentService::getSettings(const Call& call) {
    return ok(call, settingsResource(call.config));
}

AgentResult AgentService::listLocalRepositories(const Call& call) {
    return ok(call, localRepositories(call.config));
}

AgentResult AgentService::getAuditLog(const Call& call) {
    size_t limit = kDefaultAuditLimit;
    if (auto it = call.args.find("limit"); it != call.args.end()) {
        // A whole number, as JSON gives it; a negative or fractional one is refused.
        if (!it->is_number_integer() || it->get<long long>() < 0) {
            return refuse(call, "error", "bad limit", "invalid_params",
                          "`limit` must be a whole number, 0 or more");
        }
        limit = static_cast<size_t>(it->get<long long>());
    }
    return ok(call, auditLog(limit));
}

AgentResult AgentService::getProposalStatus(const Call& call) {
    std::optional<std::string> id = textArg(call.args, "proposalId");
    if (!id || id->empty()) {
        return refuse(call, "error", "missing proposalId", "not_found", "missing proposalId");
    }
    std::optional<PendingProposal> proposal = store_.proposal(*id);
    if (!proposal) {
        return refuse(call, "error", "proposal not found", "not_found", "proposal not found");
    }
    AgentJSON::Object result{{"proposalId", proposal->id},
                             {"kind", std::string(enumName(proposal->kind))},
                             {"title", proposal->title},
                             {"status", std::string(enumName(proposal->status))},
                             {"intendedTool", optionalText(proposal->intendedTool)}};
    if (proposal->status != PendingProposal::Status::approved || !proposal->confirmationToken) {
        return ok(call, AgentJSON(std::move(result)));
    }
    // The agent's way to the token without the person typing it; the log says it
    // left, never what it is.
    result.emplace("confirmationToken", *proposal->confirmationToken);
    if (proposal->expiresAt)
        result.emplace("expiresAt", DateHelpers::isoString(*proposal->expiresAt));
    const std::string boundTo =
        proposal->intendedTool ? *proposal->intendedTool : std::string(enumName(proposal->kind));
    audit(call.tool, call.args, "token_disclosed", "token handed to caller for " + boundTo,
          proposal->id);
    return AgentResult::success(AgentJSON(std::move(result)).serialized());
}

AgentResult AgentService::listPendingProposals(const Call& call) {
    std::optional<PendingProposal::Status> status;
    if (auto it = call.args.find("status"); it != call.args.end()) {
        const std::string text = it->is_string() ? it->get<std::string>() : it->dump();
        status = enumFromName<PendingProposal::Status>(text);
        if (!status) {
            return refuse(call, "error", "unknown status", "invalid_params",
                          "unknown status `" + text + "`");
        }
    }
    AgentJSON::Array items;
    for (const PendingProposal& proposal : store_.proposals(status)) {
        items.emplace_back(
            AgentJSON::Object{{"proposalId", proposal.id},
                              {"kind", std::string(enumName(proposal.kind))},
                              {"title", proposal.title},
                              {"status", std::string(enumName(proposal.status))},
                              {"createdAt", DateHelpers::isoString(proposal.createdAt)}});
    }
    return ok(call, AgentJSON(std::move(items)));
}

AgentResult AgentService::handleResourceRead(const Call& call) {
    std::optional<std::string> uri = textArg(call.args, "uri");
    if (!uri) return refuse(call, "error", "missing uri", "not_found", "`uri` required");
    if (*uri == "quorvane://settings") return ok(call, settingsResource(call.config));
    if (*uri == "quorvane://audit-log") return ok(call, auditLog(kDefaultAuditLimit));
    if (*uri == "quorvane://repositories/local") return ok(call, localRepositories(call.config));
    static const std::set<std::string> later = {"quorvane://repositories/remote",
                                                "quorvane://repositories/unmapped",
                                                "quorvane://repositories/needs-attention",
                                                "quorvane://mappings/candidates",
                                                "quorvane://reports/today",
                                                "quorvane://reports/week"};
    if (later.contains(*uri)) {
        return refuse(call, "error", "not available yet", "not_found",
                      "resource `" + *uri + "` is not available yet in this version of Quorvane");
    }
    return refuse(call, "error", "unknown uri " + *uri, "not_found",
                  "unknown resource `" + *uri + "`");
}

}  // namespace quorvane
