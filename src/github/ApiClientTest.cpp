#include "github/ApiClient.hpp"

#include <atomic>
#include <map>
#include <mutex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/FakeClock.hpp"
#include "testing/LoopbackHttpServer.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using Kind = QuorvaneError::Kind;

const Date kNow = *DateHelpers::parseISO("2026-11-25T10:00:00Z");

// Answers each address with what the test put there, and records every request.
class ScriptedTransport final : public HttpTransport {
public:
    HttpResponse get(const HttpRequest& request) const override {
        std::lock_guard lock(mutex_);
        requests.push_back(request);
        auto found = replies.find(request.url);
        if (found == replies.end()) return HttpResponse{404, "{}", {}, std::nullopt};
        return found->second;
    }
    // The GitHub client only reads: a POST fails the call that made it.
    HttpResponse post(const HttpRequest&, const std::string&) const override {
        return HttpResponse{0, "", {}, "unexpected POST"};
    }
    std::map<std::string, HttpResponse> replies;
    mutable std::vector<HttpRequest> requests;

private:
    mutable std::mutex mutex_;
};

HttpResponse reply(long status, std::string body,
                   std::vector<std::pair<std::string, std::string>> headers = {}) {
    return HttpResponse{status, std::move(body), std::move(headers), std::nullopt};
}

// The description of what `call` threw, or "no error".
template <class Call>
std::pair<std::string, Kind> failure(Call call) {
    try {
        call();
    } catch (const QuorvaneError& error) {
        return {error.description(), error.kind()};
    }
    return {"no error", Kind::msg};
}

class ApiClientTest : public ::testing::Test {
protected:
    ApiClient client(std::optional<std::string> token = "t0ken") {
        return ApiClient(std::move(token), transport_, clock_, "https://api.test");
    }
    const std::string user_ = "https://api.test/user";
    const std::string repos_ =
        "https://api.test/user/repos?per_page=100&affiliation=owner,collaborator,"
        "organization_member&sort=pushed";

    ScriptedTransport transport_;
    testing::FakeClock clock_{kNow};
};

TEST_F(ApiClientTest, EveryRequestCarriesTheHeadersAndATokenOnlyWhenThereIsOne) {
    transport_.replies[user_] = reply(200, R"({"login": "me", "name": null, "x": 1})");
    EXPECT_EQ(client().getAuthenticatedUser(), (GitHubUser{"me", std::nullopt, std::nullopt}));
    client("").getAuthenticatedUser();
    transport_.replies[user_] = reply(401, R"({"message": "Requires authentication"})");
    EXPECT_EQ(failure([&] { client(std::nullopt).getAuthenticatedUser(); }),
              (std::pair{std::string("GitHub: token invalid/expired"), Kind::auth}));

    ASSERT_EQ(transport_.requests.size(), 3u);
    using Headers = std::vector<std::pair<std::string, std::string>>;
    Headers common = {{"Accept", "application/vnd.github+json"},
                      {"X-GitHub-Api-Version", "2022-11-28"},
                      {"User-Agent", "Quorvane/2.0 (+https://github.com)"}};
    Headers withToken = common, withEmpty = common;
    withToken.emplace_back("Authorization", "Bearer t0ken");
    withEmpty.emplace_back("Authorization", "Bearer ");
    EXPECT_EQ(transport_.requests[0].headers, withToken);
    EXPECT_EQ(transport_.requests[1].headers, withEmpty);  // empty is not absent
    EXPECT_EQ(transport_.requests[2].headers, common);
    EXPECT_EQ(transport_.requests[0].timeoutSeconds, 60);
}

TEST_F(ApiClientTest, EachStatusAndTransportFailureHasItsText) {
    auto outcome = [&](HttpResponse response) {
        transport_.replies[user_] = std::move(response);
        return failure([&] { client().getAuthenticatedUser(); });
    };
    using Outcome = std::pair<std::string, Kind>;
    EXPECT_EQ(outcome(reply(403, "", {{"X-RateLimit-Remaining", "0"}})),
              (Outcome{"GitHub rate limit exceeded", Kind::rateLimit}));
    EXPECT_EQ(outcome(reply(403, "", {{"X-RateLimit-Remaining", "00"}})),
              (Outcome{"GitHub forbidden (HTTP 403)", Kind::http}));
    EXPECT_EQ(outcome(reply(500, "{}")), (Outcome{"GitHub error (HTTP 500)", Kind::http}));
    EXPECT_EQ(outcome(reply(0, "")), (Outcome{"GitHub: invalid response", Kind::msg}));
    HttpResponse refused;
    refused.transportError = "Connection refused";
    EXPECT_EQ(outcome(refused),
              (Outcome{"GitHub: network error — Connection refused", Kind::network}));

    auto [missing, missingKind] = outcome(reply(200, R"({"name": "no login"})"));
    EXPECT_EQ(missing, "GitHub: failed to decode response — login: required key is missing");

    // A token never crosses the network in clear, however the address was stored;
    // plain http to this machine is fine.
    size_t sent = transport_.requests.size();
    EXPECT_EQ(failure([&] {
                  ApiClient("t0ken", transport_, clock_, "http://ghe.example.test/api/v3")
                      .listRepositories("acc", true, true);
              }),
              (Outcome{"GitHub: the token is not sent over plain http:// to another machine — "
                       "use the https:// address of the API",
                       Kind::msg}));
    EXPECT_EQ(transport_.requests.size(), sent);
    transport_.replies["http://[::1]:8080/user"] = reply(200, R"({"login": "me"})");
    EXPECT_EQ(
        ApiClient("t0ken", transport_, clock_, "http://[::1]:8080").getAuthenticatedUser().login,
        "me");

    // A blank in an owner makes no address, and says which one.
    EXPECT_EQ(failure([&] { client().listBranches("my org", "app"); }),
              (Outcome{"GitHub: invalid URL /repos/my org/app/branches", Kind::msg}));
    EXPECT_EQ(failure([&] {
                  ApiClient(std::nullopt, transport_, clock_, "not a base").getAuthenticatedUser();
              }),
              (Outcome{"GitHub: invalid URL /user", Kind::msg}));
}

