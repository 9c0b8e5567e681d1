#pragma once

#include <sys/types.h>

#include <string>

#include "testing/TempDir.hpp"

namespace quorvane::testing {

// A D-Bus session bus of the test's own with a GNOME Keyring daemon on it, its
// login keyring created and unlocked, so Secret Service code runs against the
// real thing. Sets DBUS_SESSION_BUS_ADDRESS for this process; both daemons are
// stopped when the object goes away. Construct it before the first Secret
// Service call of the process.
class PrivateSecretService {
public:
    PrivateSecretService();
    ~PrivateSecretService();
    PrivateSecretService(const PrivateSecretService&) = delete;
    PrivateSecretService& operator=(const PrivateSecretService&) = delete;

    const std::string& busAddress() const { return address_; }
    // Empty when both daemons started; otherwise what went wrong.
    const std::string& problem() const { return problem_; }

private:
    TempDir dir_{"bus"};
    std::string address_;
    std::string problem_;
    pid_t busPid_ = -1;
};

}  // namespace quorvane::testing
