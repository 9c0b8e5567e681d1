#include "records/WorkSession.hpp"

namespace quorvane {

void fromJson(const Json& json, WorkSession& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.repoID = reader.required<std::string>("repoID");
    out.startedAt = reader.required<Date>("startedAt");
    out.endedAt = reader.required<Date>("endedAt");
    out.estimatedSeconds = reader.required<int>("estimatedSeconds");
    out.confidence = reader.required<WorkSession::Confidence>("confidence");
    out.source = reader.required<WorkSession::Source>("source");
    out.isOpen = reader.required<bool>("isOpen");
}

Json toJson(const WorkSession& session) {
    return Json{{"id", session.id},
                {"repoID", session.repoID},
                {"startedAt", toJson(session.startedAt)},
                {"endedAt", toJson(session.endedAt)},
                {"estimatedSeconds", session.estimatedSeconds},
                {"confidence", toJson(session.confidence)},
                {"source", toJson(session.source)},
                {"isOpen", session.isOpen}};
}

}  // namespace quorvane
