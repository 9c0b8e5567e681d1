#include "records/ProjectHealthSnapshot.hpp"

namespace quorvane {

void fromJson(const Json& json, ProjectHealthSnapshot& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.repoID = reader.required<std::string>("repoID");
    out.score = reader.required<int>("score");
    out.reasonsPositive = reader.required<std::vector<std::string>>("reasonsPositive");
    out.reasonsNegative = reader.required<std::vector<std::string>>("reasonsNegative");
    out.capturedAt = reader.required<Date>("capturedAt");
}

Json toJson(const ProjectHealthSnapshot& snapshot) {
    return Json{{"id", snapshot.id},
                {"repoID", snapshot.repoID},
                {"score", snapshot.score},
                {"reasonsPositive", toJson(snapshot.reasonsPositive)},
                {"reasonsNegative", toJson(snapshot.reasonsNegative)},
                {"capturedAt", toJson(snapshot.capturedAt)}};
}

}  // namespace quorvane
