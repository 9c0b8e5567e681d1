#include "agent/AgentTools.hpp"

#include <algorithm>

namespace quorvane::AgentTools {

namespace {

using enum AgentPermissionLevel;

std::set<std::string> namesAt(AgentPermissionLevel level) {
    std::set<std::string> names;
    for (const AgentTool& tool : all()) {
        if (tool.level == level) names.emplace(tool.name);
    }
    return names;
}

}  // namespace

const std::vector<AgentTool>& all() {
    static const std::vector<AgentTool> tools = {
        // Reading: no licence, no token.
        {"list_accounts", readOnly, ""},
        {"list_remote_repositories", readOnly, ""},
        {"list_local_repositories", readOnly, ""},
        {"get_repository", readOnly, ""},
        {"get_repository_status", readOnly, ""},
        {"get_repositories_status", readOnly, ""},
        {"get_unmapped_remote_repositories", readOnly, ""},
        {"get_unmapped_local_repositories", readOnly, ""},
        {"get_mapping_candidates", readOnly, ""},
        {"get_daily_summary", readOnly, ""},
        {"get_weekly_summary", readOnly, ""},
        {"get_activity_ranking", readOnly, ""},
        {"get_settings", readOnly, ""},
        {"get_audit_log", readOnly, ""},
        {"get_proposal_status", readOnly, ""},
        {"list_pending_proposals", readOnly, ""},
        {"get_project_health_overview", readOnly, ""},
        {"get_branch_overview", readOnly, ""},
        {"find_duplicate_clones", readOnly, ""},
        {"find_missing_local_clones", readOnly, ""},
        {"search_local_projects", readOnly, "rootPath"},
        {"scan_folder_for_git_repos", readOnly, "rootPath"},
        {"rescan_now", readOnly, ""},
        {"inspect_local_git_repo", readOnly, "path"},
        {"sync_remote_inventory_now", readOnly, ""},
        {"read_git_remote", readOnly, "path"},
        {"read_git_branches", readOnly, "path"},
        {"read_git_commits", readOnly, "path"},
        {"read_git_status", readOnly, "path"},
        {"compute_repo_fingerprint", readOnly, "path"},
        {"infer_project_metadata", readOnly, "path"},
        {"generate_daily_report", readOnly, ""},
        {"generate_weekly_report", readOnly, ""},
        {"generate_mapping_report", readOnly, ""},
        {"generate_cleanup_plan", readOnly, ""},
        {"generate_project_health_report", readOnly, ""},
        {"export_report_markdown", readOnly, ""},
        // Proposing: creates proposals only.
        {"propose_repository_mapping", propose, ""},
        {"propose_settings_change", propose, ""},
        {"propose_cleanup_plan", propose, ""},
        // Applying: everything but reject_repository_mapping needs the licence.
        {"reject_repository_mapping", applySettings, ""},
        {"apply_repository_mapping", applySettings, ""},
        {"mark_repository_remote_only", applySettings, ""},
        {"mark_repository_local_only", applySettings, ""},
        {"mark_repository_ignored", applySettings, ""},
        {"update_mapping_confidence", applySettings, ""},
        {"update_scan_folders", applySettings, ""},
        {"set_default_clone_folder", applySettings, ""},
        {"set_repository_category", applySettings, ""},
        {"set_repository_priority", applySettings, ""},
        {"set_repository_reminder_rules", applySettings, ""},
        {"set_daily_review_time", applySettings, ""},
        {"enable_repository_tracking", applySettings, ""},
        {"disable_repository_tracking", applySettings, ""},
        {"update_project_aliases", applySettings, ""},
        {"apply_settings_recipe", applySettings, ""},
        // Git, behind the licence and a token.
        {"git_fetch", safeGit, ""},
        {"git_pull_ff_only", safeGit, ""},
        {"git_push", safeGit, ""},
        {"git_set_upstream_push", safeGit, ""},
    };
    return tools;
}

const AgentTool* find(std::string_view name) {
    const auto& tools = all();
    auto it = std::find_if(tools.begin(), tools.end(),
                           [&](const AgentTool& tool) { return tool.name == name; });
    return it == tools.end() ? nullptr : &*it;
}

const std::set<std::string>& readOnlyTools() {
    static const std::set<std::string> names = namesAt(readOnly);
    return names;
}

const std::set<std::string>& proposeTools() {
    static const std::set<std::string> names = namesAt(propose);
    return names;
}

const std::set<std::string>& applyTools() {
    static const std::set<std::string> names = namesAt(applySettings);
    return names;
}

const std::set<std::string>& gitTools() {
    static const std::set<std::string> names = namesAt(safeGit);
    return names;
}

const std::set<std::string>& freeApplyTools() {
    static const std::set<std::string> names = {"reject_repository_mapping"};
    return names;
}

std::set<std::string> paidApplyTools() {
    std::set<std::string> paid;
    std::set_difference(applyTools().begin(), applyTools().end(), freeApplyTools().begin(),
                        freeApplyTools().end(), std::inserter(paid, paid.end()));
    return paid;
}

const std::set<std::string>& settingsFamilyTools() {
    static const std::set<std::string> names = {
        "update_scan_folders",        "set_default_clone_folder",      "set_repository_category",
        "set_repository_priority",    "set_repository_reminder_rules", "set_daily_review_time",
        "enable_repository_tracking", "disable_repository_tracking",   "update_project_aliases"};
    return names;
}

const std::set<std::string>& settingsFields() {
    static const std::set<std::string> names = {
        "category",        "priority",    "reminderRules",      "aliases",
        "trackingEnabled", "scanFolders", "defaultCloneFolder", "dailyReviewTime"};
    return names;
}

const std::vector<AgentResource>& resources() {
    static const std::vector<AgentResource> list = {
        {"quorvane://repositories/local", "repositories-local", "Local repositories",
         "The tracked local repositories and their settings."},
        {"quorvane://repositories/remote", "repositories-remote", "GitHub repositories",
         "The repositories of the connected GitHub accounts, from the last sync."},
        {"quorvane://repositories/unmapped", "repositories-unmapped", "Unmapped repositories",
         "Local and GitHub repositories not yet linked to a counterpart."},
        {"quorvane://repositories/needs-attention", "repositories-needs-attention",
         "Repositories that need attention",
         "Repositories whose local and GitHub copies have drifted apart."},
        {"quorvane://mappings/candidates", "mappings-candidates", "Mapping candidates",
         "Pending proposals to link a local repository to a GitHub one."},
        {"quorvane://reports/today", "reports-today", "Today", "Today's work summary."},
        {"quorvane://reports/week", "reports-week", "This week", "This week's work summary."},
        {"quorvane://settings", "settings", "Settings", "Quorvane's settings, without secrets."},
        {"quorvane://audit-log", "audit-log", "Audit log", "The newest agent calls and decisions."},
    };
    return list;
}

size_t toolCount() {
    return readOnlyTools().size() + proposeTools().size() + applyTools().size() + gitTools().size();
}

}  // namespace quorvane::AgentTools
