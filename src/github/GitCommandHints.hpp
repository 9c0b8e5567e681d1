#pragma once

#include <optional>
#include <string>
#include <string_view>

// Command lines meant to be pasted into a shell as they are, so every value in them
// is quoted for the shell. Pure.
namespace quorvane::GitCommandHints {

// One line that enters `path` and publishes it as a private repository with gh:
// "owner/name" when `owner` is given and not empty, else just `name`.
std::string publishToGitHub(std::string_view path, std::string_view name,
                            const std::optional<std::string>& owner);

// `text` as one POSIX shell word: in single quote marks, each single quote mark
// inside written as '\'' (close, escaped mark, reopen).
std::string shellQuoted(std::string_view text);

}  // namespace quorvane::GitCommandHints
