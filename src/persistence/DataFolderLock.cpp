#include "persistence/DataFolderLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "base/TextHelpers.hpp"

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

// Why the open lock file is not one this process may lock and write its pid
// into, or nothing when it is: a regular file of this user with no other name.
std::optional<std::string> unsafeLockFile(int fd, const std::filesystem::path& path) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        return fmt::format("stat {}: {}", path.string(), std::strerror(errno));
    }
    std::string what;
    if (!S_ISREG(info.st_mode)) {
        what = "is not a regular file";
    } else if (info.st_uid != ::geteuid()) {
        what = fmt::format("belongs to another user (uid {})", info.st_uid);
    } else if (info.st_nlink != 1) {
        what = "has another name (a hard link)";
    } else {
        return std::nullopt;
    }
    return fmt::format("{} {}; nothing was written to it. Remove it and try again", path.string(),
                       what);
}

// Opens the lock file without following a link put in its place, and without
// waiting should it be a FIFO.
int openLockFile(const std::filesystem::path& path, int flags) {
    return ::open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
}

}  // namespace

LockAttempt DataFolderLock::acquire(const std::filesystem::path& dir) {
    std::filesystem::path path = dir / kFileName;
    int fd = openLockFile(path, O_RDWR | O_CREAT);
    if (fd < 0) {
        std::string why = errno == ELOOP
                              ? fmt::format(
                                    "{} is a symbolic link; nothing was written to it. "
                                    "Remove it and try again",
                                    path.string())
                              : fmt::format("open {}: {}", path.string(), std::strerror(errno));
        return {std::nullopt, std::nullopt, why};
    }
    if (std::optional<std::string> unsafe = unsafeLockFile(fd, path)) {
        ::close(fd);
        return {std::nullopt, std::nullopt, *unsafe};
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
    int fd = openLockFile(dir / kFileName, O_RDONLY);
    if (fd < 0) return std::nullopt;
    if (unsafeLockFile(fd, dir / kFileName)) {
        ::close(fd);
        return std::nullopt;
    }
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
