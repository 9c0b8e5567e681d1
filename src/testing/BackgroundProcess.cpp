#include "testing/BackgroundProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace quorvane::testing {

BackgroundProcess::BackgroundProcess(const std::string& executable,
                                     const std::vector<std::string>& arguments,
                                     std::filesystem::path outputFile,
                                     const std::filesystem::path& inputFile)
    : outputFile_(std::move(outputFile)) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, inputFile.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile_.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);

    // The child starts with no signal blocked, whatever the test's threads block.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(executable.c_str()));
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    int error = posix_spawn(&pid_, executable.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) throw std::runtime_error("cannot start " + executable);
    pidfd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
}

BackgroundProcess::~BackgroundProcess() {
    if (!reaped_) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
    if (pidfd_ >= 0) ::close(pidfd_);
}

void BackgroundProcess::signal(int number) const {
    if (!reaped_) ::kill(pid_, number);
}

std::optional<int> BackgroundProcess::waitForExit(std::chrono::milliseconds limit) {
    if (!reaped_) {
        pollfd exited{pidfd_, POLLIN, 0};
        int ready;
        do {
            ready = ::poll(&exited, 1, static_cast<int>(limit.count()));
        } while (ready < 0 && errno == EINTR);
        if (ready <= 0) return std::nullopt;
        int status = 0;
        ::waitpid(pid_, &status, 0);
        reaped_ = true;
        exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return exitStatus_;
}

std::string BackgroundProcess::output() const {
    std::ifstream in(outputFile_);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace quorvane::testing
