#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/AgentResult.hpp"
#include "platform/ProcessRunner.hpp"

namespace quorvane {

// Adds `quorvane-mcp` to Claude Code's MCP servers (and takes it out again) through
// the `claude` command line, and writes the entry other MCP clients take.
class ClaudeRegistration {
public:
    // The name the bridge is registered under.
    static constexpr const char* kServerName = "quorvane";
    static const std::vector<std::string>& scopes();  // "user", "project", "local"

    // How an MCP client starts the bridge.
    struct Bridge {
        std::string executable;              // absolute path
        std::vector<std::string> arguments;  // such as "--data-dir" and its folder
    };

    // `claude` is the command line's absolute path, nothing when it was not found.
    // `workingDir` is where a "project" registration is written.
    ClaudeRegistration(const ProcessRunner& runner, std::optional<std::string> claude,
                       std::string workingDir);

    // Registers the bridge at `scope`, replacing a registration of the same name
    // there. The result's json is the text `claude` printed; a failure's hint says why.
    AgentResult registerBridge(const std::string& scope, const Bridge& bridge) const;
    AgentResult unregister(const std::string& scope) const;
    AgentResult list() const;

    // The "mcpServers" entry for clients configured by a JSON file.
    static std::string clientEntry(const Bridge& bridge);

    // Where `claude` is: the search path the programs Quorvane starts get, then the
    // folder its own installer puts it in.
    static std::optional<std::string> findClaude();

private:
    AgentResult run(std::vector<std::string> arguments) const;

    const ProcessRunner& runner_;
    std::optional<std::string> claude_;
    std::string workingDir_;
};

}  // namespace quorvane
