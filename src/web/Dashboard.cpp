#include "web/Dashboard.hpp"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <memory>

#include "agent/AgentService.hpp"
#include "agent/GitProposalReview.hpp"
#include "app/Queries.hpp"
#include "base/BoundedParallel.hpp"
#include "base/PathHelpers.hpp"
#include "git/RepoDiscovery.hpp"
#include "persistence/ConfigKeys.hpp"
#include "records/JsonCodec.hpp"
#include "screens/ProposalReviewModel.hpp"
#include "web/DashboardPages.hpp"
#include "web/DashboardReply.hpp"

namespace quorvane::Dashboard {

namespace {

// Open pages follow the service on a stream each, and each stream holds one of the
// server's workers for as long as its page is open: beyond this many, a page is
// told to reload by hand rather than leave no worker for the requests.
constexpr int kMaxStreams = 4;
// The git children one Agent Review answer runs at once, as many as a scan does.
constexpr size_t kGitReviewsAtOnce = 8;
// The rows a history or audit list shows; older ones stay in the data folder.
constexpr size_t kHistoryRows = 200;
// A comment line this often finds a page that went away, so its place is free again
// within seconds, and keeps proxies from closing a quiet stream.
constexpr auto kStreamQuiet = std::chrono::seconds(5);

using DashboardReply::objectBody;
using DashboardReply::sendError;
using DashboardReply::sendJson;

}  // namespace

// Server-sent events: each of the feed's events after the one the page last saw
// (a reconnecting page says which in Last-Event-ID) as "event: KIND" with its JSON.
void routeEvents(DashboardServer& server, EventFeed& feed) {
    auto streams = std::make_shared<std::atomic<int>>(0);
    server.whenStopping([&feed] { feed.close(); });
    server.get("/api/v1/events", [&feed, streams](const httplib::Request& request,
                                                  httplib::Response& response,
                                                  const DashboardSessions::Session&) {
        if (streams->fetch_add(1) >= kMaxStreams) {
            streams->fetch_sub(1);
            return sendError(response, 503, "too many open dashboard pages");
        }
        uint64_t seen = feed.latest();
        if (request.has_header("Last-Event-ID")) {
            uint64_t asked = 0;
            const std::string& text = request.get_header_value("Last-Event-ID");
            auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), asked);
            if (problem == std::errc() && end == text.data() + text.size() && asked <= seen)
                seen = asked;
        }
        response.set_chunked_content_provider(
            "text/event-stream",
            [&feed, seen, first = true](size_t, httplib::DataSink& sink) mutable {
                // At once, so the page knows it is connected: a page that loses the
                // stream tries again two seconds later.
                if (first) {
                    first = false;
                    return sink.write("retry: 2000\n\n", 13);
                }
                std::string text;
                std::vector<FeedEvent> events = feed.after(seen, kStreamQuiet);
                if (feed.closed()) return false;
                for (const FeedEvent& event : events) {
                    text += fmt::format("id: {}\nevent: {}\ndata: {}\n\n", event.number, event.kind,
                                        event.data);
                    seen = event.number;
                }
                if (events.empty()) text += ": still here\n\n";
                return sink.write(text.data(), text.size());
            },
            [streams](bool) { streams->fetch_sub(1); });
    });
}

namespace {

// The embedded file at `path`, or 404.
void sendPage(httplib::Response& response, std::string_view path) {
    for (const DashboardPages::Page& page : DashboardPages::all()) {
        if (page.path == path) {
            response.set_content(std::string(page.bytes), std::string(page.contentType));
            return;
        }
    }
    response.status = 404;
}

}  // namespace

