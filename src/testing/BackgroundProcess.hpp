#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace quorvane::testing {

// A child process that runs beside the test, such as the daemon: its standard input
// is read from `inputFile`, its standard output and error go to one file, signals
// reach it by hand, and it is killed and reaped when the object goes away if the
// test has not waited for it.
class BackgroundProcess {
public:
    BackgroundProcess(const std::string& executable, const std::vector<std::string>& arguments,
                      std::filesystem::path outputFile,
                      const std::filesystem::path& inputFile = "/dev/null");
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const;

    // Waits for the exit; the exit status, 128 plus the signal number of a killed
    // child, or nothing when `limit` passed first.
    std::optional<int> waitForExit(std::chrono::milliseconds limit);

    // What the child has written so far.
    std::string output() const;

private:
    pid_t pid_ = -1;
    int pidfd_ = -1;
    bool reaped_ = false;
    int exitStatus_ = 0;
    std::filesystem::path outputFile_;
};

// Checks `condition` every 100 ms until it holds or `limit` passes; true when it held.
template <typename Condition>
bool eventually(std::chrono::milliseconds limit, Condition condition) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (condition()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace quorvane::testing
