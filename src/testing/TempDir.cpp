#include "testing/TempDir.hpp"

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace quorvane::testing {

TempDir::TempDir(const std::string& prefix) {
    std::filesystem::path base = std::filesystem::temp_directory_path();
    std::string pattern = (base / (prefix + "-XXXXXX")).string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    // Canonical, so that paths built here compare equal to canonical repository ids.
    path_ = std::filesystem::canonical(buffer.data());
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(path_, ec);
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << content;
    if (!stream) throw std::runtime_error("cannot write " + path.string());
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

}  // namespace quorvane::testing
