#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <string_view>

#include "agent/AgentResult.hpp"
#include "platform/UnixSocketServer.hpp"

namespace quorvane {

class MCPJSON;

// How long the agent socket waits on a client, and how much unfinished input it
// holds for all of them together.
struct MCPSocketLimits {
    // A connection that sends nothing for this long is closed. A bridge keeps its
    // connection for a whole session, and connects again on its next call when it
    // finds it closed, so this only frees what an abandoned client holds.
    std::chrono::milliseconds idle{std::chrono::minutes(10)};
    // A request line must be whole this long after its first byte came: a bridge
    // writes each line at once, so one left unfinished is a client that stalled.
    std::chrono::milliseconds unfinishedLine{std::chrono::seconds(30)};
    // What all connections together may hold of unfinished lines beyond each one's
    // own free share (MCPSocketServer::kFreeLineBytes).
    size_t bufferBudget = 64 * 1024 * 1024;
};

// The agent socket: coding agents' bridges connect here, send one JSON request per
// line ({"tool": name, "args": value}) and get one JSON reply line per request, in
// order, on the same connection. Access is the socket file's: mode 0600, so only
// its owner can connect. Each connection has a thread of its own, so one agent's
// slow tool never holds another agent up; one connection's requests run one at a
// time. Set-up failures are logged to standard error and leave it stopped.
class MCPSocketServer {
public:
    // A request line longer than this is refused and its connection closed: no
    // agent sends megabytes of arguments, and each connection buffers a line whole.
    static constexpr size_t kMaxLineBytes = 4 * 1024 * 1024;
    // Connections beyond this many are accepted and closed at once, so a runaway
    // client cannot use up the daemon's threads and descriptors.
    static constexpr size_t kMaxConnections = 1024;
    // How long a client may leave a reply unread before its connection is dropped.
    static constexpr std::chrono::milliseconds kReplyLimit{30'000};
    // Each connection holds this much of an unfinished line without drawing on the
    // shared budget, so a request of ordinary size is taken however the other
    // clients behave, and however it is cut into writes.
    static constexpr size_t kFreeLineBytes = 16 * 1024;

    MCPSocketServer(ToolDispatcher& agentService, std::filesystem::path socketPath,
                    MCPSocketLimits limits = {});
    ~MCPSocketServer();
    MCPSocketServer(const MCPSocketServer&) = delete;
    MCPSocketServer& operator=(const MCPSocketServer&) = delete;

    // Listens at the socket path and accepts in a thread of its own. Does nothing
    // while running; a failure is logged and leaves running() false.
    void start();

    // Stops accepting, removes the socket file, closes every connection once its
    // call in flight has finished, and returns when no thread of the server is
    // left. Does nothing while stopped. The server can be started again.
    void stop();

    bool running() const { return running_; }

    // The reply to one request line (without its LF): the dispatcher's result, or
    // why the line was refused before reaching it.
    static MCPJSON replyTo(std::string_view line, ToolDispatcher& dispatcher);
    const std::filesystem::path& socketPath() const { return socketPath_; }

private:
    void serve(int socket);
    // False when the connection must be closed: its reply could not be delivered.
    bool handleLine(std::string_view line, int socket);
    bool write(int socket, const MCPJSON& value);

    ToolDispatcher& agentService_;
    const std::filesystem::path socketPath_;
    const MCPSocketLimits limits_;
    std::atomic<bool> running_{false};
    // The bytes of unfinished lines the connections hold beyond their free shares.
    std::atomic<size_t> unfinishedBytes_{0};
    // start() and stop() one at a time, whichever threads call them.
    std::mutex lifecycleMutex_;
    // Last, so that its threads are gone before anything they use. Its wake
    // descriptor is readable from the moment stop begins until the next start:
    // every thread of the server waits on it.
    UnixSocketServer server_;
};

}  // namespace quorvane
