#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/ProcessRunner.hpp"

namespace quorvane {

// The real process runner: posix_spawn with pipes read through poll. The child
// gets its own session (so it has no terminal to prompt on and can be signalled
// as a group), /dev/null as input unless input is given, and PATH replaced by
// `enrichedPath`. On timeout the group gets SIGTERM, and SIGKILL 3 seconds later.
class Shell final : public ProcessRunner {
public:
    ShellResult run(const ProcessRequest& request) const override;

    // Forks twice so that the program is orphaned at once and the system, not this
    // process, reaps it; a pipe tells whether it reached exec, and if not, why.
    LaunchResult startDetached(const ProcessRequest& request) const override;

    // The PATH every child gets: the usual per-user and local tool folders that the
    // inherited value lacks, in a fixed order, then the inherited value unchanged.
    static std::string enrichedPath(std::optional<std::string_view> current);

    // The first executable `name` in the colon-separated folders, as a shell finds
    // it. An empty entry is the current folder to a shell; here it is skipped,
    // because the current folder of a long-running program is nothing the user chose.
    static std::optional<std::string> findInPath(std::string_view name,
                                                 std::string_view searchPath);
    static bool isExecutableFile(const std::string& path);

    // The user's login shell from the password database, or "/bin/sh".
    static std::string loginShellPath();

    static constexpr double kKillGraceSeconds = 3.0;
};

}  // namespace quorvane
