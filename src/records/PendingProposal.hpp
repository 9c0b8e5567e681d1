#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// An action an agent asked for, waiting for the person's decision. Approval mints a
// one-time confirmation token that authorises exactly this action until `expiresAt`.
// Stored under `id`. The token is a secret and never goes into a log line.
struct PendingProposal {
    // What sort of action the proposal stands for, and so which tools it may authorise.
    enum class Kind {
        mapping,
        settingsChange,
        markRemoteOnly,
        markLocalOnly,
        markIgnored,
        scanFolders,
        recipe,
        cleanupPlan,
        safeGit
    };
    // Where the proposal stands: waiting, approved with a live token, turned down,
    // carried out (the token is spent), or timed out.
    enum class Status { pending, approved, rejected, applied, expired };

    std::string id;  // UUID
    Kind kind = Kind::mapping;
    std::string title;              // one line for the review screen
    std::string summary;            // the longer text for the review screen
    std::string payloadJSON;        // the arguments the action runs with, as JSON text
    std::optional<int> confidence;  // 0 to 100, mapping proposals only
    std::vector<std::string> evidence;
    Status status = Status::pending;
    std::optional<std::string> confirmationToken;  // set on approval
    Date createdAt{};
    std::optional<Date> expiresAt;               // the token's end of life; set on approval
    std::optional<std::string> intendedTool;     // the one apply tool it may authorise
    std::optional<std::string> argsFingerprint;  // "<tool>|<canonical arguments>"

    bool operator==(const PendingProposal&) const = default;
};

constexpr auto enumCases(PendingProposal::Kind) {
    using enum PendingProposal::Kind;
    return std::array{std::pair{mapping, std::string_view("mapping")},
                      std::pair{settingsChange, std::string_view("settingsChange")},
                      std::pair{markRemoteOnly, std::string_view("markRemoteOnly")},
                      std::pair{markLocalOnly, std::string_view("markLocalOnly")},
                      std::pair{markIgnored, std::string_view("markIgnored")},
                      std::pair{scanFolders, std::string_view("scanFolders")},
                      std::pair{recipe, std::string_view("recipe")},
                      std::pair{cleanupPlan, std::string_view("cleanupPlan")},
                      std::pair{safeGit, std::string_view("safeGit")}};
}

constexpr auto enumCases(PendingProposal::Status) {
    using enum PendingProposal::Status;
    return std::array{std::pair{pending, std::string_view("pending")},
                      std::pair{approved, std::string_view("approved")},
                      std::pair{rejected, std::string_view("rejected")},
                      std::pair{applied, std::string_view("applied")},
                      std::pair{expired, std::string_view("expired")}};
}

void fromJson(const Json& json, PendingProposal& out, const std::string& path);
Json toJson(const PendingProposal& proposal);

}  // namespace quorvane
