#include "agent/AgentSocketLink.hpp"

#include <errno.h>
#include <poll.h>

#include <cstring>

#include <fmt/format.h>

#include "platform/UnixSocket.hpp"

namespace quorvane {

AgentSocketLink::AgentSocketLink(std::filesystem::path socketPath, std::string startCommand,
                                 std::chrono::milliseconds replyLimit)
    : socketPath_(std::move(socketPath)),
      startCommand_(std::move(startCommand)),
      replyLimit_(replyLimit) {}

std::string AgentSocketLink::howToStart() const {
    return fmt::format(
        "Start it with `{}` (or `systemctl --user start quorvane` once `quorvane service "
        "install` has set it up); if it is running, `quorvane agent status` says whether the "
        "agent is turned off. Then call again.",
        startCommand_);
}

bool AgentSocketLink::connectionAlive() const {
    pollfd ready{fd_.get(), POLLIN, 0};
    int polled;
    do {
        polled = ::poll(&ready, 1, 0);
    } while (polled < 0 && errno == EINTR);
    return polled == 0;
}

AgentLink::Reply AgentSocketLink::unreachable(int error) const {
    if (error == ENOENT || error == ECONNREFUSED) {
        return {std::nullopt, fmt::format("Quorvane is not running: nothing listens on its agent "
                                          "socket {}. {}",
                                          socketPath_.string(), howToStart())};
    }
    return {std::nullopt, fmt::format("Cannot reach Quorvane's agent socket {}: {}. {}",
                                      socketPath_.string(), std::strerror(error), howToStart())};
}

AgentLink::Reply AgentSocketLink::exchange(const std::string& requestLine) {
    if (fd_.valid() && !connectionAlive()) fd_ = Fd();
    if (!fd_.valid()) {
        UnixSocket::Connected connected = UnixSocket::connect(socketPath_);
        if (!connected.fd.valid()) return unreachable(connected.error);
        fd_ = std::move(connected.fd);
    }
    auto lost = [this](std::string_view what) {
        fd_ = Fd();
        return Reply{std::nullopt, fmt::format("Quorvane's daemon {}; it may have stopped. {}",
                                               what, howToStart())};
    };
    if (!UnixSocket::sendAll(fd_.get(), requestLine + "\n", replyLimit_)) {
        return lost("did not take the request");
    }
    const auto deadline = std::chrono::steady_clock::now() + replyLimit_;
    std::string received;
    for (;;) {
        if (size_t lf = received.find('\n'); lf != std::string::npos) {
            received.resize(lf);
            return {std::move(received), ""};
        }
        if (received.size() > kMaxReplyBytes) return lost("sent a reply too long to take");
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return lost(
                fmt::format("did not reply within {} s",
                            std::chrono::duration_cast<std::chrono::seconds>(replyLimit_).count()));
        }
        UnixSocket::Received chunk = UnixSocket::receive(fd_.get(), 64 * 1024, left);
        if (chunk.closed) return lost("closed the connection before it replied");
        received += chunk.bytes;
    }
}

}  // namespace quorvane
