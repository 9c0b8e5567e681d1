#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// What one sync cycle did, for the screens, the commands and the agent.
struct RemoteSyncSummary {
    int accountsSynced = 0;
    int accountsFailed = 0;  // without a token, or with an error
    int remoteRepos = 0;     // in the store after the cycle
    int mappedRepos = 0;
    std::vector<std::string> errors;  // one line per failure
    // Of the failed accounts, those whose token was missing or refused, and those
    // GitHub turned away for its rate limit: the causes a caller acts on differently.
    int tokenFailures = 0;
    int rateLimitFailures = 0;
    std::optional<Date> syncedAt;  // set once an account succeeded
    bool skipped = false;
    std::optional<std::string> skippedReason;

    bool operator==(const RemoteSyncSummary&) const = default;
};

inline Json toJson(const RemoteSyncSummary& summary) {
    Json json{
        {"accountsSynced", summary.accountsSynced}, {"accountsFailed", summary.accountsFailed},
        {"remoteRepos", summary.remoteRepos},       {"mappedRepos", summary.mappedRepos},
        {"errors", toJson(summary.errors)},         {"skipped", summary.skipped}};
    putIfPresent(json, "syncedAt", summary.syncedAt);
    putIfPresent(json, "skippedReason", summary.skippedReason);
    return json;
}

}  // namespace quorvane
