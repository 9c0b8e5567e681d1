#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <ostream>
#include <thread>

#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "base/Log.hpp"
#include "cli/CommandLine.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/ControlServer.hpp"
#include "persistence/PauseMarker.hpp"
#include "platform/DesktopNotifier.hpp"
#include "reports/ReminderNotices.hpp"
#include "web/Dashboard.hpp"
#include "web/DashboardAddress.hpp"
#include "web/DashboardKey.hpp"
#include "web/DashboardOpener.hpp"
#include "web/DashboardServer.hpp"

namespace quorvane::Commands {

namespace {

// The signals the daemon answers. They are blocked in every thread and taken by the
// main thread alone with sigwait, so no handler runs in the middle of a scan.
sigset_t daemonSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) sigaddset(&set, signal);
    return set;
}

// Restores the caller's signal mask however the daemon ends.
class BlockedSignals {
public:
    explicit BlockedSignals(const sigset_t& set) { pthread_sigmask(SIG_BLOCK, &set, &previous_); }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t previous_;
};

// Serves the dashboard when the settings ask for it. A dashboard that cannot start
// is logged and leaves the rest of the daemon running.
void startDashboard(DashboardServer& server, AppEnvironment& env, const Clock& clock,
                    const ProcessRunner& runner, const std::filesystem::path& dataDir,
                    std::ostream& err) {
    AppConfig config = env.config();
    Date now = clock.now();
    if (!config.dashboard.enabled) return;
    DashboardKey::Loaded key = DashboardKey::loadOrCreate(dataDir, now);
    if (key.setAside) {
        Log::app().error(fmt::format("the dashboard key could not be used and was moved to {}",
                                     key.setAside->string()));
    }
    std::string problem = key.problem;
    if (problem.empty()) {
        Dashboard::route(server, env, clock, runner);
        problem = server.start({.port = config.dashboard.port, .tries = 10, .key = key.key});
    }
    if (problem.empty()) problem = DashboardAddress::publish(dataDir, server.port());
    if (!problem.empty()) {
        Log::app().error("no dashboard: " + problem);
        return;
    }
    err << fmt::format("quorvane daemon: dashboard on {} ('quorvane open' logs you in)\n",
                       server.address());
}

// Opens the dashboard's `page` in the person's browser, logged in, as `quorvane open
// PAGE` does, for a notification's button. Runs on the notifier's thread; a failure
// can only be logged, without the address, which is a login. `what` names the page
// in the log.
void openDashboardPage(const CommandContext& context, const std::string& page,
                       const std::string& what) {
    DashboardOpener::LoginAddress login =
        DashboardOpener::loginAddress(context.dataDir, context.clock.now(), page);
    if (login.address.empty()) {
        Log::app().error(fmt::format("cannot open {}: {}", what, login.problem));
        return;
    }
    DashboardOpener::Opened opened = DashboardOpener::openInBrowser(context.runner, login.address);
    switch (opened.outcome) {
        case DashboardOpener::Outcome::opened: return;
        case DashboardOpener::Outcome::noDesktop:
            Log::app().error(fmt::format(
                "cannot open {}: no desktop session or no xdg-open; 'quorvane open {}' opens it",
                what, page));
            return;
        case DashboardOpener::Outcome::failed:
            Log::app().error(
                fmt::format("cannot open {}: cannot start xdg-open: {}", what, opened.problem));
            return;
    }
}

// Answers the buttons of the daemon's notifications. The notifier hears them on its
// own thread and may outlive the service they act on: the service is attached once
// it exists and detached before it goes, the detach waiting for an answer under way.
class NotificationActions {
public:
    explicit NotificationActions(const CommandContext& context) : context_(context) {}

    // A guard that keeps `env` attached for its own lifetime.
    class Attached {
    public:
        Attached(NotificationActions& actions, AppEnvironment& env) : actions_(actions) {
            std::lock_guard lock(actions_.mutex_);
            actions_.env_ = &env;
        }
        ~Attached() {
            std::lock_guard lock(actions_.mutex_);
            actions_.env_ = nullptr;
        }
        Attached(const Attached&) = delete;
        Attached& operator=(const Attached&) = delete;

