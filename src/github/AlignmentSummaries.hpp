#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/DateHelpers.hpp"
#include "github/RepoStanding.hpp"
#include "records/JsonCodec.hpp"
#include "records/RepositoryMapping.hpp"
#include "records/SyncState.hpp"

namespace quorvane {

// The records the alignment views and the extended daily report show. They are
// computed, never stored; `toJson` gives their JSON form (keys are the field names,
// absent optionals are left out). The counts at the head of the alignment view are
// `AlignmentOverview`, beside the activity summaries.

// The alignment counts of the extended daily report.
struct AlignmentSummary {
    int mappedCount = 0;        // mappings of kind mapped
    int remoteOnlyCount = 0;    // mappings of kind remoteOnly
    int localOnlyCount = 0;     // mappings of kind localOnly
    int accountIssueCount = 0;  // mappings with an account problem
    int needsPush = 0;
    int needsPull = 0;
    int noUpstream = 0;
    int pushedCommitsToday = 0;     // today's commits that reached the remote
    int localOnlyCommitsToday = 0;  // today's commits on no remote

    bool operator==(const AlignmentSummary&) const = default;
};

// One repository's row in the alignment view and the extended report.
struct V2RepoLine {
    std::string repoID;
    std::string name;                    // display name
    std::optional<std::string> account;  // account name
    std::string branch;                  // current branch
    SyncState::Status syncStatus = SyncState::Status::unknown;
    // The words for it, which also know what the sync status cannot say (a detached
    // HEAD, a remote elsewhere than GitHub). Not part of the JSON.
    RepoStanding::Standing standing = RepoStanding::Standing::unknown;
    int ahead = 0;
    int behind = 0;
    std::optional<int> health;                    // the health score, once a sync scored it
    std::optional<std::string> suggestedCommand;  // the suggestion's command, if any
    // A repository with no GitHub remote whose origin is on another host: local
    // only as far as GitHub goes, but not to be called so.
    bool otherRemote = false;

    bool operator==(const V2RepoLine&) const = default;
};

// The tracked repositories' lines by their sync status.
using AlignmentGroups = std::map<SyncState::Status, std::vector<V2RepoLine>>;

// One repository in the GitHub inventory, local, remote or both.
struct InventoryRow {
    std::string id;
    std::string name;
    std::string account;
    RepositoryMapping::Kind kind = RepositoryMapping::Kind::localOnly;
    bool isPrivate = false;
    bool isArchived = false;
    std::optional<std::string> localPath;
    std::optional<Date> updatedAt;  // last update on GitHub
    bool otherRemote = false;       // as in V2RepoLine
    // A link the person confirmed whose local folder is no longer tracked: the
    // GitHub side stays listed, with the folder it was linked to.
    bool localNotTracked = false;

    bool operator==(const InventoryRow&) const = default;
};

// The choices of the inventory view, in the order it offers them.
enum class InventoryFilter {
    all,
    mapped,
    remoteOnly,
    localOnly,
    privateOnly,
    stale,
    active,
    archived
};

constexpr auto enumCases(InventoryFilter) {
    using enum InventoryFilter;
    return std::array{std::pair{all, std::string_view("all")},
                      std::pair{mapped, std::string_view("mapped")},
                      std::pair{remoteOnly, std::string_view("remoteOnly")},
                      std::pair{localOnly, std::string_view("localOnly")},
                      std::pair{privateOnly, std::string_view("privateOnly")},
                      std::pair{stale, std::string_view("stale")},
                      std::pair{active, std::string_view("active")},
                      std::pair{archived, std::string_view("archived")}};
}

Json toJson(const AlignmentSummary& summary);
Json toJson(const V2RepoLine& line);
Json toJson(const InventoryRow& row);

}  // namespace quorvane
