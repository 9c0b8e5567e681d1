#pragma once

#include <string>
#include <vector>

#include "records/JsonCodec.hpp"

namespace quorvane {

// One local folder proposed as the checkout of one remote repository, with how
// sure the proposal is and why. Nothing changes a mapping until it is confirmed.
struct MappingCandidate {
    std::string remoteRepoID;  // RemoteRepository id
    std::string localPath;
    int confidence = 0;                 // 1 to 100
    std::vector<std::string> evidence;  // one line saying why

    bool operator==(const MappingCandidate&) const = default;
};

void fromJson(const Json& json, MappingCandidate& out, const std::string& path);
Json toJson(const MappingCandidate& candidate);

}  // namespace quorvane
