#include "app/AlignmentQueries.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/FakeClock.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using Status = SyncState::Status;
using Kind = RepositoryMapping::Kind;

const Date kNow = *DateHelpers::parseISO("2026-11-25T10:00:00Z");

class AlignmentQueriesTest : public ::testing::Test {
protected:
    void SetUp() override { store_.load(); }

    // A tracked repository with a snapshot standing as given.
    void track(const std::string& name, std::optional<std::string> remote, bool upstream, int ahead,
               int behind, std::optional<Date> lastCommit = std::nullopt) {
        RepoConfig repo;
        repo.id = repo.localPath = "/code/" + name;
        repo.name = name;
        config_.repositories.push_back(repo);
        RepoSnapshot snapshot;
        snapshot.repoID = repo.id;
        snapshot.branch = "main";
        snapshot.remoteURL = std::move(remote);
        snapshot.hasUpstream = upstream;
        snapshot.ahead = ahead;
        snapshot.behind = behind;
        snapshot.lastCommitAt = lastCommit;
        store_.replaceSnapshot(snapshot);
    }

    testing::TempDir dir_;
    testing::FakeClock clock_{kNow};
    Store store_{dir_.path(), clock_};
    AppConfig config_;
};

std::map<Status, std::vector<std::string>> namesByStatus(const AlignmentGroups& groups) {
    std::map<Status, std::vector<std::string>> out;
    for (const auto& [status, lines] : groups) {
        for (const V2RepoLine& line : lines) out[status].push_back(line.name);
    }
    return out;
}

TEST_F(AlignmentQueriesTest, WithoutASyncTheStatusesComeFromTheScanInTheirOrder) {
    const std::string url = "git@github.com:me/x.git";
    track("none", std::nullopt, true, 3, 0);  // no remote wins over the counts
    track("fresh", url, false, 5, 0);         // no upstream wins over the counts
    track("both", url, true, 1, 1);
    track("ahead", url, true, 2, 0);
    track("behind", url, true, 0, 4);
    track("even", url, true, 0, 0);
    track("gitlab", "https://gitlab.com/me/x.git", true, 0, 0);
    EXPECT_TRUE(Queries::gitAlignmentGroups(store_, config_).empty());
    AlignmentGroups derived = Queries::gitAlignmentGroupsDerived(store_, config_);
    EXPECT_EQ(namesByStatus(derived),
              (std::map<Status, std::vector<std::string>>{{Status::localOnly, {"none"}},
                                                          {Status::noUpstream, {"fresh"}},
                                                          {Status::diverged, {"both"}},
                                                          {Status::needsPush, {"ahead"}},
                                                          {Status::needsPull, {"behind"}},
                                                          {Status::synced, {"even", "gitlab"}}}));
    EXPECT_EQ(derived[Status::needsPull][0].behind, 4);
    EXPECT_FALSE(derived[Status::synced][0].otherRemote);
    EXPECT_TRUE(derived[Status::synced][1].otherRemote);
    for (const auto& [status, lines] : derived) {
        for (const V2RepoLine& line : lines) EXPECT_FALSE(line.suggestedCommand) << line.name;
    }
    // A stored state brings the real groups, with their commands; the repositories
    // tracked since stand as their scan says until the next sync, with none.
    SyncState state;
    state.id = "/code/ahead";
    state.repoID = "/code/ahead";
    state.status = Status::needsPush;
    state.localAhead = 2;
    store_.replaceSyncStates({state});
    AlignmentGroups stored = Queries::gitAlignmentGroups(store_, config_);
    EXPECT_EQ(namesByStatus(stored), namesByStatus(derived));
    EXPECT_EQ(stored[Status::needsPush][0].suggestedCommand, "git push origin main");
    EXPECT_FALSE(stored[Status::needsPull][0].suggestedCommand);
}

TEST_F(AlignmentQueriesTest, ActiveAndStaleSplitAtThirtyDaysOfLocalOrGitHubActivity) {
    using std::chrono::hours;
    const Date edge = kNow - hours(24 * Queries::kActiveDays);
    track("recent", "u", true, 0, 0, edge);  // exactly 30 days: still active
    track("idle", "u", true, 0, 0, edge - std::chrono::seconds(1));
    std::vector<RemoteRepository> remotes;
    auto remote = [&](const std::string& name, std::optional<Date> pushed, bool archived) {
        RemoteRepository r;
        r.id = "acc:me/" + name;
        r.accountID = "acc";
        r.name = name;
        r.pushedAt = pushed;
        r.isArchived = archived;
        remotes.push_back(r);
    };
    remote("pushed", kNow - hours(24), false);
    remote("old", kNow - hours(24 * 400), false);
    remote("frozen", kNow - hours(24), true);
    store_.replaceRemoteRepos("acc", remotes);
    std::vector<RepositoryMapping> mappings;
    for (const char* local : {"recent", "idle"}) {
        RepositoryMapping m;
        m.id = *(m.localRepoID = "/code/" + std::string(local));
        m.kind = Kind::localOnly;
        mappings.push_back(m);
    }
    for (const RemoteRepository& r : remotes) {
        RepositoryMapping m;
        m.id = *(m.remoteRepoID = r.id);
        m.accountID = "acc";
        m.kind = Kind::remoteOnly;
        mappings.push_back(m);
    }
    store_.replaceMappings(mappings);
    auto names = [&](InventoryFilter filter) {
        std::vector<std::string> out;
        for (const InventoryRow& row : Queries::inventory(store_, config_, filter, kNow)) {
            out.push_back(row.name);
        }
        return out;
    };
    EXPECT_THAT(names(InventoryFilter::active), ElementsAre("pushed", "recent"));
    EXPECT_THAT(names(InventoryFilter::stale), ElementsAre("idle", "old"));
    EXPECT_THAT(names(InventoryFilter::archived), ElementsAre("frozen"));
    EXPECT_EQ(names(InventoryFilter::all).size(), 5u);

    // The day's counts: kinds of mapping and today's commits by where they are.
    int count = 0;
    for (bool localOnly : {true, true, false}) {
        CommitRecord commit;
        commit.repoID = "/code/recent";
        commit.sha = "sha" + std::to_string(++count);
        commit.committedAt = kNow - hours(1);
        commit.isLocalOnly = localOnly;
        store_.upsertCommits({commit});
    }
    AlignmentSummary summary = Queries::alignment(store_, config_, kNow);
    EXPECT_EQ(summary.localOnlyCount, 2);
    EXPECT_EQ(summary.remoteOnlyCount, 3);
    EXPECT_EQ(summary.localOnlyCommitsToday, 2);
    EXPECT_EQ(summary.pushedCommitsToday, 1);
}

}  // namespace
}  // namespace quorvane
