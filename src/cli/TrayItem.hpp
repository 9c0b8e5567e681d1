#pragma once

#include <chrono>
#include <filesystem>
#include <iosfwd>
#include <memory>

#include "platform/Clock.hpp"
#include "platform/ProcessRunner.hpp"

namespace quorvane {

// The tray icon of one data folder: a StatusNotifierItem with its menu on the
// session bus. It shows what the daemon's status bar line says, asks again every
// `refresh` and after each menu action, and sends the menu's commands to the
// daemon over its control socket. TrayModel decides; this only carries it.
class TrayItem {
public:
    struct Options {
        std::filesystem::path dataDir;
        std::chrono::seconds refresh{30};
    };
    TrayItem(Options options, const ProcessRunner& runner, const Clock& clock);
    ~TrayItem();
    TrayItem(const TrayItem&) = delete;
    TrayItem& operator=(const TrayItem&) = delete;

    // Serves until "Quit tray", SIGTERM or SIGINT; the exit status. SIGTERM and
    // SIGINT must be blocked in every thread before it is called. What goes wrong
    // is said on `err`.
    int run(std::ostream& err);

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace quorvane
