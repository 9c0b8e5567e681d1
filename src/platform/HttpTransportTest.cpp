#include "platform/HttpTransport.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/LoopbackHttpServer.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(HttpTransportTest, ARealExchangeCarriesHeadersBothWaysAndReadsThemWithoutCase) {
    testing::LoopbackHttpServer server;
    server.set("/thing?x=1",
               {201, {{"X-RateLimit-Remaining", "42"}, {"Link", "<a>"}}, "body!", false});
    CurlTransport transport;
    HttpResponse response = transport.get(
        {server.base() + "/thing?x=1", {{"Accept", "a/b"}, {"Authorization", "Bearer "}}, 10});
    EXPECT_EQ(response.transportError, std::nullopt);
    EXPECT_EQ(response.status, 201);
    EXPECT_EQ(response.body, "body!");
    EXPECT_EQ(response.header("x-ratelimit-remaining"), "42");
    EXPECT_EQ(response.header("LINK"), "<a>");
    EXPECT_EQ(response.header("missing"), std::nullopt);
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_THAT(server.requests()[0], HasSubstr("GET /thing?x=1 HTTP/1.1\r\n"));
    EXPECT_THAT(server.requests()[0], HasSubstr("Accept: a/b\r\n"));
    EXPECT_THAT(server.requests()[0], HasSubstr("Authorization: Bearer \r\n"));
}

TEST(HttpTransportTest, NoServerOrNoAnswerIsATransportErrorAndABlankNoAddress) {
    CurlTransport transport;
    std::string closed;
    {
        testing::LoopbackHttpServer gone;
        closed = gone.base();
    }
    HttpResponse refused = transport.get({closed + "/", {}, 10});
    ASSERT_TRUE(refused.transportError.has_value());

    testing::LoopbackHttpServer server;
    server.set("/slow", {200, {}, "", true});
    HttpResponse late = transport.get({server.base() + "/slow", {}, 0.3});
    ASSERT_TRUE(late.transportError.has_value());
    EXPECT_THAT(*late.transportError, HasSubstr("imed out"));

    EXPECT_EQ(parseURL("https://api.github.com/repos/my org/x"), std::nullopt);
    EXPECT_EQ(parseURL("api.github.com/user"), std::nullopt);  // no scheme guessed
    EXPECT_TRUE(parseURL("https://api.github.com/user?per_page=100").has_value());

    // Plain http stays unread only on this machine, whatever the address looks like.
    for (const char* clear :
         {"http://ghe.example.test/api/v3", "http://127.0.0.1@ghe.example.test/",
          "http://127.0.0.1.example.test", "http://[::2]:80", "ftp://127.0.0.1/", "127.0.0.1:80",
          "http://my host"}) {
        EXPECT_TRUE(crossesTheNetworkInClear(clear)) << clear;
    }
    for (const char* kept :
         {"https://ghe.example.test", "HTTPS://ghe.example.test", "http://127.0.0.1:8080",
          "HTTP://127.200.0.9/v1", "http://[::1]:9", "http://LocalHost:11434"}) {
        EXPECT_FALSE(crossesTheNetworkInClear(kept)) << kept;
    }
}

TEST(HttpTransportTest, APostSendsItsBodyWholeAndAtOnceWithinTheTimeout) {
    testing::LoopbackHttpServer server;
    server.set("/in", {200, {}, "taken", false});
    CurlTransport transport;
    // Large enough that libcurl would otherwise ask for a 100 Continue first, with
    // a byte that is not UTF-8: the body goes as it is.
    const std::string body = std::string(size_t{2} << 20, 'x') + "\xff{}";
    HttpResponse response =
        transport.post({server.base() + "/in", {{"content-type", "application/json"}}, 10}, body);
    EXPECT_EQ(response.transportError, std::nullopt);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "taken");
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_THAT(server.requests()[0], HasSubstr("POST /in HTTP/1.1\r\n"));
    EXPECT_THAT(server.requests()[0], HasSubstr("content-type: application/json\r\n"));
    EXPECT_THAT(server.requests()[0], Not(HasSubstr("Expect")));
    EXPECT_TRUE(server.bodies()[0] == body) << server.bodies()[0].size() << " bytes arrived";

    server.set("/slow", {200, {}, "", true});
    HttpResponse late = transport.post({server.base() + "/slow", {}, 0.3}, "{}");
    ASSERT_TRUE(late.transportError.has_value());
    EXPECT_THAT(*late.transportError, HasSubstr("imed out"));
}

// The test server answers a body length it cannot trust at once, rather than
// waiting for bytes that never come.
TEST(HttpTransportTest, TheLoopbackServerRefusesABodyLengthItCannotTrust) {
    testing::LoopbackHttpServer server;
    server.set("/in", {200, {}, "taken", false});
    CurlTransport transport;
    auto statusWith = [&](std::vector<std::pair<std::string, std::string>> headers) {
        return transport.post({server.base() + "/in", std::move(headers), 10}, "{}").status;
    };
    EXPECT_EQ(statusWith({{"Content-Length", "99999999999"}}), 400);
    EXPECT_EQ(statusWith({{"Content-Length", "2x"}}), 400);
    EXPECT_EQ(statusWith({{"Content-Length", "2"}, {"content-length", "2"}}), 400);
    EXPECT_EQ(statusWith({}), 200);
    EXPECT_EQ(server.bodies(), (std::vector<std::string>{"", "", "", "{}"}));
}

}  // namespace
}  // namespace quorvane
