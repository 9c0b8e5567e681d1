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

}  // namespace

std::vector<std::string> securityRelevantArgKeys(const std::string& tool) {
    if (tool == "apply_repository_mapping") return {"remoteRepoId", "localRepoId"};
    if (tool == "mark_repository_remote_only" || tool == "mark_repository_local_only" ||
        tool == "mark_repository_ignored") {
        return {"repoId"};
    }
    if (tool == "update_scan_folders") return {"folders"};
    if (tool == "set_default_clone_folder") return {"path"};
    if (tool == "set_repository_category" || tool == "set_repository_priority") {
        return {"repoId", "value"};
    }
    if (tool == "set_repository_reminder_rules") return {"repoId", "rules"};
    if (tool == "set_daily_review_time") return {"time"};
    if (tool == "enable_repository_tracking" || tool == "disable_repository_tracking") {
        return {"repoId"};
    }
    if (tool == "update_project_aliases") return {"repoId", "aliases"};
    if (tool == "git_push" || tool == "git_set_upstream_push") return {"repoId", "branch"};
    if (tool == "git_fetch" || tool == "git_pull_ff_only") return {"repoId"};
    if (tool == "apply_settings_recipe") return {"recipe", "recipeId"};
    return {};
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
    switch (kind) {
        case mapping: return tool == "apply_repository_mapping";
        case settingsChange:
        case scanFolders: return AgentTools::settingsFamilyTools().contains(tool);
        case markRemoteOnly: return tool == "mark_repository_remote_only";
        case markLocalOnly: return tool == "mark_repository_local_only";
        case markIgnored: return tool == "mark_repository_ignored";
        case recipe: return tool == "apply_settings_recipe";
        case cleanupPlan: return false;  // a plan is for reading; it authorises nothing
        case safeGit: return AgentTools::gitTools().contains(tool);
    }
    return false;
}

std::optional<PendingProposal::Kind> proposalKind(const std::string& applyTool) {
    using enum PendingProposal::Kind;
    if (applyTool == "apply_repository_mapping") return mapping;
    if (applyTool == "mark_repository_remote_only") return markRemoteOnly;
    if (applyTool == "mark_repository_local_only") return markLocalOnly;
    if (applyTool == "mark_repository_ignored") return markIgnored;
    if (applyTool == "apply_settings_recipe") return recipe;
    if (AgentTools::gitTools().contains(applyTool)) return safeGit;
    if (AgentTools::settingsFamilyTools().contains(applyTool)) return settingsChange;
    return std::nullopt;
}

std::pair<std::string, std::string> proposalText(const std::string& tool, const Json& args) {
    const std::string repo =
        hasArg(args, "repoId") ? textArg(args, "repoId") : textArg(args, "localRepoId");
    const std::string branch = textArg(args, "branch");
    if (tool == "apply_repository_mapping") {
        const std::string local = textArg(args, "localRepoId");
        const std::string remote = textArg(args, "remoteRepoId");
        return {"Map " + local + " → " + remote,
                "Links local repo " + local + " to remote " + remote + "."};
    }
    if (tool == "mark_repository_remote_only") {
        return {"Mark " + repo + " to remote-only", "Flags " + repo + " as having no local clone."};
    }
    if (tool == "mark_repository_local_only") {
        return {"Mark " + repo + " as local-only", "Flags " + repo + " as having no remote."};
    }
    if (tool == "mark_repository_ignored") {
        return {"Ignore repository " + repo,
                "DESTRUCTIVE: stops tracking " + repo +
                    " AND deletes its stored history in Quorvane — work sessions, commits, "
                    "snapshots, health and sync state. This cannot be undone."};
    }
    if (tool == "git_fetch")
        return {"git fetch — " + repo, "Fetches " + repo + " from its remote."};
    if (tool == "git_pull_ff_only") {
        return {"git pull --ff-only — " + repo, "Fast-forward pulls " + repo + " from its remote."};
    }
    if (tool == "git_push") {
        std::string summary = "Pushes " + repo;
        if (!branch.empty()) summary += " (" + branch + ")";
        return {"git push — " + repo, summary + " to its remote."};
    }
    if (tool == "git_set_upstream_push") {
        return {"git push -u — " + repo, "Sets upstream and pushes " + repo + " (" + branch + ")."};
    }
    if (tool == "apply_settings_recipe") {
        return {"Apply settings recipe", "Applies a settings recipe proposed by the agent."};
    }
    if (AgentTools::settingsFamilyTools().contains(tool)) {
        std::string pairs;
        for (const std::string& key : securityRelevantArgKeys(tool)) {
            if (!hasArg(args, key)) continue;
            if (!pairs.empty()) pairs += ", ";
            pairs += key + "=" + summaryValue(args.at(key));
        }
        return {"Apply " + tool, pairs.empty() ? "Settings change proposed by the agent." : pairs};
    }
    return {tool, ""};
}

}  // namespace quorvane::ProposalRules
