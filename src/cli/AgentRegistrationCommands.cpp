// quorvane agent register|unregister|registrations: Quorvane's tools in Claude Code
// (through its `claude` command line) and in any other MCP client (by the entry
// printed for its configuration file).
#include <filesystem>
#include <ostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "agent/ClaudeRegistration.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "platform/Shell.hpp"

namespace quorvane::Commands {

namespace {

constexpr const char* kBridgeName = "quorvane-mcp";

// The bridge installed beside this program, started with this data folder when one
// was chosen on the command line.
std::optional<ClaudeRegistration::Bridge> bridgeFor(const CommandContext& context,
                                                    bool explicitDataDir) {
    std::optional<std::filesystem::path> self = PathHelpers::ownExecutable();
    if (!self) return std::nullopt;
    const std::filesystem::path bridge = self->parent_path() / kBridgeName;
    if (!Shell::isExecutableFile(bridge.string())) return std::nullopt;
    ClaudeRegistration::Bridge command{bridge.string(), {}};
    if (explicitDataDir) command.arguments = {"--data-dir", context.dataDir.string()};
    return command;
}

ClaudeRegistration registration(const CommandContext& context) {
    std::filesystem::path here = context.workingDir;
    if (here.empty()) {
        std::error_code ec;
        here = std::filesystem::current_path(ec);
    }
    return ClaudeRegistration(context.runner, ClaudeRegistration::findClaude(), here.string());
}

std::string outputOf(const AgentResult& result) {
    nlohmann::json parsed = nlohmann::json::parse(result.json, nullptr, false);
    return parsed.is_object() ? parsed.value("output", "") : "";
}

}  // namespace

int agentRegister(CommandContext& context, const std::string& scope, bool explicitDataDir) {
    std::optional<ClaudeRegistration::Bridge> bridge = bridgeFor(context, explicitDataDir);
    if (!bridge) {
        context.err << fmt::format(
            "quorvane: {} is not installed beside this program; build or install it first\n",
            kBridgeName);
        return 1;
    }
    AgentResult result = registration(context).registerBridge(scope, *bridge);
    if (result.ok) {
        context.out << fmt::format(
            "Registered with Claude Code (scope: {}). Restart Claude Code to load the tools.\n",
            scope);
    } else {
        context.err << "Registration failed: " << result.hint.value_or("unknown error") << "\n";
    }
    context.out << "\nFor another MCP client, add this server to its configuration:\n"
                << ClaudeRegistration::clientEntry(*bridge) << "\n";
    return result.ok ? 0 : 1;
}

int agentUnregister(CommandContext& context, const std::string& scope) {
    AgentResult result = registration(context).unregister(scope);
    if (!result.ok) {
        context.err << "Removal failed: " << result.hint.value_or("unknown error") << "\n";
        return 1;
    }
    context.out << fmt::format("Removed from Claude Code (scope: {}).\n", scope);
    return 0;
}

int agentRegistrations(CommandContext& context) {
    AgentResult result = registration(context).list();
    if (!result.ok) {
        context.err << "Listing failed: " << Text::visible(result.hint.value_or("unknown error"))
                    << "\n";
        return 1;
    }
    // The list names servers a project's own .mcp.json may bring.
    context.out << Text::visible(outputOf(result), Text::Lines::many);
    return 0;
}

}  // namespace quorvane::Commands
