// The screens of how local work stands against GitHub: Alignment, Inventory,
// Backlog and Accounts. Each answers what its command's --json prints for the same
// data folder; the inventory's filter and search, and the accounts' busy state,
// live here for as long as the service runs, shared by every open page.
#include <memory>

#include "base/EnumNames.hpp"
#include "base/TextHelpers.hpp"
#include "github/RepoActions.hpp"
#include "screens/AccountsViewModel.hpp"
#include "screens/AlignmentViewModels.hpp"
#include "web/Dashboard.hpp"
#include "web/DashboardReply.hpp"

namespace quorvane::Dashboard {

namespace {

using DashboardReply::objectBody;
using DashboardReply::sendError;
using DashboardReply::sendJson;

// A search longer than any name is no search a person typed.
constexpr size_t kMaxSearchBytes = 200;

// The text under `key` of a POST body, or nothing when it is missing or not text.
std::optional<std::string> textField(const Json& body, const char* key) {
    if (!body.is_object() || !body.contains(key) || !body[key].is_string()) return std::nullopt;
    return body[key].get<std::string>();
}

// The tracked repository whose id the page sent; only a folder the person tracks
// is ever opened.
std::optional<std::string> trackedFolder(const AppConfig& config, const std::string& repoID) {
    for (const RepoConfig& repo : config.repositories) {
        if (repo.id == repoID) return repo.id;
    }
    return std::nullopt;
}

AccountsViewModel::Reading readAccounts(AppEnvironment& env) {
    Store& store = env.store();
    return {store.accounts(), store.remoteRepos(std::nullopt), store.mappings()};
}

bool hasAccount(AppEnvironment& env, const std::string& id) {
    for (const GitHubAccount& account : env.store().accounts()) {
        if (account.id == id) return true;
    }
    return false;
}

}  // namespace

void routeGitHub(DashboardServer& server, AppEnvironment& env, const Clock& clock,
                 const ProcessRunner& runner) {
    server.get("/api/v1/alignment", [&env](const httplib::Request&, httplib::Response& response,
                                           const DashboardSessions::Session&) {
        AppConfig config = env.config();
        sendJson(response, GitAlignmentViewModel::toJson(GitAlignmentViewModel::load(
                               GitAlignmentViewModel::sourceOf(env.store(), config))));
    });
    // An entry's folder in a terminal or VS Code. Not finding either is an answer,
    // not a fault: the page says what to install or set.
    for (const bool editor : {false, true}) {
        server.post(
            editor ? "/api/v1/alignment/vscode" : "/api/v1/alignment/terminal",
            [&env, &runner, editor](const httplib::Request& request, httplib::Response& response,
                                    const DashboardSessions::Session&) {
                std::optional<std::string> repoID = textField(objectBody(request), "repoID");
                if (!repoID) return sendError(response, 400, "send {\"repoID\": ID}");
                std::optional<std::string> folder = trackedFolder(env.config(), *repoID);
                if (!folder) {
                    return sendError(response, 404,
                                     "no tracked repository has the id " + Text::visible(*repoID));
                }
                RepoActions actions(runner, RepoActions::Environment::current());
                LaunchResult opened =
                    editor ? actions.openInVSCode(*folder) : actions.openInTerminal(*folder);
                sendJson(response,
                         Json{{"opened", opened.started},
                              {"problem", opened.started ? Json(nullptr) : Json(opened.error)}});
            });
    }

    server.get(
        "/api/v1/backlog", [&env, &clock](const httplib::Request&, httplib::Response& response,
                                          const DashboardSessions::Session&) {
            AppConfig config = env.config();
            sendJson(response, RepoBacklogViewModel::toJson(
                                   RepoBacklogViewModel::load(env.store(), config, clock.now())));
        });

    // The inventory reads its rows again each time a page opens it or hears of a
    // sync; a new search narrows what was read, without reading again.
    auto inventory = std::make_shared<GitHubInventoryViewModel::State>();
    auto inventorySource = [&env, &clock](InventoryFilter filter) {
        AppConfig config = env.config();
        return Queries::inventory(env.store(), config, filter, clock.now());
    };
    server.get("/api/v1/inventory",
               [inventory, inventorySource](const httplib::Request&, httplib::Response& response,
                                            const DashboardSessions::Session&) {
                   inventory->load(inventorySource);
                   sendJson(response, inventory->toJson());
               });
    server.post(
        "/api/v1/inventory",
        [inventory, inventorySource](const httplib::Request& request, httplib::Response& response,
                                     const DashboardSessions::Session&) {
            Json body = objectBody(request);
            std::optional<std::string> filterName = textField(body, "filter");
            std::optional<std::string> search = textField(body, "search");
            if (!filterName && !search) {
                return sendError(response, 400, "send {\"filter\": NAME} or {\"search\": TEXT}");
            }
            std::optional<InventoryFilter> filter;
            if (filterName) {
                filter = enumFromName<InventoryFilter>(*filterName);
                if (!filter) {
                    return sendError(response, 400,
                                     "no inventory filter is called " + Text::visible(*filterName));
                }
            }
            if (search && search->size() > kMaxSearchBytes) {
                return sendError(response, 400, "the search is too long");
            }
            if (search) inventory->setSearch(*search);
            if (filter) inventory->setFilter(*filter);
            if (inventory->reloadNeeded()) {
                // Another page may choose a filter while this one loads: load until the
                // rows are those of the filter now chosen.
                InventoryFilter loaded = inventory->load(inventorySource);
                while (loaded != inventory->filter()) loaded = inventory->load(inventorySource);
            }
            sendJson(response, inventory->toJson());
        });

    // Accounts: each action runs as the command line's does, one at a time; the
    // answer is the screen's state once it is done. A token comes in a POST body
    // and goes to the secret store only: no answer, log line or file has it.
    auto accounts = std::make_shared<AccountsViewModel::State>();
    auto readAll = [&env] { return readAccounts(env); };
    server.get("/api/v1/accounts",
               [accounts, readAll](const httplib::Request&, httplib::Response& response,
                                   const DashboardSessions::Session&) {
                   accounts->load(readAll);
                   sendJson(response, accounts->toJson());
               });
    // Runs `operation` as the screen's one action; its result joins the state.
    auto act = [accounts, readAll](httplib::Response& response,
                                   const std::function<Json()>& operation) {
        Json outcome;
        if (!accounts->act([&] { outcome = operation(); }, readAll)) {
            return sendError(response, 409, "another account action is still running");
        }
        if (outcome.is_object() && outcome.contains("error")) {
            return sendError(response, outcome.value("status", 500),
                             outcome["error"].get<std::string>());
        }
        Json state = accounts->toJson();
        state["outcome"] = std::move(outcome);
        sendJson(response, state);
    };
    auto refusal = [](int status, const std::string& reason) {
        return Json{{"status", status}, {"error", reason}};
    };

    server.post("/api/v1/accounts/sync",
                [&env, act](const httplib::Request&, httplib::Response& response,
                            const DashboardSessions::Session&) {
                    act(response, [&env] { return toJson(env.syncNow(false)); });
                });
    server.post(
        "/api/v1/accounts/import-gh",
        [&env, act, refusal](const httplib::Request& request, httplib::Response& response,
                             const DashboardSessions::Session&) {
            std::optional<std::string> apiURL = textField(objectBody(request), "apiURL");
            if (apiURL && apiURL->empty()) apiURL.reset();
            if (apiURL) {
                std::string problem = AccountsViewModel::apiAddressProblem(*apiURL);
                if (!problem.empty()) return sendError(response, 400, problem);
            }
            act(response, [&env, &apiURL, refusal]() -> Json {
                std::optional<AppEnvironment::AccountCheck> check = env.importAccountFromGh(apiURL);
                if (!check) {
                    return refusal(409,
                                   "no GitHub token found: GITHUB_TOKEN and GH_TOKEN are unset, "
                                   "'gh auth token' gave none and git's credential helpers hold "
                                   "none for github.com. Sign in with 'gh auth login' first");
                }
                if (!check->stored) {
                    return refusal(409, "nothing was imported: " + Text::visible(check->problem));
                }
                return AccountsViewModel::toJson(*check);
            });
        });
    server.post("/api/v1/accounts/add", [&env, act, refusal](const httplib::Request& request,
                                                             httplib::Response& response,
                                                             const DashboardSessions::Session&) {
        Json body = objectBody(request);
        std::optional<std::string> name = textField(body, "displayName");
        std::optional<std::string> token = textField(body, "token");
        std::optional<std::string> apiURL = textField(body, "apiURL");
        if (!name || !token) {
            return sendError(response, 400,
                             "send {\"displayName\": NAME, \"token\": TOKEN, \"apiURL\": URL or "
                             "nothing}");
        }
        const std::string trimmedName(Text::trim(*name));
        const std::string trimmedToken(Text::trim(*token));
        if (trimmedName.empty()) return sendError(response, 400, "type a display name");
        // The reason never quotes the token: a refused one is still a secret.
        if (trimmedToken.empty()) return sendError(response, 400, "type the token");
        if (trimmedToken.size() > AccountsViewModel::kMaxTokenBytes ||
            trimmedToken.find_first_of("\r\n") != std::string::npos) {
            return sendError(response, 400, "the token must be one line, as GitHub shows it");
        }
        if (apiURL && apiURL->empty()) apiURL.reset();
        if (apiURL) {
            std::string problem = AccountsViewModel::apiAddressProblem(*apiURL);
            if (!problem.empty()) return sendError(response, 400, problem);
        }
        for (const GitHubAccount& account : env.store().accounts()) {
            if (Text::asciiLower(account.displayName) == Text::asciiLower(trimmedName)) {
                return sendError(response, 409,
                                 "an account called " + Text::visible(trimmedName) +
                                     " exists already; choose another name");
            }
        }
        act(response, [&]() -> Json {
            std::optional<AppEnvironment::AccountCheck> check =
                env.addAccount(trimmedName, trimmedToken, apiURL);
            if (!check) return refusal(500, "nothing was added: " + env.saveProblem());
            return AccountsViewModel::toJson(*check);
        });
    });
    const std::string account = R"(/api/v1/accounts/([0-9A-Za-z-]{1,64}))";
    server.post(account + "/revalidate",
                [&env, act, refusal](const httplib::Request& request, httplib::Response& response,
                                     const DashboardSessions::Session&) {
                    const std::string id = request.matches[1];
                    if (!hasAccount(env, id))
                        return sendError(response, 404, "no account has this id");
                    act(response, [&]() -> Json {
                        std::optional<AppEnvironment::AccountCheck> check = env.validateAccount(id);
                        if (!check) return refusal(404, "the account was removed meanwhile");
                        return AccountsViewModel::toJson(*check);
                    });
                });
    server.post(account + "/remove",
                [&env, act, refusal](const httplib::Request& request, httplib::Response& response,
                                     const DashboardSessions::Session&) {
                    const std::string id = request.matches[1];
                    if (!hasAccount(env, id))
                        return sendError(response, 404, "no account has this id");
                    act(response, [&]() -> Json {
                        if (!env.removeAccount(id))
                            return refusal(404, "the account was removed meanwhile");
                        return Json{{"removed", id}};
                    });
                });
}

}  // namespace quorvane::Dashboard
