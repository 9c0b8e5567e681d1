#include "github/AccountSync.hpp"

#include <sys/stat.h>

#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "git/GitCommand.hpp"
#include "platform/Shell.hpp"
#include "testing/FakeClock.hpp"
#include "testing/FakeProcessRunner.hpp"
#include "testing/ScopedEnvironment.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using testing::FakeProcessRunner;

const Date kNow = *DateHelpers::parseISO("2026-11-25T10:00:00Z");

GitHubAccount account(GitHubAccount::AuthType type, std::string keychainRef) {
    GitHubAccount a;
    a.id = "acc";
    a.displayName = "Work";
    a.authType = type;
    a.keychainRef = std::move(keychainRef);
    return a;
}

class AuthResolverTest : public ::testing::Test {
protected:
    std::optional<std::string> resolve(const GitHubAccount& a, const ProcessRunner& runner) {
        return AuthResolver::token(a, keychain_, runner, [&](const char* name) {
            auto found = environment_.find(name);
            return found == environment_.end() ? std::nullopt
                                               : std::optional<std::string>(found->second);
        });
    }

    testing::TempDir dir_;
    testing::FakeClock clock_{kNow};
    KeychainStore keychain_{KeychainStore::kService,
                            std::make_unique<FileSecretBackend>(dir_ / "secrets.json", clock_)};
    std::map<std::string, std::string> environment_;
};

TEST_F(AuthResolverTest, TheFirstSourceThatHasATokenWinsInTheSettledOrder) {
    using Type = GitHubAccount::AuthType;
    ASSERT_TRUE(keychain_.set("from-store", "ref"));
    environment_ = {{"GITHUB_TOKEN", ""}, {"GH_TOKEN", "from-gh-env"}};
    std::string ghAnswer = "from-gh\n";
    int ghExit = 0;
    std::string credential = "protocol=https\npassword=\npassword= from-helper \n";
    FakeProcessRunner runner([&](const ProcessRequest& request) {
        if (request.executable == GitCommand::kGitPath) return ShellResult{credential, "", 0};
        return ShellResult{ghAnswer, "", ghExit};
    });

    // The store wins even for a gh account, and nothing runs.
    EXPECT_EQ(resolve(account(Type::ghCLI, "ref"), runner), "from-store");
    EXPECT_TRUE(runner.requests().empty());
    // A token account has no other source, whatever the environment holds.
    EXPECT_EQ(resolve(account(Type::pat, "gone"), runner), std::nullopt);
    // An empty GITHUB_TOKEN is passed over.
    EXPECT_EQ(resolve(account(Type::ghCLI, ""), runner), "from-gh-env");
    environment_.clear();
    EXPECT_EQ(resolve(account(Type::ghCLI, ""), runner), "from-gh");
    // gh printing a token and failing is ignored; the first filled password counts.
    ghExit = 1;
    EXPECT_EQ(resolve(account(Type::ghCLI, ""), runner), "from-helper");
    const ProcessRequest fill = runner.requests().back();
    EXPECT_EQ(fill.arguments, (std::vector<std::string>{"credential", "fill"}));
    EXPECT_EQ(fill.standardInput, "protocol=https\nhost=github.com\n\n");
    EXPECT_EQ(fill.timeout, 15);
    // No repository a variable points at is read: only the person's own helpers answer.
    EXPECT_THAT(fill.unsetEnvironment, ::testing::Contains("GIT_DIR"));
    credential = "password=\n";
    EXPECT_EQ(resolve(account(Type::ghCLI, ""), runner), std::nullopt);

    // An Enterprise Server account asks gh and the helpers for its own host, and a
    // hand-edited address that is not a plain host asks nothing.
    GitHubAccount enterprise = account(Type::ghCLI, "");
    enterprise.apiBaseURL = "https://GHE.example.com:8443/api/v3";
    size_t before = runner.requests().size();
    resolve(enterprise, runner);
    ASSERT_EQ(runner.requests().size(), before + 2);
    EXPECT_EQ(runner.requests()[before].arguments.back(),
              "gh auth token --hostname ghe.example.com:8443");
    EXPECT_EQ(runner.requests()[before + 1].standardInput,
              "protocol=https\nhost=ghe.example.com:8443\n\n");
    enterprise.apiBaseURL = "https://api.github.com";
    EXPECT_EQ(AuthResolver::githubHost(enterprise), "github.com");
    for (const char* hostile : {"https://x;reboot/api", "https://$(id)/", "https://-x/", "x"}) {
        enterprise.apiBaseURL = hostile;
        EXPECT_EQ(AuthResolver::githubHost(enterprise), std::nullopt) << hostile;
    }
    before = runner.requests().size();
    EXPECT_EQ(resolve(enterprise, runner), std::nullopt);
    EXPECT_EQ(runner.requests().size(), before);
}

