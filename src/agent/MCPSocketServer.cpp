#include "agent/MCPSocketServer.hpp"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "agent/MCPJSON.hpp"
#include "platform/UnixSocket.hpp"

namespace quorvane {

namespace {

constexpr int kBacklog = 32;
// What one read takes. Each connection keeps a buffer this size for its life, so it
// is small; a request of ordinary size still comes in one read.
constexpr size_t kReadChunk = 16 * 1024;
static_assert(kReadChunk <= MCPSocketServer::kMaxLineBytes,
              "a line longer than the limit must pass through the unfinished line");

// One write, so lines from several threads never interleave.
void log(std::string_view text) {
    std::string line = fmt::format("[quorvane-agent] {}\n", text);
    std::string_view rest = line;
    while (!rest.empty()) {
        ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        rest.remove_prefix(static_cast<size_t>(written));
    }
}

MCPJSON errorEnvelope(std::string code, std::string message, std::optional<std::string> hint) {
    MCPJSON::Object error{{"code", MCPJSON(std::move(code))},
                          {"message", MCPJSON(std::move(message))}};
    if (hint) error.emplace_back("hint", MCPJSON(std::move(*hint)));
    return MCPJSON(MCPJSON::Object{{"ok", MCPJSON(false)}, {"error", MCPJSON(std::move(error))}});
}

// The part of the connections' common budget that one connection's unfinished line
// draws, given back as the line ends or the connection closes.
class BudgetShare {
public:
    BudgetShare(std::atomic<size_t>& used, size_t budget) : used_(used), budget_(budget) {}
    ~BudgetShare() { cover(0); }
    BudgetShare(const BudgetShare&) = delete;
    BudgetShare& operator=(const BudgetShare&) = delete;

    // Makes the share `bytes`. False, and the share as it was, when the budget has
    // not that much left.
    bool cover(size_t bytes) {
        if (bytes <= held_) {
            used_ -= held_ - bytes;
            held_ = bytes;
            return true;
        }
        const size_t more = bytes - held_;
        size_t used = used_.load();
        do {
            if (more > budget_ - used) return false;
        } while (!used_.compare_exchange_weak(used, used + more));
        held_ = bytes;
        return true;
    }

private:
    std::atomic<size_t>& used_;
    const size_t budget_;
    size_t held_ = 0;
};

}  // namespace

MCPSocketServer::MCPSocketServer(ToolDispatcher& agentService, std::filesystem::path socketPath,
                                 MCPSocketLimits limits)
    : agentService_(agentService),
      socketPath_(std::move(socketPath)),
      limits_(limits),
      // Connections beyond the cap are closed at once, so the client learns now
      // instead of waiting on a queue.
      server_(socketPath_,
              UnixSocketServer::Options{.maxConnections = kMaxConnections, .backlog = kBacklog},
              UnixSocketServer::Handlers{
                  .serve = [this](Fd connection) { serve(connection.get()); },
                  .turnAway = {},
                  .report = [](std::string_view line) { log(line); },
              }) {}

MCPSocketServer::~MCPSocketServer() {
    stop();
}

void MCPSocketServer::start() {
    std::lock_guard lifecycle(lifecycleMutex_);
    if (running_) return;
    const std::string& path = socketPath_.native();
    // The limit counts the terminating NUL, as the address does.
    if (path.size() + 1 > UnixSocket::kMaxPathBytes) {
        log(fmt::format("socket path too long ({} > {}) \u2014 {}", path.size() + 1,
                        UnixSocket::kMaxPathBytes, path));
        return;
    }
    std::error_code ignored;
    std::filesystem::create_directories(socketPath_.parent_path(), ignored);

    // Set before the first connection can arrive: a connection's thread stops
    // taking requests once this is false.
    running_ = true;
    // A socket file nobody listens on is replaced. A live listener is left alone
    // (two daemons would otherwise steal each other's agents), and so is anything
    // that is not a socket: it may be the user's own file, put there by mistake.
    std::optional<UnixSocketServer::Failure> failure = server_.start();
    if (failure) {
        running_ = false;
        const std::string& call = failure->failedCall;
        if (call == "eventfd") {
            log("eventfd() failed: the agent socket cannot be stopped safely, so it is not "
                "started");
        } else if (call == "socket" || call == "listen") {
            log(fmt::format("{}() failed: errno={}", call, failure->errorNumber));
        } else if (!call.empty()) {
            log(fmt::format("{}() failed: errno={} path={}", call, failure->errorNumber, path));
        } else {
            log(fmt::format("not listening on {}: {}", path, failure->error));
        }
        return;
    }
    log(fmt::format("MCP socket listening on {}", path));
}

void MCPSocketServer::stop() {
    std::lock_guard lifecycle(lifecycleMutex_);
    if (!running_) return;
    running_ = false;
    // Each connection's thread finishes the call it is in, then sees the wake
    // descriptor and closes its connection.
    server_.stop();
}

void MCPSocketServer::serve(int socket) {
    using Clock = std::chrono::steady_clock;
    std::vector<char> chunk(kReadChunk);
    // The line begun after the last LF, and what it draws on the common budget
    // beyond the connection's free share.
    std::string unfinished;
    BudgetShare share(unfinishedBytes_, limits_.bufferBudget);
    // When the connection is dropped unless more comes: the idle limit while no line
    // is begun, the unfinished-line limit from a line's first byte.
    Clock::time_point deadline = Clock::now() + limits_.idle;
    auto refuse = [&](std::string code, std::string message) {
        write(socket, errorEnvelope(std::move(code), std::move(message), std::nullopt));
    };
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            // A line cut short is never run; the client hears why it was dropped.
            if (!unfinished.empty()) refuse("invalid_params", "request line not finished in time");
            return;
        }
        UnixSocket::Wait wait = UnixSocket::waitFor(socket, false, left, server_.wakeFd());
        if (wait == UnixSocket::Wait::timedOut) continue;
        if (wait != UnixSocket::Wait::ready) return;
        ssize_t got = ::recv(socket, chunk.data(), chunk.size(), MSG_DONTWAIT);
        const int error = errno;
        if (got < 0 && (error == EINTR || error == EAGAIN || error == EWOULDBLOCK)) continue;
        // At the end, or on an error, a last request without its LF is dropped: it
        // may have been cut short.
        if (got <= 0) return;

