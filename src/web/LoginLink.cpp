#include "web/LoginLink.hpp"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>

#include <fmt/format.h>

#include "web/DashboardKey.hpp"

namespace quorvane::LoginLink {

namespace {

std::string message(std::string_view nonce, std::string_view expiry, std::string_view page) {
    return fmt::format("login\n{}\n{}\n{}", nonce, expiry, page);
}

bool knownPage(std::string_view page) {
    return std::find(std::begin(kPages), std::end(kPages), page) != std::end(kPages);
}

std::optional<long long> seconds(std::string_view text) {
    if (text.empty() || text.size() > 12) return std::nullopt;
    long long value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return value;
}

}  // namespace

std::string sign(std::string_view key, std::string_view text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest, &length);
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) hex += fmt::format("{:02x}", digest[i]);
    return hex;
}

std::string path(std::string_view key, Date now, std::string_view page) {
    std::string nonce = DashboardKey::generate();
    std::string expiry = std::to_string((now + kLifetime).time_since_epoch().count());
    return fmt::format("/login?n={}&e={}&to={}&s={}", nonce, expiry, page,
                       sign(key, message(nonce, expiry, page)));
}

std::string_view explain(Verdict verdict) {
    switch (verdict) {
        case Verdict::accepted: return "";
        case Verdict::malformed: return "this is not a login link of this dashboard";
        case Verdict::forged: return "this login link was not made with this dashboard's key";
        case Verdict::expired: return "this login link has expired";
        case Verdict::spent: return "this login link has been used already";
    }
    return "";
}

Verdict Tickets::redeem(std::string_view key, const std::map<std::string, std::string>& query,
                        Date now, std::string* page) {
    auto field = [&](const char* name) -> std::string_view {
        auto found = query.find(name);
        return found == query.end() ? std::string_view() : std::string_view(found->second);
    };
    std::string_view nonce = field("n"), expiry = field("e"), to = field("to"),
                     signature = field("s");
    std::optional<long long> expires = seconds(expiry);
    if (!DashboardKey::wellFormed(nonce) || nonce.ends_with('\n') || !expires || !knownPage(to) ||
        signature.size() != 64) {
        return Verdict::malformed;
    }
    std::string expected = sign(key, message(nonce, expiry, to));
    // Compared in constant time, so the answer's timing tells nothing of the key.
    if (CRYPTO_memcmp(expected.data(), signature.data(), expected.size()) != 0) {
        return Verdict::forged;
    }
    Date expiresAt{std::chrono::seconds(*expires)};
    if (now > expiresAt || expiresAt - now > kLifetime) return Verdict::expired;

    std::lock_guard lock(mutex_);
    std::erase_if(spent_, [&](const auto& entry) { return entry.second < now; });
    if (!spent_.emplace(std::string(nonce), expiresAt).second) return Verdict::spent;
    if (page) *page = std::string(to);
    return Verdict::accepted;
}

}  // namespace quorvane::LoginLink
