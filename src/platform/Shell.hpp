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

    // The user's login shell from the password database, or "/bin/sh".
    static std::string loginShellPath();

    static constexpr double kKillGraceSeconds = 3.0;
};

}  // namespace quorvane
