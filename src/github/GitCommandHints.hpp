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

// A branch as one word of a git command line the person pastes: as it is when it
// is plain, in full ("refs/heads/-x") when git would read its first character as
// an option or a forced push, and quoted for the shell when it holds anything a
// shell acts on.
std::string branchWord(std::string_view branch);

}  // namespace quorvane::GitCommandHints
