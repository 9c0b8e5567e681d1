#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/ProcessRunner.hpp"

namespace quorvane::GitCommand {

// The one git the program runs; PATH is never searched for it.
inline constexpr std::string_view kGitPath = "/usr/bin/git";

// A git child in `path`: it may not take optional locks (so a scan never holds
// index.lock while the user works), may not prompt for a password, and does not
// inherit variables that would point it at another repository.
ProcessRequest request(const std::string& path, std::vector<std::string> arguments, double timeout);

}  // namespace quorvane::GitCommand
