#include "agent/GitProposalReview.hpp"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/SafeGitRunner.hpp"
#include "platform/Shell.hpp"
#include "testing/RepoConfigs.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

PendingProposal gitProposal(const std::string& tool, const Json& args) {
    PendingProposal proposal;
    proposal.kind = PendingProposal::Kind::safeGit;
    proposal.intendedTool = tool;
    proposal.payloadJSON = args.dump();
    return proposal;
}

std::vector<std::string> commandOf(const SafeGitAction& action, const std::string& path) {
    std::vector<std::string> command = {"/usr/bin/git"};
    for (const std::string& argument : SafeGitRunner::arguments(action, path)) {
        command.push_back(argument);
    }
    return command;
}

TEST(GitProposalReviewTest, NamesTheCommandItsRemoteAndTheRepositorysOwnPrograms) {
    testing::TempDir dir;
    testing::TestRepo repo(dir / "api");
    const std::string path = repo.path().string();
    repo.commitFile("a.txt", "a", "first");
    for (auto [key, value] : std::vector<std::pair<std::string, std::string>>{
             {"remote.origin.url", "https://tok3n@github.com/me/api.git"},
             {"url.ssh://git@mirror.example/.pushInsteadOf", "https://tok3n@github.com/"},
             {"core.sshCommand", "/opt/evil/ssh -i key"},
             {"remote.mirror.url", "ext::/opt/evil/ext"},
             {"remote.upstream.url", "/srv/upstream.git"},
             {"branch.main.remote", "upstream"},
         }) {
        repo.git({"config", key, value});
    }
    // git runs only executable hooks; its own samples are not.
    testing::writeFile(repo.path() / ".git/hooks/pre-push", "#!/bin/sh\n");
    fs::permissions(repo.path() / ".git/hooks/pre-push", fs::perms::owner_all);

    AppConfig config;
    config.repositories = {testing::repoAt(path)};
    Shell shell;
    std::optional<GitProposalReview> push = GitProposalReview::of(
        gitProposal("git_push", {{"repoId", path}, {"branch", "main"}}), config, shell);
    ASSERT_TRUE(push.has_value());
    EXPECT_EQ(push->command, commandOf(SafeGitAction::push("main"), path));
    EXPECT_EQ(push->remote.name, "origin");
    EXPECT_THAT(push->remote.urls, ElementsAre("ssh://git@mirror.example/me/api.git"));
    // In file order, where `git config` put them; credentials taken out, and neither
    // the remote shown above nor the other remotes' addresses repeated.
    EXPECT_THAT(push->settings,
                ElementsAre("core.sshcommand=/opt/evil/ssh -i key",
                            "url.ssh://git@mirror.example/.pushinsteadof=https://github.com/"));
    EXPECT_THAT(push->hooks, ElementsAre("pre-push"));

    // A fetch goes where the current branch's remote points, with no push rewrite.
    std::optional<GitProposalReview> fetch =
        GitProposalReview::of(gitProposal("git_fetch", {{"repoId", path}}), config, shell);
    ASSERT_TRUE(fetch.has_value());
    EXPECT_EQ(fetch->command, commandOf(SafeGitAction::fetch(), path));
    EXPECT_EQ(fetch->remote.name, "upstream");
    EXPECT_THAT(fetch->remote.urls, ElementsAre("/srv/upstream.git"));
    repo.git({"config", "--unset", "branch.main.remote"});
    fetch = GitProposalReview::of(gitProposal("git_fetch", {{"repoId", path}}), config, shell);
    EXPECT_THAT(fetch->remote.urls, ElementsAre("https://github.com/me/api.git"));
    for (const std::string& line : fetch->settings) EXPECT_THAT(line, Not(HasSubstr("tok3n")));

    // Nothing to review for another kind of tool or a repository not tracked.
    EXPECT_FALSE(GitProposalReview::of(gitProposal("set_daily_review_time", {{"time", "08:00"}}),
                                       config, shell));
    EXPECT_FALSE(
        GitProposalReview::of(gitProposal("git_fetch", {{"repoId", "/elsewhere"}}), config, shell));
}

}  // namespace
}  // namespace quorvane
