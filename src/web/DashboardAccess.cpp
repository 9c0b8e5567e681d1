#include "web/DashboardAccess.hpp"

#include <openssl/crypto.h>

#include <algorithm>

#include <fmt/format.h>

#include "base/TextHelpers.hpp"
#include "web/DashboardKey.hpp"

namespace quorvane {

DashboardSessions::Session DashboardSessions::open(Date now) {
    Session session{DashboardKey::generate(), DashboardKey::generate(), now + kLifetime};
    std::lock_guard lock(mutex_);
    std::erase_if(sessions_, [&](const auto& entry) { return entry.second.expires <= now; });
    while (sessions_.size() >= kMaxSessions) {
        auto oldest = std::min_element(sessions_.begin(), sessions_.end(), [](auto& a, auto& b) {
            return a.second.expires < b.second.expires;
        });
        sessions_.erase(oldest);
    }
    sessions_.emplace(session.cookie, session);
    return session;
}

std::optional<DashboardSessions::Session> DashboardSessions::find(std::string_view cookie,
                                                                  Date now) {
    std::lock_guard lock(mutex_);
    auto found = sessions_.find(cookie);
    if (found == sessions_.end() || found->second.expires <= now) return std::nullopt;
    return found->second;
}

namespace DashboardAccess {

namespace {

bool sameSecret(std::string_view a, std::string_view b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

bool hostAllowed(std::string_view host, int port) {
    std::string suffix = fmt::format(":{}", port);
    if (!host.ends_with(suffix)) return false;
    std::string name = Text::asciiLower(host.substr(0, host.size() - suffix.size()));
    return name == "127.0.0.1" || name == "[::1]" || name == "localhost";
}

std::optional<std::string_view> cookieValue(std::string_view header, std::string_view name) {
    while (!header.empty()) {
        size_t end = header.find(';');
        std::string_view pair = header.substr(0, end);
        header = end == std::string_view::npos ? std::string_view() : header.substr(end + 1);
        while (pair.starts_with(' ')) pair.remove_prefix(1);
        if (pair.size() > name.size() && pair.starts_with(name) && pair[name.size()] == '=') {
            return pair.substr(name.size() + 1);
        }
    }
    return std::nullopt;
}

Verdict check(const Request& request, int port, DashboardSessions& sessions, Date now) {
    if (!hostAllowed(request.host, port)) {
        return {403, "this dashboard answers only at its loopback address", std::nullopt};
    }
    bool reads = request.method == "GET" || request.method == "HEAD";
    if (request.path == "/login" && reads) return {};
    std::optional<std::string_view> cookie;
    if (request.cookies) cookie = cookieValue(*request.cookies, DashboardSessions::kCookie);
    std::optional<DashboardSessions::Session> session;
    if (cookie) session = sessions.find(*cookie, now);
    if (!session) {
        return {401, "log in with the link 'quorvane open' gives", std::nullopt};
    }
    if (!reads) {
        std::string_view host = request.host;
        if (!request.origin || *request.origin != fmt::format("http://{}", host)) {
            return {403, "a change must come from a page of this dashboard", std::nullopt};
        }
        if (!request.csrf || !sameSecret(*request.csrf, session->csrf)) {
            return {403, "a change must carry this session's CSRF token", std::nullopt};
        }
    }
    return {0, "", session};
}

}  // namespace DashboardAccess
}  // namespace quorvane
