// GitHub's own published replies (API description examples and recorded
// exchanges, see testing/GitHubMaterial.hpp) served by a real HTTP server on
// loopback to the real client over libcurl. Expected values are read from the
// same material, never retyped.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "github/ApiClient.hpp"
#include "testing/FakeClock.hpp"
#include "testing/GitHubMaterial.hpp"
#include "testing/LoopbackHttpServer.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using testing::GitHubMaterial;
using testing::HeaderList;
using Kind = QuorvaneError::Kind;
using Outcome = std::pair<std::string, Kind>;

const Date kNow = *DateHelpers::parseISO("2026-11-25T10:00:00Z");
const std::string& kRepos = testing::kGitHubRepositories;

std::string text(const Json& object, const std::string& key) {
    return object.at(key).get<std::string>();
}
bool flag(const Json& object, const std::string& key) {
    return object.at(key).get<bool>();
}

std::optional<std::string> textOrNothing(const Json& object, const std::string& key) {
    const Json& value = object.at(key);
    return value.is_null() ? std::nullopt : std::optional<std::string>(value.get<std::string>());
}

// The request target of every request the server read, oldest first.
std::vector<std::string> targets(const testing::LoopbackHttpServer& server) {
    std::vector<std::string> out;
    for (const std::string& head : server.requests()) {
        size_t start = head.find(' ') + 1;
        out.push_back(head.substr(start, head.find(' ', start) - start));
    }
    return out;
}

template <class Call>
Outcome failure(Call call) {
    try {
        call();
    } catch (const QuorvaneError& error) {
        return {error.description(), error.kind()};
    }
    return {"no error", Kind::msg};
}

class GitHubReplayTest : public ::testing::Test {
protected:
    void SetUp() override {
        try {
            material_ = &GitHubMaterial::shared();
        } catch (const std::exception& error) {
            FAIL() << error.what();
        }
        // Headers GitHub sent with a successful reply, for the examples, which
        // come without any.
        okHeaders_ = GitHubMaterial::withoutHeader(
            GitHubMaterial::replayHeaders(material_->at("/recorded/issuePages/4")), "link");
    }

    ApiClient client() const { return ApiClient(std::nullopt, transport_, clock_, server_.base()); }

    testing::LoopbackHttpServer::Reply ok(const Json& body) const {
        return {200, okHeaders_, body.dump(), false};
    }
    // The recorded 404 of a branch that has no protection, headers and body.
    testing::LoopbackHttpServer::Reply notFound() const {
        const Json& recorded = material_->at("/recorded/branchNotProtected");
        return {recorded.at("status").get<int>(), GitHubMaterial::replayHeaders(recorded),
                recorded.at("body").dump(), false};
    }

    const GitHubMaterial* material_ = nullptr;
    HeaderList okHeaders_;
    testing::LoopbackHttpServer server_;
    CurlTransport transport_;
    testing::FakeClock clock_{kNow};
};

