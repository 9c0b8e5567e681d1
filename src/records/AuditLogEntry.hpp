#pragma once

#include <optional>
#include <string>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One line of the agent audit log: who called which tool, with what (summarised,
// never a token), and how it ended. Entries are appended in time order and read
// newest `at` first.
struct AuditLogEntry {
    std::string id;  // UUID
    Date at{};
    std::string actor;        // "claude" for socket calls, "user" for review decisions
    std::string tool;         // tool name, or "agent_review.confirm" / "agent_review.reject"
    std::string argsSummary;  // sorted key=value items, cut short, token left out
    // Kept as the word the log shows: "ok", "error", "denied", "blocked",
    // "confirmation_required" or "token_disclosed".
    std::string status;
    std::optional<std::string> detail;
    std::optional<std::string> proposalId;

    bool operator==(const AuditLogEntry&) const = default;
};

void fromJson(const Json& json, AuditLogEntry& out, const std::string& path);
Json toJson(const AuditLogEntry& entry);

}  // namespace quorvane
