#include "screens/AlignmentViewModels.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/EnumNames.hpp"
#include "screens/AccountsViewModel.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using Status = SyncState::Status;
using Kind = RepositoryMapping::Kind;

V2RepoLine line(const std::string& repoID, Status status) {
    V2RepoLine l;
    l.repoID = repoID;
    l.name = repoID;
    l.syncStatus = status;
    return l;
}

// A source whose answers the test sets, counting the suggestions asked for.
struct ScriptedSource {
    AlignmentGroups groups, derived;
    int suggestionsAsked = 0;
    GitAlignmentViewModel::Source source() {
        return {[this] { return groups; }, [this] { return derived; },
                [this](const std::string& repoID) {
                    ++suggestionsAsked;
                    return std::optional<ActionSuggestion>(
                        ActionSuggestion{"t", "git push origin " + repoID, {}, "/"});
                }};
    }
};

std::vector<Status> statuses(const GitAlignmentViewModel::View& view) {
    std::vector<Status> out;
    for (const auto& section : view.sections) out.push_back(section.status);
    return out;
}

TEST(GitAlignmentViewModelTest, SectionsFollowTheFixedOrderAndDerivedOnesComeWithoutCommands) {
    ScriptedSource source;
    // No sync yet: the derived groups are shown, and no suggestion is asked for.
    // A remote elsewhere than GitHub goes apart, after the local-only ones, whatever
    // its counts say; the counts at the head are those of the rows.
    V2RepoLine elsewhere = line("e", Status::needsPush);
    elsewhere.otherRemote = true;
    source.derived = {{Status::localOnly, {line("a", Status::localOnly)}},
                      {Status::needsPush, {elsewhere, line("b", Status::needsPush)}},
                      {Status::synced, {line("s", Status::synced)}}};
    GitAlignmentViewModel::View offline = GitAlignmentViewModel::load(source.source());
    EXPECT_TRUE(offline.derivedOffline && offline.didLoad);
    EXPECT_THAT(statuses(offline),
                ElementsAre(Status::needsPush, Status::localOnly, Status::localOnly));
    EXPECT_EQ(offline.sections[1].entries[0].line.repoID, "a");
    EXPECT_EQ(GitAlignmentViewModel::titleOf(offline.sections[2]), "Other Remote");
    EXPECT_EQ(offline.sections[2].entries[0].line.repoID, "e");
    EXPECT_FALSE(offline.sections[0].entries[0].suggestion.has_value());
    EXPECT_EQ(source.suggestionsAsked, 0);
    GitAlignmentViewModel::Overview counts;
    counts.tracked = 4;
    counts.withRemote = 2;
    counts.synced = counts.needsPush = counts.localOnly = counts.otherRemote = 1;
    EXPECT_EQ(offline.overview, counts);

    // Stored groups holding only synced and unknown repositories: aligned, no section.
    source.groups = {{Status::synced, {line("c", Status::synced)}},
                     {Status::unknown, {line("d", Status::unknown)}},
                     {Status::needsPull, {}}};
    GitAlignmentViewModel::View aligned = GitAlignmentViewModel::load(source.source());
    EXPECT_FALSE(aligned.derivedOffline);
    EXPECT_TRUE(aligned.sections.empty());

    // Every shown status, given in reverse: the fixed order, two account sections.
    source.groups.clear();
    const std::vector<Status>& order = GitAlignmentViewModel::sectionOrder();
    for (auto it = order.rbegin(); it != order.rend(); ++it) {
        source.groups[*it] = {line(std::string(enumName(*it)), *it)};
    }
    GitAlignmentViewModel::View full = GitAlignmentViewModel::load(source.source());
    EXPECT_EQ(statuses(full), order);
    EXPECT_EQ(source.suggestionsAsked, 9);
    EXPECT_EQ(full.sections[0].entries[0].suggestion->command, "git push origin needsPush");
    std::vector<std::string_view> titles;
    for (const auto& section : full.sections) {
        titles.push_back(GitAlignmentViewModel::sectionTitle(section.status));
    }
    EXPECT_THAT(titles,
                ElementsAre("Needs Push", "Needs Pull", "Diverged", "No Upstream", "Remote Only",
                            "Local Only", "Account Issues", "Branch Mismatch", "Account Issues"));
    Json json = GitAlignmentViewModel::toJson(full);
    EXPECT_EQ(json["sections"][6]["status"], "accountMissing");
    EXPECT_EQ(json["sections"][6]["title"], "Account Issues");
    EXPECT_EQ(json["overview"]["accountIssues"], 2);
    EXPECT_EQ(json["overview"]["remoteOnly"], 1);
    EXPECT_EQ(json["sections"][0]["entries"][0]["suggestion"]["command"],
              "git push origin needsPush");
}

