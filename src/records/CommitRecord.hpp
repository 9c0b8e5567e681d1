#pragma once

#include <optional>
#include <string>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One commit of a tracked repository. `insertions` and `deletions` are the only
// optional keys, and the scanner never fills them.
struct CommitRecord {
    std::string repoID;
    std::string sha;
    std::string shortSha;
    std::string message;  // the subject; it may hold "|"
    std::string authorName;
    std::string authorEmail;
    Date committedAt{};        // the author date, despite the name
    std::string branch;        // the branch the log was read for, or empty
    bool isLocalOnly = false;  // no remote-tracking branch contains it
    std::optional<int> insertions;
    std::optional<int> deletions;

    // "<repoID>:<sha>", the key of the store's commit map.
    std::string id() const { return repoID + ":" + sha; }
    bool operator==(const CommitRecord&) const = default;
};

void fromJson(const Json& json, CommitRecord& out, const std::string& path);
Json toJson(const CommitRecord& commit);

}  // namespace quorvane
