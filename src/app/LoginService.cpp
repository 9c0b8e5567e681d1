#include "app/LoginService.hpp"

#include <unistd.h>

#include <fmt/format.h>

#include "base/PathHelpers.hpp"
#include "persistence/AtomicFile.hpp"

namespace quorvane::LoginService {

namespace fs = std::filesystem;

fs::path unitPath() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    fs::path base = config != nullptr && config[0] == '/'
                        ? fs::path(config)
                        : PathHelpers::homeDirectory() / ".config";
    return base / "systemd" / "user" / kUnitName;
}

std::string unitWord(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '%') {
            out += "%%";
        } else if (c == '$') {
            out += "$$";
        } else if (c == '\\' || c == '"') {
            out += '\\';
            out += c;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

namespace {

std::string systemctlPath() {
    for (const char* path : {"/usr/bin/systemctl", "/bin/systemctl"}) {
        if (::access(path, X_OK) == 0) return path;
    }
    return "/usr/bin/systemctl";
}

}  // namespace

ShellResult systemctl(const ProcessRunner& runner, std::vector<std::string> arguments) {
    ProcessRequest request;
    request.executable = systemctlPath();
    request.arguments = {"--user"};
    request.arguments.insert(request.arguments.end(), arguments.begin(), arguments.end());
    request.timeout = 30;
    return runner.run(request);
}

bool userManagerAnswers(const ProcessRunner& runner) {
    return systemctl(runner, {"show-environment"}).succeeded();
}

std::string unitText(const std::string& command, std::string_view origin) {
    return fmt::format(
        "{}\n"
        "[Unit]\n"
        "Description=Quorvane: the daily record of your Git work\n"
        "\n"
        "[Service]\n"
        "Type=simple\n"
        "ExecStart={}\n"
        "Restart=on-failure\n"
        "RestartSec=5\n"
        "StandardOutput=journal\n"
        "StandardError=journal\n"
        "\n"
        "[Install]\n"
        "WantedBy=default.target\n",
        origin, command);
}

Installed install(const ProcessRunner& runner, const fs::path& executable,
                  const std::optional<fs::path>& dataDir) {
    Installed installed;
    std::string command = unitWord(executable.string()) + " daemon";
    // The default data folder follows the person's environment; a chosen one is
    // written down.
    if (dataDir) command += " --data-dir " + unitWord(dataDir->string());
    std::string unit = unitText(
        command,
        "# Written by 'quorvane service install'; 'quorvane service uninstall' removes it.");
    installed.unit = unitPath();
    std::error_code ec;
    fs::create_directories(installed.unit.parent_path(), ec);
    if (std::optional<std::string> problem = AtomicFile::write(installed.unit, unit, 0644)) {
        installed.problem = fmt::format("cannot write {}: {}", installed.unit.string(), *problem);
        return installed;
    }
    installed.managerAnswered = userManagerAnswers(runner);
    if (installed.managerAnswered) {
        systemctl(runner, {"daemon-reload"});
        ShellResult enabled = systemctl(runner, {"enable", "--now", kUnitName});
        if (!enabled.succeeded()) {
            std::string said = enabled.stdErr.substr(0, enabled.stdErr.find('\n'));
            installed.enableProblem =
                fmt::format("systemctl --user enable --now {} failed: {}", kUnitName, said);
        }
    }
    return installed;
}

bool isInstalled() {
    std::error_code ec;
    return fs::is_regular_file(unitPath(), ec);
}

}  // namespace quorvane::LoginService
