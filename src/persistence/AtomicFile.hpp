#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "app/DateHelpers.hpp"

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

ReadResult read(const std::filesystem::path& path);

// Removes the temporary files that an interrupted `write` of `path` left behind.
// Only the folder's one writer may call it: another writer's temporary is live.
void removeStaleTemporaries(const std::filesystem::path& path);

// Moves an unreadable file aside to "<name>.corrupt-<seconds since 1970>" in the
// same folder, so that it is kept for the user and never overwritten. An existing
// file of that name is not replaced: the move fails and false is returned.
bool quarantine(const std::filesystem::path& path, Date now);

}  // namespace quorvane::AtomicFile
