#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

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
//
// A notification's buttons are sent only to a server that says it shows them. The
// first notification with buttons opens a connection of its own that hears the
// server's signals on a thread of its own: a pressed button is handed to the action
// handler, and a notification the person dismissed is forgotten.
class DesktopNotifier final : public Notifier {
public:
    // Called with the notification's key and the pressed button's key, on the
    // notifier's listening thread; it must not destroy the notifier.
    using ActionHandler = std::function<void(const std::string& key, const std::string& action)>;

    DesktopNotifier();
    // Stops listening and waits for a handler call in progress.
    ~DesktopNotifier() override;
    DesktopNotifier(const DesktopNotifier&) = delete;
    DesktopNotifier& operator=(const DesktopNotifier&) = delete;

    void post(const Notification& notification) override;
    // CloseNotification with the id the server gave the key's notification.
    void close(const std::string& key) override;

    void setActionHandler(ActionHandler handler);

private:
    struct BusHandles;
    class Listener;
    friend class Listener;

    // A notification on screen: the server's id and the buttons it was given.
    struct Shown {
        uint32_t id = 0;
        std::vector<std::string> actionKeys;
    };

    // Opens a connection of its own to the session bus; false, noted, when there is none.
    bool connect(BusHandles& h);
    void noteFailure(const char* what, int error);
    // Whether buttons can be sent and heard: the server lists "actions" (asked once),
    // and the listening connection is up. Called with `mutex_` held.
    bool canOfferActions(BusHandles& h);
    // What the server offers, asked once.
    struct Capabilities {
        bool actions = false;
        bool bodyMarkup = false;
    };
    const Capabilities& capabilities(BusHandles& h);
    // From the listening thread: a signal of the server that answered the posts.
    void actionInvoked(const std::string& sender, uint32_t id, const std::string& action);
    void notificationClosed(const std::string& sender, uint32_t id);

    std::atomic<bool> failureLogged_{false};
    std::atomic<bool> listenFailureLogged_{false};
    // Held for a whole call, so a post and a close of one key reach the server
    // in the order they were made and the close always knows the posted id. Calls
    // are rare and time out after a few seconds.
    std::mutex mutex_;
    // What is shown under each key and not yet closed.
    std::unordered_map<std::string, Shown> shown_;
    // The bus name of the server that answered the last post: only its signals
    // speak for the notifications shown.
    std::string server_;
    std::optional<Capabilities> capabilities_;
    std::unique_ptr<Listener> listener_;

    std::mutex handlerMutex_;
    ActionHandler handler_;
};

}  // namespace quorvane
