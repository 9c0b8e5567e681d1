#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "github/ActionSuggestion.hpp"
#include "github/AlignmentSummaries.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/Store.hpp"
#include "records/SyncState.hpp"

// The read-only questions about how local repositories stand against GitHub. Like
// the other queries they read the store as the last scan and sync left it and
// write nothing, so they answer beside a running daemon.
namespace quorvane::Queries {

// The tracked repositories by their stored sync status, each line with its
// suggested command, and the GitHub repositories no tracked folder stands for,
// as remoteOnly. A link no account can follow is an account issue, as in the
// inventory; a local-only repository with a remote elsewhere is marked
// otherRemote; one tracked since the last sync stands as its scan says. Where a
// scan since the sync moved the counts (a push, a pull), the status is the one
// those counts give. Empty until a sync has stored something.
AlignmentGroups gitAlignmentGroups(const Store& store, const AppConfig& config);

// The same from the local scan alone, for when no sync has run: a repository
// without a remote is localOnly; one with a remote but no upstream, noUpstream;
// then diverged, needsPush, needsPull or synced from its counts. A remote
// elsewhere than GitHub marks the line otherRemote. The lines carry no suggestion: without
// GitHub's side they would be guesses.
AlignmentGroups gitAlignmentGroupsDerived(const Store& store, const AppConfig& config);

// The next safe command for a tracked repository's stored status, or for a GitHub
// repository's id, how to clone it; nothing when there is none, or none is needed.
std::optional<ActionSuggestion> suggestedCommand(const Store& store, const AppConfig& config,
                                                 const std::string& repoID);

// Every repository of the last sync's mappings, and every GitHub repository they
// no longer cover, by name, that the filter keeps. A confirmed link outlives the
// tracking of its folder: it stays, marked localNotTracked.
// `active`: worked on locally or pushed to GitHub in the last kActiveDays days, and
// not archived. `stale`: neither, and not archived (archived has its own filter).
std::vector<InventoryRow> inventory(const Store& store, const AppConfig& config,
                                    InventoryFilter filter, Date now);
inline constexpr int kActiveDays = 30;

// The mapping counts of the last sync and the commit counts of the day holding
// `now`. The counts by standing are left at 0: they count the lines a view shows,
// so the view fills them from its own lines.
AlignmentSummary alignment(const Store& store, const AppConfig& config, Date now);

}  // namespace quorvane::Queries
