#include "github/RemoteBranch.hpp"

namespace quorvane {

void fromJson(const Json& json, RemoteBranch& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.name = reader.required<std::string>("name");
    out.lastCommitSha = reader.optional<std::string>("lastCommitSha");
    out.lastCommitDate = reader.optional<Date>("lastCommitDate");
}

Json toJson(const RemoteBranch& branch) {
    Json json{{"name", branch.name}};
    putIfPresent(json, "lastCommitSha", branch.lastCommitSha);
    putIfPresent(json, "lastCommitDate", branch.lastCommitDate);
    return json;
}

}  // namespace quorvane
