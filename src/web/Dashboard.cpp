#include "web/Dashboard.hpp"

#include "app/Queries.hpp"
#include "records/JsonCodec.hpp"
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

void route(DashboardServer& server, AppEnvironment& env, const Clock& clock) {
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
}

}  // namespace quorvane::Dashboard
