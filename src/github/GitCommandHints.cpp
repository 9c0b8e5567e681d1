#include "github/GitCommandHints.hpp"

#include <algorithm>
#include <cctype>

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

std::string branchWord(std::string_view branch) {
    std::string name(branch);
    if (name.starts_with('-') || name.starts_with('+')) name = "refs/heads/" + name;
    auto plain = [](unsigned char c) {
        return std::isalnum(c) || c == '/' || c == '.' || c == '_' || c == '-' || c == '@' ||
               c == '=' || c == ',' || c == '+';
    };
    if (std::all_of(name.begin(), name.end(), plain)) return name;
    return shellQuoted(name);
}

std::string publishToGitHub(std::string_view path, std::string_view name,
                            const std::optional<std::string>& owner) {
    std::string target =
        owner && !owner->empty() ? fmt::format("{}/{}", *owner, name) : std::string(name);
    return fmt::format("cd {} && gh repo create {} --private --source . --remote origin --push",
                       shellQuoted(path), shellQuoted(target));
}

}  // namespace quorvane::GitCommandHints
