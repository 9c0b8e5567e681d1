#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>

#include "cli/ControlProtocol.hpp"
#include "platform/FileDescriptor.hpp"
#include "platform/UnixSocketServer.hpp"

namespace quorvane {

// The daemon's end of the control socket: commands run by the same user that want
// to change the data folder send their command line here, and the daemon runs it
// on the state it owns, streaming back what it prints and its exit status.
// Commands run one at a time, in the order they finished sending; a client that
// goes away mid-command only loses the output, never the change.
class ControlServer {
public:
    using Handler = std::function<int(const ControlProtocol::Request& request, std::ostream& out,
                                      std::ostream& err)>;

    struct Limits {
        // How long a client may take to send its whole request.
        std::chrono::milliseconds request{10'000};
        // How long a client may leave output unread before it is dropped.
        std::chrono::milliseconds reply{30'000};
        size_t connections = 16;
    };

    ControlServer(std::filesystem::path socketPath, Handler handler, Limits limits);
    ControlServer(std::filesystem::path socketPath, Handler handler)
        : ControlServer(std::move(socketPath), std::move(handler), Limits{}) {}
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // Listens and accepts in a thread of its own. Empty when listening; otherwise
    // why not.
    std::string start();

    // Stops accepting and refuses commands that have not begun; returns at once.
    void beginStop();

    // Stops as beginStop does, lets a running command finish, and removes the
    // socket file.
    void stop();

private:
    void serve(Fd socket);

    Handler handler_;
    Limits limits_;
    std::atomic<bool> stopping_{false};
    // One command at a time, in the order their requests were complete.
    std::mutex turnMutex_;
    std::condition_variable turnChanged_;
    uint64_t nextTicket_ = 0;
    uint64_t serving_ = 0;
    // Last, so that its threads are gone before anything they use.
    UnixSocketServer server_;
};

}  // namespace quorvane
