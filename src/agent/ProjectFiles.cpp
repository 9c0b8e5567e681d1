#include "agent/ProjectFiles.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/TextHelpers.hpp"
#include "platform/FileDescriptor.hpp"

namespace quorvane::ProjectFiles {

std::optional<std::string> readHead(const std::filesystem::path& folder, std::string_view name) {
    const std::string path = (folder / name).string();
    // Non-blocking, so opening a FIFO returns at once; it is then refused as not a
    // regular file. O_NOFOLLOW keeps a link from reading a file outside the folder.
    int descriptor = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return std::nullopt;
    Fd file(descriptor);
    struct stat info {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    std::string bytes(kMaxReadBytes, '\0');
    size_t filled = 0;
    while (filled < bytes.size()) {
        ssize_t got = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        filled += static_cast<size_t>(got);
    }
    bytes.resize(filled);
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.erase(0, 3);
    return Text::repairUtf8(bytes);
}

bool has(const std::filesystem::path& folder, std::string_view name) {
    struct stat info {};
    return ::lstat((folder / name).c_str(), &info) == 0;
}

}  // namespace quorvane::ProjectFiles
