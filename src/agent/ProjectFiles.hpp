#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// Reading the marker files of a project folder that may come from anywhere: never
// more than a bounded head of a file, never through a symbolic link, and never
// blocking on a FIFO or device that carries a marker's name.
namespace quorvane::ProjectFiles {

// How much of a file is read: enough for any manifest or README title.
inline constexpr size_t kMaxReadBytes = 64 * 1024;

// The first kMaxReadBytes of `folder/name` when it is a regular file (not a link),
// as valid UTF-8 without a byte order mark; nothing otherwise.
std::optional<std::string> readHead(const std::filesystem::path& folder, std::string_view name);

// Whether `folder/name` exists, as a file, folder or link, without following it.
bool has(const std::filesystem::path& folder, std::string_view name);

}  // namespace quorvane::ProjectFiles
