#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One tracked repository as the user configured it. `id`, `name`, `localPath` and
// `addedAt` are required in the file; every other key falls back to its default.
struct RepoConfig {
    enum class Priority { low, normal, high };

    std::string id;  // canonical path: tilde expanded, symbolic links resolved
    std::string name;
    std::optional<std::string> displayName;
    std::string localPath;
    std::optional<std::string> remoteURL;
    std::string defaultBranch = "main";
    std::optional<std::string> category;
    Priority priority = Priority::normal;
    bool trackingEnabled = true;
    bool ignoreUntracked = false;
    std::optional<int> staleDaysThreshold;
    std::optional<std::string> colorHex;
    Date addedAt{};
    std::optional<std::string> preferredAccountID;
    std::vector<std::string> aliases;

    bool operator==(const RepoConfig&) const = default;
};

constexpr auto enumCases(RepoConfig::Priority) {
    using enum RepoConfig::Priority;
    return std::array{std::pair{low, std::string_view("low")},
                      std::pair{normal, std::string_view("normal")},
                      std::pair{high, std::string_view("high")}};
}

// The name people see: the one they gave, else the folder's. A blank display name
// shows nothing useful, so it counts as none.
inline std::string displayNameOf(const RepoConfig& config) {
    return config.displayName && !config.displayName->empty() ? *config.displayName : config.name;
}

void fromJson(const Json& json, RepoConfig& out, const std::string& path);
Json toJson(const RepoConfig& repo);

}  // namespace quorvane
