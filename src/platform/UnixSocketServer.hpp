#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "platform/ConnectionThreads.hpp"
#include "platform/FileDescriptor.hpp"

namespace quorvane {

// What the daemon's socket servers share: a socket file only its owner can use,
// an accept thread that only the same user gets past, a thread for each
// connection up to a cap, and a wake descriptor that cuts every wait short once
// stopping begins. Each server keeps its own protocol, run by `serve` on the
// connection's thread.
class UnixSocketServer {
public:
    struct Options {
        size_t maxConnections = 16;
        int backlog = 16;
        // How long accepting pauses when the process has no descriptor or memory to
        // spare: the waiting client stays queued, and the thread does not spin.
        std::chrono::milliseconds acceptBackoff{100};
        // How often the accept thread joins finished connections when nobody connects.
        std::chrono::milliseconds reapInterval{1000};
    };

    struct Handlers {
        // Runs one admitted connection on a thread of its own; the socket is closed
        // when it returns. What it throws ends that connection only.
        std::function<void(Fd connection)> serve;
        // Hears of a connection turned away because the cap is reached, just before
        // it is closed; may be empty.
        std::function<void(int connection)> turnAway;
        // Takes what goes wrong while accepting, one line each; a lasting failure or
        // a burst of refusals gives one line.
        std::function<void(std::string_view line)> report;
    };

    struct Failure {
        std::string error;
        // The system call that failed and its errno, when one did.
        std::string failedCall;
        int errorNumber = 0;
    };

    UnixSocketServer(std::filesystem::path path, Options options, Handlers handlers);
    // Stops as stop() does.
    ~UnixSocketServer();
    UnixSocketServer(const UnixSocketServer&) = delete;
    UnixSocketServer& operator=(const UnixSocketServer&) = delete;

    // Listens at the path and accepts in a thread of its own; nothing when it
    // does. A socket file nobody listens on is replaced; a live one and anything
    // that is not a socket are left as they are. Not while running: after a stop
    // the server can be started again.
    std::optional<Failure> start();

    // Makes the wake descriptor readable: no connection is accepted after this,
    // and every wait on wakeFd() ends. Returns at once; any thread may call it.
    void beginStop();

    // Stops as beginStop does, closes the listener, removes the socket file if it
    // is still the one this server made, and returns once every connection's
    // thread has ended. The caller makes sure no start() runs meanwhile.
    void stop();

    // Readable from the moment stopping begins until the next start: connections
    // wait on it to learn that they should end.
    int wakeFd() const { return wake_.get(); }

    const std::filesystem::path& path() const { return path_; }

private:
    void acceptLoop();
    void admit(Fd socket, bool& turningAway);
    void removeOwnSocketFile();

    const std::filesystem::path path_;
    const Options options_;
    const Handlers handlers_;
    // Made in the constructor, before any thread can see the server, so a stop
    // begun on one thread while another starts it never races for the descriptor.
    Fd wake_;
    Fd listening_;
    // The socket file this server made, so that stopping removes that file and no
    // other put at the path since.
    dev_t socketDevice_ = 0;
    ino_t socketInode_ = 0;
    std::thread acceptor_;
    ConnectionThreads connections_;
};

}  // namespace quorvane
