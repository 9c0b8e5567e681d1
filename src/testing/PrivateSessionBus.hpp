#pragma once

#include <sys/types.h>

#include <string>

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

}  // namespace quorvane::testing
