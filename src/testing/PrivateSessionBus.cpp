#include "testing/PrivateSessionBus.hpp"

#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

extern char** environ;

namespace quorvane::testing {
namespace {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return std::string(value);
}

void restoreEnvironment(const char* name, const std::optional<std::string>& value) {
    if (value) {
        setenv(name, value->c_str(), 1);
    } else {
        unsetenv(name);
    }
}

}  // namespace

PrivateSessionBus::PrivateSessionBus()
    : previousAddress_(environmentValue("DBUS_SESSION_BUS_ADDRESS")),
      previousRuntimeDir_(environmentValue("XDG_RUNTIME_DIR")) {
    std::filesystem::path runtime = dir_ / "runtime";
    std::filesystem::create_directories(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    std::string socket = (dir_ / "bus").string();
    address_ = "unix:path=" + socket;
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", address_.c_str(), 1);

    std::string addressArgument = "--address=" + address_;
    std::vector<std::string> arguments = {"/usr/bin/dbus-daemon", "--session", "--nofork",
                                          "--nopidfile", addressArgument};
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        pid_ = -1;
        problem_ = "cannot start dbus-daemon";
        return;
    }
    // The daemon is ready once its socket exists; it is up within milliseconds.
    for (int attempt = 0; attempt < 500 && !std::filesystem::exists(socket); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!std::filesystem::exists(socket)) problem_ = "dbus-daemon did not create its socket";
}

PrivateSessionBus::~PrivateSessionBus() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
    restoreEnvironment("DBUS_SESSION_BUS_ADDRESS", previousAddress_);
    restoreEnvironment("XDG_RUNTIME_DIR", previousRuntimeDir_);
}

}  // namespace quorvane::testing
