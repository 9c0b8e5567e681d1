#include "reports/ReminderEvent.hpp"

namespace quorvane {

std::string ReminderEvent::reconcileKey() const {
    return std::string(enumName(kind)) + "#" + repoID.value_or("");
}

void fromJson(const Json& json, ReminderEvent& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.repoID = reader.optional<std::string>("repoID");
    out.kind = reader.required<ReminderEvent::Kind>("kind");
    out.message = reader.required<std::string>("message");
    out.triggeredAt = reader.required<Date>("triggeredAt");
    out.resolvedAt = reader.optional<Date>("resolvedAt");
}

Json toJson(const ReminderEvent& event) {
    Json json{{"id", event.id},
              {"kind", toJson(event.kind)},
              {"message", event.message},
              {"triggeredAt", toJson(event.triggeredAt)}};
    putIfPresent(json, "repoID", event.repoID);
    putIfPresent(json, "resolvedAt", event.resolvedAt);
    return json;
}

}  // namespace quorvane
