#include "records/CommitRecord.hpp"

namespace quorvane {

void fromJson(const Json& json, CommitRecord& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.repoID = reader.required<std::string>("repoID");
    out.sha = reader.required<std::string>("sha");
    out.shortSha = reader.required<std::string>("shortSha");
    out.message = reader.required<std::string>("message");
    out.authorName = reader.required<std::string>("authorName");
    out.authorEmail = reader.required<std::string>("authorEmail");
    out.committedAt = reader.required<Date>("committedAt");
    out.branch = reader.required<std::string>("branch");
    out.isLocalOnly = reader.required<bool>("isLocalOnly");
    out.insertions = reader.optional<int>("insertions");
    out.deletions = reader.optional<int>("deletions");
}

Json toJson(const CommitRecord& commit) {
    Json json{{"repoID", commit.repoID},
              {"sha", commit.sha},
              {"shortSha", commit.shortSha},
              {"message", commit.message},
              {"authorName", commit.authorName},
              {"authorEmail", commit.authorEmail},
              {"committedAt", toJson(commit.committedAt)},
              {"branch", commit.branch},
              {"isLocalOnly", commit.isLocalOnly}};
    putIfPresent(json, "insertions", commit.insertions);
    putIfPresent(json, "deletions", commit.deletions);
    return json;
}

}  // namespace quorvane
