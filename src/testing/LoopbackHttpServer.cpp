#include "testing/LoopbackHttpServer.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>

#include "base/TextHelpers.hpp"

namespace quorvane::testing {

namespace {

constexpr size_t kMaxHeadBytes = 65536;

// The body length a request head announces: 0 without a Content-Length, nothing
// when the length cannot be trusted (not one plain number up to `limit`, given
// twice, or beside a Transfer-Encoding, whose chunks this server does not read).
std::optional<size_t> announcedLength(std::string_view head, size_t limit) {
    std::optional<size_t> length;
    size_t lineStart = head.find("\r\n");  // past the request line
    while (lineStart != std::string_view::npos) {
        lineStart += 2;
        size_t lineEnd = head.find("\r\n", lineStart);
        std::string_view line = head.substr(lineStart, lineEnd - lineStart);
        lineStart = lineEnd;
        size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        std::string name = Text::asciiLower(Text::trim(line.substr(0, colon)));
        if (name == "transfer-encoding") return std::nullopt;
        if (name != "content-length") continue;
        if (length) return std::nullopt;
        std::string_view value = Text::trim(line.substr(colon + 1));
        size_t parsed = 0;
        auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), parsed);
        if (value.empty() || error != std::errc{} || end != value.data() + value.size() ||
            parsed > limit) {
            return std::nullopt;
        }
        length = parsed;
    }
    return length.value_or(0);
}

}  // namespace

LoopbackHttpServer::LoopbackHttpServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener_, 16) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        ::pipe2(stopPipe_, O_CLOEXEC) != 0) {
        throw std::runtime_error("the loopback server could not start");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

LoopbackHttpServer::~LoopbackHttpServer() {
    (void)!::write(stopPipe_[1], "x", 1);
    thread_.join();
    ::close(listener_);
    ::close(stopPipe_[0]);
    ::close(stopPipe_[1]);
}

std::string LoopbackHttpServer::base() const {
    return fmt::format("http://127.0.0.1:{}", port_);
}

void LoopbackHttpServer::set(const std::string& pathAndQuery, Reply reply) {
    std::lock_guard lock(mutex_);
    replies_[pathAndQuery] = std::move(reply);
}

void LoopbackHttpServer::setFallback(std::function<Reply(const std::string&)> answer) {
    std::lock_guard lock(mutex_);
    fallback_ = std::move(answer);
}

std::vector<std::string> LoopbackHttpServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<std::string> LoopbackHttpServer::bodies() const {
    std::lock_guard lock(mutex_);
    return bodies_;
}

LoopbackHttpServer::Read LoopbackHttpServer::readMore(int connection, std::string& into) const {
    // Waiting on the stop pipe as well lets the destructor end a connection whose
    // peer stopped sending halfway.
    pollfd fds[2] = {{connection, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
    int ready = 0;
    do {
        ready = ::poll(fds, 2, -1);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) return Read::closed;
    if (fds[1].revents != 0) return Read::stopping;
    char buffer[4096];
    ssize_t n = ::read(connection, buffer, sizeof buffer);
    if (n <= 0) return Read::closed;
    into.append(buffer, static_cast<size_t>(n));
    return Read::more;
}

void LoopbackHttpServer::serve() {
    while (true) {
        pollfd fds[2] = {{listener_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) continue;
        if (fds[1].revents != 0) return;
        int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        std::string received;
        Read state = Read::more;
        size_t headEnd = std::string::npos;
        while ((headEnd = received.find("\r\n\r\n")) == std::string::npos && state == Read::more &&
               received.size() < kMaxHeadBytes) {
            state = readMore(connection, received);
        }
        std::string head =
            headEnd == std::string::npos ? received : received.substr(0, headEnd + 2);
        std::optional<size_t> length =
            headEnd == std::string::npos ? 0 : announcedLength(head, kMaxBodyBytes);
        std::string body;
        if (length && *length > 0) {
            body = received.substr(headEnd + 4);
            while (state == Read::more && body.size() < *length) {
                state = readMore(connection, body);
            }
            if (body.size() > *length) body.resize(*length);
        }
        if (state == Read::stopping) {
            ::close(connection);
            return;
        }
        std::string target;
        if (size_t space = head.find(' '); space != std::string::npos) {
            target = head.substr(space + 1, head.find(' ', space + 1) - space - 1);
        }
        Reply reply{404, {}, "{}", false};
        if (!length) reply = Reply{400, {}, "{}", false};
        {
            std::lock_guard lock(mutex_);
            requests_.push_back(head);
            bodies_.push_back(length ? body : std::string());
            if (auto found = replies_.find(target); length && found != replies_.end()) {
                reply = found->second;
            } else if (length && fallback_) {
                reply = fallback_(target);
            }
        }
        if (reply.silent) {
            pollfd stop{stopPipe_[0], POLLIN, 0};
            ::poll(&stop, 1, -1);
            ::close(connection);
            return;
        }
        std::string out =
            fmt::format("HTTP/1.1 {} Reply\r\nContent-Length: {}\r\nConnection: close\r\n",
                        reply.status, reply.body.size());
        for (const auto& [name, value] : reply.headers) out += name + ": " + value + "\r\n";
        out += "\r\n" + reply.body;
        size_t sent = 0;
        while (sent < out.size()) {
            ssize_t n = ::send(connection, out.data() + sent, out.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) break;
            sent += static_cast<size_t>(n);
        }
        // A refused body may still be arriving; closing on unread bytes resets the
        // connection, and the client would see that instead of the 400. Its end
        // is awaited, as far as a body may reach.
        if (!length) {
            ::shutdown(connection, SHUT_WR);
            for (std::string ignored;
                 state == Read::more && ignored.size() < kMaxHeadBytes + kMaxBodyBytes;) {
                state = readMore(connection, ignored);
            }
        }
        ::close(connection);
        if (state == Read::stopping) return;
    }
}

std::string gitHubRepositories(const std::vector<GitHubRepository>& repositories) {
    auto flag = [](bool on) { return std::string(on ? "true" : "false"); };
    std::string listing;
    for (const GitHubRepository& repo : repositories) {
        listing += std::string(listing.empty() ? "[" : ",") + R"({"name": ")" + repo.name +
                   R"(", "full_name": ")" + repo.owner + "/" + repo.name +
                   R"(", "owner": {"login": ")" + repo.owner + R"("}, "private": )" +
                   flag(repo.isPrivate) + R"(, "archived": )" + flag(repo.archived) +
                   R"(, "default_branch": "main"})";
    }
    return listing.empty() ? "[]" : listing + "]";
}

void LoopbackHttpServer::serveGitHubAccount(const std::string& login,
                                            const std::string& repositoriesJSON) {
    set("/user", {200, {}, "{\"login\": \"" + login + "\"}", false});
    set(kGitHubRepositories, {200, {}, repositoriesJSON, false});
}

}  // namespace quorvane::testing
