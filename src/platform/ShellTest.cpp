#include "platform/Shell.hpp"

#include <chrono>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Cancellation.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;

ShellResult sh(const std::string& script, double timeout = 10,
               std::optional<std::string> input = std::nullopt,
               std::optional<std::string> cwd = std::nullopt) {
    ProcessRequest request;
    request.executable = "/bin/sh";
    request.arguments = {"-c", script};
    request.timeout = timeout;
    request.standardInput = std::move(input);
    request.cwd = std::move(cwd);
    return Shell().run(request);
}

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Runs that end on their own, each compared whole: both streams and the exit status.
TEST(ShellTest, EachRunGivesBackItsStreamsAndExitStatus) {
    testing::TempDir dir;
    struct Case {
        const char* what;
        std::string script;
        std::optional<std::string> input, cwd;
        std::string out, err;
        int exitCode;
    };
    const std::vector<Case> cases = {
        {"both streams", "printf 'out\\n'; printf 'err' >&2; exit 3", {}, {}, "out\n", "err", 3},
        {"input", "cat", "fed through stdin", {}, "fed through stdin", "", 0},
        // Without input the child reads an empty /dev/null rather than waiting on ours.
        {"no input", "cat", {}, {}, "", "", 0},
        {"folder", "pwd", {}, dir.path().string(), dir.path().string() + "\n", "", 0},
        {"tilde", "pwd", {}, "~", std::string(getenv("HOME")) + "\n", "", 0},
        {"invalid UTF-8 is repaired",
         "printf 'a\\377b\\303'",
         {},
         {},
         "a\xEF\xBF\xBD"
         "b\xEF\xBF\xBD",
         "",
         0},
        // A password prompt opens /dev/tty; in a session of its own the child has none.
        {"no terminal",
         "if (: </dev/tty) 2>/dev/null; then echo has-terminal; else echo no-terminal; fi",
         {},
         {},
         "no-terminal\n",
         "",
         0},
        // A child that stops reading its input does not kill the caller.
        {"input left unread",
         "head -c 10 >/dev/null; exit 4",
         std::string(4 << 20, 'x'),
         {},
         "",
         "",
         4},
    };
    for (const Case& c : cases) {
        ShellResult result = sh(c.script, 10, c.input, c.cwd);
        EXPECT_EQ(std::tie(result.stdOut, result.stdErr, result.exitCode),
                  std::tie(c.out, c.err, c.exitCode))
            << c.what;
    }
    // Large output on both streams at once must not deadlock on a full pipe.
    ShellResult big = sh("head -c 3000000 /dev/zero | tr '\\0' a; head -c 3000000 /dev/zero >&2");
    EXPECT_EQ(std::pair(big.stdOut.size(), big.stdErr.size()), std::pair(3000000ul, 3000000ul));
}

TEST(ShellTest, ALaunchThatCannotHappenGivesMinusOneWithAReason) {
    ProcessRequest missing;
    missing.executable = "/nonexistent/tool";
    ShellResult result = Shell().run(missing);
    EXPECT_EQ(result.exitCode, -1);
    EXPECT_EQ(result.stdOut, "");
    EXPECT_THAT(result.stdErr, HasSubstr("No such file or directory"));

    ShellResult noFolder = sh("true", 10, std::nullopt, "/nonexistent/folder");
    EXPECT_EQ(noFolder.exitCode, -1);
    EXPECT_THAT(noFolder.stdErr, HasSubstr("/nonexistent/folder"));
}

TEST(ShellTest, ATimedOutChildGetsSigtermAndKeepsItsOutput) {
    auto start = std::chrono::steady_clock::now();
    ShellResult result = sh("echo started; exec sleep 30", 0.5);
    EXPECT_LT(secondsSince(start), 2.5);
    EXPECT_EQ(result.exitCode, 15);
    EXPECT_EQ(result.stdOut, "started\n");
}

TEST(ShellTest, ACancellationStopsARunningChildAndKeepsTheNextFromStarting) {
    Cancellation cancellation;
    ProcessRequest request;
    request.executable = "/bin/sh";
    request.arguments = {"-c", "echo started; exec sleep 30"};
    request.timeout = 60;
    request.cancellation = &cancellation;
    auto start = std::chrono::steady_clock::now();
    std::jthread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        cancellation.cancel();
    });
    ShellResult result = Shell().run(request);
    // Stopped as at a timeout, long before its own 60 s.
    EXPECT_EQ(result.exitCode, 15);
    EXPECT_EQ(result.stdOut, "started\n");
    EXPECT_LT(secondsSince(start), 10.0);

    request.arguments = {"-c", "touch started"};
    testing::TempDir dir;
    request.cwd = dir.path().string();
    ShellResult refused = Shell().run(request);
    EXPECT_EQ(refused.exitCode, -1);
    EXPECT_FALSE(std::filesystem::exists(dir / "started"));
}