TEST_F(AuthResolverTest, RealGhAndARealCredentialHelperAreAsked) {
    // A home of the test's own: its login profile puts a gh of ours first on the
    // PATH, and its git configuration names a credential helper of ours.
    std::filesystem::path home = dir_ / "home", bin = dir_ / "bin";
    std::filesystem::create_directories(home);
    std::filesystem::create_directories(bin);
    std::string profile = "export PATH=\"" + bin.string() + ":$PATH\"\n";
    for (const char* name : {".profile", ".bash_profile", ".zprofile"}) {
        testing::writeFile(home / name, profile);
    }
    auto script = [](const std::filesystem::path& path, const std::string& body) {
        testing::writeFile(path, "#!/bin/sh\n" + body);
        ::chmod(path.c_str(), 0755);
    };
    script(bin / "gh", "[ \"$1 $2\" = \"auth token\" ] && echo gho_from_real_gh\n");
    script(dir_ / "helper",
           "[ \"$1\" = get ] && printf 'username=me\\npassword=from_real_helper\\n'\n");
    testing::writeFile(home / ".gitconfig",
                       "[credential]\n\thelper = " + (dir_ / "helper").string() + "\n");
    testing::ScopedEnvironment homeVariable("HOME", home.string());
    Shell shell;

    GitHubAccount viaGh = account(GitHubAccount::AuthType::ghCLI, "");
    EXPECT_EQ(resolve(viaGh, shell), "gho_from_real_gh");
    std::filesystem::remove(bin / "gh");
    EXPECT_EQ(resolve(viaGh, shell), "from_real_helper");
}

// Answers with repositories and branches the test set, and records every call.
class ScriptedClient final : public GitHubClient {
public:
    GitHubUser getAuthenticatedUser() const override {
        calls.push_back("user");
        if (failUser)
            throw QuorvaneError(QuorvaneError::Kind::auth, "GitHub: token invalid/expired");
        return {"me", std::nullopt, std::nullopt};
    }
    std::vector<RemoteRepository> listRepositories(const std::string& accountID,
                                                   bool includePrivate,
                                                   bool includeArchived) const override {
        calls.push_back("repos " + accountID + (includePrivate ? " private" : "") +
                        (includeArchived ? " archived" : ""));
        return repos;
    }
    std::vector<RemoteBranch> listBranches(const std::string& owner,
                                           const std::string& repo) const override {
        calls.push_back("branches " + owner + "/" + repo);
        if (repo == "broken")
            throw QuorvaneError(QuorvaneError::Kind::notFound, "GitHub: not found/inaccessible");
        return {{"main", "abc", std::nullopt}, {"dev", std::nullopt, std::nullopt}};
    }
    std::vector<RemoteRepository> repos;
    bool failUser = false;
    mutable std::vector<std::string> calls;
};

RemoteRepository remote(const std::string& owner, const std::string& name) {
    RemoteRepository r;
    r.accountID = "acc";
    r.owner = owner;
    r.name = name;
    r.id = "acc:" + owner + "/" + name;
    return r;
}

TEST(AccountSyncEngineTest, BranchesAreAskedOnlyForTrackedRepositoriesInTheRemotesOwnCase) {
    ScriptedClient client;
    client.repos = {remote("Me", "App"), remote("me", "broken"), remote("me", "other"),
                    remote("me", "lib")};
    SyncPrefs prefs;
    prefs.syncPrivate = false;
    AccountSyncEngine engine(client);
    GitHubAccount a = account(GitHubAccount::AuthType::pat, "");
    AccountSyncEngine::Result result = engine.sync(
        a, prefs, {{"me", "app"}, {"ME", "BROKEN"}, {"me", "lib"}, {"me", "unseen"}}, kNow);

    EXPECT_THAT(client.calls, ElementsAre("user", "repos acc", "branches Me/App",
                                          "branches me/broken", "branches me/lib"));
    EXPECT_EQ(result.repos.size(), 4u);
    ASSERT_EQ(result.branches.size(), 4u);  // the failed listing costs only its own
    const BranchRecord& first = result.branches[0];
    EXPECT_EQ(first.id, "acc:Me/App#main#R");
    EXPECT_EQ(first.repoID, "acc:Me/App");
    EXPECT_TRUE(first.isRemote && !first.isLocal);
    EXPECT_EQ(first.lastCommitSha, "abc");
    EXPECT_EQ(first.lastSyncedAt, kNow);
    EXPECT_EQ(result.branches[2].repoID, "acc:me/lib");

    client.calls.clear();
    engine.sync(a, prefs, {}, kNow);
    EXPECT_THAT(client.calls, ElementsAre("user", "repos acc"));
    client.failUser = true;
    EXPECT_THROW(engine.sync(a, prefs, {}, kNow), QuorvaneError);
}

}  // namespace
}  // namespace quorvane
