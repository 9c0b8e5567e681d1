#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include "platform/Notifier.hpp"

namespace quorvane {

// Posts reminders to the desktop's notification server over the session bus: the
// kind's title as the summary, the reminder's message as the body, with the
// desktop's sound for a new message. A reminder posted again replaces its own
// notification, and a closed one is taken down; the server's ids are known to this
// object only, so a notification from another process or an earlier run stays.
// Without a session bus (no DBUS_SESSION_BUS_ADDRESS, as under a bare service
// manager or over ssh) or when the bus or the server refuses, nothing is shown; the
// first such failure is logged, later ones are not, so a headless machine does not
// fill the log.
class DesktopNotifier final : public Notifier {
public:
    void post(const ReminderEvent& event) override;
    // CloseNotification with the id the server gave the reminder's notification.
    void close(const std::string& reminderID) override;

private:
    struct BusHandles;

    // Opens a connection of its own to the session bus; false, noted, when there is none.
    bool connect(BusHandles& h);
    void noteFailure(const char* what, int error);

    std::atomic<bool> failureLogged_{false};
    // Held for a whole call, so a post and a close of one reminder reach the server
    // in the order they were made and the close always knows the posted id. Calls
    // are rare and time out after a few seconds.
    std::mutex mutex_;
    // The server's notification id of each reminder shown and not yet closed.
    std::unordered_map<std::string, uint32_t> shown_;
};

}  // namespace quorvane
