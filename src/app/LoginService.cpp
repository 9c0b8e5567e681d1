#include "app/LoginService.hpp"

#include <unistd.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

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
                  const std::optional<fs::path>& dataDir, bool startNow) {
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
        std::vector<std::string> enable = {"enable", kUnitName};
        if (startNow) enable.insert(enable.begin() + 1, "--now");
        ShellResult enabled = systemctl(runner, enable);
        if (!enabled.succeeded()) {
            std::string said = enabled.stdErr.substr(0, enabled.stdErr.find('\n'));
            installed.enableProblem =
                fmt::format("systemctl --user {} failed: {}", fmt::join(enable, " "), said);
        }
    }
    return installed;
}

UnitProgram programForUnit(const fs::path& self, std::string_view searchPath) {
    std::error_code ec;
    std::optional<fs::path> found;
    size_t start = 0;
    while (start <= searchPath.size()) {
        size_t end = std::min(searchPath.find(':', start), searchPath.size());
        fs::path folder(searchPath.substr(start, end - start));
        start = end + 1;
        if (folder.empty() || folder.is_relative()) continue;
        if (fs::equivalent(folder, self.parent_path(), ec)) return {self, ""};
        fs::path candidate = folder / "quorvane";
        if (!found && fs::is_regular_file(candidate, ec) &&
            ::access(candidate.c_str(), X_OK) == 0) {
            found = candidate;
        }
    }
    if (found) {
        return {*found, fmt::format("this program ({}) is not the installed one; the unit "
                                    "runs the quorvane your PATH finds",
                                    self.string())};
    }
    return {self, fmt::format("{} is not in a folder on your PATH: the unit runs it from "
                              "there, so moving or rebuilding it stops the service "
                              "(scripts/quickstart.sh installs it into ~/.local/bin)",
                              self.string())};
}

bool isInstalled() {
    std::error_code ec;
    return fs::is_regular_file(unitPath(), ec);
}

}  // namespace quorvane::LoginService
