#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "screens/OnboardingViewModel.hpp"
#include "screens/StatusBarViewModel.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;

// Folders as a disk would have them: a count for each folder, nothing elsewhere.
OnboardingViewModel::RepositoryCount disk(std::map<std::string, size_t> folders) {
    return [folders](const std::string& path) -> std::optional<size_t> {
        auto found = folders.find(path);
        if (found == folders.end()) return std::nullopt;
        return found->second;
    };
}

TEST(OnboardingViewModel, OffersTheUsualFoldersThatExistAndIsNeededOnlyWithNothingChosen) {
    const auto count = disk({{"/home/me/work", 0}, {"/home/me/code", 3}, {"/home/me/other", 9}});
    AppConfig empty;
    OnboardingViewModel::View first = OnboardingViewModel::view(empty, "/home/me", count, false);
    EXPECT_TRUE(first.needed);
    // In the usual order, whatever the disk's, and an empty one is offered too.
    EXPECT_THAT(first.suggestions,
                ElementsAre(OnboardingViewModel::Suggestion{"/home/me/code", "~/code", 3},
                            OnboardingViewModel::Suggestion{"/home/me/work", "~/work", 0}));

    AppConfig scanning;
    scanning.scanFolders = {"/home/me/code"};
    EXPECT_FALSE(OnboardingViewModel::view(scanning, "/home/me", count, true).needed)
        << "a scan folder with nothing tracked yet is a first run already done";
    AppConfig tracking;
    tracking.repositories.emplace_back();
    EXPECT_FALSE(OnboardingViewModel::view(tracking, "/home/me", count, false).needed);
}

TEST(OnboardingViewModel, TakesTheChosenFoldersOnlyWhenEveryOneIsAFolder) {
    const auto count = disk({{"/home/me/code", 2}, {"/srv/git", 1}});
    OnboardingViewModel::Choice fine =
        OnboardingViewModel::choose({" ~/code/ ", "/srv/git", "/home/me/code"}, "/home/me", count);
    EXPECT_EQ(fine.problem, "");
    EXPECT_THAT(fine.folders, ElementsAre("/home/me/code", "/srv/git")) << "each once, as typed";

    for (const std::vector<std::string>& typed : std::vector<std::vector<std::string>>{
             {"code"}, {"~/code", "/nowhere"}, {}, {"~/co\xff"}}) {
        OnboardingViewModel::Choice refused = OnboardingViewModel::choose(typed, "/home/me", count);
        EXPECT_NE(refused.problem, "") << typed.size();
        EXPECT_TRUE(refused.folders.empty()) << "nothing is taken when one is refused";
    }
    EXPECT_EQ(OnboardingViewModel::choose({"code"}, "/home/me", count).problem,
              "type code in full, or from ~");
}

RepoTodayLine line(const std::string& name, std::vector<RepoStatus> statuses) {
    RepoTodayLine made;
    made.name = name;
    made.statuses = std::move(statuses);
    return made;
}

TEST(StatusBarViewModel, CountsWhatWaitsAndSaysItInAFewCharactersAndATooltip) {
    TodaySummary today;
    today.lines = {line("app", {RepoStatus::needsCommit, RepoStatus::needsPush}),
                   line("lib", {RepoStatus::behindRemote, RepoStatus::activeToday}),
                   line("a", {RepoStatus::needsCommit}),
                   line("b", {RepoStatus::needsCommit}),
                   line("c", {RepoStatus::needsCommit}),
                   line("quiet", {RepoStatus::synced})};
    StatusBarViewModel::Bar bar = StatusBarViewModel::bar(today, 1);
    EXPECT_EQ(StatusBarViewModel::text(bar), "↑1 ↓1 ±4 ?1");
    EXPECT_EQ(StatusBarViewModel::tooltip(bar),
              "Quorvane\n1 repository to push: app\n1 repository to pull: lib\n"
              "4 repositories with uncommitted work: app, a, b and 1 more\n"
              "1 proposal waiting for your review");
    Json json = StatusBarViewModel::toJson(bar);
    EXPECT_EQ(json["class"], "attention");
    EXPECT_EQ(json["full_text"], json["text"]) << "i3blocks reads full_text";
    EXPECT_EQ(json["uncommitted"], 4);

    TodaySummary calm;
    calm.lines = {line("quiet", {RepoStatus::synced})};
    StatusBarViewModel::Bar none = StatusBarViewModel::bar(calm, 0);
    EXPECT_EQ(StatusBarViewModel::text(none), "✓") << "zeros are left out, all of them";
    EXPECT_EQ(StatusBarViewModel::toJson(none)["class"], "clear");
    none.paused = true;
    EXPECT_EQ(StatusBarViewModel::text(none), "⏸ ✓");
    EXPECT_EQ(StatusBarViewModel::tooltip(none),
              "Quorvane (watching paused): nothing waits for you");
    EXPECT_EQ(StatusBarViewModel::toJson(none)["paused"], true);
    EXPECT_EQ(json["paused"], false);
    // A name is shown on one line, whatever it holds.
    TodaySummary hostile;
    hostile.lines = {line("x\ny", {RepoStatus::needsPush})};
    EXPECT_EQ(StatusBarViewModel::tooltip(StatusBarViewModel::bar(hostile, 0)).find("x\ny"),
              std::string::npos);
}

}  // namespace
}  // namespace quorvane
