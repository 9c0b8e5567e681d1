#include "testing/LoopbackHttpServer.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include <fmt/format.h>

namespace quorvane::testing {

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

std::vector<std::string> LoopbackHttpServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

void LoopbackHttpServer::serve() {
    while (true) {
        pollfd fds[2] = {{listener_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) continue;
        if (fds[1].revents != 0) return;
        int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        std::string head;
        char buffer[4096];
        while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536) {
            ssize_t n = ::read(connection, buffer, sizeof buffer);
            if (n <= 0) break;
            head.append(buffer, static_cast<size_t>(n));
        }
        std::string target;
        if (size_t space = head.find(' '); space != std::string::npos) {
            target = head.substr(space + 1, head.find(' ', space + 1) - space - 1);
        }
        Reply reply{404, {}, "{}", false};
        {
            std::lock_guard lock(mutex_);
            requests_.push_back(head.substr(0, head.find("\r\n\r\n") + 2));
            if (auto found = replies_.find(target); found != replies_.end()) reply = found->second;
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
        ::close(connection);
    }
}

}  // namespace quorvane::testing