    private:
        NotificationActions& actions_;
    };

    // `key` names the notification, a reminder's id or a proposal's; a button this
    // daemon never offered, or one pressed on a notification of something no longer
    // open, does nothing.
    void answer(const std::string& key, const std::string& action) {
        std::lock_guard lock(mutex_);
        if (env_ == nullptr) return;
        if (action == ProposalNotices::kReviewAction) {
            openDashboardPage(context_, "review", "Agent Review");
            return;
        }
        if (action != ReminderNotices::kOpenAction && action != ReminderNotices::kSnoozeAction) {
            return;
        }
        std::vector<ReminderEvent> open = env_->unresolvedReminders();
        auto reminder = std::find_if(open.begin(), open.end(),
                                     [&](const ReminderEvent& event) { return event.id == key; });
        if (reminder == open.end()) return;
        if (action == ReminderNotices::kSnoozeAction) {
            AppEnvironment::Snoozed snoozed =
                env_->snoozeReminder(key, ReminderNotices::kSnoozeLength);
            if (!snoozed.saveProblem.empty()) {
                Log::app().error("the snoozed reminder could not be saved: " + snoozed.saveProblem);
            }
            return;
        }
        openDashboardPage(context_, std::string(ReminderNotices::pageOf(reminder->kind)),
                          "the reminder's page");
    }

private:
    const CommandContext& context_;
    std::mutex mutex_;
    AppEnvironment* env_ = nullptr;
};

}  // namespace

// Pausing is the running daemon's state: without one there is nothing to pause,
// and a change of heart must not wait for its next start.
int setPaused(CommandContext& context, bool paused) {
    if (context.service == nullptr) {
        context.err << fmt::format(
            "quorvane: the daemon is not running, so there is nothing to {}; start it with "
            "'quorvane daemon'\n",
            paused ? "pause" : "resume");
        return 1;
    }
    AppEnvironment& env = *context.service;
    const bool was = env.isPaused();
    env.setPaused(paused);
    if (paused) {
        if (std::string problem = PauseMarker::publish(context.dataDir); !problem.empty()) {
            // The daemon is paused all the same; only the views cannot tell.
            context.err << fmt::format(
                "quorvane: status cannot show the pause: cannot write {}: {}\n",
                PauseMarker::kFileName, problem);
        }
    } else {
        PauseMarker::withdraw(context.dataDir);
    }
    Log::app().info(paused ? "watching paused" : "watching resumed");
    if (paused) {
        context.out << (was ? "Watching was already paused.\n" : "Watching paused.\n")
                    << "No periodic scans and no file changes are followed until 'quorvane "
                       "resume' or the daemon restarts; 'quorvane scan' still scans.\n";
    } else {
        context.out << (was ? "Watching resumed: periodic scans and file changes are followed "
                              "again.\n"
                            : "Watching was not paused.\n");
    }
    return 0;
}

