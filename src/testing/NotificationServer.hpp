#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "testing/PrivateSessionBus.hpp"

struct sd_bus;

namespace quorvane::testing {

// A desktop notification server for tests: a private session bus (this process's
// session bus while the object exists, inherited by the children it starts) with
// org.freedesktop.Notifications served on it from a thread of its own. It records
// every Notify call and answers it with ids 1, 2, 3..., or with its replaces_id when
// that is not 0, as servers do; it records the id of every CloseNotification call.
// It lists the "actions" capability unless told not to, and sends the signals a
// server sends when the person presses a button or dismisses a notification.
class NotificationServer {
public:
    // A server that offers buttons also reads the body as markup, as the common
    // desktops' servers do; one that does not offers neither.
    enum class Actions { offered, notOffered };

    // One Notify call as the server received it.
    struct Notification {
        uint32_t id = 0;  // what the server answered
        std::string appName;
        uint32_t replacesID = 0;
        std::string appIcon;
        std::string summary;
        std::string body;
        std::vector<std::string> actions;
        // Each hint's value as text: strings as they are, booleans as "true" or
        // "false", integers in decimal, anything else as "<" its signature ">".
        std::map<std::string, std::string> hints;
        int32_t expireTimeout = 0;
    };

    explicit NotificationServer(Actions actions = Actions::offered);
    ~NotificationServer();
    NotificationServer(const NotificationServer&) = delete;
    NotificationServer& operator=(const NotificationServer&) = delete;

    const std::string& busAddress() const { return bus_.address(); }
    // Empty when the bus is up and the server owns its name; otherwise what went wrong.
    const std::string& problem() const { return problem_; }

    // Everything received so far, in arrival order.
    std::vector<Notification> notifications() const;

    // Waits until at least `count` notifications have arrived or `limit` passed, and
    // returns everything received by then; compare its size with what was expected.
    std::vector<Notification> waitFor(size_t count, std::chrono::milliseconds limit) const;

    // The ids CloseNotification was called with, in arrival order. The call waits for
    // the answer, so a close made before this is in.
    std::vector<uint32_t> closed() const;

    // How many times GetCapabilities was called.
    size_t capabilityQueries() const;

    // Sends ActionInvoked(id, action), as when the person presses that button, or
    // NotificationClosed(id, 2), as when they dismiss the notification. True once
    // the signal has left for the bus; any id may be named.
    bool invokeAction(uint32_t id, const std::string& action);
    bool dismiss(uint32_t id);

private:
    struct Signal {
        uint32_t id = 0;
        std::optional<std::string> action;  // ActionInvoked with it, NotificationClosed without
        std::promise<bool> sent;
    };
    bool send(uint32_t id, std::optional<std::string> action);
    // On the server thread: sends what send() queued.
    void sendQueued(sd_bus* bus);

    // The server thread: connects, takes the name, reports through `ready`, then
    // answers calls until `stopping_` is set.
    void serve(std::promise<std::string>* ready);
    // Stores a received call under the next id and returns that id.
    uint32_t record(Notification notification);
    void recordClose(uint32_t id);

    PrivateSessionBus bus_;
    std::string problem_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};

    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<Notification> received_;
    std::vector<uint32_t> closed_;
    uint32_t nextID_ = 1;
    const Actions actions_;
    size_t capabilityQueries_ = 0;
    std::vector<std::shared_ptr<Signal>> queued_;

    friend struct NotificationServerHandlers;
};

}  // namespace quorvane::testing
