#include "app/ScanPlanner.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using namespace std::chrono_literals;

TEST(ScanPlannerTest, ReadsOnlyWhatTheWatcherAndTheGitStateCannotVouchFor) {
    ScanPlanner planner;
    Date nine = *DateHelpers::parseISO("2026-11-21T09:00:00Z");
    std::vector<ScanPlanner::Repo> repos = {{"a", "/r/a", "fa", false},
                                            {"b", "/r/b", "fb", false},
                                            {"c", "/r/c", std::nullopt, false},
                                            {"d", "/r/d", "fd", false}};
    ScanPlanner::Watch watch{true, {"/r/a", "/r/b", "/r/c"}, {}, {}, false};

    // The first scan reads everything, known or not.
    EXPECT_THAT(planner.plan(nine, false, watch, repos), ElementsAre(true, true, true, true));
    for (const auto& repo : repos) planner.noteRead(repo);

    // Quiet and unchanged: only a repository without a fingerprint, and one the
    // watcher does not cover, are read.
    EXPECT_THAT(planner.plan(nine + 1min, false, watch, repos),
                ElementsAre(false, false, true, true));

    // A change in the work tree, a folder left unwatched, a changed git state, a
    // setting that changes what status shows: each reads its own repository.
    ScanPlanner::Watch busy = watch;
    busy.changed = {"/r/a"};
    EXPECT_THAT(planner.plan(nine + 2min, false, busy, repos),
                ElementsAre(true, false, true, true));
    busy.changed.clear();
    busy.unvouched = {"/r/b"};
    EXPECT_THAT(planner.plan(nine + 3min, false, busy, repos),
                ElementsAre(false, true, true, true));
    std::vector<ScanPlanner::Repo> moved = repos;
    moved[0].fingerprint = "fa2";
    moved[1].ignoreUntracked = true;
    EXPECT_THAT(planner.plan(nine + 4min, false, watch, moved),
                ElementsAre(true, true, true, true));
    // Until that reading is kept, the old fingerprint stands; forgetting reads again.
    planner.noteRead(moved[0]);
    planner.forget("b");
    EXPECT_THAT(planner.plan(nine + 5min, false, watch, moved),
                ElementsAre(false, true, true, true));

    // When the watcher cannot vouch at all, or it is time for the full read, or the
    // day changed, or the person asked for everything: all of them.
    ScanPlanner::Watch lost = watch;
    lost.lostEvents = true;
    ScanPlanner::Watch stopped;
    Date midnight = DateHelpers::startOfDay(nine + 24h);
    for (const auto& [at, everything, seen] :
         std::vector<std::tuple<Date, bool, ScanPlanner::Watch>>{
             {nine + 6min, false, lost},
             {nine + 7min, false, stopped},
             {nine + 8min, true, watch},
             {nine + 8min + ScanPlanner::kFullReadInterval, false, watch},
             {midnight - 20min, false, watch},
             {midnight + 10min, false, watch},
             {nine, false, watch}}) {  // a clock set back
        EXPECT_THAT(planner.plan(at, everything, seen, moved), ElementsAre(true, true, true, true))
            << DateHelpers::isoString(at);
        EXPECT_THAT(planner.plan(at + 1s, false, watch, moved),
                    ElementsAre(false, true, true, true))
            << "after the full read at " << DateHelpers::isoString(at);
    }
}

}  // namespace
}  // namespace quorvane
