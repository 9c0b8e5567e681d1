// The agent's tools that change something: each checks its arguments, then asks
// for the person's confirmation, then acts, marks the proposal applied and
// records what it did, in that order.
#include <algorithm>

#include "agent/AgentService.hpp"
#include "agent/AgentToolSupport.hpp"
#include "persistence/ConfigKeys.hpp"

namespace quorvane {

using namespace AgentToolSupport;

std::optional<AgentResult> AgentService::runChangeTool(const Call& call) {
    const std::string& tool = call.tool;
    if (tool == "reject_repository_mapping") return rejectMapping(call);
    if (tool == "set_daily_review_time") return setDailyReviewTime(call);
    if (tool == "enable_repository_tracking") return setTracking(call, true);
    if (tool == "disable_repository_tracking") return setTracking(call, false);
    if (tool == "update_scan_folders") return updateScanFolders(call);
    return std::nullopt;
}

AgentResult AgentService::rejectMapping(const Call& call) {
    std::optional<std::string> id = textArg(call.args, "proposalId");
    if (!id || id->empty()) {
        return refuse(call, "error", "missing proposalId", "not_found", "missing proposalId");
    }
    if (!store_.proposal(*id)) {
        return refuse(call, "error", "proposal not found", "not_found", "proposal not found");
    }
    store_.rejectProposal(*id);
    return ok(call, AgentJSON(AgentJSON::Object{{"rejected", true}}), std::nullopt, *id);
}

AgentResult AgentService::applyConfigChange(const Call& call,
                                            const std::function<void(AppConfig&)>& change,
                                            AgentJSON::Object result) {
    ConfirmOutcome outcome = confirm(call.tool, call.args);
    if (!outcome.success) return refuse(call, outcome);
    if (std::optional<std::string> problem = env_.applyConfigChange(change)) {
        return refuse(call, "error", "config not saved", "not_found",
                      "config.json could not be saved: " + *problem);
    }
    store_.markProposalApplied(outcome.proposal.id);
    result.emplace("applied", true);
    return ok(call, AgentJSON(std::move(result)), std::nullopt, outcome.proposal.id);
}

AgentResult AgentService::setDailyReviewTime(const Call& call) {
    std::optional<std::string> time = textArg(call.args, "time");
    if (!time || time->empty()) {
        return refuse(call, "error", "missing time", "not_found", "missing time");
    }
    ConfigKeys::Parsed parsed = ConfigKeys::parse("dailyReviewTime", *time);
    if (!parsed.error.empty()) {
        return refuse(call, "error", "bad time", "invalid_params",
                      "`time` must be a time of day, HH:MM (24-hour)");
    }
    const std::string value = parsed.value.get<std::string>();
    return applyConfigChange(call, [&](AppConfig& config) { config.dailyReviewTime = value; },
                             {{"dailyReviewTime", value}});
}

AgentResult AgentService::setTracking(const Call& call, bool enabled) {
    std::optional<std::string> repoId = textArg(call.args, "repoId");
    if (!repoId || repoId->empty()) {
        return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    }
    auto known = [&](const AppConfig& config) {
        return std::any_of(config.repositories.begin(), config.repositories.end(),
                           [&](const RepoConfig& repo) { return repo.id == *repoId; });
    };
    // Looked up before the token is asked for, so no proposal is made for a
    // repository that is not there.
    if (!known(call.config)) {
        return refuse(call, "error", "repo not found", "not_found", "repo not found");
    }
    return applyConfigChange(call,
                             [&](AppConfig& config) {
                                 for (RepoConfig& repo : config.repositories) {
                                     if (repo.id == *repoId) repo.trackingEnabled = enabled;
                                 }
                             },
                             {{"repoId", *repoId}, {"trackingEnabled", enabled}});
}

AgentResult AgentService::updateScanFolders(const Call& call) {
    auto it = call.args.find("folders");
    if (it == call.args.end() || it->is_null()) {
        return refuse(call, "error", "missing folders", "not_found", "missing folders");
    }
    std::vector<std::string> folders;
    bool valid = it->is_array();
    if (valid) {
        for (const Json& folder : *it) {
            if (!folder.is_string()) {
                valid = false;
                break;
            }
            std::string path = folder.get<std::string>();
            // The scans read these as they are written: absolute, or from the home folder.
            if (path.empty() || (path.front() != '/' && path.front() != '~')) {
                valid = false;
                break;
            }
            folders.push_back(std::move(path));
        }
    }
    if (!valid) {
        return refuse(call, "error", "bad folders", "invalid_params",
                      "`folders` must be a list of absolute folder paths (or paths from ~)");
    }
    return applyConfigChange(call, [&](AppConfig& config) { config.scanFolders = folders; },
                             {{"scanFolders", textList(folders)}});
}

}  // namespace quorvane
