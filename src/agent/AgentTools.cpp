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
        {"list_accounts", readOnly, "", false},
        {"list_remote_repositories", readOnly, "", false},
        {"list_local_repositories", readOnly, "", true},
        {"get_repository", readOnly, "", false},
        {"get_repository_status", readOnly, "", false},
        {"get_repositories_status", readOnly, "", false},
        {"get_unmapped_remote_repositories", readOnly, "", false},
        {"get_unmapped_local_repositories", readOnly, "", false},
        {"get_mapping_candidates", readOnly, "", false},
        {"get_daily_summary", readOnly, "", false},
        {"get_weekly_summary", readOnly, "", false},
        {"get_activity_ranking", readOnly, "", false},
        {"get_settings", readOnly, "", true},
        {"get_audit_log", readOnly, "", true},
        {"get_proposal_status", readOnly, "", true},
        {"list_pending_proposals", readOnly, "", true},
        {"get_project_health_overview", readOnly, "", false},
        {"get_branch_overview", readOnly, "", false},
        {"find_duplicate_clones", readOnly, "", true},
        {"find_missing_local_clones", readOnly, "", true},
        {"search_local_projects", readOnly, "rootPath", true},
        {"scan_folder_for_git_repos", readOnly, "rootPath", true},
        {"rescan_now", readOnly, "", false},
        {"inspect_local_git_repo", readOnly, "path", true},
        {"sync_remote_inventory_now", readOnly, "", false},
        {"read_git_remote", readOnly, "path", false},
        {"read_git_branches", readOnly, "path", false},
        {"read_git_commits", readOnly, "path", false},
        {"read_git_status", readOnly, "path", false},
        {"compute_repo_fingerprint", readOnly, "path", true},
        {"infer_project_metadata", readOnly, "path", true},
        {"generate_daily_report", readOnly, "", false},
        {"generate_weekly_report", readOnly, "", false},
        {"generate_mapping_report", readOnly, "", false},
        {"generate_cleanup_plan", readOnly, "", true},
        {"generate_project_health_report", readOnly, "", false},
        {"export_report_markdown", readOnly, "", false},
        // Proposing: creates proposals only.
        {"propose_repository_mapping", propose, "", false},
        {"propose_settings_change", propose, "", false},
        {"propose_cleanup_plan", propose, "", false},
        // Applying: everything but reject_repository_mapping needs the licence.
        {"reject_repository_mapping", applySettings, "", true},
        {"apply_repository_mapping", applySettings, "", false},
        {"mark_repository_remote_only", applySettings, "", false},
        {"mark_repository_local_only", applySettings, "", false},
        {"mark_repository_ignored", applySettings, "", false},
        {"update_mapping_confidence", applySettings, "", false},
        {"update_scan_folders", applySettings, "", true},
        {"set_default_clone_folder", applySettings, "", false},
        {"set_repository_category", applySettings, "", false},
        {"set_repository_priority", applySettings, "", false},
        {"set_repository_reminder_rules", applySettings, "", false},
        {"set_daily_review_time", applySettings, "", true},
        {"enable_repository_tracking", applySettings, "", true},
        {"disable_repository_tracking", applySettings, "", true},
        {"update_project_aliases", applySettings, "", false},
        {"apply_settings_recipe", applySettings, "", false},
        // Git, behind the licence and a token.
        {"git_fetch", safeGit, "", false},
        {"git_pull_ff_only", safeGit, "", false},
        {"git_push", safeGit, "", false},
        {"git_set_upstream_push", safeGit, "", false},
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

size_t toolCount() {
    return readOnlyTools().size() + proposeTools().size() + applyTools().size() + gitTools().size();
}

}  // namespace quorvane::AgentTools
