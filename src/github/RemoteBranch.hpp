#pragma once

#include <optional>
#include <string>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One branch of a repository on GitHub, as the branch listing gives it. The
// listing carries no dates, so lastCommitDate stays empty when read from GitHub.
struct RemoteBranch {
    std::string name;
    std::optional<std::string> lastCommitSha;
    std::optional<Date> lastCommitDate;

    bool operator==(const RemoteBranch&) const = default;
};

void fromJson(const Json& json, RemoteBranch& out, const std::string& path);
Json toJson(const RemoteBranch& branch);

}  // namespace quorvane