void route(DashboardServer& server, AppEnvironment& env, const Clock& clock,
           const ProcessRunner& runner) {
    // Every screen is the one page, which shows the screen its address names; the
    // panel is the same page drawn compact, for a small window beside the tray.
    std::string screens = "/(";
    for (std::string_view page : LoginLink::kPages) screens += fmt::format("|{}", page);
    server.get(screens + ")", [](const httplib::Request&, httplib::Response& response,
                                 const DashboardSessions::Session&) {
        sendPage(response, "/assets/index.html");
    });
    server.get(R"(/assets/([a-z]+\.(html|css|js|svg)))",
               [](const httplib::Request& request, httplib::Response& response,
                  const DashboardSessions::Session&) { sendPage(response, request.path); });
    server.get("/api/v1/today", [&env, &clock](const httplib::Request&, httplib::Response& response,
                                               const DashboardSessions::Session&) {
        sendJson(response, Queries::todayJson(env.store(), env.config(), clock.now()));
    });
    server.get("/api/v1/reminders", [&env](const httplib::Request&, httplib::Response& response,
                                           const DashboardSessions::Session&) {
        Json list = Json::array();
        for (const ReminderEvent& event : Queries::remindersNewestFirst(env.store(), false))
            list.push_back(toJson(event));
        sendJson(response, list);
    });
    // The scan runs on the service's own schedule thread; the page hears of its end
    // on the event stream.
    server.post("/api/v1/scan", [&env](const httplib::Request&, httplib::Response& response,
                                       const DashboardSessions::Session&) {
        env.requestScan();
        response.status = 202;
        sendJson(response, Json{{"requested", true}});
    });
    routeEvents(server, env.events());

    // Agent Review: what waits for the person, newest first as the store gives them,
    // each as they must read it before deciding.
    server.get(
        "/api/v1/proposals", [&env, &runner](const httplib::Request&, httplib::Response& response,
                                             const DashboardSessions::Session&) {
            AppConfig config = env.config();
            const std::vector<RepositoryMapping> mappings = env.store().mappings();
            const RepoDiscovery discovery(runner);
            const ProposalReviewModel::Standing standing{
                config, mappings, PathHelpers::homeDirectory().string(),
                [&](const std::string& folder) {
                    return discovery.repositoriesUnder(folder, config.agent.maxScanDepth);
                }};
            std::vector<PendingProposal> waiting;
            for (const PendingProposal& proposal : env.proposals()) {
                if (proposal.status == PendingProposal::Status::pending)
                    waiting.push_back(proposal);
            }
            // Each git proposal asks git for the repository's settings: one
            // child each, so a queue of them is read side by side.
            std::vector<std::optional<GitProposalReview>> reviews =
                boundedParallelMap<std::optional<GitProposalReview>>(
                    waiting.size(), kGitReviewsAtOnce,
                    [&](size_t i) { return GitProposalReview::of(waiting[i], config, runner); });
            Json list = Json::array();
            for (size_t i = 0; i < waiting.size(); ++i) {
                list.push_back(ProposalReviewModel::review(waiting[i], reviews[i], standing));
            }
            sendJson(response, list);
        });
    // What was decided, newest first, and the agent's calls as the audit log keeps
    // them, narrowed by tool, status or who acted.
    server.get("/api/v1/proposals/history",
               [&env](const httplib::Request&, httplib::Response& response,
                      const DashboardSessions::Session&) {
                   Json list = Json::array();
                   for (const PendingProposal& proposal : env.proposals()) {
                       if (proposal.status == PendingProposal::Status::pending) continue;
                       list.push_back(ProposalReviewModel::listing(proposal));
                       if (list.size() == kHistoryRows) break;
                   }
                   sendJson(response, list);
               });
    server.get("/api/v1/audit", [&env](const httplib::Request& request, httplib::Response& response,
                                       const DashboardSessions::Session&) {
        auto wanted = [&](const char* name, const std::string& value) {
            std::string asked = request.get_param_value(name);
            return asked.empty() || asked == value;
        };
        Json list = Json::array();
        for (const AuditLogEntry& entry : env.store().auditEntries()) {
            if (!wanted("tool", entry.tool) || !wanted("status", entry.status) ||
                !wanted("actor", entry.actor))
                continue;
            list.push_back(toJson(entry));
            if (list.size() == kHistoryRows) break;
        }
        sendJson(response, list);
    });
    // The agent server as the person sets it up: on or off and its level are
    // settings like any other; these are what 'config list' does not show.
    server.get("/api/v1/agent", [&env](const httplib::Request&, httplib::Response& response,
                                       const DashboardSessions::Session&) {
        AppConfig config = env.config();
        sendJson(response, Json{{"toolCount", AppEnvironment::mcpToolCount()},
                                {"socket", env.agentSocketPath().string()},
                                {"running", env.isAgentServerRunning()},
                                {"allowedRoots", config.agent.allowedRoots},
                                {"aiKeyStored", env.hasAIKey()}});
    });
    // Allowed Roots, added and removed as 'config add|remove agent.allowedRoots' does
    // it; a page has no current folder, so a root is typed in full or from "~".
    server.post("/api/v1/agent/allowed-roots", [&env](const httplib::Request& request,
                                                      httplib::Response& response,
                                                      const DashboardSessions::Session&) {
        Json body = objectBody(request);
        const bool shaped = body.is_object() && body["path"].is_string() &&
                            (body["action"] == "add" || body["action"] == "remove");
        const std::string typed = shaped ? body["path"].get<std::string>() : "";
        std::string problem;
        if (!shaped) {
            problem = "send {\"action\": \"add\" or \"remove\", \"path\": FOLDER}";
        } else if (!typed.starts_with('/') && !typed.starts_with('~')) {
            problem = "type the folder in full, or from ~";
        }
        const bool adding = shaped && body["action"] == "add";
        std::string root =
            problem.empty() ? AgentService::allowedRootOf(typed, "/", adding, problem) : "";
        if (!problem.empty()) {
            return sendError(response, 400, problem);
        }
        env.adoptConfigEdits();
        bool absent = false;
        std::vector<std::string> roots;
        bool saved = env.applyConfigChange([&](AppConfig& config) {
            std::vector<std::string>& list = config.agent.allowedRoots;
            auto kept = std::find_if(list.begin(), list.end(), [&](const std::string& each) {
                return each == root || AgentService::canonical(each) == root;
            });
            absent = kept == list.end();
            if (adding && absent) list.push_back(root);
            if (!adding && !absent) list.erase(kept);
            roots = list;
        });
        if (!adding && absent) {
            return sendError(response, 400, root + " is not one of the allowed roots");
        }
        if (!saved) {
            return sendError(response, 500, "not saved: " + env.saveProblem());
        }
        sendJson(response, Json{{"allowedRoots", roots}});
    });
    // The AI provider's key goes into the secret store and nowhere else; the answer
    // says where it went, never what it is.
    server.post(
        "/api/v1/ai-key", [&env](const httplib::Request& request, httplib::Response& response,
                                 const DashboardSessions::Session&) {
            Json body = objectBody(request);
            if (!body.is_object() || !body["key"].is_string() ||
                body["key"].get<std::string>().empty()) {
                return sendError(response, 400, "type the API key");
            }
            if (!env.setAIKey(body["key"].get<std::string>())) {
                return sendError(response, 500, "not stored: " + env.saveProblem());
            }
            sendJson(response, Json{{"stored", true}, {"where", env.secretStoreDescription()}});
        });

    // Settings: the values as 'config list --json' gives them, what each means, and
    // a change checked and saved as 'config set' does it.
    server.get("/api/v1/settings", [&env](const httplib::Request&, httplib::Response& response,
                                          const DashboardSessions::Session&) {
        AppConfig config = env.config();
        Json values = Json::object();
        for (const ConfigKeys::Key& key : ConfigKeys::all()) {
            values[key.name] = ConfigKeys::valueOf(config, key);
        }
        sendJson(response, values);
    });
    server.get("/api/v1/settings/keys", [](const httplib::Request&, httplib::Response& response,
                                           const DashboardSessions::Session&) {
        Json keys = Json::array();
        for (const ConfigKeys::Key& key : ConfigKeys::all()) {
            if (key.type == ConfigKeys::ValueType::textList) continue;
            keys.push_back(
                {{"name", key.name}, {"meaning", key.meaning}, {"allowed", key.allowed()}});
        }
        sendJson(response, keys);
    });
    server.post("/api/v1/settings", [&env](const httplib::Request& request,
                                           httplib::Response& response,
                                           const DashboardSessions::Session&) {
        Json body = objectBody(request);
        if (!body.is_object() || !body["name"].is_string() || !body["value"].is_string()) {
            return sendError(response, 400, "send {\"name\": KEY, \"value\": TEXT}");
        }
        ConfigKeys::Parsed parsed =
            ConfigKeys::parse(body["name"].get<std::string>(), body["value"].get<std::string>());
        if (!parsed.error.empty()) {
            return sendError(response, 400, parsed.error);
        }
        env.adoptConfigEdits();
        Json before;
        bool saved = env.applyConfigChange([&](AppConfig& config) {
            before = ConfigKeys::valueOf(config, *parsed.key);
            ConfigKeys::apply(config, *parsed.key, parsed.value);
        });
        if (!saved) {
            return sendError(response, 500, "not saved: " + env.saveProblem());
        }
        sendJson(response,
                 Json{{"name", parsed.key->name}, {"before", before}, {"after", parsed.value}});
    });

    // The person's decisions, as 'proposals approve' and 'reject' take them.
    const std::string proposal = R"(/api/v1/proposals/([0-9A-Fa-f-]{36}))";
    server.post(
        proposal + "/approve", [&env](const httplib::Request& request, httplib::Response& response,
                                      const DashboardSessions::Session&) {
            AppEnvironment::ProposalDecision decision = env.approveProposal(request.matches[1]);
            if (!decision.problem.empty()) {
                return sendError(response, 409, decision.problem);
            }
            sendJson(response,
                     Json{{"proposalId", decision.proposal->id},
                          {"confirmationToken", decision.token},
                          {"expiresAt", toJson(decision.proposal->expiresAt.value_or(Date{}))}});
        });
    server.post(
        proposal + "/reject", [&env](const httplib::Request& request, httplib::Response& response,
                                     const DashboardSessions::Session&) {
            AppEnvironment::ProposalDecision decision = env.rejectProposal(request.matches[1]);
            if (!decision.problem.empty()) {
                return sendError(response, 409, decision.problem);
            }
            sendJson(response, ProposalReviewModel::listing(*decision.proposal));
        });

    routeFirstRun(server, env, clock, runner);
    routeDays(server, env, clock, runner);
    routeGitHub(server, env, clock, runner);
    routeWork(server, env, clock, runner);
    routeWriting(server, env, clock, runner);
}

}  // namespace quorvane::Dashboard
