#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace quorvane {

enum class LogLevel { debug, info, notice, error, fault };

// Receives every log line: the level, the category ("app", "store", ...) and the
// finished message text.
using LogSink = std::function<void(LogLevel, std::string_view category, std::string_view message)>;

// One named category of the program's log. Lines go to journald (identifier
// "quorvane") when its socket exists, otherwise one line each to standard error.
class Logger {
public:
    explicit Logger(std::string category) : category_(std::move(category)) {}

    void log(LogLevel level, std::string_view message) const;
    void debug(std::string_view message) const { log(LogLevel::debug, message); }
    void info(std::string_view message) const { log(LogLevel::info, message); }
    void error(std::string_view message) const { log(LogLevel::error, message); }

    const std::string& category() const { return category_; }

private:
    std::string category_;
};

namespace Log {

inline constexpr std::string_view kSubsystem = "org.qvnlabs.quorvane";

const Logger& app();
const Logger& store();

// Replaces where lines go, returning the sink that was in place; an empty sink
// restores the default. Tests capture lines with it.
LogSink setSink(LogSink sink);

// Lines below this level are dropped before they reach a sink (default: info).
void setMinimumLevel(LogLevel level);

}  // namespace Log
}  // namespace quorvane
