#include "records/RepoSnapshot.hpp"

#include "base/RemoteURL.hpp"

namespace quorvane {

void fromJson(const Json& json, GitFileCounts& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.modified = reader.required<int>("modified");
    out.staged = reader.required<int>("staged");
    out.untracked = reader.required<int>("untracked");
    out.deleted = reader.required<int>("deleted");
    out.renamed = reader.required<int>("renamed");
}

Json toJson(const GitFileCounts& counts) {
    return Json{{"modified", counts.modified},
                {"staged", counts.staged},
                {"untracked", counts.untracked},
                {"deleted", counts.deleted},
                {"renamed", counts.renamed}};
}

void fromJson(const Json& json, RepoSnapshot& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.repoID = reader.required<std::string>("repoID");
    out.capturedAt = reader.required<Date>("capturedAt");
    out.branch = reader.required<std::string>("branch");
    // Written before addresses lost their credentials on reading, a stored one may
    // still hold a token.
    out.remoteURL = reader.optional<std::string>("remoteURL");
    if (out.remoteURL) out.remoteURL = RemoteURL::withoutCredentials(*out.remoteURL);
    out.hasUpstream = reader.required<bool>("hasUpstream");
    out.files = reader.required<GitFileCounts>("files");
    out.ahead = reader.required<int>("ahead");
    out.behind = reader.required<int>("behind");
    out.commitsToday = reader.required<int>("commitsToday");
    out.lastCommitSha = reader.optional<std::string>("lastCommitSha");
    out.lastCommitMessage = reader.optional<std::string>("lastCommitMessage");
    out.lastCommitAt = reader.optional<Date>("lastCommitAt");
    out.lastWorkingTreeChangeAt = reader.optional<Date>("lastWorkingTreeChangeAt");
    out.isDetachedHead = reader.required<bool>("isDetachedHead");
    out.error = reader.optional<std::string>("error");
    out.userEmails = reader.orDefault<std::vector<std::string>>("userEmails", {});
}

Json toJson(const RepoSnapshot& snapshot) {
    Json json{{"id", snapshot.id},
              {"repoID", snapshot.repoID},
              {"capturedAt", toJson(snapshot.capturedAt)},
              {"branch", snapshot.branch},
              {"hasUpstream", snapshot.hasUpstream},
              {"files", toJson(snapshot.files)},
              {"ahead", snapshot.ahead},
              {"behind", snapshot.behind},
              {"commitsToday", snapshot.commitsToday},
              {"isDetachedHead", snapshot.isDetachedHead}};
    putIfPresent(json, "remoteURL", snapshot.remoteURL);
    putIfPresent(json, "lastCommitSha", snapshot.lastCommitSha);
    putIfPresent(json, "lastCommitMessage", snapshot.lastCommitMessage);
    putIfPresent(json, "lastCommitAt", snapshot.lastCommitAt);
    putIfPresent(json, "lastWorkingTreeChangeAt", snapshot.lastWorkingTreeChangeAt);
    putIfPresent(json, "error", snapshot.error);
    if (!snapshot.userEmails.empty()) json["userEmails"] = toJson(snapshot.userEmails);
    return json;
}

}  // namespace quorvane
