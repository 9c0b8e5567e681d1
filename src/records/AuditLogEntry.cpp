#include "records/AuditLogEntry.hpp"

namespace quorvane {

void fromJson(const Json& json, AuditLogEntry& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.at = reader.required<Date>("at");
    out.actor = reader.required<std::string>("actor");
    out.tool = reader.required<std::string>("tool");
    out.argsSummary = reader.required<std::string>("argsSummary");
    out.status = reader.required<std::string>("status");
    out.detail = reader.optional<std::string>("detail");
    out.proposalId = reader.optional<std::string>("proposalId");
}

Json toJson(const AuditLogEntry& entry) {
    Json json{{"id", entry.id},     {"at", toJson(entry.at)},           {"actor", entry.actor},
              {"tool", entry.tool}, {"argsSummary", entry.argsSummary}, {"status", entry.status}};
    putIfPresent(json, "detail", entry.detail);
    putIfPresent(json, "proposalId", entry.proposalId);
    return json;
}

}  // namespace quorvane
