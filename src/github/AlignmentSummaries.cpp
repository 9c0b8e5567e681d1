#include "github/AlignmentSummaries.hpp"

namespace quorvane {

Json toJson(const AlignmentSummary& summary) {
    return Json{{"mappedCount", summary.mappedCount},
                {"remoteOnlyCount", summary.remoteOnlyCount},
                {"localOnlyCount", summary.localOnlyCount},
                {"accountIssueCount", summary.accountIssueCount},
                {"needsPush", summary.needsPush},
                {"needsPull", summary.needsPull},
                {"noUpstream", summary.noUpstream},
                {"pushedCommitsToday", summary.pushedCommitsToday},
                {"localOnlyCommitsToday", summary.localOnlyCommitsToday}};
}

Json toJson(const V2RepoLine& line) {
    Json json{{"repoID", line.repoID}, {"name", line.name},
              {"branch", line.branch}, {"syncStatus", toJson(line.syncStatus)},
              {"ahead", line.ahead},   {"behind", line.behind},
              {"otherRemote", line.otherRemote}};
    // Null until a sync has scored the repository.
    json["health"] = line.health ? Json(*line.health) : Json(nullptr);
    putIfPresent(json, "account", line.account);
    putIfPresent(json, "suggestedCommand", line.suggestedCommand);
    return json;
}

Json toJson(const InventoryRow& row) {
    Json json{{"id", row.id},
              {"name", row.name},
              {"account", row.account},
              {"kind", toJson(row.kind)},
              {"isPrivate", row.isPrivate},
              {"isArchived", row.isArchived},
              {"otherRemote", row.otherRemote},
              {"localNotTracked", row.localNotTracked}};
    putIfPresent(json, "localPath", row.localPath);
    putIfPresent(json, "updatedAt", row.updatedAt);
    return json;
}

}  // namespace quorvane
