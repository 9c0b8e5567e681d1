// The dashboard's server on a real loopback socket, spoken to by the program's own
// HTTP client, which follows no redirect and sends the headers a test gives it.
#include "web/DashboardServer.hpp"

#include <gtest/gtest.h>

#include "platform/HttpTransport.hpp"
#include "records/JsonCodec.hpp"
#include "testing/FakeClock.hpp"
#include "web/DashboardKey.hpp"

namespace quorvane {
namespace {

TEST(DashboardServerTest, ALoginLinkOpensASessionAndEveryRequestOnTheWireIsGuarded) {
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-26T10:00:00Z"));
    DashboardServer server(clock);
    server.post("/api/v1/echo", [](const httplib::Request& request, httplib::Response& response,
                                   const DashboardSessions::Session&) {
        response.set_content(request.body, "text/plain");
    });
    std::string key = DashboardKey::generate();
    // A port that is taken sends the server to the next one.
    DashboardServer first(clock);
    ASSERT_EQ(first.start({.port = 27717, .tries = 10, .key = key, .workers = 2}), "");
    ASSERT_EQ(server.start({.port = first.port(), .tries = 10, .key = key, .workers = 2}), "");
    EXPECT_GT(server.port(), first.port());

    CurlTransport http;
    std::string base = server.address();
    std::string host = "127.0.0.1:" + std::to_string(server.port());
    auto get = [&](const std::string& path, std::vector<std::pair<std::string, std::string>> h) {
        return http.get({base + path.substr(1), std::move(h), 10, nullptr});
    };

    HttpResponse anonymous = get("/api/v1/session", {});
    EXPECT_EQ(anonymous.status, 401);
    EXPECT_EQ(anonymous.header("Content-Security-Policy").value_or("").find("default-src 'self'"),
              0u);
    EXPECT_EQ(anonymous.header("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(anonymous.header("Referrer-Policy"), "no-referrer");
    EXPECT_FALSE(anonymous.header("Access-Control-Allow-Origin").has_value());
    EXPECT_EQ(get("/api/v1/session", {{"Host", "rebound.example:" + std::to_string(server.port())}})
                  .status,
              403);

    std::string link = LoginLink::path(key, clock.now(), "review");
    HttpResponse login = get(link, {});
    ASSERT_EQ(login.status, 303) << login.body;
    EXPECT_EQ(login.header("Location"), "/review");
    std::string setCookie = login.header("Set-Cookie").value_or("");
    EXPECT_NE(setCookie.find("HttpOnly"), std::string::npos);
    EXPECT_NE(setCookie.find("SameSite=Strict"), std::string::npos);
    std::string cookie = setCookie.substr(0, setCookie.find(';'));
    EXPECT_EQ(get(link, {}).status, 401) << "a link works once";

    HttpResponse session = get("/api/v1/session", {{"Cookie", cookie}});
    ASSERT_EQ(session.status, 200);
    std::string csrf = Json::parse(session.body).at("csrfToken");
    auto post = [&](std::vector<std::pair<std::string, std::string>> h, const std::string& body) {
        h.emplace_back("Content-Type", "text/plain");
        return http.post({base + "api/v1/echo", std::move(h), 10, nullptr}, body);
    };
    std::pair<std::string, std::string> origin{"Origin", "http://" + host};
    HttpResponse echoed = post({{"Cookie", cookie}, origin, {"X-Quorvane-CSRF", csrf}}, "hello");
    EXPECT_EQ(echoed.status, 200);
    EXPECT_EQ(echoed.body, "hello");
    EXPECT_EQ(post({{"Cookie", cookie}, origin}, "x").status, 403);
    EXPECT_EQ(
        post({{"Cookie", cookie}, {"Origin", "http://evil.example"}, {"X-Quorvane-CSRF", csrf}},
             "x")
            .status,
        403);
    EXPECT_EQ(post({{"Cookie", cookie}, origin, {"X-Quorvane-CSRF", csrf}},
                   std::string(DashboardServer::kMaxBody + 1, 'x'))
                  .status,
              413);
    server.stop();
    EXPECT_TRUE(get("/api/v1/session", {{"Cookie", cookie}}).transportError.has_value());
}

}  // namespace
}  // namespace quorvane
