#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// The counterpart of one tracked local repository or one repository seen on
// GitHub: a link, or the reason there is none. A link the user confirmed
// outranks a computed one. Empty optionals are left out of the JSON.
struct RepositoryMapping {
    enum class Kind { mapped, localOnly, remoteOnly, accountMismatch, remoteInaccessible };

    std::string id;  // the local repository id, or the remote id of a remote-only row
    std::optional<std::string> localRepoID;
    std::optional<std::string> remoteRepoID;
    std::optional<std::string> accountID;  // the account of the remote side
    Kind kind = Kind::localOnly;
    double confidence = 0.0;  // 1.0 for a certain answer, 0.0 for an account problem
    bool confirmedByUser = false;
    Date createdAt{};

    // The id a computed row carries: its local side when it has one, else its
    // remote side; empty when it has neither.
    std::string composedID() const { return localRepoID.value_or(remoteRepoID.value_or("")); }
    bool operator==(const RepositoryMapping&) const = default;
};

constexpr auto enumCases(RepositoryMapping::Kind) {
    using enum RepositoryMapping::Kind;
    return std::array{std::pair{mapped, std::string_view("mapped")},
                      std::pair{localOnly, std::string_view("localOnly")},
                      std::pair{remoteOnly, std::string_view("remoteOnly")},
                      std::pair{accountMismatch, std::string_view("accountMismatch")},
                      std::pair{remoteInaccessible, std::string_view("remoteInaccessible")}};
}

void fromJson(const Json& json, RepositoryMapping& out, const std::string& path);
Json toJson(const RepositoryMapping& mapping);

}  // namespace quorvane
