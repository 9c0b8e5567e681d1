#include "github/GitCommandHints.hpp"

#include <fmt/format.h>

namespace quorvane::GitCommandHints {

std::string shellQuoted(std::string_view text) {
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    quoted += '\'';
    return quoted;
}

std::string publishToGitHub(std::string_view path, std::string_view name,
                            const std::optional<std::string>& owner) {
    std::string target =
        owner && !owner->empty() ? fmt::format("{}/{}", *owner, name) : std::string(name);
    return fmt::format("cd {} && gh repo create {} --private --source . --remote origin --push",
                       shellQuoted(path), shellQuoted(target));
}

}  // namespace quorvane::GitCommandHints
