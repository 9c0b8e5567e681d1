#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Tone.hpp"
#include "github/ActionSuggestion.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/SyncState.hpp"

namespace quorvane {

// A word the views show about a repository, and the tone its colour gives it.
struct StatusWord {
    std::string text;
    Tone tone = Tone::plain;
    bool operator==(const StatusWord&) const = default;
};

// How a repository stands, said in the one vocabulary that the command line, the
// Markdown reports and the texts for agents share, so that no two of them name the
// same state differently or contradict each other. JSON keeps the enumeration names.
namespace RepoStanding {

// Where a repository stands against its remote, one word each.
enum class Standing {
    synced,              // an upstream, 0 ahead and 0 behind
    needsPush,           // ahead of its upstream
    needsPull,           // behind its upstream
    diverged,            // both
    noUpstream,          // a remote, but the branch tracks nothing
    detached,            // HEAD on no branch
    noRemote,            // no remote at all
    otherRemote,         // a remote that is not GitHub: nothing there for a sync to read
    localOnly,           // a GitHub address that no connected account reaches
    remoteOnly,          // on GitHub, not here
    accountMissing,      // the account that reaches it is not the one linked
    remoteInaccessible,  // GitHub did not let the account read it
    branchMismatch,
    scanError,  // the scan could not read the repository
    unknown     // nothing known yet
};

// What the views say of one repository.
struct Description {
    // The labels in words, in their order: the work waiting, then where the branch
    // stands against its upstream (said once, however many labels say it, and also
    // when no label can, as for a branch without upstream), then the day's activity.
    std::vector<StatusWord> words;
    // Against the upstream, from the scan alone.
    Standing upstream = Standing::unknown;
    // Against GitHub: what only a sync can know (a remote no account reaches, an
    // account problem), else the scan's standing, which is never older than the
    // sync's copy of it.
    Standing github = Standing::unknown;
    // The sync status the GitHub standing amounts to, for grouping and advice;
    // absent until a sync stored a state.
    std::optional<SyncState::Status> syncStatus;
    bool operator==(const Description&) const = default;
};

// The words of a repository from its labels (as a scan assigned them, or as a day
// record kept them), its latest snapshot when the words are about now, and its
// stored sync state once a sync has run. Either pointer may be null. When the sync
// state and a later scan disagree on the counts (a push ran since the sync), the
// scan's counts win: the stored state only adds what the scan cannot know.
Description describe(const std::vector<RepoStatus>& labels, const RepoSnapshot* snapshot,
                     const SyncState* sync);

StatusWord word(Standing standing);

// The standing a stored sync status names, read without a scan.
Standing of(SyncState::Status status);

// A health score as shown: the number, or "–" when no sync has scored it yet.
StatusWord healthWord(std::optional<int> score);
// What gives a score that is not there yet.
inline constexpr std::string_view kScoreCommand = "quorvane sync";

// The next safe command for a described repository with its stored sync state: a
// detached HEAD is sent back to `defaultBranch`, since a push would publish the
// default branch instead of the commit the person is on; otherwise the command of
// the standing's sync status, on `branch`. Nothing when none is needed.
std::optional<ActionSuggestion> advice(const Description& description, const SyncState& sync,
                                       std::string_view branch, std::string_view defaultBranch,
                                       std::string_view cwd);

}  // namespace RepoStanding
}  // namespace quorvane
