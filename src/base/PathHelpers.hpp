#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane::PathHelpers {

// The user's home folder: $HOME when it is an absolute path, else the password
// database's entry, else "/".
std::filesystem::path homeDirectory();

// Replaces a leading "~" or "~/" with the home folder; anything else is returned as is.
std::string expandTilde(std::string_view path);

// The identity of a folder on disk: tilde expanded, made absolute, symbolic links
// resolved. A path that does not exist is only made absolute and normalised.
std::string canonicalPath(std::string_view path);

// The data folder: $XDG_DATA_HOME/Quorvane, or ~/.local/share/Quorvane. It is
// created (mode 0700) on every call; a failure to create it is ignored here and
// surfaces when a file in it is written.
std::filesystem::path appSupportDir();

// This very program, by its absolute path; nothing when the system will not say.
std::optional<std::filesystem::path> ownExecutable();

// Creates `dir` and its parents, giving the folder itself mode 0700. Returns false
// when it does not exist as a folder afterwards.
bool ensurePrivateDirectory(const std::filesystem::path& dir);

// Why `dir` may not serve as a data folder, or nothing when it may: it must be a
// folder (a link to one is followed) of this user that no one else can write to,
// since whoever can write there can replace what the program reads.
std::optional<std::string> dataFolderProblem(const std::filesystem::path& dir);

}  // namespace quorvane::PathHelpers
