#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One connected GitHub account. It names the secret-store item that holds its token
// and never holds the token itself. Every key is required when read, except the
// optional ones; there are no tolerant defaults.
struct GitHubAccount {
    enum class AuthType { pat, ghCLI };
    enum class Status { connected, tokenInvalid, unchecked, error };

    std::string id;
    std::string displayName;
    std::string username;
    std::optional<std::string> avatarURL;
    AuthType authType = AuthType::pat;
    std::string keychainRef;
    std::optional<Date> lastSyncAt;
    bool syncEnabled = true;
    Status status = Status::unchecked;
    std::optional<std::string> scopesNote;
    // The REST API's base address when it is not the public one (GitHub Enterprise
    // Server); left out of the JSON when absent.
    std::optional<std::string> apiBaseURL;

    bool operator==(const GitHubAccount&) const = default;
};

constexpr auto enumCases(GitHubAccount::AuthType) {
    using enum GitHubAccount::AuthType;
    return std::array{std::pair{pat, std::string_view("pat")},
                      std::pair{ghCLI, std::string_view("ghCLI")}};
}

constexpr auto enumCases(GitHubAccount::Status) {
    using enum GitHubAccount::Status;
    return std::array{std::pair{connected, std::string_view("connected")},
                      std::pair{tokenInvalid, std::string_view("tokenInvalid")},
                      std::pair{unchecked, std::string_view("unchecked")},
                      std::pair{error, std::string_view("error")}};
}

void fromJson(const Json& json, GitHubAccount& out, const std::string& path);
Json toJson(const GitHubAccount& account);

}  // namespace quorvane
