#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileDescriptor.hpp"

// Local stream sockets for talking to the daemon. Every wait has a limit and can be
// cut short by a wake descriptor, so no peer can hold a thread for ever.
namespace quorvane::UnixSocket {

// The longest socket path, counting its terminating NUL.
inline constexpr size_t kMaxPathBytes = 104;

struct Listening {
    Fd fd;
    std::string error;  // empty when listening
    // The system call that failed ("socket", "bind", ...) and its errno; empty and 0
    // when listening, or when what is at the path was refused before any such call.
    std::string failedCall;
    int errorNumber = 0;
};

// Listens at `path`, only for its owner: the socket file is made mode 0600 before
// anyone can connect. A socket file left behind by a process that is gone is
// replaced; a socket someone still listens on, and anything that is not a socket,
// is refused and left as it is.
Listening listen(const std::filesystem::path& path, int backlog = 16);

struct Connected {
    Fd fd;
    int error = 0;  // errno of the failed connection; 0 when connected
};

Connected connect(const std::filesystem::path& path);

// The user id of the process at the other end.
std::optional<uid_t> peerUid(int fd);
// The process at the other end of a connected socket, as the kernel saw it connect.
std::optional<pid_t> peerPid(int fd);

// Accepts one waiting connection; nothing when none is waiting.
Fd accept(int listeningFd);

enum class Wait { ready, timedOut, woken, failed };

// Waits until `fd` is readable (or writable), `wakeFd` is readable, or `limit` passes.
Wait waitFor(int fd, bool forWriting, std::chrono::milliseconds limit, int wakeFd = -1);

// Sends all of `bytes`, never raising SIGPIPE. False when the peer is gone, has not
// taken them within `limit`, or `wakeFd` became readable while waiting for room.
bool sendAll(int fd, std::string_view bytes, std::chrono::milliseconds limit, int wakeFd = -1);

struct Received {
    std::string bytes;
    bool closed = false;  // the peer closed its end (or the connection failed)
    Wait wait = Wait::ready;
};

// What arrives within `limit`, at most `maxBytes` of it.
Received receive(int fd, size_t maxBytes, std::chrono::milliseconds limit, int wakeFd = -1);

}  // namespace quorvane::UnixSocket
