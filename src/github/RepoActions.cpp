#include "github/RepoActions.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include <fmt/format.h>

#include "platform/Shell.hpp"

namespace quorvane {
namespace {

bool isExecutableFile(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

// The first executable `name` in the colon-separated folders, as a shell finds it.
// An empty entry is the current folder to a shell; here it is skipped, because the
// current folder of a long-running program is nothing the user chose.
std::optional<std::string> findInPath(std::string_view name, std::string_view searchPath) {
    size_t start = 0;
    while (start <= searchPath.size()) {
        size_t end = searchPath.find(':', start);
        if (end == std::string_view::npos) end = searchPath.size();
        std::string_view folder = searchPath.substr(start, end - start);
        if (!folder.empty()) {
            std::string candidate = fmt::format("{}/{}", folder, name);
            if (isExecutableFile(candidate)) return candidate;
        }
        start = end + 1;
    }
    return std::nullopt;
}

}  // namespace

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
    if (name.find('/') == std::string::npos) return findInPath(name, environment_.searchPath);
    // The program is started in the repository's folder, so a relative path is made
    // absolute against ours first.
    std::error_code error;
    std::string path = std::filesystem::absolute(name, error).string();
    if (error || !isExecutableFile(path)) return std::nullopt;
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

}  // namespace quorvane
