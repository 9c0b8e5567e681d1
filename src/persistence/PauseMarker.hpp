#pragma once

#include <filesystem>
#include <string>

// Whether the running daemon has paused its watching. The daemon keeps the state
// in memory, so a restart starts unpaused; this file tells the commands that read
// the data folder beside it (status, status bars, the tray) that it is paused.
namespace quorvane::PauseMarker {

inline constexpr const char* kFileName = "paused.json";

// Written by the daemon, the data folder's one writer, when it pauses; removed when
// it resumes, starts and stops. Returns why it could not be written, or an empty text.
std::string publish(const std::filesystem::path& dataDir);
void withdraw(const std::filesystem::path& dataDir);

// True while a live daemon has said it is paused. A file a killed daemon left
// behind, or one that cannot be read, says nothing.
bool isPaused(const std::filesystem::path& dataDir);

}  // namespace quorvane::PauseMarker
