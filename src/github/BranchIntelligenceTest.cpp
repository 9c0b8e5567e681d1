#include "github/BranchIntelligence.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorvane {
namespace {

const Date kNow = *DateHelpers::parseISO("2026-11-25T10:00:00Z");
const Date kLocalTip = *DateHelpers::parseISO("2026-11-24T09:00:00Z");
const Date kRemoteTip = *DateHelpers::parseISO("2026-11-23T08:00:00Z");

TEST(BranchIntelligenceTest, LocalRowsComeFirstThenBranchesOnlyOnGitHubByExactName) {
    std::vector<LocalBranchInfo> local = {
        {"main", "origin/main", 1, 2, "l1", kLocalTip, 1},  // its own tip wins over GitHub's
        {"feature", "origin/feature", 0, 0, {}, {}, 0},     // no tip read: GitHub's fills in
        {"wip", {}, 0, 0, "l3", kLocalTip, 3},              // "Wip" on GitHub is another branch
    };
    std::vector<RemoteBranch> remote = {{"release", "r0", {}},
                                        {"feature", "r2", kRemoteTip},
                                        {"main", "r1", kRemoteTip},
                                        {"Wip", "r4", {}}};
    // clang-format off
    EXPECT_THAT(BranchIntelligence::branches("/r", local, remote, kNow), ::testing::ElementsAre(
        BranchRecord{"/r#main#L", "/r", "main", true, true, "origin/main", 1, 2, "l1", kLocalTip, kNow, 1},
        BranchRecord{"/r#feature#L", "/r", "feature", true, true, "origin/feature", 0, 0, "r2", kRemoteTip, kNow, 0},
        BranchRecord{"/r#wip#L", "/r", "wip", true, false, {}, 0, 0, "l3", kLocalTip, kNow, 3},
        BranchRecord{"/r#release#R", "/r", "release", false, true, {}, 0, 0, "r0", {}, kNow},
        BranchRecord{"/r#Wip#R", "/r", "Wip", false, true, {}, 0, 0, "r4", {}, kNow}));
    // clang-format on
    EXPECT_TRUE(BranchIntelligence::branches("/r", {}, {}, kNow).empty());
}

}  // namespace
}  // namespace quorvane
