// The first run and the panel: choosing the folders to scan, starting at login, and
// the few figures a tray's panel or a status bar shows.
#include <cstdlib>
#include <filesystem>

#include "app/LoginService.hpp"
#include "app/TrackingOperations.hpp"
#include "base/PathHelpers.hpp"
#include "git/RepoDiscovery.hpp"
#include "screens/OnboardingViewModel.hpp"
#include "screens/StatusBarViewModel.hpp"
#include "web/Dashboard.hpp"
#include "web/DashboardReply.hpp"

namespace quorvane::Dashboard {

namespace {

using DashboardReply::sendError;
using DashboardReply::sendJson;

OnboardingViewModel::RepositoryCount countIn(const AppConfig& config, const ProcessRunner& runner) {
    return [&config, &runner](const std::string& folder) {
        return RepoDiscovery(runner).repositoriesUnder(folder, config.agent.maxScanDepth);
    };
}

}  // namespace

void routeFirstRun(DashboardServer& server, AppEnvironment& env, const Clock& clock,
                   const ProcessRunner& runner) {
    server.get("/api/v1/onboarding",
               [&env, &runner](const httplib::Request&, httplib::Response& response,
                               const DashboardSessions::Session&) {
                   AppConfig config = env.config();
                   sendJson(response, OnboardingViewModel::toJson(OnboardingViewModel::view(
                                          config, PathHelpers::homeDirectory().string(),
                                          countIn(config, runner), LoginService::isInstalled())));
               });
    // The folders chosen become scan folders, as 'folders add' makes them, and a scan
    // tracks what they hold; the page hears of its end on the event stream. Starting
    // at login is 'service install'; when that fails the folders stay chosen.
    server.post("/api/v1/onboarding", [&env, &runner](const httplib::Request& request,
                                                      httplib::Response& response,
                                                      const DashboardSessions::Session&) {
        Json body = DashboardReply::objectBody(request);
        if (!body.is_object() || !body["folders"].is_array() ||
            !body.value("startAtLogin", Json(false)).is_boolean()) {
            return sendError(response, 400,
                             "send {\"folders\": [FOLDER, ...], \"startAtLogin\": true or false}");
        }
        std::vector<std::string> typed;
        for (const Json& each : body["folders"]) {
            if (!each.is_string()) return sendError(response, 400, "each folder is a text");
            typed.push_back(each.get<std::string>());
        }
        AppConfig config = env.config();
        OnboardingViewModel::Choice choice = OnboardingViewModel::choose(
            typed, PathHelpers::homeDirectory().string(), countIn(config, runner));
        if (!choice.problem.empty()) return sendError(response, 400, choice.problem);
        env.adoptConfigEdits();
        TrackingOperations::FolderChange added =
            TrackingOperations::addScanFolders(env, choice.folders);
        if (!added.refused.empty()) {
            return sendError(response, 400,
                             added.refused.front().path + ": " + added.refused.front().problem);
        }
        if (!added.notSaved.empty()) {
            return sendError(response, 500, "not saved: " + added.notSaved);
        }
        env.requestScan();
        Json answer{{"scanFolders", env.config().scanFolders}, {"scanRequested", true}};
        if (body.value("startAtLogin", false)) {
            std::optional<std::filesystem::path> executable = PathHelpers::ownExecutable();
            if (!executable) {
                answer["startAtLoginProblem"] = "cannot tell where this program is installed";
            } else {
                // The default data folder follows the person's environment; another
                // one is written into the unit.
                std::optional<std::filesystem::path> dataDir;
                if (env.dataDir() != PathHelpers::appSupportDir()) dataDir = env.dataDir();
                const char* searchPath = std::getenv("PATH");
                // This daemon already holds the data folder: the unit is enabled
                // for the next login, not started beside it.
                LoginService::Installed installed =
                    LoginService::install(runner,
                                          LoginService::programForUnit(
                                              *executable, searchPath != nullptr ? searchPath : "")
                                              .path,
                                          dataDir, false);
                answer["unit"] = installed.unit.string();
                answer["managerAnswered"] = installed.managerAnswered;
                if (!installed.ok())
                    answer["startAtLoginProblem"] =
                        installed.problem.empty() ? installed.enableProblem : installed.problem;
            }
        }
        sendJson(response, answer);
    });
    server.get("/api/v1/panel", [&env, &clock](const httplib::Request&, httplib::Response& response,
                                               const DashboardSessions::Session&) {
        sendJson(response,
                 StatusBarViewModel::of(env.store(), env.config(), clock.now(), env.isPaused()));
    });
}

}  // namespace quorvane::Dashboard
