#include "agent/AgentTools.hpp"

#include <algorithm>
#include <deque>

#include "agent/AgentService.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane::AgentTools {

namespace {

using enum AgentPermissionLevel;
using Kind = PendingProposal::Kind;
using Command = SafeGitAction::Command;
constexpr ToolLicence kLicensed = ToolLicence::needed;

std::set<std::string> namesAt(AgentPermissionLevel level) {
    std::set<std::string> names;
    for (const AgentTool& tool : all()) {
        if (tool.level == level) names.emplace(tool.name);
    }
    return names;
}

// Text composed for the table, kept for the life of the program: the entries point
// into it. Only the table's one-time initialisation adds to it.
std::string_view kept(std::string text) {
    static std::deque<std::string> texts;
    return texts.emplace_back(std::move(text));
}

// What every tool that waits for the person's approval tells an agent, in the same
// words, after what the tool is for.
std::string_view confirmed(std::string_view purpose) {
    return kept(std::string(purpose) +
                " It acts only with the person's confirmation: a call without "
                "`confirmationToken` creates a proposal and returns a `confirmation_required` "
                "error naming it; the person approves it with `quorvane proposals approve ID`, "
                "then get the token with get_proposal_status and repeat the call with "
                "`confirmationToken`.");
}

// The schema with the optional token argument those tools take. One that does not
// parse is kept as written, for the table's tests to name.
std::string_view withToken(std::string_view schema) {
    Json parsed = Json::parse(schema, nullptr, false);
    if (!parsed.is_object()) return schema;
    parsed["properties"]["confirmationToken"] = {
        {"type", "string"},
        {"description",
         "The one-time token get_proposal_status gives after the person approved this call's "
         "proposal in Quorvane. Leave it out on the first call."}};
    return kept(parsed.dump());
}

}  // namespace

