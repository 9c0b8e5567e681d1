#include "cli/ControlClient.hpp"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <ostream>

#include <fmt/format.h>

#include "base/Log.hpp"
#include "platform/UnixSocket.hpp"

namespace quorvane {

namespace {

using ControlProtocol::FrameKind;

// How long the daemon may stay silent before the wait is checked again; a command
// such as a sync may run for minutes, so silence alone ends nothing.
constexpr std::chrono::milliseconds kQuietSpell{60'000};
constexpr std::chrono::milliseconds kSendLimit{30'000};

}  // namespace

std::optional<ControlClient> ControlClient::connect(const std::filesystem::path& dataDir,
                                                    std::ostream& err) {
    const std::filesystem::path path = dataDir / ControlProtocol::kSocketName;
    UnixSocket::Connected connection = UnixSocket::connect(path);
    if (!connection.fd.valid()) return std::nullopt;
    // Only a daemon of this user is told the command line, or the token of a new account.
    std::optional<uid_t> peer = UnixSocket::peerUid(connection.fd.get());
    if (!peer || *peer != ::geteuid()) {
        err << fmt::format("quorvane: {} belongs to another user; not using it\n", path.string());
        return std::nullopt;
    }
    return ControlClient(std::move(connection.fd));
}

int ControlClient::run(const ControlProtocol::Request& request, std::ostream& out,
                       std::ostream& err) {
    return exchange(request, out, err, std::nullopt).value_or(1);
}

std::optional<int> ControlClient::runWithin(const ControlProtocol::Request& request,
                                            std::ostream& out, std::ostream& err,
                                            std::chrono::milliseconds limit) {
    return exchange(request, out, err, std::chrono::steady_clock::now() + limit);
}

std::optional<int> ControlClient::exchange(
    const ControlProtocol::Request& request, std::ostream& out, std::ostream& err,
    std::optional<std::chrono::steady_clock::time_point> deadline) {
    // What is left of the caller's patience, or `spell` when it has none.
    auto within = [&](std::chrono::milliseconds spell) {
        if (!deadline) return spell;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            *deadline - std::chrono::steady_clock::now());
        return std::clamp(left, std::chrono::milliseconds(0), spell);
    };
    if (!UnixSocket::sendAll(socket_.get(), ControlProtocol::encodeRequest(request),
                             within(kSendLimit))) {
        if (deadline && within(kSendLimit).count() == 0) return std::nullopt;
        err << "quorvane: the daemon did not take the command\n";
        return 1;
    }
    ControlProtocol::FrameReader reader;
    for (;;) {
        if (deadline && within(kQuietSpell).count() == 0) return std::nullopt;
        UnixSocket::Received received =
            UnixSocket::receive(socket_.get(), 64 * 1024, within(kQuietSpell));
        if (received.wait == UnixSocket::Wait::failed) {
            err << "quorvane: lost the connection to the daemon\n";
            return 1;
        }
        if (received.closed) {
            err << "quorvane: the daemon stopped before the command finished; run it again to "
                   "see where it stands\n";
            return 1;
        }
        reader.append(received.bytes);
        try {
            while (std::optional<ControlProtocol::Frame> frame = reader.next()) {
                switch (frame->kind) {
                    case FrameKind::standardOutput: out << frame->payload << std::flush; break;
                    case FrameKind::standardError: err << frame->payload << std::flush; break;
                    case FrameKind::exitStatus: {
                        int status = 1;
                        auto [end, error] =
                            std::from_chars(frame->payload.data(),
                                            frame->payload.data() + frame->payload.size(), status);
                        bool whole = error == std::errc() &&
                                     end == frame->payload.data() + frame->payload.size();
                        return whole && status >= 0 && status <= 255 ? status : 1;
                    }
                    default: throw std::runtime_error("a request frame in a reply");
                }
            }
        } catch (const std::exception& error) {
            err << fmt::format("quorvane: the daemon's reply could not be read: {}\n",
                               error.what());
            return 1;
        }
    }
}

}  // namespace quorvane