// Runs in the foreground as the data folder's writer until SIGTERM or SIGINT.
int daemon(CommandContext& context) {
    // Before any thread exists, so that every thread started below inherits the mask.
    const sigset_t signals = daemonSignals();
    BlockedSignals blocked(signals);

    std::optional<DataFolderLock> writer = takeWriterLock(context);
    if (!writer) return 1;
    // A pause belongs to the daemon that took it.
    PauseMarker::withdraw(context.dataDir);

    context.err << fmt::format(
        "quorvane daemon: pid {}, data folder {}\n"
        "Stop with Ctrl-C or SIGTERM; SIGUSR1 scans now.\n",
        ::getpid(), context.dataDir.string());
    context.err.flush();

    // Declared first, so it outlives the notifier, whose destructor waits for a call
    // in progress; the service is attached after it exists and detached before it goes.
    NotificationActions actions(context);
    DesktopNotifier notifier;
    notifier.setActionHandler([&actions](const std::string& key, const std::string& action) {
        actions.answer(key, action);
    });
    AppEnvironment env(context.dataDir, context.clock, context.runner, &notifier);
    std::optional<NotificationActions::Attached> attached;
    attached.emplace(actions, env);
    // Commands that change the data folder come here while the daemon holds it, and
    // run on the state it owns.
    ControlServer control(
        context.dataDir / ControlProtocol::kSocketName,
        [&](const ControlProtocol::Request& request, std::ostream& out, std::ostream& err) {
            return runForwardedCommand(request, out, err, context.runner, context.clock, env,
                                       context.dataDir);
        });
    DashboardServer dashboard(context.clock);
    std::string failure;
    // The first scan can take a while; the main thread stays free to answer signals.
    // Until it is joined, this thread alone writes to context.err.
    std::jthread starter([&] {
        try {
            env.load();
            if (std::string problem = control.start(); !problem.empty()) {
                Log::app().error(fmt::format(
                    "no control socket in the data folder ({}): commands that change data are "
                    "refused while the daemon runs",
                    problem));
            }
            startDashboard(dashboard, env, context.clock, context.runner, context.dataDir,
                           context.err);
            env.bootstrap();
            if (env.isShuttingDown()) return;
            AppConfig config = env.config();
            context.err << fmt::format(
                "quorvane daemon: ready; {} tracked{}, scanning every {} min\n",
                plural(static_cast<int>(trackedRepos(config).size()), "repository"),
                env.isWatching() ? " and watched" : "", std::max(1, config.scanIntervalMinutes));
            context.err.flush();
        } catch (const std::exception& error) {
            failure = error.what();
            ::kill(::getpid(), SIGTERM);
        }
    });

    for (;;) {
        int received = 0;
        if (sigwait(&signals, &received) != 0) continue;
        if (received == SIGUSR1) {
            Log::app().info("scan requested by SIGUSR1");
            env.requestScan();
            continue;
        }
        Log::app().info(fmt::format("stopping on {}", sigabbrev_np(received)));
        break;
    }

    // New commands are refused first; a running one is cut short with the scan it
    // waits on, and finishes before the socket goes.
    control.beginStop();
    // No button acts on a service that is stopping.
    attached.reset();
    env.shutdown();
    starter.join();
    // After the starter, which may still have been starting it.
    dashboard.stop();
    DashboardAddress::withdraw(context.dataDir);
    control.stop();
    PauseMarker::withdraw(context.dataDir);
    if (!failure.empty()) {
        context.err << fmt::format("quorvane: the daemon could not start: {}\n", failure);
        return 1;
    }
    context.err << "quorvane daemon: stopped, everything saved\n";
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareDaemonCommand(CommandTable& table) {
    table.add("daemon",
              "Keep watching and scanning in the foreground until stopped\n"
              "Scans once at start, then every scanIntervalMinutes (default 10), and notes file\n"
              "changes in tracked repositories as they happen, so that editing without\n"
              "committing still counts as work. With GitHub accounts it syncs them at start\n"
              "(sync.syncOnStart) and every sync.interval (m30 by default; manual turns it\n"
              "off); with sync.wifiOnly a round passes while NetworkManager calls the link\n"
              "metered. It is the data folder's one writer while it runs: commands that\n"
              "change the data folder are sent to it over quorvane.sock and run there.\n"
              "SIGTERM or SIGINT (Ctrl-C) stops it after saving everything; SIGUSR1 asks for\n"
              "a scan now.",
              {DataUse::reads, Commands::daemon});
    table.add("pause",
              "Pause the running daemon's watching\n"
              "No periodic scans and no file changes are followed until 'quorvane resume' or\n"
              "the daemon restarts; 'quorvane scan' and 'quorvane sync' still run, and\n"
              "'quorvane status' says it is paused. Exits 1 when no daemon runs.",
              {DataUse::writes, [](CommandContext& c) { return Commands::setPaused(c, true); }});
    table.add("resume", "Resume the daemon's watching after 'quorvane pause'",
              {DataUse::writes, [](CommandContext& c) { return Commands::setPaused(c, false); }});
}

}  // namespace quorvane
