#include "cli/ControlServer.hpp"

#include <exception>
#include <ostream>
#include <streambuf>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "base/Log.hpp"
#include "platform/UnixSocket.hpp"

namespace quorvane {

namespace {

using ControlProtocol::FrameKind;

// Turns what a command prints into frames of one kind on the client's socket.
// Once the client is gone, or stops reading, the rest is dropped: the command goes
// on to its end either way.
class FrameStreamBuffer final : public std::streambuf {
public:
    FrameStreamBuffer(int socket, FrameKind kind, std::chrono::milliseconds limit,
                      std::atomic<bool>& lost)
        : socket_(socket), kind_(kind), limit_(limit), lost_(lost) {}

protected:
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
        pending_.push_back(traits_type::to_char_type(c));
        if (pending_.size() >= kChunk) send();
        return c;
    }

    std::streamsize xsputn(const char* s, std::streamsize n) override {
        pending_.append(s, static_cast<size_t>(n));
        if (pending_.size() >= kChunk) send();
        return n;
    }

    int sync() override {
        send();
        return 0;
    }

private:
    static constexpr size_t kChunk = 16 * 1024;

    void send() {
        if (pending_.empty()) return;
        if (!lost_ &&
            !UnixSocket::sendAll(socket_, ControlProtocol::encodeFrame(kind_, pending_), limit_)) {
            lost_ = true;
        }
        pending_.clear();
    }

    int socket_;
    FrameKind kind_;
    std::chrono::milliseconds limit_;
    std::atomic<bool>& lost_;
    std::string pending_;
};

// The command's name in the log: its first word that is not an option, cut short
// and with anything unprintable escaped. Only that: the words after it may hold
// what the person would not want logged.
std::string commandName(const ControlProtocol::Request& request) {
    constexpr size_t kLongest = 32;
    const std::vector<std::string>& words = request.arguments;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        // The folder after --data-dir is its value, not a command.
        if (word == "--data-dir") {
            ++i;
            continue;
        }
        if (word.starts_with('-')) continue;
        std::string name;
        for (unsigned char c : std::string_view(word).substr(0, kLongest)) {
            if (c < 0x20 || c > 0x7e || c == '\\' || c == '\'') {
                name += fmt::format("\\x{:02x}", c);
            } else {
                name += static_cast<char>(c);
            }
        }
        if (word.size() > kLongest) name += "...";
        return name;
    }
    return "?";
}

void refuseAsBusy(int socket) {
    UnixSocket::sendAll(
        socket,
        ControlProtocol::encodeFrame(
            FrameKind::standardError,
            "quorvane: the daemon is busy with other commands; try again in a moment\n") +
            ControlProtocol::encodeFrame(FrameKind::exitStatus, "1"),
        std::chrono::milliseconds(1000));
}

}  // namespace

ControlServer::ControlServer(std::filesystem::path socketPath, Handler handler, Limits limits)
    : handler_(std::move(handler)),
      limits_(limits),
      server_(std::move(socketPath),
              UnixSocketServer::Options{.maxConnections = limits.connections},
              UnixSocketServer::Handlers{
                  .serve = [this](Fd connection) { serve(std::move(connection)); },
                  .turnAway = refuseAsBusy,
                  .report =
                      [](std::string_view line) {
                          Log::app().log(LogLevel::notice, fmt::format("control socket: {}", line));
                      },
              }) {}

ControlServer::~ControlServer() {
    stop();
}

std::string ControlServer::start() {
    if (stopping_) return "the daemon is stopping";
    std::optional<UnixSocketServer::Failure> failure = server_.start();
    return failure ? failure->error : "";
}

void ControlServer::beginStop() {
    if (stopping_.exchange(true)) return;
    server_.beginStop();
}

void ControlServer::stop() {
    beginStop();
    server_.stop();
}

void ControlServer::serve(Fd socket) {
    auto fail = [&](const std::string& message, int status) {
        UnixSocket::sendAll(
            socket.get(),
            ControlProtocol::encodeFrame(FrameKind::standardError, message) +
                ControlProtocol::encodeFrame(FrameKind::exitStatus, std::to_string(status)),
            limits_.reply);
    };

    ControlProtocol::FrameReader reader;
    ControlProtocol::RequestBuilder builder;
    const auto deadline = std::chrono::steady_clock::now() + limits_.request;
    try {
        bool complete = false;
        while (!complete) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                Log::app().log(LogLevel::notice,
                               "control socket: a client did not finish its request in time");
                return;
            }
            UnixSocket::Received received =
                UnixSocket::receive(socket.get(), 64 * 1024, left, server_.wakeFd());
            if (received.wait == UnixSocket::Wait::woken) {
                fail("quorvane: the daemon is stopping; nothing was changed\n", 1);
                return;
            }
            if (received.closed) return;
            reader.append(received.bytes);
            while (!complete) {
                std::optional<ControlProtocol::Frame> frame = reader.next();
                if (!frame) break;
                complete = builder.add(*frame);
            }
            if (!complete && reader.buffered() > ControlProtocol::kMaxRequestBytes) {
                throw std::runtime_error("request too large");
            }
        }
    } catch (const std::exception& error) {
        Log::app().log(LogLevel::notice,
                       fmt::format("control socket: a bad request: {}", error.what()));
        fail(fmt::format("quorvane: the daemon could not read the request: {}\n", error.what()), 2);
        return;
    }

    {
        std::unique_lock lock(turnMutex_);
        const uint64_t ticket = nextTicket_++;
        turnChanged_.wait(lock, [&] { return serving_ == ticket; });
    }
    // The next command's turn comes however this one ends.
    struct TurnEnd {
        ControlServer& server;
        ~TurnEnd() {
            {
                std::lock_guard lock(server.turnMutex_);
                ++server.serving_;
            }
            server.turnChanged_.notify_all();
        }
    } turnEnd{*this};
    if (stopping_) {
        fail("quorvane: the daemon is stopping; nothing was changed\n", 1);
        return;
    }
    const ControlProtocol::Request& request = builder.request();
    std::atomic<bool> lost{false};
    FrameStreamBuffer outBuffer(socket.get(), FrameKind::standardOutput, limits_.reply, lost);
    FrameStreamBuffer errBuffer(socket.get(), FrameKind::standardError, limits_.reply, lost);
    std::ostream out(&outBuffer);
    std::ostream err(&errBuffer);
    int status = 1;
    try {
        status = handler_(request, out, err);
    } catch (const std::exception& error) {
        err << fmt::format("quorvane: {}\n", error.what());
    }
    out.flush();
    err.flush();
    // The tray asks for the status every half minute: those reads would bury the
    // commands that changed something, so they are logged only at debug level.
    std::string ran = fmt::format("ran '{}' for a client: exit {}{}", commandName(request), status,
                                  lost ? " (the client left before the end)" : "");
    if (commandName(request) == "status" && status == 0) {
        Log::app().debug(ran);
    } else {
        Log::app().info(ran);
    }
    if (!lost) {
        UnixSocket::sendAll(
            socket.get(),
            ControlProtocol::encodeFrame(FrameKind::exitStatus, std::to_string(status)),
            limits_.reply);
    }
}

}  // namespace quorvane
