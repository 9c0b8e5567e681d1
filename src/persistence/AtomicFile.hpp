#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/DateHelpers.hpp"

namespace quorvane::AtomicFile {

// Replaces `path` with `bytes` so that a reader, or the file after a crash, holds
// either the old content or the new one: a temporary file in the same folder,
// fsync, rename over the target, fsync of the folder. The file gets `mode`.
// Returns the reason when it failed; the old file is untouched then.
[[nodiscard]] std::optional<std::string> write(const std::filesystem::path& path,
                                               std::string_view bytes, unsigned mode = 0600);

// The outcome of reading a whole file.
struct ReadResult {
    std::optional<std::string> bytes;  // the content, when it could be read
    bool missing = false;              // the file does not exist
    std::string error;                 // why it could not be read, otherwise
};

// No data file of ours comes near this; anything larger is not one of ours.
inline constexpr size_t kMaxReadBytes = size_t{512} << 20;

// Reads a regular file whole. Anything else in its place (a folder, a FIFO, a
// device, a symbolic link) is an error rather than a wait or an endless read, and
// so is a file larger than `maxBytes`. Only ENOENT counts as missing.
ReadResult read(const std::filesystem::path& path, size_t maxBytes = kMaxReadBytes);

// Removes the temporary files that an interrupted `write` of `path` left behind.
// Only the folder's one writer may call it: another writer's temporary is live.
void removeStaleTemporaries(const std::filesystem::path& path);

// Moves an unreadable file aside to "<name>.corrupt-<seconds since 1970>" in the
// same folder, so that it is kept for the user. An earlier file of that name is
// never replaced: the next free "<name>.corrupt-<seconds>-<n>" is taken instead.
// Returns where the file went, or nothing when it could not be moved; `why` then
// says what stopped it.
std::optional<std::filesystem::path> quarantine(const std::filesystem::path& path, Date now,
                                                std::string* why = nullptr);

}  // namespace quorvane::AtomicFile
