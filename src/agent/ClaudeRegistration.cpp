#include "agent/ClaudeRegistration.hpp"

#include <cstdlib>

#include <nlohmann/json.hpp>

#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "platform/Shell.hpp"

namespace quorvane {

namespace {

// `claude` starts slowly (it is a Node.js program) and may check its own updates.
constexpr double kClaudeTimeoutSeconds = 60;

}  // namespace

const std::vector<std::string>& ClaudeRegistration::scopes() {
    static const std::vector<std::string> names = {"user", "project", "local"};
    return names;
}

ClaudeRegistration::ClaudeRegistration(const ProcessRunner& runner,
                                       std::optional<std::string> claude, std::string workingDir)
    : runner_(runner), claude_(std::move(claude)), workingDir_(std::move(workingDir)) {}

std::optional<std::string> ClaudeRegistration::findClaude() {
    const char* path = std::getenv("PATH");
    const std::string searchPath =
        Shell::enrichedPath(path ? std::optional<std::string_view>(path) : std::nullopt);
    if (std::optional<std::string> found = Shell::findInPath("claude", searchPath)) return found;
    const std::string local = (PathHelpers::homeDirectory() / ".claude/local/claude").string();
    if (Shell::isExecutableFile(local)) return local;
    return std::nullopt;
}

AgentResult ClaudeRegistration::run(std::vector<std::string> arguments) const {
    if (!claude_) {
        return AgentResult::failure("not_found",
                                    "the `claude` command was not found on the search path");
    }
    ProcessRequest request;
    request.executable = *claude_;
    request.arguments = std::move(arguments);
    request.cwd = workingDir_;
    request.timeout = kClaudeTimeoutSeconds;
    ShellResult result = runner_.run(request);
    if (result.succeeded()) {
        return AgentResult::success(nlohmann::json({{"output", result.stdOut}}).dump());
    }
    std::string why = std::string(Text::trim(result.stdErr));
    if (why.empty()) why = std::string(Text::trim(result.stdOut));
    if (why.empty()) why = "claude exited with status " + std::to_string(result.exitCode);
    return AgentResult::failure(result.exitCode == -1 ? "not_found" : "error", why);
}

AgentResult ClaudeRegistration::registerBridge(const std::string& scope,
                                               const Bridge& bridge) const {
    // Everything after "--" is the server's own command line, so its options are not
    // taken for claude's.
    std::vector<std::string> add = {"mcp",       "add", "--scope",        scope,
                                    kServerName, "--",  bridge.executable};
    add.insert(add.end(), bridge.arguments.begin(), bridge.arguments.end());
    AgentResult added = run(add);
    if (added.ok || !added.hint || added.hint->find("already exists") == std::string::npos) {
        return added;
    }
    // A registration left from another install or data folder is replaced, so
    // registering again is how the person points Claude Code at this one.
    AgentResult removed = unregister(scope);
    return removed.ok ? run(add) : removed;
}

AgentResult ClaudeRegistration::unregister(const std::string& scope) const {
    return run({"mcp", "remove", "--scope", scope, kServerName});
}

AgentResult ClaudeRegistration::list() const {
    return run({"mcp", "list"});
}

std::string ClaudeRegistration::clientEntry(const Bridge& bridge) {
    nlohmann::ordered_json server = {{"command", bridge.executable}, {"args", bridge.arguments}};
    return nlohmann::ordered_json({{"mcpServers", {{kServerName, server}}}}).dump(2);
}

}  // namespace quorvane
