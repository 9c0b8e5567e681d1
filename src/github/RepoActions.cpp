#include "github/RepoActions.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include <fmt/format.h>

#include "platform/Shell.hpp"

namespace quorvane {

RepoActions::Environment RepoActions::Environment::current() {
    Environment environment;
    if (const char* terminal = std::getenv("TERMINAL")) environment.terminal = terminal;
    const char* path = std::getenv("PATH");
    environment.searchPath =
        Shell::enrichedPath(path ? std::optional<std::string_view>(path) : std::nullopt);
    return environment;
}

RepoActions::RepoActions(const ProcessRunner& runner, Environment environment)
    : runner_(runner), environment_(std::move(environment)) {}

std::optional<std::string> RepoActions::terminalExecutable() const {
    bool chosen = environment_.terminal && !environment_.terminal->empty();
    std::string name = chosen ? *environment_.terminal : std::string(kDefaultTerminal);
    if (name.find('/') == std::string::npos)
        return Shell::findInPath(name, environment_.searchPath);
    // The program is started in the repository's folder, so a relative path is made
    // absolute against ours first.
    std::error_code error;
    std::string path = std::filesystem::absolute(name, error).string();
    if (error || !Shell::isExecutableFile(path)) return std::nullopt;
    return path;
}

LaunchResult RepoActions::openInTerminal(const std::string& folder) const {
    std::optional<std::string> terminal = terminalExecutable();
    if (!terminal) {
        bool chosen = environment_.terminal && !environment_.terminal->empty();
        if (chosen) {
            return LaunchResult{
                false, fmt::format("no terminal to open: TERMINAL names {}, which is not an "
                                   "executable program",
                                   *environment_.terminal)};
        }
        return LaunchResult{false, fmt::format("no terminal to open: TERMINAL is not set and {} "
                                               "is not installed",
                                               kDefaultTerminal)};
    }
    // Terminal emulators start their shell in their own working folder, so the folder
    // needs no argument, whose spelling would differ from one emulator to the next.
    ProcessRequest request;
    request.executable = *terminal;
    request.cwd = folder;
    return runner_.startDetached(request);
}

LaunchResult RepoActions::openInVSCode(const std::string& folder) const {
    std::optional<std::string> editor =
        Shell::findInPath(std::string(kVSCode), environment_.searchPath);
    if (!editor) {
        return LaunchResult{
            false, fmt::format("no VS Code to open: {} is not installed, or not on the search path",
                               kVSCode)};
    }
    // The folder is also the working folder, so that a terminal VS Code opens there
    // starts in the repository.
    ProcessRequest request;
    request.executable = *editor;
    request.arguments = {folder};
    request.cwd = folder;
    return runner_.startDetached(request);
}

}  // namespace quorvane
