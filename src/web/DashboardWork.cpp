// The API of the screens about the work waiting in the repositories: Needs
// attention, Projects and Branches. Each answer is the JSON the matching command
// prints with --json, built by the same view model.
#include <algorithm>

#include "app/TrackingOperations.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "screens/AttentionViewModel.hpp"
#include "screens/BranchesViewModel.hpp"
#include "screens/ProjectsViewModel.hpp"
#include "web/Dashboard.hpp"
#include "web/DashboardReply.hpp"

namespace quorvane::Dashboard {

namespace {

using DashboardReply::objectBody;
using DashboardReply::sendError;
using DashboardReply::sendJson;

// A page has no working folder: a path is typed in full, or from the home folder.
// Empty when `typed` is neither.
std::string pagePath(const std::string& typed) {
    if (typed.starts_with('/')) return typed;
    if (typed == "~" || typed.starts_with("~/")) return PathHelpers::expandTilde(typed);
    return "";
}

// The text of `key` in a POST body, or empty.
std::string bodyText(const Json& body, const char* key) {
    return body.is_object() && body.contains(key) && body[key].is_string()
               ? body[key].get<std::string>()
               : "";
}

// Tells open pages that the tracked repositories or the scan folders changed.
void publishProjects(AppEnvironment& env) {
    env.events().publish("projects", Json{{"changed", true}}.dump());
}

}  // namespace

void routeWork(DashboardServer& server, AppEnvironment& env, const Clock& clock,
               const ProcessRunner& runner) {
    server.get("/api/v1/attention",
               [&env, &clock](const httplib::Request&, httplib::Response& response,
                              const DashboardSessions::Session&) {
                   sendJson(response, AttentionViewModel::toJson(AttentionViewModel::fromStore(
                                          env.store(), env.config(), clock.now())));
               });

    // Every tracked repository's branches, or with ?repo= one repository's, by id.
    server.get("/api/v1/branches", [&env, &clock](const httplib::Request& request,
                                                  httplib::Response& response,
                                                  const DashboardSessions::Session&) {
        AppConfig config = env.config();
        std::vector<const RepoConfig*> repos;
        if (request.has_param("repo")) {
            const std::string asked = request.get_param_value("repo");
            auto found = std::find_if(config.repositories.begin(), config.repositories.end(),
                                      [&](const RepoConfig& repo) { return repo.id == asked; });
            if (found == config.repositories.end()) {
                return sendError(response, 400,
                                 Text::visible(asked) + " is not a tracked repository");
            }
            repos.push_back(&*found);
        } else {
            for (const RepoConfig& repo : config.repositories) {
                if (repo.trackingEnabled) repos.push_back(&repo);
            }
        }
        sendJson(response, BranchesViewModel::toJson(
                               BranchesViewModel::fromStore(env.store(), repos, clock.now())));
    });

    server.get("/api/v1/projects", [&env, &clock](const httplib::Request&,
                                                  httplib::Response& response,
                                                  const DashboardSessions::Session&) {
        AppConfig config = env.config();
        sendJson(response, Json{{"repositories",
                                 ProjectsViewModel::repositories(config, env.store(), clock.now())},
                                {"scanFolders", ProjectsViewModel::scanFolders(config)}});
    });

    // Tracking a repository by its folder, as 'repos add' does.
    server.post("/api/v1/projects/track", [&env, &runner](const httplib::Request& request,
                                                          httplib::Response& response,
                                                          const DashboardSessions::Session&) {
        const std::string typed = bodyText(objectBody(request), "path");
        const std::string path = pagePath(typed);
        if (path.empty()) {
            return sendError(response, 400, "type the repository's folder in full, or from ~");
        }
        TrackingOperations::WorkTrees trees = TrackingOperations::workTrees(runner, {path});
        if (!trees.refused.empty()) {
            return sendError(response, 400,
                             "cannot track " + Text::visible(typed) + ": " +
                                 Text::visible(trees.refused.front().problem));
        }
        TrackingOperations::Tracked tracked = TrackingOperations::track(env, runner, trees.tops);
        if (!tracked.notSaved.empty()) {
            return sendError(response, 500, "not saved: " + tracked.notSaved);
        }
        publishProjects(env);
        Json added = Json::array();
        for (const DiscoveredRepo& repo : tracked.added) {
            added.push_back({{"repoID", repo.repoID}, {"name", repo.name}});
        }
        if (!tracked.partlySaved.empty()) {
            return sendError(response, 500,
                             "not everything could be saved: " + tracked.partlySaved);
        }
        sendJson(response, Json{{"added", added}, {"alreadyTracked", tracked.alreadyTracked}});
    });

    // Stopping to track one, by id, as 'repos remove' does.
    server.post("/api/v1/projects/untrack", [&env](const httplib::Request& request,
                                                   httplib::Response& response,
                                                   const DashboardSessions::Session&) {
        const std::string id = bodyText(objectBody(request), "repoID");
        AppConfig config = env.config();
        const bool tracked =
            std::any_of(config.repositories.begin(), config.repositories.end(),
                        [&](const RepoConfig& repo) { return !id.empty() && repo.id == id; });
        if (!tracked) {
            return sendError(response, 400,
                             id.empty() ? std::string("send {\"repoID\": ID}")
                                        : Text::visible(id) + " is not a tracked repository");
        }
        TrackingOperations::Untracked untracked = TrackingOperations::untrack(env, id);
        if (untracked.flushed) publishProjects(env);
        if (!untracked.problem.empty()) {
            return sendError(response, 500, "not saved: " + untracked.problem);
        }
        sendJson(response, Json{{"untracked", id}});
    });

    // Adding or removing a scan folder, as 'folders add|remove' does.
    server.post("/api/v1/projects/folders", [&env](const httplib::Request& request,
                                                   httplib::Response& response,
                                                   const DashboardSessions::Session&) {
        Json body = objectBody(request);
        const std::string action = bodyText(body, "action");
        const std::string typed = bodyText(body, "path");
        if (action != "add" && action != "remove") {
            return sendError(response, 400,
                             "send {\"action\": \"add\" or \"remove\", \"path\": FOLDER}");
        }
        const std::string path = pagePath(typed);
        if (path.empty()) return sendError(response, 400, "type the folder in full, or from ~");
        const bool adding = action == "add";
        TrackingOperations::FolderChange change =
            adding ? TrackingOperations::addScanFolders(env, {path})
                   : TrackingOperations::removeScanFolders(env, {path});
        if (!change.refused.empty()) {
            return sendError(response, 400,
                             adding ? "cannot add " + Text::visible(typed) + ": " +
                                          change.refused.front().problem
                                    : Text::visible(typed) + " is not a scan folder");
        }
        if (!change.notSaved.empty()) {
            return sendError(response, 500, "not saved: " + change.notSaved);
        }
        if (!change.changed.empty()) publishProjects(env);
        sendJson(response,
                 Json{{"changed", change.changed}, {"scanFolders", env.config().scanFolders}});
    });
}

}  // namespace quorvane::Dashboard