std::string repo(const std::string& name, const std::string& extra = "") {
    return R"({"name": ")" + name + R"(", "full_name": "me/)" + name +
           R"(", "owner": {"login": "me"})" + extra + "}";
}

TEST_F(ApiClientTest, RepositoriesArePagedFilteredAndConvertedInTheServersOrder) {
    const std::string page2 = "https://api.test/user/repos?page=2";
    const std::string page3 = "https://api.test/user/repos?page=3";
    transport_.replies[repos_] =
        reply(200,
              "[" + repo("plain") + "," +
                  repo("full", R"(, "private": true, "fork": true, "archived": false,
                 "default_branch": "trunk", "html_url": "https://github.com/me/full",
                 "pushed_at": "2026-11-20T08:00:00.123Z", "updated_at": "2026-11-20T09:00:00Z",
                 "description": "d", "language": "C++")") +
                  "]",
              // A bracketless entry is skipped and the next qualifying one is used.
              {{"link", "https://api.test/x; rel=\"next\", <" + page2 + ">; rel=\"next\""}});
    transport_.replies[page2] = reply(
        200, "[" + repo("old", R"(, "archived": true, "private": null, "pushed_at": "")") + "]",
        {{"Link", "<" + page3 + ">; rel=\"next\", <" + repos_ + ">; rel=\"first\""}});
    // Only prev and last: the walk ends here.
    transport_.replies[page3] =
        reply(200, "[" + repo("last", R"(, "pushed_at": "yesterday")") + "]",
              {{"Link", "<" + page2 + ">; rel=\"prev\", <" + page3 + ">; rel=\"last\""}});

    std::vector<RemoteRepository> visible = client().listRepositories("acc", false, false);
    std::vector<std::string> names;
    for (const auto& r : visible) names.push_back(r.id);
    EXPECT_THAT(names, ElementsAre("acc:me/plain", "acc:me/last"));
    std::vector<RemoteRepository> all = client().listRepositories("acc", true, true);
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[0].defaultBranch, "main");
    EXPECT_FALSE(all[0].isPrivate);
    // Every field of a complete entry is GitHubReplayTest's, on GitHub's own example.
    EXPECT_EQ(all[1].sshURL, "");
    EXPECT_EQ(all[1].pushedAt, DateHelpers::parseISO("2026-11-20T08:00:00Z"));
    EXPECT_FALSE(all[2].isPrivate);  // null counts as not private
    EXPECT_EQ(all[2].pushedAt, std::nullopt);
    EXPECT_EQ(all[3].pushedAt, std::nullopt);  // unreadable dates are no error

    // A next page on another host is not sent the token: the walk ends before it.
    transport_.replies[page2].headers = {{"Link", "<https://elsewhere.test/steal>; rel=\"next\""}};
    EXPECT_EQ(client().listRepositories("acc", true, true).size(), 3u);
    for (const HttpRequest& request : transport_.requests) {
        EXPECT_EQ(request.url.rfind("https://api.test/", 0), 0u) << request.url;
    }
}

// The real transport, with `secondsPerRequest` of fake time passing during each
// request, as with a server that drips out its pages.
class SlowTransport final : public HttpTransport {
public:
    explicit SlowTransport(testing::FakeClock& clock) : clock_(clock) {}
    HttpResponse get(const HttpRequest& request) const override {
        clock_.advance(std::chrono::seconds(secondsPerRequest));
        return real_.get(request);
    }
    HttpResponse post(const HttpRequest& request, const std::string& body) const override {
        return real_.post(request, body);
    }
    long long secondsPerRequest = 0;

private:
    testing::FakeClock& clock_;
    CurlTransport real_;
};

