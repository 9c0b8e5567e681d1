#pragma once

#include <filesystem>
#include <string>

namespace quorvane::testing {

// A fresh folder under the test's temporary root, removed with everything in it
// when the object goes away.
class TempDir {
public:
    explicit TempDir(const std::string& prefix = "quorvane");
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& child) const { return path_ / child; }

private:
    std::filesystem::path path_;
};

// Writes `content` to `path`, creating parent folders.
void writeFile(const std::filesystem::path& path, const std::string& content);

// The bytes of `path`, or "" when it cannot be read.
std::string readFile(const std::filesystem::path& path);

}  // namespace quorvane::testing
