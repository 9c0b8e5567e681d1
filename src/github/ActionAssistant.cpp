#include "github/ActionAssistant.hpp"

#include <string>

#include <fmt/format.h>

#include "github/GitCommandHints.hpp"

namespace quorvane::ActionAssistant {

std::optional<ActionSuggestion> suggestion(const SyncState& state, std::string_view branch,
                                           std::string_view defaultBranch, std::string_view cwd) {
    using Status = SyncState::Status;
    // Branch names come from the repository and GitHub, and the command is pasted
    // into a shell as it is.
    std::string working = GitCommandHints::branchWord(branch.empty() ? defaultBranch : branch);
    if (branch.empty() && defaultBranch.empty()) working.clear();
    ActionSuggestion result;
    result.cwd = std::string(cwd);
    switch (state.status) {
        case Status::noUpstream:
            result.title = "Publish branch";
            result.command = fmt::format("git push -u origin {}", working);
            result.safeSteps = {result.command};
            return result;
        case Status::needsPush:
            result.title = "Push local commits";
            result.command = fmt::format("git push origin {}", working);
            result.safeSteps = {result.command};
            return result;
        case Status::needsPull:
            // Look before pulling, so local changes that would block the rebase show.
            result.title = "Pull remote changes";
            result.command = fmt::format("git pull --rebase origin {}", working);
            result.safeSteps = {"git status", result.command};
            return result;
        case Status::diverged:
            result.title = "Reconcile diverged branch";
            result.command = fmt::format("git pull --rebase origin {}", working);
            result.safeSteps = {"git fetch origin", "git status", result.command};
            return result;
        case Status::remoteOnly: {
            std::string clone = fmt::format("git clone {}", kRemoteURLPlaceholder);
            result.title = "Clone repository";
            // The comment is for reading only; the step to run stays a bare clone.
            result.command = defaultBranch.empty()
                                 ? clone
                                 : fmt::format("{}  # default branch: {}", clone, defaultBranch);
            result.safeSteps = {clone};
            return result;
        }
        case Status::synced:
        case Status::localOnly:
        case Status::accountMissing:
        case Status::branchMismatch:
        case Status::remoteInaccessible:
        case Status::unknown: return std::nullopt;
    }
    return std::nullopt;
}

ActionSuggestion switchToBranch(std::string_view defaultBranch, std::string_view cwd) {
    ActionSuggestion result;
    result.title = "Switch to a branch";
    result.command =
        fmt::format("git switch {}",
                    GitCommandHints::branchWord(defaultBranch.empty() ? "main" : defaultBranch));
    // Look first: the status says what HEAD is on and whether an operation is open.
    result.safeSteps = {"git status", result.command};
    result.cwd = std::string(cwd);
    return result;
}

}  // namespace quorvane::ActionAssistant
