#pragma once

#include <stdexcept>
#include <string>

namespace quorvane {

// The error of the GitHub layer and of other outside services: a kind the callers
// tell apart (a bad token is not a passing fault) and a message for the screens.
class QuorvaneError : public std::runtime_error {
public:
    enum class Kind { msg, auth, rateLimit, notFound, network, http };

    QuorvaneError(Kind kind, std::string message, int status = 0)
        : std::runtime_error(describe(kind, message, status)),
          kind_(kind),
          message_(std::move(message)),
          status_(status) {}

    Kind kind() const { return kind_; }
    const std::string& message() const { return message_; }
    int status() const { return status_; }  // with `http` only
    // The message as it stands; `http` adds " (HTTP <status>)".
    std::string description() const { return what(); }

private:
    static std::string describe(Kind kind, const std::string& message, int status) {
        return kind == Kind::http ? message + " (HTTP " + std::to_string(status) + ")" : message;
    }

    Kind kind_;
    std::string message_;
    int status_;
};

}  // namespace quorvane
