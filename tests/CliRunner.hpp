#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
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

}  // namespace quorvane::testing
