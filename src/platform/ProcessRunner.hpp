#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quorvane {

class Cancellation;

// The answer of any child process. (The streams are `stdOut` and `stdErr` because
// `stdout` and `stderr` are macros of the C library.)
struct ShellResult {
    std::string stdOut;  // everything written to standard output, as repaired UTF-8
    std::string stdErr;  // the same for standard error, or why the launch failed
    int exitCode = -1;   // exit status, the signal number of a killed child, -1 if never started

    bool succeeded() const { return exitCode == 0; }
};

// The answer of a detached start: the program runs on its own, or why it does not.
struct LaunchResult {
    bool started = false;
    std::string error;  // names the step that failed and the system's reason; empty if started
};

// One child process to run: the program is started directly, never through a shell.
struct ProcessRequest {
    std::string executable;                    // absolute path; no search of PATH
    std::vector<std::string> arguments;        // not including the program name
    std::optional<std::string> cwd;            // working folder; a leading "~" is expanded
    std::optional<std::string> standardInput;  // written to the child, then closed
    double timeout = 30.0;                     // seconds before SIGTERM; SIGKILL 3 s later
    std::vector<std::pair<std::string, std::string>> environment;  // set on top of ours
    std::vector<std::string> unsetEnvironment;  // removed from what the child inherits
    // When given and cancelled, no child starts (exit code -1), and a running one is
    // ended as at its timeout: SIGTERM, then SIGKILL 3 s later.
    const Cancellation* cancellation = nullptr;
};

// The only door to child processes. The real one is `Shell`; tests substitute a
// fake that records what was asked. Implementations are safe to call from many
// threads at once.
class ProcessRunner {
public:
    virtual ~ProcessRunner() = default;

    // Runs the child to its end (or its timeout) and always returns a result.
    virtual ShellResult run(const ProcessRequest& request) const = 0;

    // Starts the program and returns without waiting for it. It runs in a session of
    // its own with /dev/null for its standard streams, and nobody here reaps it: it
    // may outlive this process. `standardInput` and `timeout` are not used.
    virtual LaunchResult startDetached(const ProcessRequest& request) const = 0;

    // Runs a command line through the user's login shell ("-lc"), without input.
    ShellResult loginShell(const std::string& commandLine, std::optional<std::string> cwd,
                           double timeout, const Cancellation* cancellation = nullptr) const;
};

}  // namespace quorvane
