#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/ProcessRunner.hpp"

namespace quorvane {

// Opens a repository's folder in the user's terminal emulator or in VS Code. Each is
// a program of its own: it is started detached, in the folder, and may outlive us.
class RepoActions {
public:
    // What decides which terminal runs.
    struct Environment {
        std::optional<std::string> terminal;  // TERMINAL; unset or empty for the default
        std::string searchPath;               // folders searched for a bare program name

        // This process's TERMINAL, and the PATH its children get.
        static Environment current();
    };

    // The Debian alternative that names the system's chosen terminal emulator.
    static constexpr std::string_view kDefaultTerminal = "x-terminal-emulator";

    RepoActions(const ProcessRunner& runner, Environment environment);

    // The terminal program as an absolute path: TERMINAL when it is set, else the
    // default, each looked up in the search path unless it holds a "/". Nothing when
    // no executable file answers to the name.
    std::optional<std::string> terminalExecutable() const;

    // Starts the terminal with `folder` as its working folder and returns as soon as
    // it runs. Failure (no terminal, no folder, no start) comes back as the value.
    LaunchResult openInTerminal(const std::string& folder) const;

    // The command VS Code installs on the search path.
    static constexpr std::string_view kVSCode = "code";
    // Starts VS Code on `folder` and returns as soon as it runs. Failure (no VS Code,
    // no folder, no start) comes back as the value.
    LaunchResult openInVSCode(const std::string& folder) const;

private:
    const ProcessRunner& runner_;
    Environment environment_;
};

}  // namespace quorvane
