// quorvane service install|uninstall|status: the daemon as a systemd user service.
#include <ostream>

#include <fmt/format.h>

#include "app/LoginService.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
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

// The daemon as a systemd user service: the unit in ~/.config/systemd/user, enabled
// and started when the person's service manager answers. `explicitDataDir` writes
// the chosen data folder into the unit.
int serviceInstall(CommandContext& context, bool explicitDataDir) {
    std::optional<std::filesystem::path> executable = PathHelpers::ownExecutable();
    if (!executable) {
        context.err << "quorvane: cannot tell where this program is installed\n";
        return 1;
    }
    LoginService::Installed installed = LoginService::install(
        context.runner, *executable,
        explicitDataDir ? std::optional<fs::path>(context.dataDir) : std::nullopt);
    if (!installed.problem.empty()) {
        context.err << fmt::format("quorvane: {}\n", installed.problem);
        return 1;
    }
    context.out << fmt::format("wrote {}\n", installed.unit.string());
    if (!installed.managerAnswered) {
        context.out << fmt::format(
            "No systemd user manager answered, so nothing was started. In a login session, "
            "start it and have it start at every login with:\n  systemctl --user enable --now "
            "{}\n",
            kUnitName);
    } else if (!installed.enableProblem.empty()) {
        context.err << fmt::format("quorvane: {}\n", installed.enableProblem);
        return 1;
    } else {
        context.out << "enabled and started: it starts at every login from now on\n";
    }
    context.out << fmt::format("Follow its log with: {}\n", kFollowLog);
    return 0;
}

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
    AtomicFile::ReadResult unit = AtomicFile::read(path);
    if (!unit.bytes) {
        context.out << fmt::format(
            "not installed (no {}); install with: quorvane service install\n", path.string());
        return 0;
    }
    context.out << fmt::format("installed: {}\n", path.string());
    for (std::string_view line : Text::nonEmptyLines(*unit.bytes)) {
        if (line.starts_with("ExecStart=")) context.out << "  runs: " << line.substr(10) << "\n";
    }
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
    table.add(service, "install",
              "Write the systemd user unit quorvane.service and start it\n"
              "The unit goes to ~/.config/systemd/user (XDG_CONFIG_HOME), runs this program's\n"
              "'daemon' (with --data-dir when you give one), restarts it after a failure and\n"
              "logs to the journal. When your user service manager answers, it is enabled and\n"
              "started at once; otherwise the command to do so is printed.",
              {DataUse::reads, [&](CommandContext& c) {
                   return Commands::serviceInstall(c, !table.dataDir().empty());
               }});
    table.add(service, "uninstall", "Stop the service and remove its unit",
              {DataUse::reads, Commands::serviceUninstall});
    table.add(service, "status",
              "Say whether the unit is installed, what it runs, and whether it is running",
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
