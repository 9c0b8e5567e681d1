#include "records/RepoConfig.hpp"

#include "base/RemoteURL.hpp"

namespace quorvane {

void fromJson(const Json& json, RepoConfig& out, const std::string& path) {
    ObjectReader reader(json, path);
    RepoConfig defaults;
    out.id = reader.required<std::string>("id");
    out.name = reader.required<std::string>("name");
    out.displayName = reader.optional<std::string>("displayName");
    out.localPath = reader.required<std::string>("localPath");
    // Written before addresses lost their credentials on reading, a stored one may
    // still hold a token.
    out.remoteURL = reader.optional<std::string>("remoteURL");
    if (out.remoteURL) out.remoteURL = RemoteURL::withoutCredentials(*out.remoteURL);
    out.defaultBranch = reader.orDefault("defaultBranch", defaults.defaultBranch);
    out.category = reader.optional<std::string>("category");
    out.priority = reader.orDefault("priority", defaults.priority);
    out.trackingEnabled = reader.orDefault("trackingEnabled", defaults.trackingEnabled);
    out.ignoreUntracked = reader.orDefault("ignoreUntracked", defaults.ignoreUntracked);
    out.staleDaysThreshold = reader.optional<int>("staleDaysThreshold");
    out.colorHex = reader.optional<std::string>("colorHex");
    out.addedAt = reader.required<Date>("addedAt");
    out.preferredAccountID = reader.optional<std::string>("preferredAccountID");
    out.aliases = reader.orDefault("aliases", defaults.aliases);
}

Json toJson(const RepoConfig& repo) {
    return Json{{"id", repo.id},
                {"name", repo.name},
                {"displayName", orNull(repo.displayName)},
                {"localPath", repo.localPath},
                {"remoteURL", orNull(repo.remoteURL)},
                {"defaultBranch", repo.defaultBranch},
                {"category", orNull(repo.category)},
                {"priority", toJson(repo.priority)},
                {"trackingEnabled", repo.trackingEnabled},
                {"ignoreUntracked", repo.ignoreUntracked},
                {"staleDaysThreshold", orNull(repo.staleDaysThreshold)},
                {"colorHex", orNull(repo.colorHex)},
                {"addedAt", toJson(repo.addedAt)},
                {"preferredAccountID", orNull(repo.preferredAccountID)},
                {"aliases", toJson(repo.aliases)}};
}

}  // namespace quorvane
