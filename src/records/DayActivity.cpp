#include "records/DayActivity.hpp"

namespace quorvane {

void fromJson(const Json& json, DayActivity& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.repoID = reader.required<std::string>("repoID");
    out.dateKey = reader.required<std::string>("dateKey");
    out.commitCount = reader.required<int>("commitCount");
    out.estimatedSeconds = reader.required<int>("estimatedSeconds");
    out.filesTouched = reader.required<int>("filesTouched");
    out.pushed = reader.required<bool>("pushed");
    out.branchesTouched = reader.required<std::vector<std::string>>("branchesTouched");
    out.statuses = reader.required<std::vector<std::string>>("statuses");
    out.branch = reader.optional<std::string>("branch").value_or("");
    out.files = reader.optional<GitFileCounts>("files");
    out.ahead = reader.optional<int>("ahead").value_or(0);
    out.behind = reader.optional<int>("behind").value_or(0);
}

Json toJson(const DayActivity& activity) {
    Json json{{"repoID", activity.repoID},
              {"dateKey", activity.dateKey},
              {"commitCount", activity.commitCount},
              {"estimatedSeconds", activity.estimatedSeconds},
              {"filesTouched", activity.filesTouched},
              {"pushed", activity.pushed},
              {"branchesTouched", toJson(activity.branchesTouched)},
              {"statuses", toJson(activity.statuses)},
              {"branch", activity.branch},
              {"ahead", activity.ahead},
              {"behind", activity.behind}};
    if (activity.files) json["files"] = toJson(*activity.files);
    return json;
}

}  // namespace quorvane
