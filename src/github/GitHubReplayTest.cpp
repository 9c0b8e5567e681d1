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
    const RemoteRepository& repo = all[0];
    EXPECT_EQ(repo.id, "acc:" + owner + "/" + name);
    EXPECT_EQ(repo.accountID, "acc");
    EXPECT_EQ(repo.owner, owner);
    EXPECT_EQ(repo.name, name);
    EXPECT_EQ(repo.fullName, text(example, "full_name"));
    EXPECT_EQ(repo.htmlURL, text(example, "html_url"));
    EXPECT_EQ(repo.sshURL, text(example, "ssh_url"));
    EXPECT_EQ(repo.cloneURL, text(example, "clone_url"));
    EXPECT_EQ(repo.isPrivate, flag(example, "private"));
    EXPECT_EQ(repo.isFork, flag(example, "fork"));
    EXPECT_EQ(repo.isArchived, flag(example, "archived"));
    EXPECT_EQ(repo.defaultBranch, text(example, "default_branch"));
    EXPECT_EQ(repo.description, textOrNothing(example, "description"));
    EXPECT_EQ(repo.language, textOrNothing(example, "language"));
    ASSERT_TRUE(repo.pushedAt && repo.updatedAt);
    EXPECT_EQ(DateHelpers::isoString(*repo.pushedAt), text(example, "pushed_at"));
    EXPECT_EQ(DateHelpers::isoString(*repo.updatedAt), text(example, "updated_at"));
    EXPECT_EQ(repo.lastSyncedAt, kNow);
    for (size_t i = 1; i < all.size(); ++i) {
        const Json& copy = listing[i];
        EXPECT_EQ(all[i].name, text(copy, "name"));
        EXPECT_EQ(all[i].isPrivate, flag(copy, "private")) << all[i].name;
        EXPECT_EQ(all[i].isFork, flag(copy, "fork")) << all[i].name;
        EXPECT_EQ(all[i].isArchived, flag(copy, "archived")) << all[i].name;
    }

    // Leaving out private and archived repositories keeps the example and the fork.
    std::vector<std::string> visible;
    for (const auto& r : client().listRepositories("acc", false, false)) visible.push_back(r.name);
    EXPECT_THAT(visible, ElementsAre(name, name + "-fork"));

    std::vector<RemoteBranch> got = client().listBranches(owner, name);
    ASSERT_EQ(got.size(), branches.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].name, text(branches[i], "name"));
        EXPECT_EQ(got[i].lastCommitSha, text(branches[i].at("commit"), "sha"));
        EXPECT_EQ(got[i].lastCommitDate, std::nullopt);  // the listing carries none
    }
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
