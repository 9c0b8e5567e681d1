#include "testing/PrivateSessionBus.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

extern char** environ;

namespace quorvane::testing {

PrivateSessionBus::PrivateSessionBus() {
    std::filesystem::path runtime = dir_ / "runtime";
    std::filesystem::create_directories(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    // dbus-daemon prints its address on descriptor 3 once it accepts connections: the
    // socket file alone appears before it listens, and a client then finds it refusing.
    int ready[2] = {-1, -1};
    if (::pipe2(ready, O_CLOEXEC) != 0) {
        problem_ = "cannot make a pipe for dbus-daemon";
        return;
    }
    std::string addressArgument = "--address=" + address_;
    std::vector<std::string> arguments = {
        "/usr/bin/dbus-daemon", "--session",         "--nofork",
        "--nopidfile",          "--print-address=3", addressArgument};
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ready[1], 3);
    int spawned = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ready[1]);
    if (spawned != 0) {
        ::close(ready[0]);
        pid_ = -1;
        problem_ = "cannot start dbus-daemon";
        return;
    }
    // It is up within milliseconds; the limit only keeps a broken one from hanging.
    std::string printed;
    pollfd readable{ready[0], POLLIN, 0};
    while (printed.find('\n') == std::string::npos && ::poll(&readable, 1, 5000) > 0) {
        char buffer[256];
        ssize_t n = ::read(ready[0], buffer, sizeof buffer);
        if (n <= 0) break;
        printed.append(buffer, static_cast<size_t>(n));
    }
    ::close(ready[0]);
    if (printed.find('\n') == std::string::npos) problem_ = "dbus-daemon did not get ready";
}

PrivateSessionBus::~PrivateSessionBus() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
}

void serveOnBus(const std::string& address, const char* path, const char* name,
                const sd_bus_vtable* vtable, void* userdata, const std::atomic<bool>& stopping,
                std::promise<std::string>& ready, std::string_view what,
                const std::function<void(sd_bus*)>& between) {
    sd_bus* bus = nullptr;
    sd_bus_slot* slot = nullptr;
    int r = sd_bus_new(&bus);
    if (r >= 0) r = sd_bus_set_address(bus, address.c_str());
    if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
    if (r >= 0) r = sd_bus_start(bus);
    if (r >= 0) r = sd_bus_add_object_vtable(bus, &slot, path, name, vtable, userdata);
    if (r >= 0) r = sd_bus_request_name(bus, name, 0);
    if (r < 0) {
        ready.set_value("cannot serve " + std::string(what) + ": " + std::strerror(-r));
        sd_bus_slot_unref(slot);
        sd_bus_flush_close_unref(bus);
        return;
    }
    ready.set_value("");
    while (!stopping) {
        r = sd_bus_process(bus, nullptr);
        if (r < 0) break;
        if (r > 0) continue;
        // Short waits, so whoever stops the loop never waits long for it to see that.
        r = sd_bus_wait(bus, 50'000);
        if (r < 0 && r != -EINTR) break;
        if (between) between(bus);
    }
    sd_bus_slot_unref(slot);
    sd_bus_flush_close_unref(bus);
}

}  // namespace quorvane::testing