const std::vector<AgentTool>& all() {
    // Each entry: name, level, root key, title, description, argument schema,
    // handler, and for the tools behind the licence or a token, that. The schema
    // names every argument the tool reads; `required` the ones whose absence it
    // refuses. Each name is written here only: everything else finds a tool by its
    // row or its handler.
    static const std::vector<AgentTool> tools = {
        // Reading: no licence, no token.
        {"list_accounts", readOnly, "", "List GitHub accounts",
         "Use this to see which GitHub accounts are connected to Quorvane, whether they sync and "
         "how many remote repositories each holds. Changes nothing.",
         R"({"type":"object","properties":{}})", &AgentService::listAccounts},
        {"list_remote_repositories", readOnly, "", "List remote repositories",
         "Use this to list the GitHub repositories of Quorvane's last synced inventory, all of "
         "them or one account's; their `id` is what the mapping tools take. Changes nothing; run "
         "sync_remote_inventory_now first when the inventory is empty or stale.",
         R"({"type":"object","properties":{
            "accountId":{"type":"string","description":"Only this account's repositories, by the id list_accounts gives. Left out, every account's."}}})",
         &AgentService::listRemoteRepositories},
        {"list_local_repositories", readOnly, "", "List local repositories",
         "Use this to list the local Git repositories Quorvane tracks, with their ids, folders, "
         "aliases and remote URL. Changes nothing.",
         R"({"type":"object","properties":{}})", &AgentService::listLocalRepositories},
        {"get_repository", readOnly, "", "Get one repository",
         "Use this for everything Quorvane knows about one tracked repository: its last scan, sync "
         "state, health score and mapping to GitHub. Changes nothing.",
         R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id as list_local_repositories gives it, or a path (from / or ~) that resolves to it."}},
            "required":["repoId"]})",
         &AgentService::getRepository},
        {"get_repository_status", readOnly, "", "Get a repository's status",
         "Use this for one tracked repository's working state: branch, ahead/behind, changed files "
         "and sync state, without health and mapping. Changes nothing.",
         R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id as list_local_repositories gives it, or a path (from / or ~) that resolves to it."}},
            "required":["repoId"]})",
         &AgentService::getRepositoryStatus},
        {"get_repositories_status", readOnly, "", "Get several repositories' status",
         "Use this for the working state of several tracked repositories in one call; an unknown "
         "id is answered with an error in its place. Changes nothing.",
         R"({"type":"object","properties":{
            "repoIds":{"type":"array","items":{"type":"string"},"description":"Tracked repository ids (or paths that resolve to them)."}},
            "required":["repoIds"]})",
         &AgentService::getRepositoriesStatus},
        {"get_unmapped_remote_repositories", readOnly, "", "List unmapped remote repositories",
         "Use this to find GitHub repositories that no local clone is mapped to yet. Changes "
         "nothing.",
         R"({"type":"object","properties":{}})", &AgentService::getUnmappedRemote},
        {"get_unmapped_local_repositories", readOnly, "", "List unmapped local repositories",
         "Use this to find tracked local repositories that are not mapped to a GitHub repository "
         "yet; those with tracking off are left out. Changes nothing.",
         R"({"type":"object","properties":{
            "withoutRemoteOnly":{"type":"boolean","description":"true keeps only those with no remote URL at all. Default false."}}})",
         &AgentService::getUnmappedLocal},
        {"get_mapping_candidates", readOnly, "", "Get mapping candidates",
         "Use this to see the mapping proposals for one remote repository that still wait on the "
         "person (pending or approved, not yet applied). Changes nothing.",
         R"({"type":"object","properties":{
            "remoteRepoId":{"type":"string","description":"The remote repository: its full id from list_remote_repositories, its owner/name, its GitHub URL, or a name only one repository has."},
            "minConfidence":{"type":"number","minimum":0,"maximum":100,"description":"Leave out candidates below this confidence, in percent. Default 60."}},
            "required":["remoteRepoId"]})",
         &AgentService::getMappingCandidates},
        {"get_daily_summary", readOnly, "", "Get a day's summary",
         "Use this for what was worked on during one day: active repositories, commits, time "
         "estimates and what needs a commit, push or pull. Changes nothing.",
         R"({"type":"object","properties":{
            "date":{"type":"string","format":"date","description":"The day, yyyy-MM-dd. Default today."}}})",
         &AgentService::getDailySummary},
        {"get_weekly_summary", readOnly, "", "Get a week's summary",
         "Use this for the week (Monday to Sunday) that holds a day: activity per day and per "
         "repository, the most active and most neglected, and what needs attention. Changes "
         "nothing.",
         R"({"type":"object","properties":{
            "date":{"type":"string","format":"date","description":"A day of the week wanted, yyyy-MM-dd. Default today."}}})",
         &AgentService::getWeeklySummary},
        {"get_activity_ranking", readOnly, "", "Rank repositories by activity",
         "Use this to find the repositories worked on most recently, or today, with their changed "
         "files and ahead/behind counts. Changes nothing.",
         R"({"type":"object","properties":{
            "workedTodayOnly":{"type":"boolean","description":"true keeps only repositories worked on today. Default false."},
            "sort":{"type":"string","enum":["workedTodayFirst","lastActivity","lastWorkingTreeChangeAt"],"description":"The order. Default workedTodayFirst."},
            "limit":{"type":"integer","minimum":0,"description":"At most this many rows. Default 50."}}})",
         &AgentService::getActivityRanking},
        {"get_settings", readOnly, "", "Get settings",
         "Use this to read Quorvane's settings: scan folders, review time, default clone folder "
         "and the agent's own permission level and allowed roots. Changes nothing.",
         R"({"type":"object","properties":{}})", &AgentService::getSettings},
        {"get_audit_log", readOnly, "", "Read the agent audit log",
         "Use this to see the agent calls Quorvane recorded, newest first, with how each ended. "
         "Changes nothing.",
         R"({"type":"object","properties":{
            "limit":{"type":"integer","minimum":0,"description":"At most this many entries. Default 100."}}})",
         &AgentService::getAuditLog},
        {"get_proposal_status", readOnly, "", "Get a proposal's status",
         "Use this after the person approved a proposal in Quorvane: once it is approved the "
         "answer holds the one-time `confirmationToken` to repeat the changing call with. "
         "Otherwise it tells whether the proposal is pending, rejected, applied or expired. "
         "Changes nothing.",
         R"({"type":"object","properties":{
            "proposalId":{"type":"string","description":"The proposal's id, as a confirmation_required error or a propose tool named it."}},
            "required":["proposalId"]})",
         &AgentService::getProposalStatus},
        {"list_pending_proposals", readOnly, "", "List proposals",
         "Use this to list the proposals made to the person, of every status unless `status` "
         "narrows it. Changes nothing.",
         R"({"type":"object","properties":{
            "status":{"type":"string","enum":["pending","approved","rejected","applied","expired"],"description":"Only proposals with this status. Left out, all of them."}}})",
         &AgentService::listPendingProposals},
        {"get_project_health_overview", readOnly, "", "Get the health overview",
         "Use this to see every tracked repository's latest health score, worst first, with its "
         "main concern. Changes nothing.",
         R"({"type":"object","properties":{}})", &AgentService::getHealthOverview},
        {"get_branch_overview", readOnly, "", "Get the branch overview",
         "Use this to list the branches Quorvane recorded for all tracked repositories, local and "
         "remote, with ahead/behind counts. Changes nothing.",
         R"({"type":"object","properties":{}})", &AgentService::getBranchOverview},
        {"find_duplicate_clones", readOnly, "", "Find duplicate clones",
         "Use this to find tracked folders that are clones of the same project. Reads the "
         "repositories and changes nothing.",
         R"({"type":"object","properties":{}})", &AgentService::findDuplicateClones},
        {"find_missing_local_clones", readOnly, "", "Find missing local clones",
         "Use this to find GitHub repositories that have no local clone mapped to them. Changes "
         "nothing.",
         R"({"type":"object","properties":{}})", &AgentService::findMissingLocalClones},
        {"search_local_projects", readOnly, "rootPath", "Search local projects",
         "Use this to look for a project on disk by name: walks a folder inside the allowed roots "
         "for Git working trees and returns the best matches first with their evidence. Changes "
         "nothing.",
         R"({"type":"object","properties":{
            "rootPath":{"type":"string","description":"The folder to search, absolute or from ~; it must lie inside the agent's allowed roots."},
            "query":{"type":"string","description":"What to look for: a project, package or repository name."},
            "maxDepth":{"type":"integer","minimum":0,"description":"How many folder levels deep to look; never deeper than the person's limit, which is also the default."}},
            "required":["rootPath"]})",
         &AgentService::searchLocalProjects},
        {"scan_folder_for_git_repos", readOnly, "rootPath", "Scan a folder for Git repositories",
         "Use this to list every Git working tree below a folder inside the allowed roots. Changes "
         "nothing and tracks nothing.",
         R"({"type":"object","properties":{
            "rootPath":{"type":"string","description":"The folder to scan, absolute or from ~; it must lie inside the agent's allowed roots."},
            "maxDepth":{"type":"integer","minimum":0,"description":"How many folder levels deep to look; never deeper than the person's limit, which is also the default."}},
            "required":["rootPath"]})",
         &AgentService::scanFolderForGitRepos},
        {"rescan_now", readOnly, "", "Rescan local repositories",
         "Use this to refresh Quorvane's own data now: it rescans the tracked repositories and "
         "scan folders and answers with the repositories it newly started tracking (only when the "
         "person turned auto-tracking on). It changes no repository.",
         R"({"type":"object","properties":{}})", &AgentService::rescanNow},
        {"inspect_local_git_repo", readOnly, "path", "Inspect a local Git repository",
         "Use this to read what identifies one Git working tree: its GitHub owner/name, package "
         "name, README title and recent commits. Changes nothing.",
         R"({"type":"object","properties":{
            "path":{"type":"string","description":"The repository's folder, absolute or from ~, inside the agent's allowed roots."}},
            "required":["path"]})",
         &AgentService::inspectLocalGitRepo},
        {"sync_remote_inventory_now", readOnly, "", "Sync the GitHub inventory",
         "Use this to refresh Quorvane's own copy of the connected accounts' GitHub repositories "
         "and recompute the mappings. It changes nothing on GitHub or in any repository.",
         R"({"type":"object","properties":{}})", &AgentService::syncRemoteInventory},
        {"read_git_remote", readOnly, "path", "Read Git remotes",
         "Use this to list a repository's Git remotes with their fetch and push URLs and GitHub "
         "owner/name. Changes nothing.",
         R"({"type":"object","properties":{
            "path":{"type":"string","description":"A folder inside the repository, absolute or from ~, inside the agent's allowed roots."}},
            "required":["path"]})",
         &AgentService::readGitRemote},
        {"read_git_branches", readOnly, "path", "Read Git branches",
         "Use this to list a repository's local branches with their upstream, ahead/behind counts "
         "and last commit. Changes nothing.",
         R"({"type":"object","properties":{
            "path":{"type":"string","description":"A folder inside the repository, absolute or from ~, inside the agent's allowed roots."}},
            "required":["path"]})",
         &AgentService::readGitBranches},
        {"read_git_commits", readOnly, "path", "Read Git commits",
         "Use this to read a repository's most recent commits: sha, message, author and time. "
         "Changes nothing.",
         R"({"type":"object","properties":{
            "path":{"type":"string","description":"A folder inside the repository, absolute or from ~, inside the agent's allowed roots."},
            "limit":{"type":"integer","minimum":0,"description":"At most this many commits, newest first. Default 20; more than 1000 gives 1000."}},
            "required":["path"]})",
         &AgentService::readGitCommits},
        {"read_git_status", readOnly, "path", "Read Git status",
         "Use this to count a repository's modified, staged, untracked, deleted and renamed files. "
         "Changes nothing.",
         R"({"type":"object","properties":{
            "path":{"type":"string","description":"A folder inside the repository, absolute or from ~, inside the agent's allowed roots."}},
            "required":["path"]})",
         &AgentService::readGitStatus},
        {"compute_repo_fingerprint", readOnly, "path", "Compute a repository fingerprint",
         "Use this to tell whether two folders hold the same project: gives the first commit's "
         "sha, GitHub owner/name, package name and README title. Changes nothing.",
         R"({"type":"object","properties":{
            "path":{"type":"string","description":"The repository's folder, absolute or from ~, inside the agent's allowed roots."}},
            "required":["path"]})",
         &AgentService::computeRepoFingerprint},
        {"infer_project_metadata", readOnly, "path", "Infer project metadata",
         "Use this to guess what a project folder is: its type, stack, category, priority and a "
         "suggested next action. Changes nothing.",
         R"({"type":"object","properties":{
            "path":{"type":"string","description":"The project's folder, absolute or from ~, inside the agent's allowed roots."}},
            "required":["path"]})",
         &AgentService::inferProjectMetadata},
        {"generate_daily_report", readOnly, "", "Generate a daily report",
         "Use this for one day's work report as Markdown. Changes nothing.",
         R"({"type":"object","properties":{
            "date":{"type":"string","format":"date","description":"The day, yyyy-MM-dd. Default today."}}})",
         &AgentService::generateDailyReport},
        {"generate_weekly_report", readOnly, "", "Generate a weekly report",
         "Use this for the report of the week holding a day, as Markdown. Changes nothing.",
         R"({"type":"object","properties":{
            "date":{"type":"string","format":"date","description":"A day of the week wanted, yyyy-MM-dd. Default today."}}})",
         &AgentService::generateWeeklyReport},
        {"generate_mapping_report", readOnly, "", "Generate a mapping report",
         "Use this for a Markdown report of the repositories whose local/GitHub mapping is missing "
         "or broken, by reason. Changes nothing.",
         R"({"type":"object","properties":{}})", &AgentService::generateMappingReport},
        {"generate_cleanup_plan", readOnly, "", "Generate a cleanup plan",
         "Use this for a Markdown plan of what to commit, push or pull today. Changes nothing; "
         "propose_cleanup_plan puts the same plan before the person.",
         R"({"type":"object","properties":{}})", &AgentService::generateCleanupPlan},
        {"generate_project_health_report", readOnly, "", "Generate a health report",
         "Use this for one repository's latest health score with its strengths and concerns, as "
         "Markdown. Changes nothing.",
         R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The repository's id as list_local_repositories gives it, or a path (from / or ~) that resolves to it."}},
            "required":["repoId"]})",
         &AgentService::generateHealthReport},
        {"export_report_markdown", readOnly, "", "Export a report to a file",
         "Use this to save the daily or weekly report as a Markdown file in Quorvane's reports "
         "folder; answers with the file's path. It writes only that file and changes no repository "
         "or setting.",
         R"({"type":"object","properties":{
            "kind":{"type":"string","enum":["daily","weekly"],"description":"Which report. Default daily."},
            "date":{"type":"string","format":"date","description":"The day, or a day of the week, yyyy-MM-dd. Default today."}}})",
         &AgentService::exportReportMarkdown},
        // Proposing: creates proposals only.
        {"propose_repository_mapping", propose, "", "Propose a repository mapping",
         "Use this to find the local clone of a GitHub repository: searches the allowed roots and "
         "only creates a mapping proposal for the person to review, with the best candidate. It "
         "changes no mapping; apply_repository_mapping does that once the person approved.",
         R"({"type":"object","properties":{
            "remoteRepoId":{"type":"string","description":"The remote repository: its full id from list_remote_repositories, its owner/name, its GitHub URL, or a name only one repository has."},
            "searchRoots":{"type":"array","items":{"type":"string"},"description":"Folders to search, each inside the allowed roots. Default the allowed roots."},
            "minConfidence":{"type":"number","minimum":0,"maximum":100,"description":"Leave out candidates below this confidence, in percent. Default 60."}},
            "required":["remoteRepoId"]})",
         &AgentService::proposeMapping},
        {"propose_settings_change", propose, "", "Propose settings changes",
         "Use this to suggest changes to Quorvane's settings or to tracked repositories' settings: "
         "it only creates one proposal per change for the person to review and changes nothing. "
         "Once one is approved, the matching set_*, update_* or *_tracking tool applies it with "
         "the token from get_proposal_status.",
         R"({"type":"object","properties":{
            "changes":{"type":"array","minItems":1,"description":"The changes; if any is refused, no proposal is made.","items":{"type":"object","properties":{
              "repoId":{"type":"string","description":"The tracked repository's id, for the per-repository fields."},
              "field":{"type":"string","enum":["category","priority","reminderRules","aliases","trackingEnabled","scanFolders","defaultCloneFolder","dailyReviewTime"],"description":"What to change."},
              "value":{"description":"The new value: text for category, priority (low, normal, high), defaultCloneFolder and dailyReviewTime (HH:MM); an object for reminderRules; a list of texts for aliases and scanFolders; true or false for trackingEnabled."}},
              "required":["field"]}}},
            "required":["changes"]})",
         &AgentService::proposeSettings},
        {"propose_cleanup_plan", propose, "", "Propose a cleanup plan",
         "Use this to put today's plan of what to commit, push or pull before the person: it only "
         "creates a proposal for them to review and authorises nothing.",
         R"({"type":"object","properties":{
            "scope":{"type":"string","description":"A label for the plan's title. Default today."}}})",
         &AgentService::proposeCleanup},
        // Applying: everything but reject_repository_mapping needs the licence.
        {"reject_repository_mapping", applySettings, "", "Reject a proposal",
         "Use this to turn down a proposal, such as a mapping proposal with the wrong match, so "
         "that it can no longer be approved. It needs no confirmation: it changes nothing but that "
         "proposal's status.",
         R"({"type":"object","properties":{
            "proposalId":{"type":"string","description":"The proposal's id."}},
            "required":["proposalId"]})",
         &AgentService::rejectMapping},
        {"apply_repository_mapping", applySettings, "", "Apply a repository mapping",
         confirmed("Use this to link a tracked local repository to its GitHub repository."),
         withToken(R"({"type":"object","properties":{
            "remoteRepoId":{"type":"string","description":"The remote repository's full id from list_remote_repositories."},
            "localRepoId":{"type":"string","description":"The local repository's id (its folder path)."}},
            "required":["remoteRepoId","localRepoId"]})"),
         &AgentService::applyMapping, kLicensed,
         ToolApproval{Kind::mapping, {"remoteRepoId", "localRepoId"}}},
        {"mark_repository_remote_only", applySettings, "", "Mark a repository remote-only",
         confirmed("Use this to record that a GitHub repository has no local clone on purpose."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The remote repository's full id from list_remote_repositories."}},
            "required":["repoId"]})"),
         &AgentService::markRepository, kLicensed, ToolApproval{Kind::markRemoteOnly, {"repoId"}}},
        {"mark_repository_local_only", applySettings, "", "Mark a repository local-only",
         confirmed("Use this to record that a tracked local repository has no GitHub counterpart "
                   "on purpose."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The local repository's id (its folder path)."}},
            "required":["repoId"]})"),
         &AgentService::markRepository, kLicensed, ToolApproval{Kind::markLocalOnly, {"repoId"}}},
        {"mark_repository_ignored", applySettings, "", "Ignore a repository",
         confirmed("Use this only when the person wants a repository gone from Quorvane: it stops "
                   "tracking it and deletes its stored history for good."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id (its folder path)."}},
            "required":["repoId"]})"),
         &AgentService::markRepository, kLicensed, ToolApproval{Kind::markIgnored, {"repoId"}}},
        {"update_mapping_confidence", applySettings, "", "Update a mapping's confidence",
         "Use this to adjust the confidence figure of an existing mapping between a local and a "
         "GitHub repository. It needs no confirmation token: it changes only that figure, and only "
         "of a mapping that already exists.",
         R"({"type":"object","properties":{
            "remoteRepoId":{"type":"string","description":"The mapped remote repository's full id."},
            "localRepoId":{"type":"string","description":"The mapped local repository's id (its folder path)."},
            "confidence":{"type":"number","minimum":0,"maximum":100,"description":"The new confidence: a fraction from 0 to 1, or a percentage above 1 up to 100."}},
            "required":["remoteRepoId","localRepoId","confidence"]})",
         &AgentService::updateMappingConfidence, kLicensed},
        {"update_scan_folders", applySettings, "", "Update the scan folders",
         confirmed("Use this to replace the list of folders Quorvane scans for repositories."),
         withToken(R"({"type":"object","properties":{
            "folders":{"type":"array","items":{"type":"string"},"description":"The whole new list of folders, each absolute or from ~."}},
            "required":["folders"]})"),
         &AgentService::updateScanFolders, kLicensed,
         ToolApproval{Kind::settingsChange, {"folders"}}},
        {"set_default_clone_folder", applySettings, "", "Set the default clone folder",
         confirmed("Use this to change the folder new clones go into."),
         withToken(R"({"type":"object","properties":{
            "path":{"type":"string","description":"The folder, absolute or from ~."}},
            "required":["path"]})"),
         &AgentService::setCloneFolder, kLicensed, ToolApproval{Kind::settingsChange, {"path"}}},
        {"set_repository_category", applySettings, "", "Set a repository's category",
         confirmed("Use this to set or clear a tracked repository's category."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."},
            "value":{"type":"string","description":"The category; empty or left out clears it."}},
            "required":["repoId"]})"),
         &AgentService::setCategory, kLicensed,
         ToolApproval{Kind::settingsChange, {"repoId", "value"}}},
        {"set_repository_priority", applySettings, "", "Set a repository's priority",
         confirmed("Use this to set a tracked repository's priority."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."},
            "value":{"type":"string","enum":["low","normal","high"],"description":"The priority."}},
            "required":["repoId","value"]})"),
         &AgentService::setPriority, kLicensed,
         ToolApproval{Kind::settingsChange, {"repoId", "value"}}},
        {"set_repository_reminder_rules", applySettings, "", "Set a repository's reminder rules",
         confirmed("Use this to set after how many days a tracked repository's untouched changes "
                   "count as stale."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."},
            "rules":{"type":"object","properties":{"staleDaysThreshold":{"type":["integer","null"],"minimum":0,"maximum":3650,"description":"Days; null or left out goes back to the default."}},"description":"The rules, such as {\"staleDaysThreshold\": 7}."}},
            "required":["repoId","rules"]})"),
         &AgentService::setReminderRules, kLicensed,
         ToolApproval{Kind::settingsChange, {"repoId", "rules"}}},
        {"set_daily_review_time", applySettings, "", "Set the daily review time",
         confirmed("Use this to change the time of day of the end-of-day review reminder."),
         withToken(R"({"type":"object","properties":{
            "time":{"type":"string","description":"Local time of day, HH:MM (24-hour)."}},
            "required":["time"]})"),
         &AgentService::setDailyReviewTime, kLicensed,
         ToolApproval{Kind::settingsChange, {"time"}}},
        {"enable_repository_tracking", applySettings, "", "Turn tracking on",
         confirmed("Use this to have Quorvane track a configured repository again."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The configured repository's id, exactly as list_local_repositories gives it."}},
            "required":["repoId"]})"),
         &AgentService::enableTracking, kLicensed, ToolApproval{Kind::settingsChange, {"repoId"}}},
        {"disable_repository_tracking", applySettings, "", "Turn tracking off",
         confirmed("Use this to stop Quorvane tracking a repository while keeping its "
                   "configuration and history."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."}},
            "required":["repoId"]})"),
         &AgentService::disableTracking, kLicensed, ToolApproval{Kind::settingsChange, {"repoId"}}},
        {"update_project_aliases", applySettings, "", "Update a repository's aliases",
         confirmed("Use this to replace the other names a tracked repository is known by."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."},
            "aliases":{"type":"array","items":{"type":"string","minLength":1},"description":"The whole new list of aliases."}},
            "required":["repoId","aliases"]})"),
         &AgentService::updateAliases, kLicensed,
         ToolApproval{Kind::settingsChange, {"repoId", "aliases"}}},
        {"apply_settings_recipe", applySettings, "", "Apply a settings recipe",
         "Not available: settings recipes are not built, so every call fails with "
         "`not_implemented` and changes nothing. Use propose_settings_change and then the matching "
         "set_* tool instead.",
         R"({"type":"object","properties":{
            "recipe":{"type":"string","description":"The recipe's name."},
            "recipeId":{"type":"string","description":"The recipe's id, when no name is given."}}})",
         // Bound like the others, so that a recipe proposal, should one exist, still
         // authorises only this tool with these arguments.
         &AgentService::applyRecipe, kLicensed, ToolApproval{Kind::recipe, {"recipe", "recipeId"}}},
        // Git, behind the licence and a token.
        {"git_fetch", safeGit, "", "git fetch",
         confirmed("Use this to fetch a tracked repository from its remote."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."}},
            "required":["repoId"]})"),
         &AgentService::runGit, kLicensed, ToolApproval{Kind::safeGit, {"repoId"}, Command::fetch}},
        {"git_pull_ff_only", safeGit, "", "git pull --ff-only",
         confirmed("Use this to bring a tracked repository up to date with its remote by "
                   "fast-forward only."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."}},
            "required":["repoId"]})"),
         &AgentService::runGit, kLicensed,
         ToolApproval{Kind::safeGit, {"repoId"}, Command::pullFFOnly}},
        {"git_push", safeGit, "", "git push",
         confirmed("Use this to push a tracked repository's commits to origin."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."},
            "branch":{"type":"string","description":"The branch to push. Default the current one."}},
            "required":["repoId"]})"),
         &AgentService::runGit, kLicensed,
         ToolApproval{Kind::safeGit, {"repoId", "branch"}, Command::push}},
        {"git_set_upstream_push", safeGit, "", "git push -u",
         confirmed("Use this to push a branch that has no upstream yet to origin and make it the "
                   "upstream."),
         withToken(R"({"type":"object","properties":{
            "repoId":{"type":"string","description":"The tracked repository's id, exactly as list_local_repositories gives it."},
            "branch":{"type":"string","description":"The branch to push and track."}},
            "required":["repoId","branch"]})"),
         &AgentService::runGit, kLicensed,
         ToolApproval{Kind::safeGit, {"repoId", "branch"}, Command::setUpstreamPush}},
    };
    return tools;
}

