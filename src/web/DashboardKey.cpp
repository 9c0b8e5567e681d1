#include "web/DashboardKey.hpp"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

#include "persistence/AtomicFile.hpp"

namespace quorvane::DashboardKey {

namespace {

constexpr size_t kKeyBytes = 32;

// A key that others may read could sign their way in; it is no key of ours.
bool readableByOthers(const std::filesystem::path& path) {
    std::error_code error;
    auto perms = std::filesystem::symlink_status(path, error).permissions();
    using enum std::filesystem::perms;
    return !error && (perms & (group_all | others_all)) != none;
}

std::string_view withoutNewline(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    return text;
}

}  // namespace

std::string generate() {
    std::array<unsigned char, kKeyBytes> bytes{};
    size_t filled = 0;
    while (filled < bytes.size()) {
        ssize_t n = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (n < 0 && errno == EINTR) continue;
        // Without the kernel's randomness there is no key worth having.
        if (n <= 0) {
            throw std::runtime_error("cannot read random bytes: " +
                                     std::string(std::strerror(errno)));
        }
        filled += static_cast<size_t>(n);
    }
    std::string hex;
    for (unsigned char byte : bytes) hex += fmt::format("{:02x}", byte);
    return hex;
}

bool wellFormed(std::string_view text) {
    text = withoutNewline(text);
    if (text.size() != 2 * kKeyBytes) return false;
    for (char c : text) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    return true;
}

Loaded read(const std::filesystem::path& dataDir) {
    std::filesystem::path path = dataDir / kFileName;
    AtomicFile::ReadResult file = AtomicFile::read(path, 4096);
    Loaded loaded;
    if (file.missing) {
        loaded.problem = fmt::format("{} does not exist yet: the daemon writes it when it starts",
                                     path.string());
    } else if (!file.bytes) {
        loaded.problem = fmt::format("cannot read {}: {}", path.string(), file.error);
    } else if (!wellFormed(*file.bytes)) {
        loaded.problem = fmt::format("{} does not hold a key", path.string());
    } else if (readableByOthers(path)) {
        loaded.problem = fmt::format("{} may be read by others than you", path.string());
    } else {
        loaded.key = std::string(withoutNewline(*file.bytes));
    }
    return loaded;
}

Loaded loadOrCreate(const std::filesystem::path& dataDir, Date now) {
    std::filesystem::path path = dataDir / kFileName;
    Loaded loaded = read(dataDir);
    if (!loaded.key.empty()) return loaded;
    AtomicFile::ReadResult file = AtomicFile::read(path, 4096);
    if (!file.missing) {
        std::string why;
        loaded.setAside = AtomicFile::quarantine(path, now, &why);
        if (!loaded.setAside) {
            loaded.problem = fmt::format("cannot move {} aside: {}", path.string(), why);
            return loaded;
        }
    }
    std::string key = generate();
    if (auto failed = AtomicFile::write(path, key + "\n", 0600)) {
        loaded.problem = fmt::format("cannot write {}: {}", path.string(), *failed);
        return loaded;
    }
    loaded.key = key;
    loaded.problem.clear();
    return loaded;
}

}  // namespace quorvane::DashboardKey
