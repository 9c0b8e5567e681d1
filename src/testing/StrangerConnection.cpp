#include "testing/StrangerConnection.hpp"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "platform/UnixSocket.hpp"

namespace quorvane::testing {

bool strangerIsTurnedAway(const std::filesystem::path& socketPath, const std::string& request) {
    for (std::filesystem::path up = socketPath.parent_path(); up != up.root_path();
         up = up.parent_path()) {
        struct stat folder {};
        if (::stat(up.c_str(), &folder) != 0) return false;
        ::chmod(up.c_str(), (folder.st_mode & 07777) | S_IXOTH);
    }
    if (::chmod(socketPath.c_str(), 0666) != 0) return false;
    pid_t child = ::fork();
    if (child < 0) return false;
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(10);
        UnixSocket::Connected connection = UnixSocket::connect(socketPath);
        if (!connection.fd.valid()) ::_exit(11);
        UnixSocket::sendAll(connection.fd.get(), request, std::chrono::seconds(1));
        UnixSocket::Received got =
            UnixSocket::receive(connection.fd.get(), 4096, std::chrono::seconds(5));
        ::_exit(got.closed && got.bytes.empty() ? 0 : 12);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace quorvane::testing
