#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "base/DateHelpers.hpp"

namespace quorvane {

// The one-time link that lets the person's browser in. `quorvane open` signs it
// with the data folder's key and the daemon redeems it once, within its lifetime,
// for a session cookie; the key itself never travels.
namespace LoginLink {

inline constexpr std::chrono::seconds kLifetime{120};

// The pages a link may lead to: every screen of the dashboard.
inline constexpr std::string_view kPages[] = {
    "today",    "activity", "attention", "week",       "calendar",  "projects",
    "branches", "journal",  "reports",   "alignment",  "inventory", "backlog",
    "accounts", "review",   "settings",  "onboarding", "panel"};

// HMAC-SHA256 of `message` under `key`, as lower-case hex.
std::string sign(std::string_view key, std::string_view message);

// "/login?n=NONCE&e=EXPIRY&to=PAGE&s=SIGNATURE" for one of `kPages`; the nonce is
// fresh randomness.
std::string path(std::string_view key, Date now, std::string_view page);

enum class Verdict { accepted, malformed, forged, expired, spent };

// What the person is told when a link does not let them in.
std::string_view explain(Verdict verdict);

// The daemon's memory of redeemed links, so each works once.
class Tickets {
public:
    // Checks a login request's query and, when it is accepted, spends it. On
    // acceptance `page` is where the link leads.
    Verdict redeem(std::string_view key, const std::map<std::string, std::string>& query, Date now,
                   std::string* page = nullptr);

private:
    std::mutex mutex_;
    std::map<std::string, Date> spent_;  // nonce → when its link expires
};

}  // namespace LoginLink
}  // namespace quorvane
