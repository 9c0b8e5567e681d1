#include "git/GitCommand.hpp"

namespace quorvane::GitCommand {

ProcessRequest request(const std::string& path, std::vector<std::string> arguments,
                       double timeout) {
    ProcessRequest request;
    request.executable = std::string(kGitPath);
    request.arguments = std::move(arguments);
    request.cwd = path;
    request.timeout = timeout;
    request.environment = {{"GIT_OPTIONAL_LOCKS", "0"}, {"GIT_TERMINAL_PROMPT", "0"}};
    request.unsetEnvironment = {
        "GIT_DIR",    "GIT_WORK_TREE", "GIT_INDEX_FILE",      "GIT_COMMON_DIR",
        "GIT_PREFIX", "GIT_NAMESPACE", "GIT_OBJECT_DIRECTORY"};
    return request;
}

}  // namespace quorvane::GitCommand