TEST_F(ApiClientTest, AListingThatRepeatsOrNeverEndsFailsAtItsFirstLimit) {
    // Page n of /user/repos holds two repositories and leads to page n + 1, for ever.
    testing::LoopbackHttpServer server;
    std::atomic<size_t> padding = 0;
    auto page = [&](int n) {
        std::string description = R"(, "description": ")" + std::string(padding, 'x') + "\"";
        std::string next = "<" + server.base() + "/user/repos?page=" + std::to_string(n + 1) + ">";
        return testing::LoopbackHttpServer::Reply{200,
                                                  {{"Link", next + "; rel=\"next\""}},
                                                  "[" + repo("a" + std::to_string(n), description) +
                                                      "," + repo("b" + std::to_string(n)) + "]",
                                                  false};
    };
    server.setFallback([&](const std::string& target) {
        const std::string prefix = "/user/repos?page=";
        if (!target.starts_with(prefix)) return testing::LoopbackHttpServer::Reply{404, {}, "{}"};
        return page(std::stoi(target.substr(prefix.size())));
    });
    const std::string reposPath = repos_.substr(std::string("https://api.test").size());
    server.set(reposPath, page(1));
    server.set("/repos/me/app/branches?per_page=100", page(1));

    SlowTransport transport(clock_);
    using namespace std::chrono_literals;
    ListingLimits generous{100, 1000, 16 << 20, 3600s};
    // What the listing threw, and how many requests it took.
    auto outcome = [&](ListingLimits limits, bool branches = false) {
        size_t before = server.requests().size();
        ApiClient client("t0ken", transport, clock_, server.base(), nullptr, limits);
        std::string error = failure([&] {
                                if (branches) {
                                    client.listBranches("me", "app");
                                } else {
                                    client.listRepositories("acc", true, true);
                                }
                            }).first;
        return std::pair{error, server.requests().size() - before};
    };
    const std::string stopped = "GitHub: reading the repository list stopped — ";
    using Outcome = std::pair<std::string, size_t>;

    ListingLimits fewPages = generous;
    fewPages.maxPages = 5;
    EXPECT_EQ(outcome(fewPages), (Outcome{stopped + "more than 5 pages", 5}));
    EXPECT_EQ(outcome(fewPages, true),
              (Outcome{"GitHub: reading the branches of me/app stopped — more than 5 pages", 5}));
    ListingLimits fewEntries = generous;
    fewEntries.maxElements = 9;  // the fifth page would make ten
    EXPECT_EQ(outcome(fewEntries), (Outcome{stopped + "more than 9 repositories", 5}));
    ListingLimits fewBytes = generous;
    fewBytes.maxBytes = 1 << 20;
    padding = 400 << 10;  // on each page after the first
    EXPECT_EQ(outcome(fewBytes), (Outcome{stopped + "more than 1 MB of replies", 4}));
    padding = 0;
    transport.secondsPerRequest = 100;
    ListingLimits shortDeadline = generous;
    shortDeadline.deadline = 250s;
    EXPECT_EQ(outcome(shortDeadline), (Outcome{stopped + "not done after 250 seconds", 3}));
    transport.secondsPerRequest = 0;

    // The third page leads back to the second, spelt in capitals: found as soon as
    // it is named, without reading it again.
    std::string home = server.base();
    std::string shouted = "HTTP://" + home.substr(std::string("http://").size());
    server.set("/user/repos?page=3",
               {200, {{"Link", "<" + shouted + "/user/repos?page=2>; rel=\"next\""}}, "[]", false});
    EXPECT_EQ(outcome(generous), (Outcome{stopped + "its pages lead back to one already read", 3}));
    // Pages that do end are read whole within the same limits.
    server.set("/user/repos?page=3", {200, {}, "[" + repo("last") + "]", false});
    ApiClient client("t0ken", transport, clock_, server.base(), nullptr, fewPages);
    EXPECT_EQ(client.listRepositories("acc", true, true).size(), 5u);
}

TEST_F(ApiClientTest, BranchesComeWithTheirHeadAndNeverADate) {
    transport_.replies["https://api.test/repos/Me/App/branches?per_page=100"] =
        reply(200, R"([{"name": "main", "commit": {"sha": "abc", "url": "u"}, "protected": false},
                 {"name": "bare"}, {"name": "nosha", "commit": {}}])");
    std::vector<RemoteBranch> branches = client().listBranches("Me", "App");
    EXPECT_EQ(branches, (std::vector<RemoteBranch>{{"main", "abc", std::nullopt},
                                                   {"bare", std::nullopt, std::nullopt},
                                                   {"nosha", std::nullopt, std::nullopt}}));
    EXPECT_EQ(ApiClient::nextURL(std::nullopt), std::nullopt);
    EXPECT_EQ(ApiClient::nextURL("<https://api.test/a>; REL=\"NEXT\""), std::nullopt);
    EXPECT_EQ(ApiClient::nextURL("<https://api.test/a b>; rel=\"next\""), std::nullopt);
    // An address with commas of its own, after another link and before a third.
    EXPECT_EQ(ApiClient::nextURL("<https://api.test/r?a=o,c&page=1>; rel=\"prev\", "
                                 "<https://api.test/r?a=o,c&page=3>; rel=\"next\", "
                                 "<https://api.test/r?a=o,c&page=9>; rel=\"last\""),
              "https://api.test/r?a=o,c&page=3");
}

}  // namespace
}  // namespace quorvane
