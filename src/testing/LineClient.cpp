#include "testing/LineClient.hpp"

#include "platform/UnixSocket.hpp"

namespace quorvane::testing {

LineClient::LineClient(const std::filesystem::path& socketPath)
    : fd_(std::move(UnixSocket::connect(socketPath).fd)) {}

bool LineClient::send(std::string_view bytes) {
    return connected() && UnixSocket::sendAll(fd_.get(), bytes, std::chrono::seconds(30));
}

std::optional<std::string> LineClient::readLine(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (size_t end = pending_.find('\n'); end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return line;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (!connected() || left.count() <= 0) return std::nullopt;
        UnixSocket::Received got = UnixSocket::receive(fd_.get(), 1 << 16, left);
        pending_ += got.bytes;
        if (got.closed && pending_.find('\n') == std::string::npos) return std::nullopt;
        if (got.wait == UnixSocket::Wait::timedOut && got.bytes.empty()) return std::nullopt;
    }
}

Json LineClient::call(const std::string& tool, const Json& args) {
    if (!send(Json{{"tool", tool}, {"args", args}}.dump() + "\n")) return Json();
    std::optional<std::string> line = readLine();
    if (!line) return Json();
    Json reply = Json::parse(*line, nullptr, false);
    return reply.is_discarded() ? Json() : reply;
}

bool LineClient::closedByServer(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (connected()) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        UnixSocket::Received got = UnixSocket::receive(fd_.get(), 1 << 16, left);
        if (!got.bytes.empty()) return false;
        if (got.closed) return true;
        if (got.wait == UnixSocket::Wait::timedOut) return false;
    }
    return false;
}

}  // namespace quorvane::testing
