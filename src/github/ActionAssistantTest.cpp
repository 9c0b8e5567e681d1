#include <gtest/gtest.h>

#include "github/ActionAssistant.hpp"

namespace quorvane {
namespace {

using Status = SyncState::Status;

// "title | command | step; step... | cwd", or "none".
std::string suggest(Status status, std::string_view branch = "feat",
                    std::string_view defaultBranch = "main") {
    SyncState state;
    state.status = status;
    auto suggestion = ActionAssistant::suggestion(state, branch, defaultBranch, "/code/app");
    if (!suggestion) return "none";
    std::string text = suggestion->title + " | " + suggestion->command + " |";
    for (const auto& step : suggestion->safeSteps) text += " " + step + ";";
    return text + " " + suggestion->cwd;
}

TEST(ActionAssistant, SuggestsOneSafeCommandPerFixableStatus) {
    EXPECT_EQ(suggest(Status::noUpstream),
              "Publish branch | git push -u origin feat | git push -u origin feat; /code/app");
    EXPECT_EQ(suggest(Status::needsPush),
              "Push local commits | git push origin feat | git push origin feat; /code/app");
    EXPECT_EQ(suggest(Status::needsPull),
              "Pull remote changes | git pull --rebase origin feat | git status; git pull "
              "--rebase origin feat; /code/app");
    EXPECT_EQ(suggest(Status::diverged),
              "Reconcile diverged branch | git pull --rebase origin feat | git fetch origin; git "
              "status; git pull --rebase origin feat; /code/app");
    EXPECT_EQ(suggest(Status::remoteOnly),
              "Clone repository | git clone <remote-url>  # default branch: main | git clone "
              "<remote-url>; /code/app");
    for (Status quiet : {Status::synced, Status::localOnly, Status::accountMissing,
                         Status::branchMismatch, Status::remoteInaccessible, Status::unknown}) {
        EXPECT_EQ(suggest(quiet), "none") << enumName(quiet);
    }

    // The default branch stands in for an unknown one; with neither, the command ends
    // in the blank after "origin", and a clone carries no comment.
    EXPECT_EQ(suggest(Status::noUpstream, "", "trunk"),
              "Publish branch | git push -u origin trunk | git push -u origin trunk; /code/app");
    EXPECT_EQ(suggest(Status::needsPush, "", ""),
              "Push local commits | git push origin  | git push origin ; /code/app");
    EXPECT_EQ(suggest(Status::remoteOnly, "feat", ""),
              "Clone repository | git clone <remote-url> | git clone <remote-url>; /code/app");

    // A name git would take for an option or a forced push is written in full, and one
    // a shell would act on is quoted.
    EXPECT_EQ(suggest(Status::needsPush, "--output=x"),
              "Push local commits | git push origin refs/heads/--output=x | git push origin "
              "refs/heads/--output=x; /code/app");
    EXPECT_EQ(suggest(Status::needsPull, "+main"),
              "Pull remote changes | git pull --rebase origin refs/heads/+main | git status; git "
              "pull --rebase origin refs/heads/+main; /code/app");
    EXPECT_EQ(suggest(Status::noUpstream, "a;rm$(x)"),
              "Publish branch | git push -u origin 'a;rm$(x)' | git push -u origin 'a;rm$(x)'; "
              "/code/app");

    // A detached HEAD goes back to the default branch, "main" when none is known,
    // and a name the shell or git would misread is written safely.
    auto back = [](std::string_view defaultBranch) {
        ActionSuggestion s = ActionAssistant::switchToBranch(defaultBranch, "/code/app");
        return s.title + " | " + s.command + " | " + s.safeSteps.front() + "; " + s.cwd;
    };
    EXPECT_EQ(back("trunk"), "Switch to a branch | git switch trunk | git status; /code/app");
    EXPECT_EQ(back(""), "Switch to a branch | git switch main | git status; /code/app");
    EXPECT_EQ(back("a b"), "Switch to a branch | git switch 'a b' | git status; /code/app");
}

}  // namespace
}  // namespace quorvane
