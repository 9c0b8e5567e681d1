#include <stdlib.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/DesktopNotifier.hpp"
#include "testing/LogCapture.hpp"
#include "testing/NotificationServer.hpp"
#include "testing/ScopedEnvironment.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

// An agent wrote the body: markup in it must reach the screen as text.
Notification reviewRequest() {
    return {"6F1C2D3E-0000-4000-8000-000000000001",
            "Quorvane \u2014 Agent Review",
            "Track <a href=\"https://evil.example\">R&D</a>",
            {{"review", "Review"}}};
}

// What the owner was told of pressed buttons, in order; the notifier tells it on a
// thread of its own.
class PressedActions {
public:
    DesktopNotifier::ActionHandler handler() {
        return [this](const std::string& key, const std::string& action) {
            std::lock_guard lock(mutex_);
            pressed_.emplace_back(key, action);
            changed_.notify_all();
        };
    }
    std::vector<std::pair<std::string, std::string>> waitFor(size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(10), [&] { return pressed_.size() >= count; });
        return pressed_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::pair<std::string, std::string>> pressed_;
};

Notification staleReminder() {
    return {"0B8E7A52-0000-4000-8000-000000000002",
            "Quorvane \u2014 Stale changes",
            "app: uncommitted changes for more than 3 days.",
            {}};
}

TEST(DesktopNotifier, PostsOneNotificationWithItsTitleAndBody) {
    testing::NotificationServer server;
    ASSERT_EQ(server.problem(), "");
    DesktopNotifier notifier;
    notifier.post(staleReminder());

    // The call waits for the server's answer, so the notification is in by now.
    auto received = server.notifications();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].appName, "Quorvane");
    EXPECT_EQ(received[0].summary, "Quorvane \u2014 Stale changes");
    EXPECT_EQ(received[0].body, "app: uncommitted changes for more than 3 days.");
    EXPECT_EQ(received[0].replacesID, 0u);
    EXPECT_TRUE(received[0].actions.empty());
    EXPECT_EQ(received[0].hints,
              (std::map<std::string, std::string>{{"sound-name", "message-new-instant"}}));
    EXPECT_EQ(received[0].expireTimeout, -1);
}

TEST(DesktopNotifier, ARepostedReminderReplacesItsOwnNotificationAndCloseTakesItDown) {
    testing::NotificationServer server;
    ASSERT_EQ(server.problem(), "");
    DesktopNotifier notifier;
    Notification stale = staleReminder();
    Notification other = stale;
    other.key = "0B8E7A52-0000-4000-8000-000000000003";
    notifier.post(stale);
    notifier.post(other);
    notifier.post(stale);

    auto received = server.notifications();
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(received[1].replacesID, 0u) << "another reminder is a notification of its own";
    EXPECT_EQ(received[2].replacesID, received[0].id);

    notifier.close(stale.key);
    notifier.close(stale.key);  // forgotten once closed
    notifier.close("0B8E7A52-0000-4000-8000-00000000FFFF");
    EXPECT_THAT(server.closed(), ElementsAre(received[0].id));
    // Closed means forgotten: shown again, it is a notification of its own.
    notifier.post(stale);
    received = server.notifications();
    ASSERT_EQ(received.size(), 4u);
    EXPECT_EQ(received[3].replacesID, 0u);
}

TEST(DesktopNotifier, ActionsAreOfferedAndThePressedOneOfItsOwnNotificationsReachesTheOwner) {
    testing::NotificationServer server;
    ASSERT_EQ(server.problem(), "");
    PressedActions pressed;
    DesktopNotifier notifier;
    notifier.setActionHandler(pressed.handler());
    notifier.post(reviewRequest());
    notifier.post(staleReminder());
    auto received = server.notifications();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_THAT(received[0].actions, ElementsAre("review", "Review"));
    EXPECT_TRUE(received[1].actions.empty());

    // The person dismisses the reminder; then come signals for what this notifier
    // never showed or never offered, then the button. Signals arrive in order, so
    // once the button is heard the others were weighed.
    ASSERT_TRUE(server.dismiss(received[1].id));
    ASSERT_TRUE(server.invokeAction(received[1].id + 100, "review"));
    ASSERT_TRUE(server.invokeAction(received[0].id, "delete-everything"));
    ASSERT_TRUE(server.invokeAction(received[0].id, "review"));
    EXPECT_THAT(pressed.waitFor(1), ElementsAre(Pair(reviewRequest().key, "review")));

    // Dismissed means forgotten: shown again, the reminder is new, and a close takes
    // down only what is still shown.
    notifier.post(staleReminder());
    notifier.close(staleReminder().key);
    notifier.close(reviewRequest().key);
    received = server.notifications();
    ASSERT_EQ(received.size(), 3u);
    EXPECT_EQ(received[2].replacesID, 0u);
    EXPECT_THAT(server.closed(), ElementsAre(received[2].id, received[0].id));
    EXPECT_EQ(server.capabilityQueries(), 1u) << "the server is asked once";
    EXPECT_EQ(received[0].body, "Track &lt;a href=\"https://evil.example\"&gt;R&amp;D&lt;/a&gt;")
        << "a server that reads markup shows the text as written";
}

TEST(DesktopNotifier, AServerWithoutButtonsGetsTheNotificationWithoutThem) {
    testing::NotificationServer server(testing::NotificationServer::Actions::notOffered);
    ASSERT_EQ(server.problem(), "");
    DesktopNotifier notifier;
    notifier.post(reviewRequest());
    notifier.post(reviewRequest());
    auto received = server.notifications();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_TRUE(received[0].actions.empty());
    EXPECT_EQ(received[1].replacesID, received[0].id);
    EXPECT_EQ(received[1].summary, "Quorvane \u2014 Agent Review");
    EXPECT_EQ(received[1].body, reviewRequest().body) << "a plain server shows the body as it is";
    EXPECT_EQ(server.capabilityQueries(), 1u);
}

TEST(DesktopNotifier, WithoutASessionBusNothingIsShownAndOneLineSaysSo) {
    testing::LogCapture log;
    std::optional<testing::ScopedEnvironment> bus(std::in_place, "DBUS_SESSION_BUS_ADDRESS",
                                                  std::nullopt);
    DesktopNotifier unset;
    EXPECT_NO_THROW(unset.post(staleReminder()));
    EXPECT_NO_THROW(unset.post(reviewRequest()));
    EXPECT_EQ(log.lines().size(), 1u) << "a second failure is not logged again";

    testing::TempDir dir("no-bus");
    bus.emplace("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (dir / "bus").string());
    DesktopNotifier unreachable;
    EXPECT_NO_THROW(unreachable.post(staleReminder()));
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[1].message.find("cannot connect to the session bus"), std::string::npos)
        << lines[1].message;
}

}  // namespace
}  // namespace quorvane
