#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace quorvane::testing {

// Sets an environment variable of this process, and so of the children it starts,
// or unsets it when given no value, for the life of the object, then puts back
// what was there.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, const std::optional<std::string>& value)
        : name_(std::move(name)) {
        if (const char* saved = std::getenv(name_.c_str())) previous_ = saved;
        if (value) {
            ::setenv(name_.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }
    ~ScopedEnvironment() {
        if (previous_) {
            ::setenv(name_.c_str(), previous_->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::optional<std::string> previous_;
};

}  // namespace quorvane::testing
