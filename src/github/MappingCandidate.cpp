#include "github/MappingCandidate.hpp"

namespace quorvane {

void fromJson(const Json& json, MappingCandidate& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.remoteRepoID = reader.required<std::string>("remoteRepoID");
    out.localPath = reader.required<std::string>("localPath");
    out.confidence = reader.required<int>("confidence");
    out.evidence = reader.required<std::vector<std::string>>("evidence");
}

Json toJson(const MappingCandidate& candidate) {
    return Json{{"remoteRepoID", candidate.remoteRepoID},
                {"localPath", candidate.localPath},
                {"confidence", candidate.confidence},
                {"evidence", toJson(candidate.evidence)}};
}

}  // namespace quorvane
