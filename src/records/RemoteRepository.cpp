#include "records/RemoteRepository.hpp"

namespace quorvane {

void fromJson(const Json& json, RemoteRepository& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.accountID = reader.required<std::string>("accountID");
    out.owner = reader.required<std::string>("owner");
    out.name = reader.required<std::string>("name");
    out.fullName = reader.required<std::string>("fullName");
    out.htmlURL = reader.required<std::string>("htmlURL");
    out.sshURL = reader.required<std::string>("sshURL");
    out.cloneURL = reader.required<std::string>("cloneURL");
    out.isPrivate = reader.required<bool>("isPrivate");
    out.isFork = reader.required<bool>("isFork");
    out.isArchived = reader.required<bool>("isArchived");
    out.defaultBranch = reader.required<std::string>("defaultBranch");
    out.description = reader.optional<std::string>("description");
    out.language = reader.optional<std::string>("language");
    out.pushedAt = reader.optional<Date>("pushedAt");
    out.updatedAt = reader.optional<Date>("updatedAt");
    out.lastSyncedAt = reader.required<Date>("lastSyncedAt");
}

Json toJson(const RemoteRepository& repository) {
    Json json{{"id", repository.id},
              {"accountID", repository.accountID},
              {"owner", repository.owner},
              {"name", repository.name},
              {"fullName", repository.fullName},
              {"htmlURL", repository.htmlURL},
              {"sshURL", repository.sshURL},
              {"cloneURL", repository.cloneURL},
              {"isPrivate", repository.isPrivate},
              {"isFork", repository.isFork},
              {"isArchived", repository.isArchived},
              {"defaultBranch", repository.defaultBranch},
              {"lastSyncedAt", toJson(repository.lastSyncedAt)}};
    putIfPresent(json, "description", repository.description);
    putIfPresent(json, "language", repository.language);
    putIfPresent(json, "pushedAt", repository.pushedAt);
    putIfPresent(json, "updatedAt", repository.updatedAt);
    return json;
}

}  // namespace quorvane
