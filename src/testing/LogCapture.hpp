#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "base/Log.hpp"

namespace quorvane::testing {

// Collects log lines while it exists, instead of sending them to the journal.
class LogCapture {
public:
    struct Line {
        LogLevel level;
        std::string category;
        std::string message;
    };

    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Line> lines() const;

private:
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
    LogSink previous_;
};

}  // namespace quorvane::testing
