// quorvane-mcp: the program a coding agent starts. It speaks the Model Context
// Protocol on standard input and output and forwards every tool call to the
// running daemon's agent socket, which decides, audits and answers.
#include <signal.h>
#include <unistd.h>

#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "agent/AgentSocketLink.hpp"
#include "agent/MCPBridge.hpp"
#include "app/AppEnvironment.hpp"
#include "app/AppInfo.hpp"
#include "base/PathHelpers.hpp"
#include "persistence/ConfigService.hpp"
#include "platform/Clock.hpp"

namespace {

using namespace quorvane;

std::filesystem::path socketPathFor(const std::string& dataDir) {
    const std::filesystem::path dir =
        dataDir.empty() ? PathHelpers::appSupportDir()
                        : std::filesystem::path(PathHelpers::canonicalPath(dataDir));
    SystemClock clock;
    // Read only: the daemon owns the data folder, the bridge never writes to it. A
    // daemon may still run on the configuration it read before a bad edit; its
    // socket is most likely the default one.
    AppConfig config;
    try {
        config = ConfigService(dir / "config.json", clock).read();
    } catch (const ConfigUnreadable& error) {
        std::cerr << "quorvane-mcp: config.json cannot be read (" << error.problem()
                  << "); trying the default agent socket\n";
    }
    return AppEnvironment::agentSocketPath(config, dir);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app{
            "The Model Context Protocol server of Quorvane for coding agents. An agent starts "
            "it and talks to it on standard input and output; it forwards each call to the "
            "running `quorvane daemon`, where the person's permissions, proposals and the "
            "audit log apply."};
        app.name("quorvane-mcp");
        std::string dataDir;
        std::string socketPath;
        app.add_option("--data-dir", dataDir,
                       "The data folder of the daemon to talk to (default: "
                       "$XDG_DATA_HOME/Quorvane); its socket is found as the daemon finds it");
        app.add_option("--socket", socketPath,
                       "The agent socket to talk to, overriding the one of the data folder");
        app.set_version_flag("--version", "quorvane-mcp " + std::string(AppInfo::version()));
        app.footer(
            "Register it with Claude Code by running `quorvane agent register`, which also "
            "prints the entry for other MCP clients. Nothing changes on an agent's word "
            "alone: changes wait for `quorvane proposals approve ID`.");
        CLI11_PARSE(app, argc, argv);

        // A reply to an agent that went away must end the program, not kill it.
        ::signal(SIGPIPE, SIG_IGN);
        const std::filesystem::path socket =
            socketPath.empty() ? socketPathFor(dataDir) : std::filesystem::path(socketPath);
        if (::isatty(STDIN_FILENO)) {
            std::cerr << "quorvane-mcp: waiting for MCP messages on standard input (an agent "
                         "starts this program; see `quorvane agent register`)\n";
        }
        // A daemon of another data folder is started with that folder.
        const std::string startCommand =
            dataDir.empty()
                ? "quorvane daemon"
                : "quorvane --data-dir " + PathHelpers::canonicalPath(dataDir) + " daemon";
        AgentSocketLink link(socket, startCommand);
        MCPBridge bridge(link, std::string(AppInfo::version()));
        return bridge.serve(STDIN_FILENO, STDOUT_FILENO);
    } catch (const std::exception& error) {
        std::cerr << "quorvane-mcp: " << error.what() << "\n";
        return 1;
    }
}
