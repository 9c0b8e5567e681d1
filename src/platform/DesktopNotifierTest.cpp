#include <stdlib.h>

#include <optional>
#include <string>

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

Notification staleReminder() {
    return {"0B8E7A52-0000-4000-8000-000000000002", "Quorvane \u2014 Stale changes",
            "app: uncommitted changes for more than 3 days."};
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

TEST(DesktopNotifier, WithoutASessionBusNothingIsShownAndOneLineSaysSo) {
    testing::LogCapture log;
    std::optional<testing::ScopedEnvironment> bus(std::in_place, "DBUS_SESSION_BUS_ADDRESS",
                                                  std::nullopt);
    DesktopNotifier unset;
    EXPECT_NO_THROW(unset.post(staleReminder()));
    EXPECT_NO_THROW(unset.post(staleReminder()));
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