TEST(ShellTest, AChildIgnoringSigtermIsKilledThreeSecondsLater) {
    auto start = std::chrono::steady_clock::now();
    ShellResult result = sh("trap '' TERM; echo waiting; while :; do sleep 0.1; done", 0.5);
    double elapsed = secondsSince(start);
    EXPECT_EQ(result.exitCode, 9);
    EXPECT_EQ(result.stdOut, "waiting\n");
    EXPECT_GE(elapsed, 0.5 + Shell::kKillGraceSeconds - 0.1);
    EXPECT_LT(elapsed, 0.5 + Shell::kKillGraceSeconds + 3.0);
}

TEST(ShellTest, AGrandchildHoldingThePipeDoesNotHoldTheCallerPastTheTimeout) {
    // The shell exits at once, but a background sleep in another session keeps stdout open.
    auto start = std::chrono::steady_clock::now();
    ShellResult result = sh("setsid sleep 30 & echo done", 1.0);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.stdOut, "done\n");
    EXPECT_LT(secondsSince(start), 5.0);
}

TEST(ShellTest, EnvironmentIsInheritedWithOverridesAndRemovals) {
    setenv("QUORVANE_TEST_KEEP", "kept", 1);
    setenv("QUORVANE_TEST_DROP", "dropped", 1);
    ProcessRequest request;
    request.executable = "/bin/sh";
    request.arguments = {"-c", "echo \"$QUORVANE_TEST_KEEP,$QUORVANE_TEST_DROP,$EXTRA,$PATH\""};
    request.environment = {{"EXTRA", "extra"}};
    request.unsetEnvironment = {"QUORVANE_TEST_DROP"};
    std::string expectedPath = Shell::enrichedPath(std::string(getenv("PATH")));
    EXPECT_EQ(Shell().run(request).stdOut, "kept,,extra," + expectedPath + "\n");
    unsetenv("QUORVANE_TEST_KEEP");
    unsetenv("QUORVANE_TEST_DROP");
}

TEST(ShellTest, LoginShellRunsACommandLineThroughTheUsersShell) {
    testing::TempDir dir;
    ShellResult result =
        Shell().loginShell("printf '%s|' \"$(pwd)\" one 'two words'", dir.path().string(), 10);
    EXPECT_EQ(result.exitCode, 0) << result.stdErr;
    EXPECT_EQ(result.stdOut, dir.path().string() + "|one|two words|");
    EXPECT_EQ(Shell().loginShell("exit 7", std::nullopt, 10).exitCode, 7);
}

TEST(ShellTest, EnrichedPathAddsOnlyMissingToolFoldersInFront) {
    std::string home = getenv("HOME");
    std::string all = home + "/.local/bin:" + home + "/bin:" + home + "/.cargo/bin:" + home +
                      "/go/bin:/opt/homebrew/bin:/opt/homebrew/sbin:";
    EXPECT_EQ(Shell::enrichedPath(std::nullopt),
              all + "/usr/local/bin:/usr/local/sbin:/usr/bin:/bin:/usr/sbin:/sbin");
    // Present folders are not added again, and the inherited order is untouched.
    EXPECT_EQ(Shell::enrichedPath("/usr/bin:/usr/local/bin::/bin"),
              all + "/usr/local/sbin:/usr/bin:/usr/local/bin::/bin");
}

TEST(ShellTest, ManyRunsAtOnceShareNothing) {
    constexpr int kThreads = 8;
    std::vector<ShellResult> results(kThreads);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&results, i] {
                results[static_cast<size_t>(i)] =
                    sh("cat; echo " + std::to_string(i) + " >&2; exit " + std::to_string(i), 10,
                       "input " + std::to_string(i));
            });
        }
    }
    for (int i = 0; i < kThreads; ++i) {
        const ShellResult& result = results[static_cast<size_t>(i)];
        EXPECT_EQ(result.stdOut, "input " + std::to_string(i));
        EXPECT_EQ(result.stdErr, std::to_string(i) + "\n");
        EXPECT_EQ(result.exitCode, i);
    }
}

}  // namespace
}  // namespace quorvane
