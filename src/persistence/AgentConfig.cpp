#include "persistence/AgentConfig.hpp"

namespace quorvane {

void fromJson(const Json& json, AgentConfig& out, const std::string& path) {
    ObjectReader reader(json, path);
    AgentConfig defaults;
    out.enabled = reader.orDefault("enabled", defaults.enabled);
    out.permissionLevel = reader.orDefault("permissionLevel", defaults.permissionLevel);
    out.allowedRoots = reader.orDefault("allowedRoots", defaults.allowedRoots);
    out.maxScanDepth = reader.orDefault("maxScanDepth", defaults.maxScanDepth);
    out.requireGuiConfirmation =
        reader.orDefault("requireGuiConfirmation", defaults.requireGuiConfirmation);
    out.autoApproveConfidenceThreshold = reader.optional<int>("autoApproveConfidenceThreshold");
    out.socketPath = reader.orDefault("socketPath", defaults.socketPath);
}

Json toJson(const AgentConfig& agent) {
    return Json{{"enabled", agent.enabled},
                {"permissionLevel", toJson(agent.permissionLevel)},
                {"allowedRoots", toJson(agent.allowedRoots)},
                {"maxScanDepth", agent.maxScanDepth},
                {"requireGuiConfirmation", agent.requireGuiConfirmation},
                {"autoApproveConfidenceThreshold", orNull(agent.autoApproveConfidenceThreshold)},
                {"socketPath", agent.socketPath}};
}

}  // namespace quorvane
