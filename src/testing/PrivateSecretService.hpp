#pragma once

#include <string>

#include "testing/PrivateSessionBus.hpp"

namespace quorvane::testing {

// A private session bus with a GNOME Keyring daemon on it, its login keyring
// created and unlocked, so Secret Service code runs against the real thing. The bus
// is this process's session bus while the object exists; the keyring daemon exits
// with the bus. Construct it before the first Secret Service call of the process.
class PrivateSecretService {
public:
    PrivateSecretService();
    PrivateSecretService(const PrivateSecretService&) = delete;
    PrivateSecretService& operator=(const PrivateSecretService&) = delete;

    const std::string& busAddress() const { return bus_.address(); }
    // Empty when both daemons started; otherwise what went wrong.
    const std::string& problem() const { return problem_; }

private:
    PrivateSessionBus bus_;
    std::string problem_;
};

}  // namespace quorvane::testing
