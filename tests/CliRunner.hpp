#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/Shell.hpp"

namespace quorvane::testing {

// Runs the built `quorvane` program with a data folder of the test's own.
inline ShellResult runQuorvane(const std::filesystem::path& dataDir,
                               std::vector<std::string> arguments, double timeout = 120) {
    ProcessRequest request;
    request.executable = QUORVANE_BINARY;
    request.arguments = std::move(arguments);
    request.arguments.push_back("--data-dir");
    request.arguments.push_back(dataDir.string());
    request.timeout = timeout;
    return Shell().run(request);
}

}  // namespace quorvane::testing
