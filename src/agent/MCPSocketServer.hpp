#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <thread>

#include "agent/AgentResult.hpp"
#include "platform/ConnectionThreads.hpp"
#include "platform/FileDescriptor.hpp"

namespace quorvane {

class MCPJSON;

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

    MCPSocketServer(ToolDispatcher& agentService, std::filesystem::path socketPath);
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
    const std::filesystem::path& socketPath() const { return socketPath_; }

private:
    void acceptLoop();
    // `turningAway` is set while connections are refused, so a burst logs once.
    void admit(Fd socket, bool& turningAway);
    void serve(int socket);
    // False when the connection must be closed: its reply could not be delivered.
    bool handleLine(std::string_view line, int socket);
    bool write(int socket, const MCPJSON& value);

    ToolDispatcher& agentService_;
    const std::filesystem::path socketPath_;
    // Readable from the moment stop begins until the next start; every thread of
    // the server waits on it. Made in the constructor, before any thread exists.
    Fd wake_;
    Fd listening_;
    // The socket file this server made, so stop removes that file and no other.
    dev_t socketDevice_ = 0;
    ino_t socketInode_ = 0;
    std::atomic<bool> running_{false};
    // start() and stop() one at a time, whichever threads call them.
    std::mutex lifecycleMutex_;
    std::thread acceptor_;
    ConnectionThreads connections_;
};

}  // namespace quorvane
