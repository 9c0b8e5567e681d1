// The dashboard's server on a real loopback socket, spoken to by the program's own
// HTTP client, which follows no redirect and sends the headers a test gives it.
#include "web/DashboardServer.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/EventFeed.hpp"
#include "web/Dashboard.hpp"

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

    HttpResponse page = get("/today", {{"Accept", "text/html,application/xhtml+xml"}});
    EXPECT_EQ(page.status, 401);
    EXPECT_NE(page.body.find("Run <code>quorvane open</code>"), std::string::npos) << page.body;
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

// A page's event stream read off the wire as the browser gets it: headers, then
// chunks, each read waiting at most ten seconds so a stream that stalls fails the
// test instead of hanging it.
class StreamReader {
public:
    StreamReader(int port, const std::string& request) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        timeval wait{10, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                     ::send(fd_, request.data(), request.size(), MSG_NOSIGNAL) ==
                         static_cast<ssize_t>(request.size());
    }
    ~StreamReader() { ::close(fd_); }

    // Reads until `text` has arrived; false when the stream ended or stalled first.
    bool until(const std::string& text) {
        while (connected_ && seen_.find(text) == std::string::npos) {
            char buffer[4096];
            ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
            if (got <= 0) return false;
            seen_.append(buffer, static_cast<size_t>(got));
        }
        return connected_;
    }
    // Whether the server closed the stream.
    bool ended() {
        char buffer[4096];
        ssize_t got;
        while ((got = ::recv(fd_, buffer, sizeof buffer, 0)) > 0) {
            seen_.append(buffer, static_cast<size_t>(got));
        }
        return got == 0;
    }
    const std::string& seen() const { return seen_; }

private:
    int fd_;
    bool connected_ = false;
    std::string seen_;
};

TEST(DashboardServerTest, AnOpenPageHearsOfEachEventAndTheStreamEndsWithTheServer) {
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-26T10:00:00Z"));
    DashboardServer server(clock);
    EventFeed feed;
    Dashboard::routeEvents(server, feed);
    std::string key = DashboardKey::generate();
    ASSERT_EQ(server.start({.port = 27757, .tries = 10, .key = key}), "");
    CurlTransport http;
    HttpResponse login =
        http.get({server.address() + LoginLink::path(key, clock.now(), "review").substr(1),
                  {},
                  10,
                  nullptr});
    std::string cookie = login.header("Set-Cookie").value_or("");
    cookie = cookie.substr(0, cookie.find(';'));
    auto request = [&](const std::string& extra) {
        return "GET /api/v1/events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
               "\r\nCookie: " + cookie + "\r\n" + extra + "\r\n";
    };

    feed.publish("scan", R"({"at":"before"})");
    StreamReader page(server.port(), request(""));
    ASSERT_TRUE(page.until("retry: 2000")) << page.seen();
    EXPECT_NE(page.seen().find("text/event-stream"), std::string::npos);
    feed.publish("proposal", R"({"id":"p1","status":"pending"})");
    ASSERT_TRUE(page.until(R"(data: {"id":"p1","status":"pending"})")) << page.seen();
    EXPECT_NE(page.seen().find("id: 2\nevent: proposal\n"), std::string::npos);
    EXPECT_EQ(page.seen().find("before"), std::string::npos)
        << "a new page starts from now, not from what happened before it opened";

    // A page that lost its stream says what it saw last and gets what came after.
    StreamReader back(server.port(), request("Last-Event-ID: 0\r\n"));
    ASSERT_TRUE(back.until("event: proposal")) << back.seen();
    EXPECT_LT(back.seen().find("event: scan"), back.seen().find("event: proposal"));

    server.stop();
    EXPECT_TRUE(page.ended()) << "the server's stop ends every open stream";
}

}  // namespace
}  // namespace quorvane
