#include "records/ProjectMetadata.hpp"

namespace quorvane {

void fromJson(const Json& json, ProjectMetadata& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.repoID = reader.required<std::string>("repoID");
    out.projectType = reader.required<std::string>("projectType");
    out.stack = reader.required<std::vector<std::string>>("stack");
    out.category = reader.optional<std::string>("category");
    out.priority = reader.required<RepoConfig::Priority>("priority");
    out.summary = reader.required<std::string>("summary");
    out.nextAction = reader.optional<std::string>("nextAction");
    out.inferredAt = reader.required<Date>("inferredAt");
}

Json toJson(const ProjectMetadata& metadata) {
    Json json{{"repoID", metadata.repoID},       {"projectType", metadata.projectType},
              {"stack", toJson(metadata.stack)}, {"priority", toJson(metadata.priority)},
              {"summary", metadata.summary},     {"inferredAt", toJson(metadata.inferredAt)}};
    putIfPresent(json, "category", metadata.category);
    putIfPresent(json, "nextAction", metadata.nextAction);
    return json;
}

}  // namespace quorvane
