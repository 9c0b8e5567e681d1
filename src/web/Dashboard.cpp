#include "web/Dashboard.hpp"

#include "agent/GitProposalReview.hpp"
#include "app/Queries.hpp"
#include "records/JsonCodec.hpp"
#include "screens/ProposalReviewModel.hpp"
#include "web/DashboardPages.hpp"

namespace quorvane::Dashboard {

namespace {

void sendJson(httplib::Response& response, const Json& json) {
    response.set_content(json.dump(-1, ' ', false, Json::error_handler_t::replace),
                         "application/json");
}

const DashboardPages::Page* pageAt(std::string_view path) {
    for (const DashboardPages::Page& page : DashboardPages::all()) {
        if (page.path == path) return &page;
    }
    return nullptr;
}

}  // namespace

void route(DashboardServer& server, AppEnvironment& env, const Clock& clock,
           const ProcessRunner& runner) {
    auto serve = [](std::string_view path) {
        return [path](const httplib::Request&, httplib::Response& response,
                      const DashboardSessions::Session&) {
            const DashboardPages::Page* page = pageAt(path);
            if (!page) {
                response.status = 404;
                return;
            }
            response.set_content(std::string(page->bytes), std::string(page->contentType));
        };
    };
    // Every screen is the one page, which shows the section its address names.
    for (const char* screen : {"/", "/today", "/review", "/settings"}) {
        server.get(screen, serve("/assets/index.html"));
    }
    server.get(R"(/assets/([a-z]+\.(html|css|js|svg)))",
               [](const httplib::Request& request, httplib::Response& response,
                  const DashboardSessions::Session&) {
                   const DashboardPages::Page* page = pageAt(request.path);
                   if (!page) {
                       response.status = 404;
                       return;
                   }
                   response.set_content(std::string(page->bytes), std::string(page->contentType));
               });
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
                   std::vector<PendingProposal> waiting;
                   for (const PendingProposal& proposal : env.proposals()) {
                       if (proposal.status == PendingProposal::Status::pending)
                           waiting.push_back(proposal);
                   }
                   Json list = Json::array();
                   for (const PendingProposal& proposal : waiting) {
                       list.push_back(ProposalReviewModel::review(
                           proposal, GitProposalReview::of(proposal, config, runner)));
                   }
                   sendJson(response, list);
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
