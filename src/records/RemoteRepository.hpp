#pragma once

#include <optional>
#include <string>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One repository on GitHub as one account sees it; the same repository reached
// through two accounts is two records. Empty optionals are left out of the JSON.
struct RemoteRepository {
    std::string id;  // accountID, ":", owner, "/", name (see composedID)
    std::string accountID;
    std::string owner;
    std::string name;
    std::string fullName;
    std::string htmlURL;   // empty when GitHub gave none
    std::string sshURL;    // empty when GitHub gave none
    std::string cloneURL;  // empty when GitHub gave none
    bool isPrivate = false;
    bool isFork = false;
    bool isArchived = false;
    std::string defaultBranch;
    std::optional<std::string> description;
    std::optional<std::string> language;
    std::optional<Date> pushedAt;
    std::optional<Date> updatedAt;
    Date lastSyncedAt{};  // when this record was read from GitHub

    // The id this record should carry, built from its account, owner and name.
    std::string composedID() const { return accountID + ":" + owner + "/" + name; }
    bool operator==(const RemoteRepository&) const = default;
};

void fromJson(const Json& json, RemoteRepository& out, const std::string& path);
Json toJson(const RemoteRepository& repository);

}  // namespace quorvane
