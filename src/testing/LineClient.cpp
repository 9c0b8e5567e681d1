#include "testing/LineClient.hpp"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <thread>

#include <gtest/gtest.h>

#include "platform/UnixSocket.hpp"

namespace quorvane::testing {

LineClient::LineClient(const std::filesystem::path& socketPath)
    : fd_(std::move(UnixSocket::connect(socketPath).fd)) {}

bool LineClient::send(std::string_view bytes) {
    return connected() && UnixSocket::sendAll(fd_.get(), bytes, kPatience);
}

std::optional<std::string> LineClient::line() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        if (size_t lf = buffered_.find('\n'); lf != std::string::npos) {
            std::string next = buffered_.substr(0, lf);
            buffered_.erase(0, lf + 1);
            return next;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (closed_ || !connected() || left.count() <= 0) return std::nullopt;
        UnixSocket::Received received = UnixSocket::receive(fd_.get(), 64 * 1024, left);
        closed_ = received.closed;
        buffered_ += received.bytes;
    }
}

Json LineClient::reply() {
    std::optional<std::string> next = line();
    if (!next) {
        ADD_FAILURE() << "the connection ended before a reply";
        return Json();
    }
    Json parsed = Json::parse(*next, nullptr, false);
    if (parsed.is_discarded()) ADD_FAILURE() << "a reply that is not JSON: " << *next;
    return parsed.is_discarded() ? Json() : parsed;
}

Json LineClient::call(const std::string& request) {
    EXPECT_TRUE(sendLine(request));
    return reply();
}

Json LineClient::call(const std::string& tool, const Json& args) {
    return call(Json{{"tool", tool}, {"args", args}}.dump());
}

bool LineClient::closedQuietly() {
    std::optional<std::string> next = line();
    EXPECT_FALSE(next) << *next;
    return !next && closed_;
}

bool LineClient::waitUntilRead() const {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (int queued = 1; std::chrono::steady_clock::now() < deadline; std::this_thread::yield()) {
        if (::ioctl(fd_.get(), SIOCOUTQ, &queued) != 0) return false;
        if (queued == 0) return true;
    }
    return false;
}

}  // namespace quorvane::testing
