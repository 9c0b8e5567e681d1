#include "agent/ProposalRules.hpp"

#include "agent/AgentJSON.hpp"
#include "agent/AgentTools.hpp"

namespace quorvane::ProposalRules {

namespace {

std::string textArg(const Json& args, const char* key) {
    if (!args.is_object()) return "";
    auto it = args.find(key);
    if (it == args.end() || !it->is_string()) return "";
    return it->get<std::string>();
}

bool hasArg(const Json& args, const std::string& key) {
    return args.is_object() && args.contains(key);
}

// How a value reads in a settings proposal's summary: text as it is, anything else
// as compact JSON.
std::string summaryValue(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    return AgentJSON::fromJson(value).serialized();
}

std::pair<std::string, std::string> gitProposalText(SafeGitAction::Command command,
                                                    const std::string& repo,
                                                    const std::string& branch) {
    using enum SafeGitAction::Command;
    switch (command) {
        case fetch: return {"git fetch — " + repo, "Fetches " + repo + " from its remote."};
        case pullFFOnly:
            return {"git pull --ff-only — " + repo,
                    "Fast-forward pulls " + repo + " from its remote."};
        case push: {
            std::string summary = "Pushes " + repo;
            if (!branch.empty()) summary += " (" + branch + ")";
            return {"git push — " + repo, summary + " to its remote."};
        }
        case setUpstreamPush:
            return {"git push -u — " + repo,
                    "Sets upstream and pushes " + repo + " (" + branch + ")."};
    }
    return {"", ""};
}

// What a call to `tool` needs from an approved proposal; null for a tool that takes
// no token and a name no tool has.
const ToolApproval* approvalOf(const std::string& tool) {
    const AgentTool* entry = AgentTools::find(tool);
    return entry != nullptr && entry->approval ? &*entry->approval : nullptr;
}

}  // namespace

std::vector<std::string> securityRelevantArgKeys(const std::string& tool) {
    const ToolApproval* approval = approvalOf(tool);
    if (approval == nullptr) return {};
    return {approval->boundArgs.begin(), approval->boundArgs.end()};
}

std::string canonicalArgsJSON(const std::string& tool, const Json& args) {
    AgentJSON::Object relevant;
    for (const std::string& key : securityRelevantArgKeys(tool)) {
        if (hasArg(args, key)) relevant.emplace(key, AgentJSON::fromJson(args.at(key)));
    }
    return AgentJSON(std::move(relevant)).serialized();
}

std::string fingerprint(const std::string& tool, const Json& args) {
    return tool + "|" + canonicalArgsJSON(tool, args);
}

bool kindAuthorizes(PendingProposal::Kind kind, const std::string& tool) {
    using enum PendingProposal::Kind;
    const ToolApproval* approval = approvalOf(tool);
    if (approval == nullptr) return false;
    // A scan folders proposal is a settings change by an older name. A cleanup plan
    // is for reading: no tool takes it.
    return approval->kind == kind || (kind == scanFolders && approval->kind == settingsChange);
}

std::optional<PendingProposal::Kind> proposalKind(const std::string& applyTool) {
    const ToolApproval* approval = approvalOf(applyTool);
    if (approval == nullptr) return std::nullopt;
    return approval->kind;
}

std::pair<std::string, std::string> proposalText(const std::string& tool, const Json& args) {
    using enum PendingProposal::Kind;
    const ToolApproval* approval = approvalOf(tool);
    if (approval == nullptr) return {tool, ""};
    const std::string repo =
        hasArg(args, "repoId") ? textArg(args, "repoId") : textArg(args, "localRepoId");
    switch (approval->kind) {
        case mapping: {
            const std::string local = textArg(args, "localRepoId");
            const std::string remote = textArg(args, "remoteRepoId");
            return {"Map " + local + " → " + remote,
                    "Links local repo " + local + " to remote " + remote + "."};
        }
        case markRemoteOnly:
            return {"Mark " + repo + " to remote-only",
                    "Flags " + repo + " as having no local clone."};
        case markLocalOnly:
            return {"Mark " + repo + " as local-only", "Flags " + repo + " as having no remote."};
        case markIgnored:
            return {"Ignore repository " + repo,
                    "DESTRUCTIVE: stops tracking " + repo +
                        " AND deletes its stored history in Quorvane — work sessions, commits, "
                        "snapshots, health and sync state. This cannot be undone."};
        case recipe:
            return {"Apply settings recipe", "Applies a settings recipe proposed by the agent."};
        case safeGit: return gitProposalText(*approval->gitCommand, repo, textArg(args, "branch"));
        case settingsChange:
        case scanFolders: {
            std::string pairs;
            for (const std::string& key : securityRelevantArgKeys(tool)) {
                if (!hasArg(args, key)) continue;
                if (!pairs.empty()) pairs += ", ";
                pairs += key + "=" + summaryValue(args.at(key));
            }
            return {"Apply " + tool,
                    pairs.empty() ? "Settings change proposed by the agent." : pairs};
        }
        case cleanupPlan: break;
    }
    return {tool, ""};
}

}  // namespace quorvane::ProposalRules
