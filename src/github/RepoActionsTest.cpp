#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "github/RepoActions.hpp"
#include "platform/FileDescriptor.hpp"
#include "platform/Shell.hpp"
#include "testing/FakeProcessRunner.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using testing::FakeProcessRunner;

fs::path executable(const fs::path& path, const std::string& content) {
    testing::writeFile(path, content);
    fs::permissions(path, fs::perms::owner_all);
    return path;
}

TEST(RepoActions, StartsTERMINALOrTheSystemDefaultInTheFolder) {
    testing::TempDir dir;
    fs::path first = dir / "first", second = dir / "second";
    std::string fallback = executable(first / "x-terminal-emulator", "#!/bin/sh\n");
    std::string kitty = executable(second / "kitty", "#!/bin/sh\n");
    testing::writeFile(first / "kitty", "#!/bin/sh\n");  // not executable: passed over
    // Empty entries are skipped, not read as the current folder.
    std::string path = "::" + first.string() + ":" + second.string() + ":";
    FakeProcessRunner runner;
    auto open = [&](std::optional<std::string> terminal, const std::string& searchPath) {
        LaunchResult result = RepoActions(runner, {terminal, searchPath}).openInTerminal("/app");
        return result.error.empty() ? runner.requests().back().executable : result.error;
    };
    runner.detachedAnswer = {true, ""};
    EXPECT_EQ(open(std::nullopt, path), fallback);
    EXPECT_EQ(open("", path), fallback);
    EXPECT_EQ(open("kitty", path), kitty);
    EXPECT_EQ(open(kitty, ""), kitty);
    EXPECT_EQ(open("alacritty", path),
              "no terminal to open: TERMINAL names alacritty, which is not an executable program");
    EXPECT_EQ(open(std::nullopt, second.string()),
              "no terminal to open: TERMINAL is not set and x-terminal-emulator is not installed");
    EXPECT_EQ(runner.requests().size(), 4u);

    // The runner's refusal stands, and so does what fails in the real one after the fork.
    runner.detachedAnswer = {false, "fork: Resource temporarily unavailable"};
    EXPECT_EQ(open(kitty, ""), "fork: Resource temporarily unavailable");
    Shell shell;
    std::string junk = executable(dir / "junk", "neither a script nor a binary\n");
    EXPECT_EQ(RepoActions(shell, {junk, ""}).openInTerminal(dir.path()).error,
              "cannot start " + junk + ": Exec format error");
    EXPECT_EQ(RepoActions(shell, {kitty, ""}).openInTerminal(dir / "gone").error,
              "working folder " + (dir / "gone").string() + " does not exist");

    // VS Code is looked for on the search path only, whatever TERMINAL says, and is
    // given the folder to open.
    std::string code = executable(second / "code", "#!/bin/sh\n");
    runner.detachedAnswer = {true, ""};
    ASSERT_TRUE(RepoActions(runner, {kitty, path}).openInVSCode("/app").started);
    EXPECT_EQ(runner.requests().back().executable, code);
    EXPECT_EQ(runner.requests().back().arguments, std::vector<std::string>{"/app"});
    EXPECT_EQ(RepoActions(runner, {std::nullopt, first.string()}).openInVSCode("/app").error,
              "no VS Code to open: code is not installed, or not on the search path");
}

// Reads what one writer puts into a FIFO, until it closes it or 10 s pass.
std::string readFifo(const Fd& fifo) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string text;
    while (true) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd ready{fifo.get(), POLLIN, 0};
        if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0) break;
        char buffer[512];
        ssize_t n = ::read(fifo.get(), buffer, sizeof buffer);
        if (n == 0) break;
        if (n > 0) text.append(buffer, static_cast<size_t>(n));
    }
    return text;
}

// A stand-in terminal: it writes its folder, its argv and its pid into a FIFO,
// then keeps running as a terminal would.
TEST(RepoActions, TheTerminalRunsDetachedInTheFolder) {
    testing::TempDir dir;
    fs::path record = dir / "record";
    ASSERT_EQ(::mkfifo(record.c_str(), 0600), 0);
    // Open before the start, so the script's write finds a reader; without a writer yet,
    // poll waits instead of reporting the end.
    Fd fifo(::open(record.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_TRUE(fifo.valid());
    std::string terminal = executable(dir / "bin/term",
                                      "#!/bin/sh\nout=$(readlink /proc/$$/fd/1)\n"
                                      "{ pwd; echo \"$0 $#\"; echo \"$out\"; echo $$; } > '" +
                                          record.string() + "'\nexec sleep 60\n");
    fs::create_directories(dir / "my repo");

    Shell shell;
    LaunchResult result =
        RepoActions(shell, {"term", (dir / "bin").string()}).openInTerminal(dir / "my repo");
    ASSERT_TRUE(result.started) << result.error;
    EXPECT_EQ(result.error, "");

    // The pid comes last; everything before it is known.
    std::string text = readFifo(fifo);
    size_t lastLine = text.rfind('\n', text.size() - 2) + 1;
    EXPECT_EQ(text.substr(0, lastLine),
              (dir / "my repo").string() + "\n" + terminal + " 0\n/dev/null\n");
    pid_t pid = std::atoi(text.c_str() + lastLine);
    ASSERT_GT(pid, 0) << text;

    // Still running after the call returned, outside our session, and not our child:
    // nothing here waits for it or will have to reap it.
    EXPECT_EQ(::kill(pid, 0), 0);
    EXPECT_NE(::getsid(pid), ::getsid(0));
    int status = 0;
    pid_t reaped = ::waitpid(pid, &status, WNOHANG);
    int error = errno;
    EXPECT_EQ(reaped, -1);
    EXPECT_EQ(error, ECHILD);
    ::kill(pid, SIGKILL);
}

}  // namespace
}  // namespace quorvane
