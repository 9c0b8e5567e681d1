#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <string_view>

#include "testing/ScopedEnvironment.hpp"
#include "testing/TempDir.hpp"

namespace quorvane::testing {

// A D-Bus session bus of the test's own: a dbus-daemon on a socket in a temporary
// folder. While it exists, DBUS_SESSION_BUS_ADDRESS points at it and XDG_RUNTIME_DIR
// at a private folder beside it, so this process and the children it starts use it
// instead of the desktop's; both are put back and the daemon stopped when it goes away.
class PrivateSessionBus {
public:
    PrivateSessionBus();
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

    const std::string& address() const { return address_; }
    // Empty when the daemon is up; otherwise what went wrong.
    const std::string& problem() const { return problem_; }

private:
    TempDir dir_{"bus"};
    std::string address_ = "unix:path=" + (dir_ / "bus").string();
    ScopedEnvironment runtimeDir_{"XDG_RUNTIME_DIR", (dir_ / "runtime").string()};
    ScopedEnvironment busAddress_{"DBUS_SESSION_BUS_ADDRESS", address_};
    std::string problem_;
    pid_t pid_ = -1;
};

// A stand-in's service loop, run on its own thread with a connection of its own to
// the bus at `address`: serves `vtable` at `path` under the well-known `name`, taken
// before `ready` is told "" (so a client calling afterwards finds it) or why it
// could not be, then answers calls until `stopping`, running `between` after each
// wait.
void serveOnBus(const std::string& address, const char* path, const char* name,
                const sd_bus_vtable* vtable, void* userdata, const std::atomic<bool>& stopping,
                std::promise<std::string>& ready, std::string_view what,
                const std::function<void(sd_bus*)>& between = {});

}  // namespace quorvane::testing
