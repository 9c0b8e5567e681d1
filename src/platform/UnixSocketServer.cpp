#include "platform/UnixSocketServer.hpp"

#include <errno.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <exception>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "platform/UnixSocket.hpp"

namespace quorvane {

namespace {

struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
};

std::optional<FileIdentity> socketFileAt(const std::filesystem::path& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) return std::nullopt;
    return FileIdentity{info.st_dev, info.st_ino};
}

}  // namespace

UnixSocketServer::UnixSocketServer(std::filesystem::path path, Options options, Handlers handlers)
    : path_(std::move(path)),
      options_(options),
      handlers_(std::move(handlers)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

UnixSocketServer::~UnixSocketServer() {
    stop();
}

std::optional<UnixSocketServer::Failure> UnixSocketServer::start() {
    if (!wake_.valid()) return Failure{"cannot create an event descriptor", "eventfd", 0};
    if (listening_.valid()) return std::nullopt;
    // A previous stop left the wake descriptor readable; every thread that saw it
    // has been joined, so it can be emptied.
    uint64_t count = 0;
    [[maybe_unused]] ssize_t drained = ::read(wake_.get(), &count, sizeof count);

    UnixSocket::Listening listening = UnixSocket::listen(path_, options_.backlog);
    if (!listening.fd.valid()) {
        return Failure{std::move(listening.error), std::move(listening.failedCall),
                       listening.errorNumber};
    }
    const FileIdentity made = socketFileAt(path_).value_or(FileIdentity{});
    socketDevice_ = made.device;
    socketInode_ = made.inode;
    listening_ = std::move(listening.fd);
    try {
        acceptor_ = std::thread([this] { acceptLoop(); });
    } catch (const std::system_error& error) {
        listening_.reset();
        removeOwnSocketFile();
        return Failure{fmt::format("cannot start the accept thread: {}", error.what()), "", 0};
    }
    return std::nullopt;
}

void UnixSocketServer::beginStop() {
    if (!wake_.valid()) return;
    uint64_t one = 1;
    [[maybe_unused]] ssize_t written = ::write(wake_.get(), &one, sizeof one);
}

void UnixSocketServer::stop() {
    beginStop();
    if (acceptor_.joinable()) acceptor_.join();
    if (listening_.valid()) {
        // Closed before the connections end, so a client arriving now is refused at
        // once instead of waiting in a queue nobody takes from.
        listening_.reset();
        removeOwnSocketFile();
    }
    // Each thread finishes what it is doing, then sees the wake descriptor.
    connections_.joinAll();
}

void UnixSocketServer::removeOwnSocketFile() {
    // Only the file this server made: one put there since is someone else's.
    std::optional<FileIdentity> present = socketFileAt(path_);
    if (present && present->device == socketDevice_ && present->inode == socketInode_) {
        ::unlink(path_.c_str());
    }
}

void UnixSocketServer::acceptLoop() {
    // So that a lasting failure, or a burst of refusals, is reported once.
    bool failing = false;
    bool turningAway = false;
    for (;;) {
        UnixSocket::Wait wait =
            UnixSocket::waitFor(listening_.get(), false, options_.reapInterval, wake_.get());
        if (wait == UnixSocket::Wait::woken) return;
        connections_.reapFinished();
        if (wait == UnixSocket::Wait::timedOut) continue;
        const char* call = "poll";
        int error = errno;
        if (wait == UnixSocket::Wait::ready) {
            Fd socket = UnixSocket::accept(listening_.get());
            error = errno;
            if (socket.valid()) {
                failing = false;
                admit(std::move(socket), turningAway);
                continue;
            }
            // The client gave up before it was taken: nothing is wrong.
            if (error == EAGAIN || error == EWOULDBLOCK || error == ECONNABORTED ||
                error == EPROTO) {
                continue;
            }
            call = "accept";
        }
        // Out of descriptors or memory, the listener stays readable: pause instead
        // of spinning on it. The waiting client stays queued until then, and a stop
        // still ends the pause at once.
        if (!failing && handlers_.report) {
            handlers_.report(fmt::format("{}() failed: errno={}", call, error));
        }
        failing = true;
        if (UnixSocket::waitFor(wake_.get(), false, options_.acceptBackoff) !=
            UnixSocket::Wait::timedOut) {
            return;
        }
    }
}

void UnixSocketServer::admit(Fd socket, bool& turningAway) {
    // The socket file is private already; the kernel's word on who connected also
    // keeps out anyone who got hold of a descriptor to it, root included.
    std::optional<uid_t> peer = UnixSocket::peerUid(socket.get());
    if (!peer || *peer != ::geteuid()) {
        if (handlers_.report) {
            handlers_.report(fmt::format("refused a connection from uid {}",
                                         peer ? std::to_string(*peer) : "unknown"));
        }
        return;
    }
    if (connections_.running() >= options_.maxConnections) {
        if (handlers_.turnAway) handlers_.turnAway(socket.get());
        if (!turningAway && handlers_.report) {
            handlers_.report(fmt::format("{} connections are open: turning new ones away",
                                         options_.maxConnections));
        }
        turningAway = true;
        return;
    }
    try {
        connections_.start(std::move(socket), [this](Fd connection) {
            // Only that connection is lost when, say, memory runs out for its input.
            try {
                handlers_.serve(std::move(connection));
            } catch (const std::exception& error) {
                if (handlers_.report) {
                    handlers_.report(
                        fmt::format("a connection ended on an error: {}", error.what()));
                }
            }
        });
    } catch (const std::system_error& error) {
        if (!turningAway && handlers_.report) {
            handlers_.report(
                fmt::format("cannot start a thread for a connection: {}", error.what()));
        }
        turningAway = true;
        return;
    }
    turningAway = false;
}

}  // namespace quorvane
