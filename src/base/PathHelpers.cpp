#include "base/PathHelpers.hpp"

#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <fmt/format.h>

namespace quorvane::PathHelpers {

namespace fs = std::filesystem;

fs::path homeDirectory() {
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/') return fs::path(home);
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
    passwd entry{};
    passwd* result = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &result) == 0 &&
        result != nullptr && result->pw_dir != nullptr && result->pw_dir[0] == '/') {
        return fs::path(result->pw_dir);
    }
    return fs::path("/");
}

std::string expandTilde(std::string_view path) {
    if (path == "~") return homeDirectory().string();
    if (path.size() >= 2 && path[0] == '~' && path[1] == '/') {
        return (homeDirectory() / std::string(path.substr(2))).string();
    }
    return std::string(path);
}

std::string canonicalPath(std::string_view path) {
    std::string expanded = expandTilde(path);
    if (expanded.empty()) return expanded;
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(expanded.c_str(), nullptr),
                                                         &std::free);
    if (resolved) return std::string(resolved.get());
    std::error_code ec;
    fs::path absolute = fs::absolute(fs::path(expanded), ec);
    if (ec) return expanded;
    std::string normal = absolute.lexically_normal().string();
    if (normal.size() > 1 && normal.back() == '/') normal.pop_back();
    return normal;
}

std::optional<std::filesystem::path> ownExecutable() {
    std::error_code ec;
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (ec || self.empty()) return std::nullopt;
    return self;
}

bool ensurePrivateDirectory(const fs::path& dir) {
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) {
        fs::create_directories(dir.parent_path(), ec);
        if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return false;
    }
    return fs::is_directory(dir, ec);
}

std::optional<std::string> dataFolderProblem(const fs::path& dir) {
    struct stat info {};
    if (::stat(dir.c_str(), &info) != 0) {
        return fmt::format("{}: {}", dir.string(), std::strerror(errno));
    }
    if (!S_ISDIR(info.st_mode)) return fmt::format("{} is not a folder", dir.string());
    if (info.st_uid != ::geteuid()) {
        return fmt::format("{} belongs to another user (uid {}); use a folder of your own",
                           dir.string(), info.st_uid);
    }
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return fmt::format(
            "{} can be written by other users (mode {:04o}); make it private with: chmod 700 {}",
            dir.string(), info.st_mode & 07777, dir.string());
    }
    return std::nullopt;
}

fs::path appSupportDir() {
    const char* xdg = std::getenv("XDG_DATA_HOME");
    // The XDG rules say a relative value is invalid and must be ignored.
    fs::path base =
        (xdg != nullptr && xdg[0] == '/') ? fs::path(xdg) : homeDirectory() / ".local" / "share";
    fs::path dir = base / "Quorvane";
    ensurePrivateDirectory(dir);
    return dir;
}

}  // namespace quorvane::PathHelpers
