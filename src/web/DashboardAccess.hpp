#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "base/DateHelpers.hpp"

namespace quorvane {

// Who may use the dashboard: the browser that redeemed a login link holds a
// session cookie, and every change it sends also carries the session's CSRF
// token, which only a page of the dashboard can read.
class DashboardSessions {
public:
    static constexpr std::string_view kCookie = "quorvane_session";
    static constexpr std::chrono::seconds kLifetime{std::chrono::hours(24 * 7)};
    // Logins beyond this push out the oldest session.
    static constexpr size_t kMaxSessions = 32;

    struct Session {
        std::string cookie;
        std::string csrf;
        Date expires;
    };

    Session open(Date now);
    // The session a cookie's value names, while it lasts.
    std::optional<Session> find(std::string_view cookie, Date now);

private:
    std::mutex mutex_;
    std::map<std::string, Session, std::less<>> sessions_;
};

namespace DashboardAccess {

// What the guard reads from a request.
struct Request {
    std::string_view method;
    std::string_view path;
    std::string_view host;
    std::optional<std::string_view> origin;
    std::optional<std::string_view> cookies;  // the Cookie header
    std::optional<std::string_view> csrf;     // the X-Quorvane-CSRF header
};

struct Verdict {
    int status = 0;      // 0: let it through; otherwise the HTTP status to answer
    std::string reason;  // for the answer's body and the log
    std::optional<DashboardSessions::Session> session;
};

inline constexpr std::string_view kCsrfHeader = "X-Quorvane-CSRF";

// Whether a Host header names this server by the loopback address: a page of
// another name resolving to 127.0.0.1 (DNS rebinding) is no page of ours.
bool hostAllowed(std::string_view host, int port);

// The value of cookie `name` in a Cookie header.
std::optional<std::string_view> cookieValue(std::string_view header, std::string_view name);

// The guard every request passes: the loopback Host always; a live session
// except for the login link itself; and for anything but GET and HEAD, an Origin
// of this very server and the session's CSRF token.
Verdict check(const Request& request, int port, DashboardSessions& sessions, Date now);

}  // namespace DashboardAccess
}  // namespace quorvane
