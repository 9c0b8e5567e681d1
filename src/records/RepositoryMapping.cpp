#include "records/RepositoryMapping.hpp"

namespace quorvane {

void fromJson(const Json& json, RepositoryMapping& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.localRepoID = reader.optional<std::string>("localRepoID");
    out.remoteRepoID = reader.optional<std::string>("remoteRepoID");
    out.accountID = reader.optional<std::string>("accountID");
    out.kind = reader.required<RepositoryMapping::Kind>("kind");
    out.confidence = reader.required<double>("confidence");
    out.confirmedByUser = reader.required<bool>("confirmedByUser");
    out.createdAt = reader.required<Date>("createdAt");
}

Json toJson(const RepositoryMapping& mapping) {
    Json json{{"id", mapping.id},
              {"kind", toJson(mapping.kind)},
              {"confidence", mapping.confidence},
              {"confirmedByUser", mapping.confirmedByUser},
              {"createdAt", toJson(mapping.createdAt)}};
    putIfPresent(json, "localRepoID", mapping.localRepoID);
    putIfPresent(json, "remoteRepoID", mapping.remoteRepoID);
    putIfPresent(json, "accountID", mapping.accountID);
    return json;
}

}  // namespace quorvane
