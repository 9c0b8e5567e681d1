#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"
#include "records/RepoConfig.hpp"

namespace quorvane {

// What was inferred about a project from the files in its folder: its type, stack and
// suggested category, priority and next step. Stored under `repoID`.
struct ProjectMetadata {
    std::string repoID;
    std::string projectType;         // what the marker files say the project is
    std::vector<std::string> stack;  // languages, frameworks and tools found
    std::optional<std::string> category;
    RepoConfig::Priority priority = RepoConfig::Priority::normal;
    std::string summary;
    std::optional<std::string> nextAction;
    Date inferredAt{};

    bool operator==(const ProjectMetadata&) const = default;
};

void fromJson(const Json& json, ProjectMetadata& out, const std::string& path);
Json toJson(const ProjectMetadata& metadata);

}  // namespace quorvane