TEST_F(GitHubReplayTest, TheDocumentedExamplesDecodeIntoOurRecords) {
    const Json& user = material_->at("/examples/user/body");
    const Json& repos = material_->at("/examples/repositories/body");
    const Json& branches = material_->at("/examples/branches/body");
    ASSERT_FALSE(repos.empty());
    ASSERT_FALSE(branches.empty());
    const Json& example = repos[0];
    const std::string owner = text(example.at("owner"), "login");
    const std::string name = text(example, "name");
    // What the filter below expects of it.
    ASSERT_FALSE(flag(example, "private") || flag(example, "archived"));

    // The example's flags are all alike, so beside it come three copies of ours,
    // each with one flag turned over: a flag read from another key cannot pass.
    const std::vector<std::string> flags{"private", "fork", "archived"};
    Json listing = Json::array({example});
    for (const std::string& key : flags) {
        Json copy = example;
        copy["name"] = name + "-" + key;
        copy[key] = !flag(example, key);
        listing.push_back(copy);
    }
    server_.set("/user", ok(user));
    server_.set(kRepos, ok(listing));
    server_.set("/repos/" + owner + "/" + name + "/branches?per_page=100", ok(branches));

    EXPECT_EQ(client().getAuthenticatedUser(),
              (GitHubUser{text(user, "login"), textOrNothing(user, "name"),
                          textOrNothing(user, "avatar_url")}));

    std::vector<RemoteRepository> all = client().listRepositories("acc", true, true);
    ASSERT_EQ(all.size(), listing.size());
    auto date = [&](const char* key) { return DateHelpers::parseISO(text(example, key)); };
    EXPECT_EQ(
        all[0],
        (RemoteRepository{
            "acc:" + owner + "/" + name, "acc", owner, name, text(example, "full_name"),
            text(example, "html_url"), text(example, "ssh_url"), text(example, "clone_url"),
            flag(example, "private"), flag(example, "fork"), flag(example, "archived"),
            text(example, "default_branch"), textOrNothing(example, "description"),
            textOrNothing(example, "language"), date("pushed_at"), date("updated_at"), kNow}));
    for (size_t i = 1; i < all.size(); ++i) {
        const Json& copy = listing[i];
        EXPECT_EQ(std::tuple(all[i].name, all[i].isPrivate, all[i].isFork, all[i].isArchived),
                  std::tuple(text(copy, "name"), flag(copy, "private"), flag(copy, "fork"),
                             flag(copy, "archived")));
    }

    // Leaving out private and archived repositories keeps the example and the fork.
    std::vector<std::string> visible;
    for (const auto& r : client().listRepositories("acc", false, false)) visible.push_back(r.name);
    EXPECT_THAT(visible, ElementsAre(name, name + "-fork"));

    // The listing carries no commit date.
    std::vector<RemoteBranch> expected;
    for (const Json& branch : branches)
        expected.push_back({text(branch, "name"), text(branch.at("commit"), "sha"), std::nullopt});
    EXPECT_EQ(client().listBranches(owner, name), expected);
}

TEST_F(GitHubReplayTest, RecordedLinkHeadersAreWalkedToTheLastPageAndAFailedPageLosesAll) {
    const Json& pages = material_->at("/recorded/issuePages");
    const Json& example = material_->at("/examples/repositories/body/0");
    ASSERT_EQ(pages.size(), 5u);
    // Page 1 answers our first request; the recording's pages 2 to 5 sit where its
    // Link headers send the client. Each page holds one copy of the example under
    // a name of ours that says which page it came from.
    std::vector<std::string> expectedTargets{kRepos}, expectedNames;
    for (size_t i = 0; i < pages.size(); ++i) {
        const std::string path = i == 0 ? kRepos : text(pages[i], "path");
        if (i > 0) expectedTargets.push_back(path);
        Json copy = example;
        expectedNames.push_back(text(example, "name") + "-page-" + std::to_string(i + 1));
        copy["name"] = expectedNames.back();
        HeaderList headers = GitHubMaterial::replayHeaders(pages[i]);
        headers = GitHubMaterial::withHeader(
            headers, "link",
            material_->onBase(text(pages[i].at("headers"), "link"), server_.base()));
        server_.set(path, {200, headers, Json::array({copy}).dump(), false});
    }

    std::vector<std::string> names;
    for (const auto& repo : client().listRepositories("acc", true, true))
        names.push_back(repo.name);
    EXPECT_EQ(names, expectedNames);
    // The last page links only back (prev, first): nothing is asked after it.
    EXPECT_THAT(targets(server_), ElementsAreArray(expectedTargets));

    const std::string third = text(pages[2], "path");
    server_.set(third, notFound());
    size_t before = server_.requests().size();
    std::vector<RemoteRepository> got;
    EXPECT_EQ(failure([&] { got = client().listRepositories("acc", true, true); }),
              (Outcome{"GitHub: not found/inaccessible", Kind::notFound}));
    EXPECT_TRUE(got.empty());
    std::vector<std::string> after = targets(server_);
    after.erase(after.begin(), after.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(after, ElementsAre(kRepos, expectedTargets[1], third));
}

}  // namespace
}  // namespace quorvane
