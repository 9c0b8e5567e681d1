#pragma once

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Shell.hpp"

namespace quorvane::testing {

// Runs the built `quorvane` program with a data folder of the test's own.
inline ShellResult runQuorvane(const std::filesystem::path& dataDir,
                               std::vector<std::string> arguments, double timeout = 120) {
    ProcessRequest request;
    request.executable = QUORVANE_BINARY;
    request.arguments = std::move(arguments);
    request.arguments.push_back("--data-dir");
    request.arguments.push_back(dataDir.string());
    request.timeout = timeout;
    return Shell().run(request);
}

// The request that runs `quorvane` on `dataDir` with `input` on standard input, away
// from the desktop: the session bus is `noBus`, a socket nobody listens on (so
// secrets go to secrets.json in the data folder, where a test can look), and no
// display or GitHub token comes from the test's own environment. Callers add to
// its environment.
inline ProcessRequest awayFromTheDesktop(const std::filesystem::path& dataDir,
                                         std::vector<std::string> arguments,
                                         std::optional<std::string> input,
                                         const std::filesystem::path& noBus) {
    ProcessRequest request;
    request.executable = QUORVANE_BINARY;
    request.arguments = std::move(arguments);
    request.arguments.push_back("--data-dir");
    request.arguments.push_back(dataDir.string());
    request.standardInput = std::move(input);
    request.timeout = 120;
    request.environment = {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + noBus.string()}};
    request.unsetEnvironment = {"DISPLAY", "GITHUB_TOKEN", "GH_TOKEN"};
    return request;
}

// The user an unprivileged run takes when the tests run as root, who would
// otherwise read and write through any permission bits.
inline constexpr uid_t kUnprivilegedUser = 65534;

// Hands `path` and everything below it to the user `runQuorvaneUnprivileged` runs
// as, and lets that user through the folders above it.
inline void giveToUnprivilegedUser(const std::filesystem::path& path) {
    if (::geteuid() != 0) return;
    auto give = [](const std::filesystem::path& p) {
        if (::lchown(p.c_str(), kUnprivilegedUser, kUnprivilegedUser) != 0) {
            throw std::runtime_error("lchown failed: " + p.string());
        }
    };
    give(path);
    if (std::filesystem::is_directory(path)) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
            give(entry.path());
        }
    }
    for (std::filesystem::path up = path.parent_path(); up != up.root_path();
         up = up.parent_path()) {
        struct stat info {};
        if (::stat(up.c_str(), &info) == 0 && (info.st_mode & S_IXOTH) == 0) {
            ::chmod(up.c_str(), (info.st_mode & 07777) | S_IXOTH);
        }
    }
}

// Runs `quorvane` as an ordinary user: as the tests' own one, or, under root, as
// kUnprivilegedUser through setpriv.
inline ShellResult runQuorvaneUnprivileged(const std::filesystem::path& dataDir,
                                           std::vector<std::string> arguments) {
    if (::geteuid() != 0) return runQuorvane(dataDir, std::move(arguments));
    ProcessRequest request;
    request.executable = "/usr/bin/setpriv";
    request.arguments = {"--reuid=" + std::to_string(kUnprivilegedUser),
                         "--regid=" + std::to_string(kUnprivilegedUser), "--clear-groups", "--",
                         QUORVANE_BINARY};
    request.arguments.insert(request.arguments.end(), arguments.begin(), arguments.end());
    request.arguments.push_back("--data-dir");
    request.arguments.push_back(dataDir.string());
    request.environment = {{"HOME", dataDir.string()}};
    request.unsetEnvironment = {"DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"};
    request.timeout = 120;
    return Shell().run(request);
}

// What a program showed on a pseudo-terminal of its own, without the terminal's
// carriage returns, and its exit status (-1 when it did not exit by itself).
struct TerminalRun {
    std::string shown;
    int exitCode = -1;
};

// Runs `words` (the program first) with exactly `environment` on a new
// pseudo-terminal `columns` wide. Once `prompt` shows, `typed` is typed in. A
// program still running after 60 s is killed, so a test fails rather than hangs.
inline TerminalRun runOnTerminal(std::vector<std::string> words,
                                 std::vector<std::string> environment, unsigned short columns,
                                 const std::string& prompt = "", const std::string& typed = "") {
    // Everything the child needs is made before the fork: it only execs.
    std::vector<char*> argv, envp;
    for (std::string& word : words) argv.push_back(word.data());
    for (std::string& entry : environment) envp.push_back(entry.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    struct winsize size {};
    size.ws_row = 50;
    size.ws_col = columns;
    int terminal = -1;
    pid_t pid = ::forkpty(&terminal, nullptr, nullptr, &size);
    if (pid == 0) {
        ::execve(argv[0], argv.data(), envp.data());
        ::_exit(127);
    }
    TerminalRun run;
    if (pid < 0) return run;
    bool answered = prompt.empty();
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline) {
        if (!answered && run.shown.find(prompt) != std::string::npos) {
            answered =
                ::write(terminal, typed.data(), typed.size()) == static_cast<ssize_t>(typed.size());
        }
        pollfd ready{terminal, POLLIN, 0};
        if (::poll(&ready, 1, 1000) <= 0) continue;
        char buffer[4096];
        ssize_t n = ::read(terminal, buffer, sizeof buffer);
        if (n <= 0) break;  // EIO once the program has gone
        run.shown.append(buffer, static_cast<size_t>(n));
    }
    int status = 0;
    pid_t ended = 0;
    while ((ended = ::waitpid(pid, &status, WNOHANG)) == 0 &&
           std::chrono::steady_clock::now() < deadline) {
        ::poll(nullptr, 0, 10);
    }
    if (ended == 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
    } else if (ended == pid && WIFEXITED(status)) {
        run.exitCode = WEXITSTATUS(status);
    }
    ::close(terminal);
    std::erase(run.shown, '\r');
    return run;
}

// The git processes whose working folder is `folder`, by process id, whoever
// started them: a child its parent left behind counts too.
inline std::vector<std::string> gitProcessesIn(const std::filesystem::path& folder) {
    std::vector<std::string> found;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ec)) {
        std::error_code linkError;
        std::filesystem::path cwd = std::filesystem::read_symlink(entry.path() / "cwd", linkError);
        std::string name;
        std::ifstream(entry.path() / "comm") >> name;
        if (!linkError && cwd == folder && name == "git") {
            found.push_back(entry.path().filename().string());
        }
    }
    return found;
}

}  // namespace quorvane::testing
