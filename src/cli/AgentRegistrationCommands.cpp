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
#include "cli/CommandTable.hpp"
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

// Registers quorvane-mcp with Claude Code at a scope ("user", "project", "local"),
// passing on the data folder when one was given, and prints the entry for other
// MCP clients; takes it out again; lists what Claude Code has registered.
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

namespace quorvane {

void declareAgentCommands(CommandTable& table) {
    CLI::App* agent =
        table.group("agent", "The agent socket that coding agents use to read and propose changes");
    auto& json = table.keep<bool>();
    table
        .add(agent, "status",
             "Say whether the agent socket is up\n"
             "Also where it is, the permission level, the allowed roots and how many tools it\n"
             "offers. When the daemon runs but could not open the socket, it says why.",
             {DataUse::reads, [&](CommandContext& c) { return Commands::agentStatus(c, json); }})
        ->add_flag("--json", json, "Print the status as JSON");
    auto& scope = table.keep<std::string>("user");
    auto addScope = [&](CLI::App* command) {
        command
            ->add_option("--scope", scope,
                         "Where Claude Code keeps it: user (every project, the default),\n"
                         "project (.mcp.json in this folder, to share) or local (this\n"
                         "project, only for you)")
            ->check(CLI::IsMember(ClaudeRegistration::scopes()));
    };
    addScope(table.add(agent, "register",
                       "Add quorvane-mcp to Claude Code's MCP servers (claude mcp add)\n"
                       "It also prints the entry to paste into any other MCP client's "
                       "configuration.\n"
                       "Registering again replaces the entry; with --data-dir the bridge talks "
                       "to that\n"
                       "folder's daemon.",
                       {DataUse::reads, [&](CommandContext& c) {
                            return Commands::agentRegister(c, scope, !table.dataDir().empty());
                        }}));
    addScope(table.add(
        agent, "unregister", "Take quorvane-mcp out of Claude Code with `claude mcp remove`",
        {DataUse::reads, [&](CommandContext& c) { return Commands::agentUnregister(c, scope); }}));
    table.add(agent, "registrations",
              "List the MCP servers Claude Code knows, with `claude mcp list`",
              {DataUse::reads, Commands::agentRegistrations});
}

}  // namespace quorvane