        std::string_view input(chunk.data(), static_cast<size_t>(got));
        const bool lineWasBegun = !unfinished.empty();
        bool lineEnded = false;
        for (size_t lf = input.find('\n'); lf != std::string_view::npos; lf = input.find('\n')) {
            std::string_view line = input.substr(0, lf);
            input.remove_prefix(lf + 1);
            if (!unfinished.empty()) {
                if (unfinished.size() + line.size() > kMaxLineBytes) {
                    refuse("invalid_params", "request line too long");
                    return;
                }
                // Its last piece is not drawn from the budget: it is at most one read,
                // and the whole line is let go of right after.
                unfinished.append(line);
                line = unfinished;
            }
            lineEnded = true;
            // Once stopping, no new call begins; the rest of the lines go unanswered.
            if (!line.empty() && (!running_ || !handleLine(line, socket))) return;
            unfinished.clear();
            // What a long line took goes back to the system, not just to the budget.
            if (unfinished.capacity() > kFreeLineBytes) std::string().swap(unfinished);
            share.cover(0);
        }
        if (!input.empty()) {
            const size_t held = unfinished.size() + input.size();
            if (held > kMaxLineBytes) {
                // Each connection holds a line whole, so one that never ends would hold
                // memory without limit: the client hears why, and the connection ends.
                refuse("invalid_params", "request line too long");
                return;
            }
            if (held > kFreeLineBytes && !share.cover(held - kFreeLineBytes)) {
                // The clients together hold all the server keeps of unfinished lines:
                // the one that wants more is let go, the others are still answered.
                refuse("busy",
                       "the agent socket holds too much unfinished input; send each request "
                       "as one whole line");
                return;
            }
            unfinished.append(input);
        }
        if (unfinished.empty()) {
            deadline = Clock::now() + limits_.idle;
        } else if (!lineWasBegun || lineEnded) {
            deadline = Clock::now() + limits_.unfinishedLine;
        }
    }
}

bool MCPSocketServer::handleLine(std::string_view line, int socket) {
    return write(socket, replyTo(line, agentService_));
}

MCPJSON MCPSocketServer::replyTo(std::string_view line, ToolDispatcher& dispatcher) {
    std::optional<MCPJSON> request = MCPJSON::parse(line);
    if (!request || !request->isObject()) {
        return errorEnvelope("invalid_params", "parse error", std::nullopt);
    }
    const MCPJSON* tool = request->member("tool");
    const std::string* toolName = tool ? std::get_if<std::string>(&tool->value()) : nullptr;
    if (toolName == nullptr) return errorEnvelope("invalid_params", "missing `tool`", std::nullopt);
    const MCPJSON* args = request->member("args");
    const std::string argsJSON = args ? args->jsonString() : "{}";

    AgentResult result;  // a refusal with neither code nor hint, if the tool throws
    try {
        result = dispatcher.handle(*toolName, argsJSON);
    } catch (const std::exception&) {
        // Tools answer with a result, never an exception; the connection and the
        // daemon outlive one that breaks that rule. What it said stays out of the
        // log: it may quote the arguments.
        log("a tool call ended with an exception");
    }
    if (result.ok) {
        // A tool's result that does not parse is still a success, with nothing in it.
        std::optional<MCPJSON> value = MCPJSON::parse(result.json);
        return MCPJSON(MCPJSON::Object{
            {"ok", MCPJSON(true)},
            {"result", value ? std::move(*value) : MCPJSON(MCPJSON::Object{})}});
    }
    // A result has no message of its own: the hint stands in both places.
    return errorEnvelope(result.errorCode.value_or("error"), result.hint.value_or("tool failed"),
                         result.hint);
}

bool MCPSocketServer::write(int socket, const MCPJSON& value) {
    std::string line = value.jsonString();
    line += '\n';
    // A client that leaves its replies unread loses its own connection after the
    // limit; stopping cuts the wait short.
    return UnixSocket::sendAll(socket, line, kReplyLimit, server_.wakeFd());
}

}  // namespace quorvane
