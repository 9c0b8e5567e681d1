#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

// The daemon of a data folder seen from outside: whether one answers, which
// program it runs and whether the systemd user unit started it; stopping it, and
// starting one in the background where no service manager does.
namespace quorvane::DaemonControl {

// The daemon that answers on a data folder's control socket.
struct RunningDaemon {
    pid_t pid = 0;
    std::filesystem::path executable;  // the program it runs
    // Its program's file was replaced (a new install) since it started: it still
    // runs the old one until it is restarted.
    bool replaced = false;
    bool underUnit = false;  // started by the systemd user unit
};
std::optional<RunningDaemon> runningDaemon(const std::filesystem::path& dataDir);

// Asks the daemon to stop (it saves everything first) and waits for it to go, at
// most `limit`. False when it is still there.
bool stop(const RunningDaemon& daemon, std::chrono::milliseconds limit);

// Where a daemon started in the background writes what it says.
std::filesystem::path backgroundLog(const std::filesystem::path& dataDir);

// Starts `executable`'s daemon in a session of its own, detached from the
// terminal, logging to backgroundLog, and waits at most `limit` for it to answer.
struct Started {
    pid_t pid = 0;
    std::string problem;  // empty when it answers
};
Started startInBackground(const std::filesystem::path& executable,
                          const std::optional<std::filesystem::path>& dataDir,
                          const std::filesystem::path& effectiveDataDir,
                          std::chrono::milliseconds limit);

}  // namespace quorvane::DaemonControl
