#include "testing/LogCapture.hpp"

namespace quorvane::testing {

LogCapture::LogCapture() {
    previous_ =
        Log::setSink([this](LogLevel level, std::string_view category, std::string_view message) {
            std::lock_guard lock(mutex_);
            lines_.push_back(Line{level, std::string(category), std::string(message)});
        });
}

LogCapture::~LogCapture() {
    Log::setSink(std::move(previous_));
}

std::vector<LogCapture::Line> LogCapture::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

}  // namespace quorvane::testing
