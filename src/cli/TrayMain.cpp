// quorvane-tray: the tray icon of the desktop. It shows what waits (to push,
// uncommitted, proposals) as the running daemon reports it, and its menu opens the
// dashboard or asks the daemon to scan, sync, pause or resume.
#include <pthread.h>
#include <signal.h>

#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "app/AppInfo.hpp"
#include "base/PathHelpers.hpp"
#include "cli/TrayItem.hpp"
#include "platform/Clock.hpp"
#include "platform/Shell.hpp"

int main(int argc, char** argv) {
    using namespace quorvane;
    try {
        CLI::App app{
            "The tray icon of Quorvane. It shows what waits for you (commits to push, "
            "uncommitted work, agents' proposals) as the running `quorvane daemon` reports it, "
            "every 30 seconds and after each choice in its menu, and its menu opens the "
            "dashboard or has the daemon scan, sync, pause or resume watching."};
        app.name("quorvane-tray");
        std::string dataDir;
        app.add_option("--data-dir", dataDir,
                       "The data folder of the daemon to show (default: $XDG_DATA_HOME/Quorvane)")
            ->type_name("DIR");
        app.set_version_flag("--version", "quorvane-tray " + std::string(AppInfo::version()));
        app.footer(
            "It needs a desktop that shows StatusNotifierItem icons (KDE, XFCE, Cinnamon, "
            "waybar's tray, or GNOME with the AppIndicator extension). Start the daemon with "
            "`quorvane daemon` or `quorvane service install`.");
        CLI11_PARSE(app, argc, argv);

        // Taken by the event loop alone, before any thread exists to inherit the mask.
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        // A daemon that goes away mid-answer must end that answer, not the tray.
        ::signal(SIGPIPE, SIG_IGN);

        TrayItem::Options options;
        options.dataDir = dataDir.empty()
                              ? PathHelpers::appSupportDir()
                              : std::filesystem::path(PathHelpers::canonicalPath(dataDir));
        Shell shell;
        SystemClock clock;
        TrayItem tray(options, shell, clock);
        return tray.run(std::cerr);
    } catch (const std::exception& error) {
        std::cerr << "quorvane-tray: " << error.what() << "\n";
        return 1;
    }
}
