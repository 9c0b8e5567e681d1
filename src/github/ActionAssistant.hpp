#pragma once

#include <optional>
#include <string_view>

#include "github/ActionSuggestion.hpp"
#include "records/SyncState.hpp"

// The git command that moves a repository toward its remote without risking work:
// push, publish, pull with rebase, or clone. Pure: reads only its arguments.
namespace quorvane::ActionAssistant {

// The suggestion for `state`'s status, on `branch` (or `defaultBranch` when `branch`
// is empty), to run in `cwd`. Nothing for a status no plain command settles: synced,
// local-only, account and access problems, or an unknown state.
std::optional<ActionSuggestion> suggestion(const SyncState& state, std::string_view branch,
                                           std::string_view defaultBranch, std::string_view cwd);

// For a detached HEAD: back onto `defaultBranch` ("main" when empty), in `cwd`. A
// switch rather than a new branch, as after looking at a tag or an old commit the
// person wants their branch back; git refuses it while a rebase, merge or bisect
// is under way, and names any commit it would leave behind, so nothing is lost.
ActionSuggestion switchToBranch(std::string_view defaultBranch, std::string_view cwd);

// Stands for the clone address, which the user fills in; printed as it is.
inline constexpr std::string_view kRemoteURLPlaceholder = "<remote-url>";

}  // namespace quorvane::ActionAssistant
