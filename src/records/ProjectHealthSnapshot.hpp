#pragma once

#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One health score of a repository with the reasons behind it, stored under its
// repository id (`id` and `repoID` are the same). Every key is required.
struct ProjectHealthSnapshot {
    std::string id;  // equals repoID
    std::string repoID;
    int score = 100;  // 100 less the deductions
    std::vector<std::string> reasonsPositive;
    std::vector<std::string> reasonsNegative;  // one per deduction
    Date capturedAt{};

    bool operator==(const ProjectHealthSnapshot&) const = default;
};

void fromJson(const Json& json, ProjectHealthSnapshot& out, const std::string& path);
Json toJson(const ProjectHealthSnapshot& snapshot);

}  // namespace quorvane
