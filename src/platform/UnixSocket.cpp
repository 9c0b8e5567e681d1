#include "platform/UnixSocket.hpp"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

namespace quorvane::UnixSocket {

namespace {

std::optional<sockaddr_un> addressOf(const std::filesystem::path& path) {
    const std::string& text = path.native();
    if (text.size() + 1 > kMaxPathBytes || text.empty()) return std::nullopt;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, text.c_str(), text.size() + 1);
    return address;
}

// Whether a process accepts connections on the socket file at `address`. A full
// backlog still means someone listens; only a refusal means the file is a dead
// one's. The probe does not block, so a listener that has stopped accepting
// cannot hold the caller.
enum class Liveness { listening, dead, gone, unknown };

// `error` gets the errno of a probe that could not tell.
Liveness probe(const sockaddr_un& address, int& error) {
    Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.valid()) {
        error = errno;
        return Liveness::unknown;
    }
    int status;
    do {
        status = ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (status != 0 && errno == EINTR);
    error = status == 0 ? 0 : errno;
    if (status == 0 || error == EAGAIN || error == EINPROGRESS) return Liveness::listening;
    if (error == ECONNREFUSED) return Liveness::dead;
    if (error == ENOENT) return Liveness::gone;
    return Liveness::unknown;
}

int milliseconds(std::chrono::milliseconds limit) {
    return static_cast<int>(std::clamp<long long>(limit.count(), 0, 1'000'000'000));
}

}  // namespace

Listening listen(const std::filesystem::path& path, int backlog) {
    Listening result;
    auto fail = [&result](const char* call) {
        result.failedCall = call;
        result.errorNumber = errno;
        result.error = fmt::format("{}() failed: {}", call, std::strerror(result.errorNumber));
    };
    if (path.empty()) {
        result.error = "its path is empty";
        return result;
    }
    std::optional<sockaddr_un> address = addressOf(path);
    if (!address) {
        result.error = fmt::format("its path is longer than {} bytes", kMaxPathBytes - 1);
        return result;
    }
    struct stat existing {};
    if (::lstat(path.c_str(), &existing) == 0) {
        // A socket nobody accepts on is what a process that died leaves behind.
        // Anything else is someone's: a live server keeps its clients, and a file
        // that is not a socket may be the user's own.
        if (!S_ISSOCK(existing.st_mode)) {
            result.error = "something other than a socket is in its place";
            return result;
        }
        int probeError = 0;
        switch (probe(*address, probeError)) {
            case Liveness::listening:
                result.error = "another process is listening on it";
                return result;
            case Liveness::unknown:
                result.error = fmt::format("cannot tell whether anyone listens on it: {}",
                                           std::strerror(probeError));
                return result;
            case Liveness::dead:
                if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
                    result.error =
                        fmt::format("cannot remove the old socket: {}", std::strerror(errno));
                    return result;
                }
                break;
            case Liveness::gone: break;
        }
    }
    Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.valid()) {
        fail("socket");
        return result;
    }
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof(*address)) != 0) {
        fail("bind");
        return result;
    }
    // Nobody can connect before listen, so the file is private before it is open.
    if (::chmod(path.c_str(), 0600) != 0) {
        fail("chmod");
        ::unlink(path.c_str());
        return result;
    }
    if (::listen(fd.get(), backlog) != 0) {
        fail("listen");
        ::unlink(path.c_str());
        return result;
    }
    result.fd = std::move(fd);
    return result;
}

Connected connect(const std::filesystem::path& path) {
    Connected result;
    std::optional<sockaddr_un> address = addressOf(path);
    if (!address) {
        result.error = ENAMETOOLONG;
        return result;
    }
    Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.valid()) {
        result.error = errno;
        return result;
    }
    int status;
    do {
        status =
            ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof(*address));
    } while (status != 0 && errno == EINTR);
    if (status != 0) {
        result.error = errno;
        return result;
    }
    result.fd = std::move(fd);
    return result;
}

namespace {

std::optional<ucred> peerCredentials(int fd) {
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
        size != sizeof(credentials)) {
        return std::nullopt;
    }
    return credentials;
}

}  // namespace

std::optional<uid_t> peerUid(int fd) {
    std::optional<ucred> credentials = peerCredentials(fd);
    if (!credentials) return std::nullopt;
    return credentials->uid;
}

std::optional<pid_t> peerPid(int fd) {
    std::optional<ucred> credentials = peerCredentials(fd);
    if (!credentials || credentials->pid <= 0) return std::nullopt;
    return credentials->pid;
}

Fd accept(int listeningFd) {
    for (;;) {
        int fd = ::accept4(listeningFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0 || errno != EINTR) return Fd(fd);
    }
}

Wait waitFor(int fd, bool forWriting, std::chrono::milliseconds limit, int wakeFd) {
    pollfd fds[2] = {{fd, static_cast<short>(forWriting ? POLLOUT : POLLIN), 0},
                     {wakeFd, POLLIN, 0}};
    const nfds_t count = wakeFd >= 0 ? 2 : 1;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        int ready = ::poll(fds, count, milliseconds(left));
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) return Wait::failed;
        if (ready == 0) return Wait::timedOut;
        if (count == 2 && fds[1].revents != 0) return Wait::woken;
        // An error or hang-up is ready too: the read or write that follows says which.
        return Wait::ready;
    }
}

bool sendAll(int fd, std::string_view bytes, std::chrono::milliseconds limit, int wakeFd) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!bytes.empty()) {
        ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<size_t>(sent));
            continue;
        }
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || waitFor(fd, true, left, wakeFd) != Wait::ready) return false;
            continue;
        }
        return false;
    }
    return true;
}

Received receive(int fd, size_t maxBytes, std::chrono::milliseconds limit, int wakeFd) {
    Received result;
    result.wait = waitFor(fd, false, limit, wakeFd);
    if (result.wait != Wait::ready) return result;
    result.bytes.resize(maxBytes);
    for (;;) {
        ssize_t got = ::recv(fd, result.bytes.data(), maxBytes, MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            result.bytes.clear();
            return result;
        }
        if (got <= 0) {
            result.bytes.clear();
            result.closed = true;
            return result;
        }
        result.bytes.resize(static_cast<size_t>(got));
        return result;
    }
}

}  // namespace quorvane::UnixSocket
