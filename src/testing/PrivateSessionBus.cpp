#include "testing/PrivateSessionBus.hpp"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

extern char** environ;

namespace quorvane::testing {

PrivateSessionBus::PrivateSessionBus() {
    std::filesystem::path runtime = dir_ / "runtime";
    std::filesystem::create_directories(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    std::string socket = (dir_ / "bus").string();

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
}

}  // namespace quorvane::testing
