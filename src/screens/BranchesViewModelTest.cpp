#include "screens/BranchesViewModel.hpp"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

const Date kNow = *DateHelpers::parseISO("2026-11-26T15:00:00Z");

BranchRecord branch(const std::string& name, bool local, int daysOld) {
    BranchRecord b;
    b.repoID = "/code/app";
    b.name = name;
    b.isLocal = local;
    b.isRemote = !local;
    b.lastCommitDate = kNow - std::chrono::hours(24 * daysOld);
    return b;
}

TEST(BranchesViewModelTest, EachBranchGetsTheOneSafeCommandThatTidiesIt) {
    RepoConfig repo;
    repo.id = repo.localPath = "/code/app";
    repo.defaultBranch = "main";
    BranchRecord main = branch("main", true, 90), merged = branch("feature/login", true, 1),
                 spike = branch("old-spike", true, 40), onlyThere = branch("review", false, 2),
                 fresh = branch("draft", true, 0), behind = branch("ui", true, 3),
                 used = branch("work", true, 45), hostile = branch("-f", true, 0);
    main.upstreamName = "origin/main";
    merged.merged = true;
    fresh.unpushedCount = 2;
    behind.upstreamName = "origin/ui";
    behind.behindCount = 3;
    used.merged = true;  // but checked out: git will not delete it
    hostile.merged = true;
    std::vector<BranchesViewModel::Row> rows = BranchesViewModel::rows(
        repo, {onlyThere, used, main, spike, merged, fresh, behind, hostile}, "work", true, kNow);

    std::vector<std::string> order, commands, stale;
    for (const auto& row : rows) {
        order.push_back(row.record.name);
        commands.push_back(row.suggestion ? row.suggestion->command : "");
        if (row.stale) stale.push_back(row.record.name);
        if (row.suggestion) {
            EXPECT_EQ(row.suggestion->cwd, "/code/app");
        }
    }
    // Local rows first, each part by name; then what only GitHub has.
    EXPECT_EQ(order, (std::vector<std::string>{"-f", "draft", "feature/login", "main", "old-spike",
                                               "ui", "work", "review"}));
    EXPECT_EQ(commands,
              (std::vector<std::string>{"git branch -d refs/heads/-f", "git push -u origin draft",
                                        "git branch -d feature/login", "", "",
                                        "git fetch origin ui:ui", "", "git switch review"}));
    // Old, but the default branch and the one in use are never stale.
    EXPECT_EQ(stale, std::vector<std::string>{"old-spike"});

    // The branch in use is pulled as the alignment view pulls it.
    behind.name = "work";
    behind.upstreamName = "upstream/trunk";
    EXPECT_EQ(BranchesViewModel::rows(repo, {behind}, "work", true, kNow)[0].suggestion->command,
              "git pull --rebase upstream trunk");

    // With no remote there is nowhere to push or fetch: only deleting stays.
    std::vector<std::string> alone;
    for (const auto& row :
         BranchesViewModel::rows(repo, {fresh, behind, merged}, "work", false, kNow)) {
        alone.push_back(row.suggestion ? row.suggestion->command : "");
    }
    EXPECT_EQ(alone, (std::vector<std::string>{"", "git branch -d feature/login", ""}));

    Json json = BranchesViewModel::toJson(rows);
    EXPECT_EQ(json[2]["merged"], true);
    EXPECT_EQ(json[4]["stale"], true);
    EXPECT_FALSE(json[3].contains("suggestion"));
}

}  // namespace
}  // namespace quorvane
