#include "persistence/DataFolderLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "app/TextHelpers.hpp"

namespace quorvane {

namespace {

std::optional<pid_t> readPid(int fd) {
    char buffer[32] = {};
    ssize_t n = ::pread(fd, buffer, sizeof buffer - 1, 0);
    if (n <= 0) return std::nullopt;
    long long pid = 0;
    if (!Text::parseInt(Text::trim(std::string_view(buffer, static_cast<size_t>(n))), pid) ||
        pid <= 0) {
        return std::nullopt;
    }
    return static_cast<pid_t>(pid);
}

}  // namespace

LockAttempt DataFolderLock::acquire(const std::filesystem::path& dir) {
    std::filesystem::path path = dir / kFileName;
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        return {std::nullopt, std::nullopt,
                fmt::format("open {}: {}", path.string(), std::strerror(errno))};
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        int error = errno;
        std::optional<pid_t> holder = readPid(fd);
        ::close(fd);
        if (error == EWOULDBLOCK) return {std::nullopt, holder, ""};
        return {std::nullopt, std::nullopt,
                fmt::format("flock {}: {}", path.string(), std::strerror(error))};
    }
    // A failure here only leaves others' refusal messages without the pid.
    std::string pid = fmt::format("{}\n", ::getpid());
    bool recorded = ::ftruncate(fd, 0) == 0 &&
                    ::pwrite(fd, pid.data(), pid.size(), 0) == static_cast<ssize_t>(pid.size());
    (void)recorded;
    return {DataFolderLock(fd), std::nullopt, ""};
}

std::optional<pid_t> DataFolderLock::currentHolder(const std::filesystem::path& dir) {
    int fd = ::open((dir / kFileName).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::optional<pid_t> holder;
    if (::flock(fd, LOCK_SH | LOCK_NB) == 0) {
        ::flock(fd, LOCK_UN);
    } else if (errno == EWOULDBLOCK) {
        holder = readPid(fd);
        if (!holder) holder = 0;  // held, pid not written yet
    }
    ::close(fd);
    return holder;
}

std::string DataFolderLock::refusalMessage(const std::filesystem::path& dir,
                                           std::optional<pid_t> holder) {
    std::string who = holder && *holder > 0
                          ? fmt::format("another quorvane process (pid {})", *holder)
                          : std::string("another quorvane process");
    return fmt::format(
        "the data folder {} is in use by {}; only one process may change it at a time. "
        "Wait for it to finish, or stop it, and try again",
        dir.string(), who);
}

DataFolderLock::DataFolderLock(DataFolderLock&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)) {}

DataFolderLock& DataFolderLock::operator=(DataFolderLock&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

DataFolderLock::~DataFolderLock() {
    if (fd_ < 0) return;
    // Clear the pid first, so nobody reads a stale one once the lock is gone.
    bool cleared = ::ftruncate(fd_, 0) == 0;
    (void)cleared;
    ::close(fd_);
}

}  // namespace quorvane
