#include "web/Dashboard.hpp"

#include "agent/GitProposalReview.hpp"
#include "app/Queries.hpp"
#include "base/PathHelpers.hpp"
#include "git/RepoDiscovery.hpp"
#include "persistence/ConfigKeys.hpp"
#include "records/JsonCodec.hpp"
#include "screens/ProposalReviewModel.hpp"
#include "web/DashboardPages.hpp"

namespace quorvane::Dashboard {

namespace {

void sendJson(httplib::Response& response, const Json& json) {
    response.set_content(json.dump(-1, ' ', false, Json::error_handler_t::replace),
                         "application/json");
}

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
    // Every screen is the one page, which shows the section its address names.
    for (const char* screen : {"/", "/today", "/review", "/settings"}) {
        server.get(screen, [](const httplib::Request&, httplib::Response& response,
                              const DashboardSessions::Session&) {
            sendPage(response, "/assets/index.html");
        });
    }
    server.get(R"(/assets/([a-z]+\.(html|css|js|svg)))",
               [](const httplib::Request& request, httplib::Response& response,
                  const DashboardSessions::Session&) { sendPage(response, request.path); });
    server.get("/api/v1/today", [&env, &clock](const httplib::Request&, httplib::Response& response,
                                               const DashboardSessions::Session&) {
        sendJson(response, toJson(Queries::todaySummary(env.store(), env.config(), clock.now())));
    });

    // Agent Review: what waits for the person, newest first as the store gives them,
    // each as they must read it before deciding.
    server.get("/api/v1/proposals",
               [&env, &runner](const httplib::Request&, httplib::Response& response,
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
                   Json list = Json::array();
                   for (const PendingProposal& proposal : waiting) {
                       list.push_back(ProposalReviewModel::review(
                           proposal, GitProposalReview::of(proposal, config, runner), standing));
                   }
                   sendJson(response, list);
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
        Json body = Json::parse(request.body, nullptr, false);
        if (!body.is_object() || !body["name"].is_string() || !body["value"].is_string()) {
            response.status = 400;
            sendJson(response, Json{{"error", "send {\"name\": KEY, \"value\": TEXT}"}});
            return;
        }
        ConfigKeys::Parsed parsed =
            ConfigKeys::parse(body["name"].get<std::string>(), body["value"].get<std::string>());
        if (!parsed.error.empty()) {
            response.status = 400;
            sendJson(response, Json{{"error", parsed.error}});
            return;
        }
        env.adoptConfigEdits();
        Json before;
        bool saved = env.applyConfigChange([&](AppConfig& config) {
            before = ConfigKeys::valueOf(config, *parsed.key);
            ConfigKeys::apply(config, *parsed.key, parsed.value);
        });
        if (!saved) {
            response.status = 500;
            sendJson(response, Json{{"error", "not saved: " + env.saveProblem()}});
            return;
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
                response.status = 409;
                sendJson(response, Json{{"error", decision.problem}});
                return;
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
                response.status = 409;
                sendJson(response, Json{{"error", decision.problem}});
                return;
            }
            sendJson(response, ProposalReviewModel::listing(*decision.proposal));
        });
}

}  // namespace quorvane::Dashboard
