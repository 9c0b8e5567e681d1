// quorvane service install|uninstall|status: the daemon as a systemd user service.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <ostream>

#include <fmt/format.h>

#include "app/LoginService.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/DaemonControl.hpp"
#include "persistence/AtomicFile.hpp"

namespace quorvane::Commands {

namespace {

namespace fs = std::filesystem;
using LoginService::kFollowLog;
using LoginService::kUnitName;
using LoginService::unitPath;

ShellResult systemctl(const CommandContext& context, std::vector<std::string> arguments) {
    return LoginService::systemctl(context.runner, std::move(arguments));
}

bool userManagerAnswers(const CommandContext& context) {
    return LoginService::userManagerAnswers(context.runner);
}

}  // namespace

namespace {

// How long a daemon may take to save everything and stop, or to start answering.
constexpr std::chrono::milliseconds kDaemonPatience{30'000};

// "pid 123, /usr/bin/quorvane" and whether it runs an older program.
std::string describe(const DaemonControl::RunningDaemon& daemon) {
    return fmt::format("pid {}, {}{}", daemon.pid, daemon.executable.string(),
                       daemon.replaced ? "; the program was installed anew since it started" : "");
}

// Yes when the person at the terminal says so; no when nobody is there to ask.
bool askYes(CommandContext& context, std::string_view question) {
    if (::isatty(STDIN_FILENO) != 1) return false;
    context.out << question << " [Y/n] ";
    context.out.flush();
    std::string answer;
    if (!std::getline(std::cin, answer)) return false;
    return answer.empty() || answer[0] == 'y' || answer[0] == 'Y';
}

bool stopDaemon(CommandContext& context, const DaemonControl::RunningDaemon& daemon) {
    if (daemon.underUnit) return systemctl(context, {"stop", kUnitName}).succeeded();
    if (DaemonControl::stop(daemon, kDaemonPatience)) return true;
    context.err << fmt::format("quorvane: the daemon (pid {}) did not stop within {} s\n",
                               daemon.pid, kDaemonPatience.count() / 1000);
    return false;
}

}  // namespace

// The daemon as a systemd user service: the unit in ~/.config/systemd/user, enabled
// and started when the person's service manager answers. `explicitDataDir` writes
// the chosen data folder into the unit. A daemon started by hand holds the data
// folder, so the service could not start beside it: it is stopped first when the
// person agrees (or `replace` says so), and otherwise the unit is only enabled.
int serviceInstall(CommandContext& context, bool explicitDataDir, bool replace) {
    std::optional<std::filesystem::path> self = PathHelpers::ownExecutable();
    if (!self) {
        context.err << "quorvane: cannot tell where this program is installed\n";
        return 1;
    }
    const char* searchPath = std::getenv("PATH");
    LoginService::UnitProgram program =
        LoginService::programForUnit(*self, searchPath != nullptr ? searchPath : "");
    if (!program.note.empty()) context.err << fmt::format("quorvane: {}\n", program.note);

    std::optional<DaemonControl::RunningDaemon> running =
        DaemonControl::runningDaemon(context.dataDir);
    bool startNow = true;
    if (running && !running->underUnit) {
        context.err << fmt::format(
            "quorvane: a daemon started by hand is running ({}); the service cannot start "
            "beside it\n",
            describe(*running));
        if (replace || askYes(context, "Stop it, so that the service runs it instead?")) {
            if (!stopDaemon(context, *running)) return 1;
            context.out << fmt::format("stopped the daemon (pid {})\n", running->pid);
        } else {
            startNow = false;
        }
    }
    LoginService::Installed installed = LoginService::install(
        context.runner, program.path,
        explicitDataDir ? std::optional<fs::path>(context.dataDir) : std::nullopt, startNow);
    if (!installed.problem.empty()) {
        context.err << fmt::format("quorvane: {}\n", installed.problem);
        return 1;
    }
    context.out << fmt::format("wrote {}, which runs {}\n", installed.unit.string(),
                               program.path.string());
    if (!installed.managerAnswered) {
        context.out << fmt::format(
            "No systemd user manager answered, so nothing was started. In a login session, "
            "start it and have it start at every login with:\n  systemctl --user enable --now "
            "{}\nUntil then, 'quorvane service start' runs it in the background.\n",
            kUnitName);
    } else if (!installed.enableProblem.empty()) {
        context.err << fmt::format("quorvane: {}\n", installed.enableProblem);
        return 1;
    } else if (!startNow) {
        context.out << fmt::format(
            "enabled: it starts at the next login, or now with 'quorvane service stop' and "
            "'systemctl --user start {}'\n",
            kUnitName);
    } else {
        // A daemon the unit already ran keeps the program it started with: a new
        // install takes effect once it restarts.
        if (running && running->underUnit && running->replaced) {
            systemctl(context, {"restart", kUnitName});
            context.out << "restarted it, so that it runs the program installed now\n";
        }
        context.out << "enabled and started: it starts at every login from now on\n";
    }
    context.out << fmt::format("Follow its log with: {}\n", kFollowLog);
    return 0;
}

// Starts the daemon where nothing runs it yet: through the unit when it is
// installed and the service manager answers, else in the background with its log
// in the data folder. A daemon that runs a program installed anew since it
// started is restarted; one that runs the current program is left alone.
int serviceStart(CommandContext& context, bool explicitDataDir) {
    std::optional<DaemonControl::RunningDaemon> running =
        DaemonControl::runningDaemon(context.dataDir);
    if (running && !running->replaced) {
        context.out << fmt::format("already running ({}, {})\n", describe(*running),
                                   running->underUnit ? "by the service" : "started by hand");
        return 0;
    }
    bool throughUnit = LoginService::isInstalled() && userManagerAnswers(context) &&
                       (!running || running->underUnit);
    if (throughUnit) {
        ShellResult started = systemctl(context, {running ? "restart" : "start", kUnitName});
        if (!started.succeeded()) {
            context.err << fmt::format("quorvane: systemctl --user start {} failed: {}\n",
                                       kUnitName, firstLine(started.stdErr));
            return 1;
        }
        context.out << fmt::format("{} the service; follow its log with: {}\n",
                                   running ? "restarted" : "started", kFollowLog);
        return 0;
    }
    if (running) {
        if (!stopDaemon(context, *running)) return 1;
        context.out << fmt::format("stopped the daemon (pid {}), which ran an older program\n",
                                   running->pid);
    }
    std::optional<std::filesystem::path> self = PathHelpers::ownExecutable();
    if (!self) {
        context.err << "quorvane: cannot tell where this program is installed\n";
        return 1;
    }
    DaemonControl::Started started = DaemonControl::startInBackground(
        *self, explicitDataDir ? std::optional<fs::path>(context.dataDir) : std::nullopt,
        context.dataDir, kDaemonPatience);
    if (!started.problem.empty()) {
        context.err << fmt::format("quorvane: {}\n", started.problem);
        return 1;
    }
    context.out << fmt::format("started the daemon in the background (pid {}); its log: {}\n",
                               started.pid, DaemonControl::backgroundLog(context.dataDir).string());
    return 0;
}

int serviceStop(CommandContext& context) {
    std::optional<DaemonControl::RunningDaemon> running =
        DaemonControl::runningDaemon(context.dataDir);
    if (!running) {
        context.out << "not running\n";
        return 0;
    }
    if (!stopDaemon(context, *running)) return 1;
    context.out << fmt::format(
        "stopped the daemon (pid {}){}\n", running->pid,
        running->underUnit ? "; the service starts it at the next login" : "");
    return 0;
}

namespace {

// What a unit's ExecStart runs, its first word unquoted.
std::string unitProgram(std::string_view command) {
    std::string program;
    if (!command.starts_with('"')) return std::string(command.substr(0, command.find(' ')));
    for (size_t i = 1; i < command.size() && command[i] != '"'; ++i) {
        if (command[i] == '\\' && i + 1 < command.size()) ++i;
        program += command[i];
    }
    return program;
}

}  // namespace

int serviceUninstall(CommandContext& context) {
    fs::path path = unitPath();
    if (userManagerAnswers(context)) {
        systemctl(context, {"disable", "--now", kUnitName});
    }
    std::error_code ec;
    bool removed = fs::remove(path, ec);
    if (ec) {
        context.err << fmt::format("quorvane: cannot remove {}: {}\n", path.string(), ec.message());
        return 1;
    }
    if (userManagerAnswers(context)) systemctl(context, {"daemon-reload"});
    context.out << (removed ? fmt::format("removed {}\n", path.string())
                            : fmt::format("not installed: there is no {}\n", path.string()));
    return 0;
}

int serviceStatus(CommandContext& context) {
    fs::path path = unitPath();
    std::optional<DaemonControl::RunningDaemon> running =
        DaemonControl::runningDaemon(context.dataDir);
    std::string daemonLine =
        running ? fmt::format("daemon: running ({}), {}\n", describe(*running),
                              running->underUnit ? "started by the service" : "started by hand")
                : "daemon: not running\n";
    AtomicFile::ReadResult unit = AtomicFile::read(path);
    if (!unit.bytes) {
        context.out << fmt::format(
            "not installed (no {}); install with: quorvane service install\n", path.string());
        context.out << daemonLine;
        return 0;
    }
    context.out << fmt::format("installed: {}\n", path.string());
    for (std::string_view line : Text::nonEmptyLines(*unit.bytes)) {
        if (!line.starts_with("ExecStart=")) continue;
        std::string program = unitProgram(line.substr(10));
        std::error_code ec;
        context.out << fmt::format("  program: {}{}\n", program,
                                   fs::exists(program, ec) ? "" : " (missing: reinstall it)");
        context.out << "  runs: " << line.substr(10) << "\n";
    }
    context.out << daemonLine;
    if (!userManagerAnswers(context)) {
        context.out << "state: unknown, no systemd user manager answered\n";
        return 0;
    }
    ShellResult active = systemctl(context, {"is-active", kUnitName});
    ShellResult enabled = systemctl(context, {"is-enabled", kUnitName});
    context.out << fmt::format("state: {}, {}\n", firstLine(active.stdOut),
                               firstLine(enabled.stdOut));
    context.out << fmt::format("Follow its log with: {}\n", kFollowLog);
    return 0;
}

// The unit a package installs for every user, the same as `serviceInstall` writes
// but for the daemon of `executable`.
int serviceUnit(std::ostream& out, const std::string& executable) {
    out << LoginService::unitText(
        LoginService::unitWord(executable) + " daemon",
        "# Installed with quorvane for every user. Start it now and at every login "
        "with:\n#   systemctl --user enable --now quorvane.service");
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareServiceCommands(CommandTable& table) {
    CLI::App* service =
        table.group("service", "Run the daemon at every login, as a systemd user service");
    auto& replace = table.keep<bool>();
    CLI::App* install = table.add(
        service, "install",
        "Write the systemd user unit quorvane.service and start it\n"
        "The unit goes to ~/.config/systemd/user (XDG_CONFIG_HOME) and runs the installed\n"
        "'quorvane daemon' (the one your PATH finds when this program is not it; with\n"
        "--data-dir when you give one), restarts it after a failure and logs to the\n"
        "journal. When your user service manager answers, it is enabled and started at\n"
        "once; otherwise the command to do so is printed. A daemon started by hand is\n"
        "stopped first when you agree, or with --replace.",
        {DataUse::reads, [&](CommandContext& c) {
             return Commands::serviceInstall(c, !table.dataDir().empty(), replace);
         }});
    install->add_flag("--replace", replace,
                      "Stop a daemon started by hand without asking, so the service runs it");
    table.add(service, "start",
              "Start the daemon if it is not running\n"
              "Through the service when it is installed and your service manager answers;\n"
              "otherwise in the background, with its log in daemon.log in the data folder. A\n"
              "daemon still running a program installed anew since it started is restarted.",
              {DataUse::reads, [&](CommandContext& c) {
                   return Commands::serviceStart(c, !table.dataDir().empty());
               }});
    table.add(service, "stop", "Stop the running daemon, however it was started",
              {DataUse::reads, Commands::serviceStop});
    table.add(service, "uninstall", "Stop the service and remove its unit",
              {DataUse::reads, Commands::serviceUninstall});
    table.add(service, "status",
              "Say whether the unit is installed, which program it runs, and which daemon runs",
              {DataUse::reads, Commands::serviceStatus});
    // Hidden: what the build writes from these definitions and installs beside the
    // program, so that the packaged unit matches what 'install' writes.
    auto& executable = table.keep<std::string>();
    CLI::App* unit =
        table.add(service, "unit",
                  "Print the systemd user unit, for every user, that runs EXECUTABLE's daemon",
                  {DataUse::none,
                   [&](CommandContext& c) { return Commands::serviceUnit(c.out, executable); }});
    unit->group("");
    unit->add_option("EXECUTABLE", executable, "The installed program")->required();
}

}  // namespace quorvane
