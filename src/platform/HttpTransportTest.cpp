#include "platform/HttpTransport.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "github/ApiClient.hpp"
#include "testing/FakeClock.hpp"
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
}

TEST(HttpTransportTest, TheGitHubClientWalksRealPagesAndSendsNoTokenItWasNotGiven) {
    testing::LoopbackHttpServer server;
    const std::string first =
        "/user/repos?per_page=100&affiliation=owner,collaborator,"
        "organization_member&sort=pushed";
    auto repo = [](const std::string& name) {
        return R"({"name": ")" + name + R"(", "full_name": "me/)" + name +
               R"(", "owner": {"login": "me"}})";
    };
    server.set(first, {200,
                       {{"Link", "<" + server.base() + "/user/repos?page=2>; rel=\"next\""}},
                       "[" + repo("one") + "]",
                       false});
    server.set("/user/repos?page=2", {200, {}, "[" + repo("two") + "]", false});
    CurlTransport transport;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-25T10:00:00Z"));
    std::vector<RemoteRepository> repos =
        ApiClient(std::nullopt, transport, clock, server.base()).listRepositories("a", true, true);
    ASSERT_EQ(repos.size(), 2u);
    EXPECT_EQ(repos[1].id, "a:me/two");
    for (const std::string& request : server.requests()) {
        EXPECT_THAT(request, Not(HasSubstr("Authorization")));
        EXPECT_THAT(request, HasSubstr("User-Agent: Quorvane/2.0 (+https://github.com)\r\n"));
    }
}

}  // namespace
}  // namespace quorvane
