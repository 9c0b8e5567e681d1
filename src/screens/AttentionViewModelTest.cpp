#include "screens/AttentionViewModel.hpp"

#include <gtest/gtest.h>

#include "git/Aggregator.hpp"

namespace quorvane {
namespace {

using Kind = AttentionViewModel::Kind;

const Date kNow = *DateHelpers::parseISO("2026-11-26T15:00:00Z");

RepoConfig repo(const std::string& name, bool tracking = true) {
    RepoConfig config;
    config.id = "/code/" + name;
    config.name = name;
    config.localPath = config.id;
    config.trackingEnabled = tracking;
    return config;
}

RepoSnapshot snapshot(const std::string& name, int files, int ahead, int behind,
                      bool upstream = true, int daysSinceCommit = 0) {
    RepoSnapshot s;
    s.repoID = "/code/" + name;
    s.branch = "main";
    s.remoteURL = "git@github.com:me/" + name + ".git";
    s.hasUpstream = upstream;
    s.files.modified = files;
    s.ahead = ahead;
    s.behind = behind;
    s.lastCommitAt = kNow - std::chrono::hours(24 * daysSinceCommit);
    return s;
}

TEST(AttentionViewModelTest, TheMostUrgentComeFirstWithTheCommandThatSettlesEach) {
    AppConfig config;
    config.repositories = {repo("fresh"), repo("old"),           repo("apart"),
                           repo("new"),   repo("paused", false), repo("linked")};
    std::vector<RepoSnapshot> snapshots = {
        snapshot("fresh", 2, 0, 0), snapshot("old", 1, 0, 0, true, 10),
        // Ahead and behind at once: pulling with rebase, not pushing, settles it.
        snapshot("apart", 0, 2, 1), snapshot("new", 0, 1, 0, false), snapshot("paused", 5, 5, 5),
        snapshot("linked", 0, 0, 0)};
    SyncState missing;
    missing.id = "/code/linked";
    missing.status = SyncState::Status::accountMissing;
    GitHubAccount fine, refused, unchecked;
    fine.status = GitHubAccount::Status::connected;
    refused.id = "acc-1";
    refused.displayName = "work";
    refused.status = GitHubAccount::Status::tokenInvalid;
    unchecked.id = "acc-2";
    unchecked.username = "me";
    unchecked.status = GitHubAccount::Status::unchecked;
    std::vector<PendingProposal> proposals(3);
    proposals[2].status = PendingProposal::Status::applied;

    std::vector<SyncState> states = {missing};
    std::vector<GitHubAccount> accounts = {fine, refused, unchecked};
    std::vector<AttentionViewModel::Item> items =
        AttentionViewModel::items({config, snapshots, states, accounts, proposals, kNow});

    std::vector<std::pair<Kind, std::string>> seen;
    for (const auto& item : items) seen.emplace_back(item.kind, item.name);
    EXPECT_EQ(seen, (std::vector<std::pair<Kind, std::string>>{{Kind::staleWork, "old"},
                                                               {Kind::uncommitted, "fresh"},
                                                               {Kind::unpushed, "apart"},
                                                               {Kind::unpushed, "new"},
                                                               {Kind::behind, "apart"},
                                                               {Kind::account, "work"},
                                                               {Kind::account, "me"},
                                                               {Kind::accountMissing, "linked"},
                                                               {Kind::proposals, ""}}));
    EXPECT_EQ(items[0].suggestion->command, "git status");
    EXPECT_EQ(items[0].suggestion->cwd, "/code/old");
    EXPECT_EQ(items[2].suggestion->command, "git pull --rebase origin main");
    EXPECT_EQ(items[3].suggestion->command, "git push -u origin main");
    EXPECT_EQ(items[5].suggestion->command, "quorvane accounts check acc-1");
    EXPECT_EQ(items[8].count, 2);
    EXPECT_EQ(items[8].link, "/review");

    // The counters agree with today's, which count the same snapshots.
    TodaySummary today =
        Aggregator::summary(kNow - std::chrono::hours(15), kNow, "", config.repositories, snapshots,
                            {}, {}, kNow, Identity::everyone());
    Json json = AttentionViewModel::toJson(items);
    EXPECT_EQ(json["needsCommitCount"], today.needsCommitCount);
    EXPECT_EQ(json["needsPushCount"], today.needsPushCount);
    EXPECT_EQ(json["behindCount"], today.behindCount);
    EXPECT_EQ(json["accountProblemCount"], 3);
    EXPECT_EQ(json["pendingProposalCount"], 2);

    // A detached HEAD is sent back to its branch rather than pushed.
    snapshots = {snapshot("fresh", 0, 1, 0)};
    snapshots[0].branch.clear();
    snapshots[0].isDetachedHead = true;
    std::vector<SyncState> none;
    std::vector<GitHubAccount> noAccounts;
    std::vector<PendingProposal> noProposals;
    items = AttentionViewModel::items({config, snapshots, none, noAccounts, noProposals, kNow});
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].suggestion->command, "git switch main");
    EXPECT_TRUE(
        AttentionViewModel::items({config, {}, none, noAccounts, noProposals, kNow}).empty());
}

}  // namespace
}  // namespace quorvane
