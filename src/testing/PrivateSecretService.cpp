#include "testing/PrivateSecretService.hpp"

#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/Shell.hpp"

extern char** environ;

namespace quorvane::testing {

PrivateSecretService::PrivateSecretService() {
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
    if (posix_spawn(&busPid_, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        busPid_ = -1;
        problem_ = "cannot start dbus-daemon";
        return;
    }
    // The daemon is ready once its socket exists; it is up within milliseconds.
    for (int attempt = 0; attempt < 500 && !std::filesystem::exists(socket); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!std::filesystem::exists(socket)) {
        problem_ = "dbus-daemon did not create its socket";
        return;
    }

    // --unlock reads the new login keyring's password from standard input and
    // returns once the daemon answers; the daemon exits when its bus goes away.
    ProcessRequest keyring;
    keyring.executable = "/usr/bin/gnome-keyring-daemon";
    keyring.arguments = {"--unlock", "--components=secrets"};
    keyring.standardInput = "test-keyring-password";
    keyring.timeout = 30;
    ShellResult started = Shell().run(keyring);
    if (!started.succeeded()) problem_ = "gnome-keyring-daemon: " + started.stdErr;
}

PrivateSecretService::~PrivateSecretService() {
    if (busPid_ > 0) {
        ::kill(busPid_, SIGTERM);
        int status = 0;
        ::waitpid(busPid_, &status, 0);
    }
}

}  // namespace quorvane::testing
