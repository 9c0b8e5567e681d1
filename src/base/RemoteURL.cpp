#include "base/RemoteURL.hpp"

#include "base/TextHelpers.hpp"

namespace quorvane::RemoteURL {

namespace {

constexpr std::string_view kSchemeEnd = "://";

bool keepsUserName(std::string_view scheme) {
    std::string lower = Text::asciiLower(scheme);
    return lower == "ssh" || lower == "git+ssh" || lower == "ssh+git";
}

}  // namespace

std::string withoutCredentials(std::string_view url) {
    size_t schemeEnd = url.find(kSchemeEnd);
    if (schemeEnd == std::string_view::npos) return std::string(url);
    size_t hostStart = schemeEnd + kSchemeEnd.size();
    size_t hostEnd = url.find_first_of("/?#", hostStart);
    if (hostEnd == std::string_view::npos) hostEnd = url.size();
    std::string_view authority = url.substr(hostStart, hostEnd - hostStart);
    // The last "@" ends the user part: a password may itself hold an "@".
    size_t at = authority.rfind('@');
    if (at == std::string_view::npos) return std::string(url);

    std::string out(url.substr(0, hostStart));
    if (keepsUserName(url.substr(0, schemeEnd))) {
        std::string_view user = authority.substr(0, authority.find(':'));
        if (at < authority.find(':')) user = authority.substr(0, at);
        if (!user.empty()) {
            out.append(user);
            out.push_back('@');
        }
    }
    out.append(url.substr(hostStart + at + 1));
    return out;
}

std::string scrubbed(std::string_view text) {
    std::string out;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t scheme = text.find(kSchemeEnd, pos);
        if (scheme == std::string_view::npos) break;
        size_t hostStart = scheme + kSchemeEnd.size();
        size_t hostEnd = text.find_first_of("/ \t\r\n'\"<>", hostStart);
        if (hostEnd == std::string_view::npos) hostEnd = text.size();
        size_t at = text.substr(hostStart, hostEnd - hostStart).rfind('@');
        out.append(text.substr(pos, hostStart - pos));
        pos = at == std::string_view::npos ? hostStart : hostStart + at + 1;
    }
    out.append(text.substr(pos));
    return out;
}

}  // namespace quorvane::RemoteURL
