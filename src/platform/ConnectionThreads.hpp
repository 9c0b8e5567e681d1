#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/FileDescriptor.hpp"

namespace quorvane {

// The threads of a socket server's connections, one each. Finished ones are
// joined and forgotten as the server goes, so a server that lives for weeks does
// not gather a thread for every client it ever had.
class ConnectionThreads {
public:
    ConnectionThreads() = default;
    ~ConnectionThreads() { joinAll(); }
    ConnectionThreads(const ConnectionThreads&) = delete;
    ConnectionThreads& operator=(const ConnectionThreads&) = delete;

    // Runs `serve` with `socket` on a thread of its own; the socket is closed when
    // serve returns. Throws std::system_error when no thread can be made (the
    // socket is closed then too).
    void start(Fd socket, std::function<void(Fd)> serve);

    // How many threads have not finished yet.
    size_t running() const;

    // Joins the threads that have finished.
    void reapFinished();

    // Waits for every thread. Nothing may start one meanwhile.
    void joinAll();

private:
    struct Entry {
        std::thread thread;
        std::atomic<bool> done{false};
    };

    mutable std::mutex mutex_;
    std::list<std::unique_ptr<Entry>> entries_;
};

}  // namespace quorvane