const std::vector<AgentResource>& resources() {
    static const std::vector<AgentResource> documents = {
        {"quorvane://repositories/local", "repositories-local", "Local repositories",
         "The tracked local repositories, as list_local_repositories gives them."},
        {"quorvane://repositories/remote", "repositories-remote", "Remote repositories",
         "The GitHub repositories of the last synced inventory, as list_remote_repositories "
         "gives them."},
        {"quorvane://repositories/unmapped", "repositories-unmapped", "Unmapped repositories",
         "The local and the remote repositories that are not mapped to each other yet."},
        {"quorvane://repositories/needs-attention", "repositories-needs-attention",
         "Repositories needing attention",
         "The sync states of the repositories that need a push, a pull, a mapping or an "
         "account."},
        {"quorvane://mappings/candidates", "mappings-candidates", "Mapping candidates",
         "The mapping proposals waiting for the person's decision."},
        {"quorvane://reports/today", "reports-today", "Today's summary",
         "Today's work summary, as get_daily_summary gives it."},
        {"quorvane://reports/week", "reports-week", "This week's summary",
         "This week's work summary, as get_weekly_summary gives it."},
        {"quorvane://settings", "settings", "Settings",
         "Quorvane's settings, as get_settings gives them."},
        {"quorvane://audit-log", "audit-log", "Agent audit log",
         "The latest agent calls Quorvane recorded, newest first."},
    };
    return documents;
}

const AgentTool* find(std::string_view name) {
    const auto& tools = all();
    auto it = std::find_if(tools.begin(), tools.end(),
                           [&](const AgentTool& tool) { return tool.name == name; });
    return it == tools.end() ? nullptr : &*it;
}

std::string nameOf(AgentToolHandler handler) {
    const auto& tools = all();
    auto it = std::find_if(tools.begin(), tools.end(),
                           [&](const AgentTool& tool) { return tool.handler == handler; });
    return it == tools.end() ? "" : std::string(it->name);
}

const std::set<std::string>& readOnlyTools() {
    static const std::set<std::string> names = namesAt(readOnly);
    return names;
}

const std::set<std::string>& gitTools() {
    static const std::set<std::string> names = namesAt(safeGit);
    return names;
}

size_t toolCount() {
    return all().size();
}

}  // namespace quorvane::AgentTools