InventoryRow row(const std::string& id, Kind kind, std::string account = "",
                 std::optional<std::string> path = std::nullopt, bool archived = false) {
    InventoryRow r;
    r.id = id;
    r.name = "Repo-" + id;
    r.account = std::move(account);
    r.kind = kind;
    r.localPath = std::move(path);
    r.isArchived = archived;
    return r;
}

TEST(InventoryAndBacklogViewModelTest, SearchNarrowsAndEachRowLandsInExactlyOneGroup) {
    std::vector<InventoryRow> rows = {
        row("m", Kind::mapped, "work", "/code/m"),
        row("push", Kind::mapped, "work", "/code/push"),
        row("old", Kind::mapped, "work", "/code/old", true),  // archived, and ahead
        row("cloud", Kind::remoteOnly, "", std::nullopt, true),
        row("here", Kind::localOnly, "", "/code/here"),
        row("other", Kind::accountMismatch, "side"),
    };
    using GitHubInventoryViewModel::filtered;
    EXPECT_EQ(filtered(rows, "  \t").size(), rows.size());
    EXPECT_EQ(filtered(rows, " SIDE ").size(), 1u);
    EXPECT_EQ(filtered(rows, "repo-PU").size(), 1u);
    EXPECT_TRUE(filtered(rows, "nothing").empty());

    AlignmentGroups groups = {
        {Status::needsPush, {line("push", Status::needsPush), line("old", Status::needsPush)}},
        {Status::synced, {line("m", Status::synced)}}};
    RepoBacklogViewModel::View view = RepoBacklogViewModel::load(rows, groups);
    auto ids = [](const std::vector<RepoBacklogViewModel::Item>& items) {
        std::vector<std::string> out;
        for (const auto& item : items) out.push_back(item.id);
        return out;
    };
    EXPECT_THAT(ids(view.active), ElementsAre("m"));
    EXPECT_THAT(ids(view.needsCleanup), ElementsAre("push", "other"));  // other by the last rule
    EXPECT_THAT(ids(view.stale), ElementsAre("old"));
    EXPECT_THAT(ids(view.remoteOnly), ElementsAre("cloud"));  // archived, but kind comes first
    EXPECT_THAT(ids(view.localOnly), ElementsAre("here"));
    EXPECT_EQ(view.remoteOnly[0].detail, "not cloned");
    EXPECT_EQ(view.needsCleanup[1].detail, "side");
    EXPECT_EQ(view.active[0].detail, "/code/m");
}

