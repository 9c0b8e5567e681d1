#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "testing/PrivateSessionBus.hpp"

namespace quorvane::testing {

// The desktop's side of tray icons, for tests: a private session bus (this
// process's while the object exists, inherited by the children it starts) on which
// org.kde.StatusNotifierWatcher is served from a thread of its own, recording each
// item that registers; and the calls a panel makes to an item, each over a
// connection of the caller's own.
class StatusNotifierWatcher {
public:
    StatusNotifierWatcher();
    ~StatusNotifierWatcher();
    StatusNotifierWatcher(const StatusNotifierWatcher&) = delete;
    StatusNotifierWatcher& operator=(const StatusNotifierWatcher&) = delete;

    // Empty when the bus is up and the watcher owns its name; otherwise what went wrong.
    const std::string& problem() const { return problem_; }

    // The names items registered under, in arrival order; waitFor returns them once
    // there are `count` or `limit` passed.
    std::vector<std::string> registrations() const;
    std::vector<std::string> waitFor(size_t count, std::chrono::milliseconds limit) const;

    // Leaves the bus and comes back, as a panel that restarts: items see the name
    // change owner. Empty when it is back; otherwise what went wrong.
    std::string restart();

    struct MenuEntry {
        int32_t id = 0;
        std::string label;
        bool enabled = true;
        bool separator = false;
    };
    // The item's menu as GetLayout gives it, its root's children in order; empty with
    // `problem` set when the call failed.
    std::vector<MenuEntry> menu(const std::string& item, std::string& problem) const;
    // Sends Event(id, "clicked", ...) as a panel does when the person chooses an entry.
    std::string click(const std::string& item, int32_t id) const;
    // A text property of the item (IconName, Status, ...), or the ToolTip's title and
    // text joined by a line break; empty when it could not be read.
    std::string property(const std::string& item, const std::string& name) const;

private:
    std::string start();
    void stop();
    void serve(std::promise<std::string>* ready);

    PrivateSessionBus bus_;
    std::string problem_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<std::string> registered_;

    friend struct StatusNotifierWatcherHandlers;
};

}  // namespace quorvane::testing
