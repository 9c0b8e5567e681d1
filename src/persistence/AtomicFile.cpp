#include "persistence/AtomicFile.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <fmt/format.h>

#include "platform/FileDescriptor.hpp"

namespace quorvane::AtomicFile {

namespace fs = std::filesystem;

namespace {

std::string failure(std::string_view call, const fs::path& path) {
    return fmt::format("{} {}: {}", call, path.string(), std::strerror(errno));
}

}  // namespace

std::optional<std::string> write(const fs::path& path, std::string_view bytes, unsigned mode) {
    static std::atomic<unsigned> counter{0};
    fs::path folder = path.parent_path().empty() ? fs::path(".") : path.parent_path();
    fs::path temporary = folder / fmt::format(".{}.tmp-{}-{}", path.filename().string(), ::getpid(),
                                              counter.fetch_add(1));

    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                    static_cast<mode_t>(mode));
    if (fd < 0) return failure("open", temporary);
    // The mode given to open is reduced by the umask; these files must be exactly private.
    bool ok = ::fchmod(fd, static_cast<mode_t>(mode)) == 0;
    std::optional<std::string> error;
    if (!ok) error = failure("fchmod", temporary);
    if (ok && !writeAll(fd, bytes)) {
        error = failure("write", temporary);
        ok = false;
    }
    if (ok && ::fsync(fd) != 0) {
        error = failure("fsync", temporary);
        ok = false;
    }
    if (::close(fd) != 0 && ok) {
        error = failure("close", temporary);
        ok = false;
    }
    if (ok && ::rename(temporary.c_str(), path.c_str()) != 0) {
        error = failure("rename", path);
        ok = false;
    }
    if (!ok) {
        ::unlink(temporary.c_str());
        return error;
    }
    // The rename is durable only once the folder's entry is on disk.
    int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) return failure("open", folder);
    int synced = ::fsync(dirFd);
    ::close(dirFd);
    if (synced != 0) return failure("fsync", folder);
    return std::nullopt;
}

ReadResult read(const fs::path& path, size_t maxBytes) {
    ReadResult result;
    // O_NONBLOCK: opening a FIFO must not wait for a writer. O_NOFOLLOW: a link put
    // in a data file's place is not followed to whatever it names.
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        result.missing = errno == ENOENT;
        result.error = errno == ELOOP ? fmt::format("{} is a symbolic link", path.string())
                                      : failure("open", path);
        return result;
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        result.error = failure("stat", path);
        ::close(fd);
        return result;
    }
    if (!S_ISREG(info.st_mode)) {
        result.error = fmt::format("{} is {}, not a regular file", path.string(),
                                   S_ISDIR(info.st_mode)                            ? "a folder"
                                   : S_ISFIFO(info.st_mode)                         ? "a FIFO"
                                   : S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode) ? "a device"
                                                                                    : "a socket");
        ::close(fd);
        return result;
    }
    std::string bytes;
    if (info.st_size > 0) bytes.reserve(std::min(static_cast<size_t>(info.st_size), maxBytes));
    char buffer[65536];
    while (true) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            result.error = failure("read", path);
            ::close(fd);
            return result;
        }
        if (n == 0) break;
        // Checked while reading too: a file may grow after the fstat.
        if (bytes.size() + static_cast<size_t>(n) > maxBytes) {
            result.error = fmt::format("{} is larger than {} MiB", path.string(), maxBytes >> 20);
            ::close(fd);
            return result;
        }
        bytes.append(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    result.bytes = std::move(bytes);
    return result;
}

void removeStaleTemporaries(const fs::path& path) {
    fs::path folder = path.parent_path().empty() ? fs::path(".") : path.parent_path();
    std::string prefix = fmt::format(".{}.tmp-", path.filename().string());
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder, ec)) {
        if (entry.path().filename().string().starts_with(prefix)) fs::remove(entry.path(), ec);
    }
}

std::optional<fs::path> quarantine(const fs::path& path, Date now, std::string* why) {
    long long seconds =
        std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
    // RENAME_NOREPLACE makes "is the name free" and "take it" one step, so a file
    // set aside earlier in the same second is never replaced.
    for (int n = 0; n < 1000; ++n) {
        fs::path target = path;
        target += n == 0 ? fmt::format(".corrupt-{}", seconds)
                         : fmt::format(".corrupt-{}-{}", seconds, n);
        if (::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
            return target;
        }
        if (errno != EEXIST) break;
    }
    if (why != nullptr) *why = failure("rename", path);
    return std::nullopt;
}

}  // namespace quorvane::AtomicFile
