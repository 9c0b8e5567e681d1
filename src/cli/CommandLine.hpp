#pragma once

#include <filesystem>
#include <iosfwd>

#include "cli/ControlProtocol.hpp"
#include "platform/Clock.hpp"
#include "platform/ProcessRunner.hpp"
#include "platform/TerminalStyle.hpp"

namespace quorvane {

// Parses the command line, runs the chosen command and returns the exit status:
// 0 done, 1 the command failed, 2 the command line was wrong.
int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                   const ProcessRunner& runner, const Clock& clock);
// The same for output read elsewhere than on this process's standard output, such
// as by a client on another terminal: `style` says how that output is shown.
int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                   const ProcessRunner& runner, const Clock& clock, const TerminalStyle& style);

class AppEnvironment;

// Runs, inside the daemon, a command a client sent over the control socket, on the
// daemon's own state and data folder. Only commands that change the data folder
// are run; anything else is refused with status 2.
int runForwardedCommand(const ControlProtocol::Request& request, std::ostream& out,
                        std::ostream& err, const ProcessRunner& runner, const Clock& clock,
                        AppEnvironment& env, const std::filesystem::path& dataDir);

}  // namespace quorvane
