#include "records/ReminderEvent.hpp"

namespace quorvane {

std::string ReminderEvent::reconcileKey() const {
    return std::string(enumName(kind)) + "#" + repoID.value_or("");
}

std::string_view title(ReminderEvent::Kind kind) {
    using enum ReminderEvent::Kind;
    switch (kind) {
        case needsPush: return "Quorvane — Push pending";
        case needsCommit: return "Quorvane — Commit pending";
        case behindRemote: return "Quorvane — Behind the remote";
        case staleDirty: return "Quorvane — Stale changes";
        case needsPull: return "Quorvane — Pull pending";
        case noUpstream: return "Quorvane — Branch without upstream";
        case remoteOnly: return "Quorvane — Repositories on GitHub only";
        case tokenIssue: return "Quorvane — Token GitHub invalid";
        case endDayReview: return "Quorvane — End of day";
    }
    return "Quorvane";
}

void fromJson(const Json& json, ReminderEvent& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.repoID = reader.optional<std::string>("repoID");
    out.kind = reader.required<ReminderEvent::Kind>("kind");
    out.message = reader.required<std::string>("message");
    out.triggeredAt = reader.required<Date>("triggeredAt");
    out.resolvedAt = reader.optional<Date>("resolvedAt");
    out.snoozedUntil = reader.optional<Date>("snoozedUntil");
}

Json toJson(const ReminderEvent& event) {
    Json json{{"id", event.id},
              {"kind", toJson(event.kind)},
              {"message", event.message},
              {"triggeredAt", toJson(event.triggeredAt)}};
    putIfPresent(json, "repoID", event.repoID);
    putIfPresent(json, "resolvedAt", event.resolvedAt);
    putIfPresent(json, "snoozedUntil", event.snoozedUntil);
    return json;
}

}  // namespace quorvane
