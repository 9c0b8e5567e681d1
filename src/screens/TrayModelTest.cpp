#include "screens/TrayModel.hpp"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

using TrayModel::Action;
using TrayModel::EntryID;

std::vector<std::string> labels(const TrayModel::DaemonState& state) {
    std::vector<std::string> out;
    for (const TrayModel::Entry& entry : TrayModel::menu(state)) out.push_back(entry.label);
    return out;
}

int32_t id(EntryID entry) {
    return static_cast<int32_t>(entry);
}

TEST(TrayModelTest, TheBarLineDecidesIconStatusTooltipAndMenu) {
    std::optional<TrayModel::DaemonState> calm = TrayModel::fromBarLine(
        R"({"text":"✓","toPush":0,"toPull":3,"uncommitted":0,"proposals":0,"paused":false})");
    ASSERT_TRUE(calm);
    // Behind the remote is not the person's to act on from here: it leaves the icon calm.
    EXPECT_EQ(TrayModel::look(*calm),
              (TrayModel::Look{"quorvane", "quorvane-attention", "Active", "Quorvane",
                               "to push: 0, uncommitted: 0, proposals waiting: 0"}));
    EXPECT_EQ(labels(*calm),
              (std::vector<std::string>{"Open dashboard", "Agent Review", "Scan now", "Sync now",
                                        "Pause watching", "", "Quit tray"}));

    std::optional<TrayModel::DaemonState> busy =
        TrayModel::fromBarLine(R"({"toPush":2,"uncommitted":1,"proposals":3,"paused":true})");
    ASSERT_TRUE(busy);
    TrayModel::Look shown = TrayModel::look(*busy);
    EXPECT_EQ(shown.iconName, "quorvane-attention");
    EXPECT_EQ(shown.status, "NeedsAttention");
    EXPECT_EQ(shown.tooltipText,
              "to push: 2, uncommitted: 1, proposals waiting: 3\nwatching paused");
    EXPECT_EQ(labels(*busy)[1], "Agent Review (3)");
    EXPECT_EQ(labels(*busy)[4], "Resume watching");
    // Each kind alone is enough for attention.
    for (const char* line : {R"({"toPush":1})", R"({"uncommitted":1})", R"({"proposals":1})"}) {
        EXPECT_EQ(TrayModel::look(*TrayModel::fromBarLine(line)).status, "NeedsAttention") << line;
    }

    // What the daemon sends is hostile like any input: no line, wrong types and
    // negative counts show as nothing waiting rather than as nonsense.
    EXPECT_FALSE(TrayModel::fromBarLine(""));
    EXPECT_FALSE(TrayModel::fromBarLine("[1,2]"));
    std::optional<TrayModel::DaemonState> odd =
        TrayModel::fromBarLine(R"({"toPush":"2","uncommitted":-4,"proposals":1.5,"paused":1})");
    ASSERT_TRUE(odd);
    EXPECT_EQ(*odd, (TrayModel::DaemonState{true, false, 0, 0, 0}));
}

TEST(TrayModelTest, EntriesActOnTheDaemonOnlyWhileItRunsAndQuitAlwaysWorks) {
    TrayModel::DaemonState up{.running = true};
    EXPECT_EQ(TrayModel::actionFor(id(EntryID::openDashboard), up),
              (Action{Action::Kind::openHere, {"open", "today"}}));
    EXPECT_EQ(TrayModel::actionFor(id(EntryID::agentReview), up),
              (Action{Action::Kind::openHere, {"open", "review"}}));
    EXPECT_EQ(TrayModel::actionFor(id(EntryID::scan), up),
              (Action{Action::Kind::sendDaemon, {"scan"}}));
    EXPECT_EQ(TrayModel::actionFor(id(EntryID::sync), up),
              (Action{Action::Kind::sendDaemon, {"sync"}}));
    EXPECT_EQ(TrayModel::actionFor(id(EntryID::pause), up),
              (Action{Action::Kind::sendDaemon, {"pause"}}));
    up.paused = true;
    EXPECT_EQ(TrayModel::actionFor(id(EntryID::pause), up),
              (Action{Action::Kind::sendDaemon, {"resume"}}));
    EXPECT_EQ(TrayModel::activate(up).words, (std::vector<std::string>{"open", "today"}));
    EXPECT_EQ(TrayModel::secondaryActivate(up).words, (std::vector<std::string>{"scan"}));
    for (int32_t unknown : {0, id(EntryID::separator), 99, -1}) {
        EXPECT_EQ(TrayModel::actionFor(unknown, up).kind, Action::Kind::none) << unknown;
    }

    TrayModel::DaemonState down;
    EXPECT_EQ(TrayModel::look(down).tooltipText, "the daemon is not running");
    EXPECT_EQ(TrayModel::look(down).status, "Active");
    for (const TrayModel::Entry& entry : TrayModel::menu(down)) {
        EXPECT_EQ(entry.enabled, entry.id == EntryID::quit || entry.separator) << entry.label;
        if (entry.id != EntryID::quit) {
            EXPECT_EQ(TrayModel::actionFor(id(entry.id), down).kind, Action::Kind::none)
                << entry.label;
        }
    }
    EXPECT_EQ(TrayModel::actionFor(id(EntryID::quit), down).kind, Action::Kind::quit);
}

}  // namespace
}  // namespace quorvane
