#include "records/GitHubAccount.hpp"

namespace quorvane {

void fromJson(const Json& json, GitHubAccount& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.displayName = reader.required<std::string>("displayName");
    out.username = reader.required<std::string>("username");
    out.avatarURL = reader.optional<std::string>("avatarURL");
    out.authType = reader.required<GitHubAccount::AuthType>("authType");
    out.keychainRef = reader.required<std::string>("keychainRef");
    out.lastSyncAt = reader.optional<Date>("lastSyncAt");
    out.syncEnabled = reader.required<bool>("syncEnabled");
    out.status = reader.required<GitHubAccount::Status>("status");
    out.scopesNote = reader.optional<std::string>("scopesNote");
    out.apiBaseURL = reader.optional<std::string>("apiBaseURL");
}

Json toJson(const GitHubAccount& account) {
    Json json{{"id", account.id},
              {"displayName", account.displayName},
              {"username", account.username},
              {"avatarURL", orNull(account.avatarURL)},
              {"authType", toJson(account.authType)},
              {"keychainRef", account.keychainRef},
              {"lastSyncAt", orNull(account.lastSyncAt)},
              {"syncEnabled", account.syncEnabled},
              {"status", toJson(account.status)},
              {"scopesNote", orNull(account.scopesNote)}};
    putIfPresent(json, "apiBaseURL", account.apiBaseURL);
    return json;
}

}  // namespace quorvane
