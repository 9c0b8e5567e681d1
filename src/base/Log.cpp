#include "base/Log.hpp"

#include <sys/stat.h>
#include <syslog.h>

#include <atomic>
#include <cstdio>
#include <mutex>

#include <fmt/format.h>
#include <systemd/sd-journal.h>

#include "base/TextHelpers.hpp"

namespace quorvane {
namespace {

constexpr const char* kJournalSocket = "/run/systemd/journal/socket";

int syslogPriority(LogLevel level) {
    switch (level) {
        case LogLevel::debug: return LOG_DEBUG;
        case LogLevel::info: return LOG_INFO;
        case LogLevel::notice: return LOG_NOTICE;
        case LogLevel::error: return LOG_ERR;
        case LogLevel::fault: return LOG_CRIT;
    }
    return LOG_INFO;
}

const char* levelName(LogLevel level) {
    switch (level) {
        case LogLevel::debug: return "debug";
        case LogLevel::info: return "info";
        case LogLevel::notice: return "notice";
        case LogLevel::error: return "error";
        case LogLevel::fault: return "fault";
    }
    return "info";
}

void defaultSink(LogLevel level, std::string_view category, std::string_view message) {
    static const bool journal = [] {
        struct stat info {};
        return ::stat(kJournalSocket, &info) == 0 && S_ISSOCK(info.st_mode);
    }();
    if (journal) {
        std::string text(message);
        std::string cat(category);
        sd_journal_send("MESSAGE=%s", text.c_str(), "PRIORITY=%i", syslogPriority(level),
                        "SYSLOG_IDENTIFIER=quorvane", "QUORVANE_SUBSYSTEM=%s",
                        std::string(Log::kSubsystem).c_str(), "QUORVANE_CATEGORY=%s", cat.c_str(),
                        nullptr);
        return;
    }
    // A message names repositories, branches and what git or GitHub said: on a
    // terminal, its controls show rather than act.
    std::string line =
        fmt::format("quorvane[{}] {}: {}\n", category, levelName(level), Text::visible(message));
    std::fwrite(line.data(), 1, line.size(), stderr);
}

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

LogSink& currentSink() {
    static LogSink sink;
    return sink;
}

std::atomic<int>& minimumLevel() {
    static std::atomic<int> level{static_cast<int>(LogLevel::info)};
    return level;
}

}  // namespace

void Logger::log(LogLevel level, std::string_view message) const {
    if (static_cast<int>(level) < minimumLevel().load()) return;
    std::lock_guard lock(sinkMutex());
    if (currentSink()) {
        currentSink()(level, category_, message);
        return;
    }
    defaultSink(level, category_, message);
}

namespace Log {

const Logger& app() {
    static const Logger logger("app");
    return logger;
}

const Logger& store() {
    static const Logger logger("store");
    return logger;
}

LogSink setSink(LogSink sink) {
    std::lock_guard lock(sinkMutex());
    LogSink previous = std::move(currentSink());
    currentSink() = std::move(sink);
    return previous;
}

void setMinimumLevel(LogLevel level) {
    minimumLevel().store(static_cast<int>(level));
}

}  // namespace Log
}  // namespace quorvane
