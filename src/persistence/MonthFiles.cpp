#include "persistence/MonthFiles.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

namespace quorvane {

namespace MonthFileNames {

std::string monthOf(Date date) {
    std::chrono::year_month_day day{std::chrono::floor<std::chrono::days>(date)};
    return fmt::format("{:04}-{:02}", static_cast<int>(day.year()),
                       static_cast<unsigned>(day.month()));
}

bool isMonth(const std::string& text) {
    if (text.size() != 7 || text[4] != '-') return false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (i != 4 && (text[i] < '0' || text[i] > '9')) return false;
    }
    return true;
}

std::string previousMonth(Date now) {
    std::chrono::year_month_day today{std::chrono::floor<std::chrono::days>(now)};
    std::chrono::year_month previous = today.year() / today.month() - std::chrono::months(1);
    return fmt::format("{:04}-{:02}", static_cast<int>(previous.year()),
                       static_cast<unsigned>(previous.month()));
}

namespace {

// FNV-1a: the same on every machine and in every release, unlike std::hash, so a
// repository's files keep their names.
std::string stableHash(const std::string& text) {
    uint64_t hash = 14695981039346656037ULL;
    for (unsigned char c : text) {
        hash ^= c;
        hash *= 1099511628211ULL;
    }
    return fmt::format("{:016x}", hash);
}

// The repository's folder name, kept to characters any file system takes.
std::string readableName(const std::string& repoID) {
    std::string base = std::filesystem::path(repoID).filename().string();
    if (base.empty()) base = std::filesystem::path(repoID).parent_path().filename().string();
    std::string name;
    for (char c : base) {
        bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                     c == '-' || c == '_' || c == '.';
        name += plain ? c : '_';
        if (name.size() == 48) break;
    }
    // No hidden name: those are the writer's temporaries.
    while (!name.empty() && name.front() == '.') name.erase(0, 1);
    return name.empty() ? "repo" : name;
}

}  // namespace

std::string ownName(const std::string& repoID) {
    return fmt::format("{}-{}.json", readableName(repoID), stableHash(repoID));
}

void syncFolder(const std::filesystem::path& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace MonthFileNames

}  // namespace quorvane