TEST(InventoryStateTest, AFilterReloadsTheSearchNarrowsWhatWasLoaded) {
    GitHubInventoryViewModel::State state;
    std::vector<InventoryFilter> asked;
    std::vector<InventoryRow> answer = {row("a", Kind::mapped, "Work"),
                                        row("b", Kind::remoteOnly, "side")};
    auto source = [&](InventoryFilter filter) {
        asked.push_back(filter);
        return answer;
    };
    EXPECT_FALSE(state.toJson()["didLoad"]);
    state.setFilter(InventoryFilter::privateOnly);
    EXPECT_TRUE(state.reloadNeeded());
    EXPECT_EQ(state.load(source), InventoryFilter::privateOnly);
    EXPECT_FALSE(state.reloadNeeded());

    // A search of blanks keeps every row; upper case finds an account in lower
    // case; neither asks the source again.
    state.setSearch(" \t ");
    EXPECT_EQ(state.filtered().size(), 2u);
    state.setSearch("SIDE");
    ASSERT_EQ(state.filtered().size(), 1u);
    EXPECT_EQ(state.filtered()[0].id, "b");
    EXPECT_EQ(asked.size(), 1u);
    Json json = state.toJson();
    EXPECT_EQ(json["rows"].size(), 2u);
    EXPECT_EQ(json["filtered"], Json::array({toJson(answer[1])}));
    EXPECT_EQ(json["filter"], "privateOnly");
    EXPECT_EQ(json["filters"].size(), 8u);
    EXPECT_EQ(json["filters"][4], (Json{{"filter", "privateOnly"}, {"label", "Private"}}));

    // A filter chosen while a load reads: that load keeps the filter it began with,
    // and its end clears reloadNeeded all the same.
    auto changing = [&](InventoryFilter filter) {
        EXPECT_TRUE(state.toJson()["isLoading"]);
        state.setFilter(InventoryFilter::archived);
        return source(filter);
    };
    EXPECT_EQ(state.load(changing), InventoryFilter::privateOnly);
    EXPECT_EQ(state.filter(), InventoryFilter::archived);
    EXPECT_FALSE(state.reloadNeeded());
    EXPECT_FALSE(state.toJson()["isLoading"]);
}

TEST(AccountsViewModelTest, EachAccountCountsItsRepositoriesAndTheLinkedOnes) {
    GitHubAccount work, side;
    work.id = "w";
    side.id = "s";
    auto remote = [](const std::string& account, const std::string& name) {
        RemoteRepository r;
        r.accountID = account;
        r.id = account + ":me/" + name;
        return r;
    };
    RepositoryMapping linked, unlinked;
    linked.kind = Kind::mapped;
    linked.remoteRepoID = "w:me/a";
    unlinked.kind = Kind::accountMismatch;
    unlinked.remoteRepoID = "s:me/c";
    std::vector<AccountsViewModel::Row> rows = AccountsViewModel::rows(
        {work, side}, {remote("w", "a"), remote("w", "b"), remote("s", "c")}, {linked, unlinked});
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].reposCount, 2);
    EXPECT_EQ(rows[0].mappedCount, 1);
    EXPECT_EQ(rows[1].reposCount, 1);
    EXPECT_EQ(rows[1].mappedCount, 0);
    EXPECT_EQ(AccountsViewModel::statusLabel(GitHubAccount::Status::tokenInvalid), "Token Invalid");

    // An action is busy while its operation runs, refuses a second one meanwhile,
    // reads the rows again at its end, and is not busy after, even when it throws.
    AccountsViewModel::State state;
    AccountsViewModel::Reading reading{{work}, {remote("w", "a")}, {linked}};
    auto read = [&] { return reading; };
    bool nested = true;
    EXPECT_TRUE(state.act(
        [&] {
            EXPECT_TRUE(state.isBusy());
            nested = state.act([] {}, read);
            reading.accounts.push_back(side);
        },
        read));
    EXPECT_FALSE(nested);
    Json json = state.toJson();
    EXPECT_EQ(json["isBusy"], false);
    EXPECT_EQ(json["didLoad"], true);
    ASSERT_EQ(json["rows"].size(), 2u);
    EXPECT_EQ(json["rows"][0]["mappedCount"], 1);
    EXPECT_THROW(state.act([] { throw std::runtime_error("gone"); }, read), std::runtime_error);
    EXPECT_FALSE(state.isBusy());

    std::string address = "https://github.example.com/api/v3//";
    EXPECT_EQ(AccountsViewModel::apiAddressProblem(address), "");
    EXPECT_EQ(address, "https://github.example.com/api/v3");
    address = "http://github.example.com/api/v3";
    EXPECT_THAT(AccountsViewModel::apiAddressProblem(address), ::testing::HasSubstr("plain http"));
    address = "ftp://x";
    EXPECT_THAT(AccountsViewModel::apiAddressProblem(address), ::testing::HasSubstr("not an http"));
}

}  // namespace
}  // namespace quorvane
