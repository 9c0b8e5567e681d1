#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "records/JsonCodec.hpp"

namespace quorvane {

// How far a coding agent may go: read, propose, apply settings, or also run safe git.
enum class AgentPermissionLevel { readOnly, propose, applySettings, safeGit };

constexpr auto enumCases(AgentPermissionLevel) {
    using enum AgentPermissionLevel;
    return std::array{std::pair{readOnly, std::string_view("readOnly")},
                      std::pair{propose, std::string_view("propose")},
                      std::pair{applySettings, std::string_view("applySettings")},
                      std::pair{safeGit, std::string_view("safeGit")}};
}

// The agent server's settings. Every key may be absent and then takes its default.
struct AgentConfig {
    bool enabled = true;
    AgentPermissionLevel permissionLevel = AgentPermissionLevel::applySettings;
    std::vector<std::string> allowedRoots;
    int maxScanDepth = 6;
    bool requireGuiConfirmation = true;
    std::optional<int> autoApproveConfidenceThreshold;
    std::string socketPath;  // empty: the default socket in the data folder

    bool operator==(const AgentConfig&) const = default;
};

void fromJson(const Json& json, AgentConfig& out, const std::string& path);
Json toJson(const AgentConfig& agent);

}  // namespace quorvane
