#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include "platform/Notifier.hpp"

namespace quorvane {

// Posts notifications to the desktop's notification server over the session bus:
// the title as the summary and the body as the body, with the desktop's sound for a
// new message. A key posted again replaces its own notification, and a closed one is
// taken down; the server's ids are known to this
// object only, so a notification from another process or an earlier run stays.
// Without a session bus (no DBUS_SESSION_BUS_ADDRESS, as under a bare service
// manager or over ssh) or when the bus or the server refuses, nothing is shown; the
// first such failure is logged, later ones are not, so a headless machine does not
// fill the log.
class DesktopNotifier final : public Notifier {
public:
    void post(const Notification& notification) override;
    // CloseNotification with the id the server gave the key's notification.
    void close(const std::string& key) override;

private:
    struct BusHandles;

    // Opens a connection of its own to the session bus; false, noted, when there is none.
    bool connect(BusHandles& h);
    void noteFailure(const char* what, int error);

    std::atomic<bool> failureLogged_{false};
    // Held for a whole call, so a post and a close of one key reach the server
    // in the order they were made and the close always knows the posted id. Calls
    // are rare and time out after a few seconds.
    std::mutex mutex_;
    // The server's notification id of each key shown and not yet closed.
    std::unordered_map<std::string, uint32_t> shown_;
};

}  // namespace quorvane
