#include "github/RepoStanding.hpp"

#include <algorithm>
#include <string>

#include "github/ActionAssistant.hpp"
#include "github/RepoMapper.hpp"

namespace quorvane::RepoStanding {
namespace {

using Status = SyncState::Status;

// A score this high or higher has at most one small deduction.
constexpr int kHealthyScore = 90;
// Below this, several deductions add up to a repository that needs care.
constexpr int kTroubledScore = 70;

bool has(const std::vector<RepoStatus>& labels, RepoStatus wanted) {
    return std::find(labels.begin(), labels.end(), wanted) != labels.end();
}

// The labels that say where the branch stands rather than what work waits; their
// word is the standing's.
bool isStandingLabel(RepoStatus label) {
    switch (label) {
        case RepoStatus::synced:
        case RepoStatus::needsPush:
        case RepoStatus::behindRemote:
        case RepoStatus::noRemote:
        case RepoStatus::detachedHead:
        case RepoStatus::error: return true;
        case RepoStatus::needsCommit:
        case RepoStatus::activeToday:
        case RepoStatus::inactive:
        case RepoStatus::stale: return false;
    }
    return false;
}

StatusWord labelWord(RepoStatus label) {
    switch (label) {
        case RepoStatus::needsCommit: return {"needs commit", Tone::attention};
        case RepoStatus::activeToday: return {"active", Tone::good};
        case RepoStatus::inactive: return {"inactive", Tone::dim};
        case RepoStatus::stale: return {"stale", Tone::attention};
        case RepoStatus::synced: return word(Standing::synced);
        case RepoStatus::needsPush: return word(Standing::needsPush);
        case RepoStatus::behindRemote: return word(Standing::needsPull);
        case RepoStatus::noRemote: return word(Standing::noRemote);
        case RepoStatus::detachedHead: return word(Standing::detached);
        case RepoStatus::error: return word(Standing::scanError);
    }
    return {};
}

Standing fromCounts(bool hasUpstream, int ahead, int behind) {
    // Without an upstream git counts nothing, so the counts are not read.
    if (!hasUpstream) return Standing::noUpstream;
    if (ahead > 0 && behind > 0) return Standing::diverged;
    if (ahead > 0) return Standing::needsPush;
    if (behind > 0) return Standing::needsPull;
    return Standing::synced;
}

// What the scan alone says. The order is the point: a failed read knows nothing
// else, a detached HEAD has no branch to track anything, and without a remote an
// upstream could only be another local branch.
Standing fromSnapshot(const RepoSnapshot& snapshot) {
    if (snapshot.error && !snapshot.error->empty()) return Standing::scanError;
    if (snapshot.isDetachedHead) return Standing::detached;
    if (!snapshot.remoteURL) return Standing::noRemote;
    return fromCounts(snapshot.hasUpstream, snapshot.ahead, snapshot.behind);
}

// What a day record's labels still tell, for a day no snapshot describes. A branch
// without upstream left no label of its own, so it stays unsaid.
Standing fromLabels(const std::vector<RepoStatus>& labels) {
    if (has(labels, RepoStatus::error)) return Standing::scanError;
    if (has(labels, RepoStatus::detachedHead)) return Standing::detached;
    if (has(labels, RepoStatus::noRemote)) return Standing::noRemote;
    bool push = has(labels, RepoStatus::needsPush), pull = has(labels, RepoStatus::behindRemote);
    if (push && pull) return Standing::diverged;
    if (push) return Standing::needsPush;
    if (pull) return Standing::needsPull;
    if (has(labels, RepoStatus::synced)) return Standing::synced;
    return Standing::unknown;
}

// The standings a scan's counts decide, once a sync found the remote readable.
bool decidedByCounts(Status status) {
    switch (status) {
        case Status::synced:
        case Status::needsPush:
        case Status::needsPull:
        case Status::diverged:
        case Status::noUpstream: return true;
        case Status::remoteOnly:
        case Status::localOnly:
        case Status::accountMissing:
        case Status::branchMismatch:
        case Status::remoteInaccessible:
        case Status::unknown: return false;
    }
    return false;
}

Status statusOf(Standing counted) {
    switch (counted) {
        case Standing::synced: return Status::synced;
        case Standing::needsPush: return Status::needsPush;
        case Standing::needsPull: return Status::needsPull;
        case Standing::diverged: return Status::diverged;
        case Standing::noUpstream:
        case Standing::detached: return Status::noUpstream;
        case Standing::noRemote:
        case Standing::otherRemote:
        case Standing::localOnly: return Status::localOnly;
        case Standing::remoteOnly: return Status::remoteOnly;
        case Standing::accountMissing: return Status::accountMissing;
        case Standing::remoteInaccessible:
        case Standing::scanError: return Status::remoteInaccessible;
        case Standing::branchMismatch: return Status::branchMismatch;
        case Standing::unknown: return Status::unknown;
    }
    return Status::unknown;
}

}  // namespace

StatusWord word(Standing standing) {
    switch (standing) {
        case Standing::synced: return {"synced", Tone::good};
        case Standing::needsPush: return {"needs push", Tone::attention};
        case Standing::needsPull: return {"needs pull", Tone::attention};
        case Standing::diverged: return {"diverged", Tone::problem};
        case Standing::noUpstream: return {"no upstream", Tone::attention};
        case Standing::detached: return {"detached", Tone::attention};
        case Standing::noRemote: return {"no remote", Tone::attention};
        // Not a fault: GitHub simply has nothing to say about it.
        case Standing::otherRemote: return {"other remote", Tone::dim};
        case Standing::localOnly: return {"local only", Tone::attention};
        case Standing::remoteOnly: return {"remote only", Tone::dim};
        case Standing::accountMissing: return {"account missing", Tone::problem};
        case Standing::remoteInaccessible: return {"remote inaccessible", Tone::problem};
        case Standing::branchMismatch: return {"branch mismatch", Tone::attention};
        case Standing::scanError: return {"error", Tone::problem};
        case Standing::unknown: return {"unknown", Tone::dim};
    }
    return {};
}

Standing of(Status status) {
    switch (status) {
        case Status::synced: return Standing::synced;
        case Status::needsPush: return Standing::needsPush;
        case Status::needsPull: return Standing::needsPull;
        case Status::diverged: return Standing::diverged;
        case Status::noUpstream: return Standing::noUpstream;
        case Status::remoteOnly: return Standing::remoteOnly;
        case Status::localOnly: return Standing::localOnly;
        case Status::accountMissing: return Standing::accountMissing;
        case Status::branchMismatch: return Standing::branchMismatch;
        case Status::remoteInaccessible: return Standing::remoteInaccessible;
        case Status::unknown: return Standing::unknown;
    }
    return Standing::unknown;
}

Description describe(const std::vector<RepoStatus>& labels, const RepoSnapshot* snapshot,
                     const SyncState* sync) {
    Description result;
    result.upstream = snapshot != nullptr ? fromSnapshot(*snapshot) : fromLabels(labels);

    // GitHub's side. What the scan knows outranks an older sync; a remote elsewhere
    // is none of GitHub's business, whatever a sync filed it under.
    bool scanKnowsBetter = result.upstream == Standing::scanError ||
                           result.upstream == Standing::detached ||
                           result.upstream == Standing::noRemote;
    if (scanKnowsBetter) {
        result.github = result.upstream;
    } else if (snapshot != nullptr && !RepoMapper::ownerRepo(*snapshot->remoteURL)) {
        result.github = Standing::otherRemote;
    } else if (sync != nullptr && (snapshot == nullptr || !decidedByCounts(sync->status))) {
        result.github = of(sync->status);
    } else if (snapshot != nullptr) {
        result.github = result.upstream;
    }
    if (sync != nullptr) {
        // A failed scan still reads as the sync filed it: the scan knows nothing new.
        result.syncStatus =
            result.github == Standing::scanError ? sync->status : statusOf(result.github);
        // A detached HEAD with nothing on GitHub to push to is as local as its branch
        // would be: its words say detached, its group says local only.
        if (result.github == Standing::detached && snapshot != nullptr &&
            (!snapshot->remoteURL || !RepoMapper::ownerRepo(*snapshot->remoteURL))) {
            result.syncStatus = Status::localOnly;
        }
    }

    // The words: the work, the standing once, then the day's activity.
    if (result.upstream == Standing::scanError) {
        result.words.push_back(word(Standing::scanError));
        return result;
    }
    bool dirty = has(labels, RepoStatus::needsCommit);
    if (dirty) result.words.push_back(labelWord(RepoStatus::needsCommit));
    // A branch in step with dirty files is not yet synced: the commit comes first.
    bool saysStanding =
        result.upstream != Standing::unknown && !(result.upstream == Standing::synced && dirty);
    if (saysStanding) result.words.push_back(word(result.upstream));
    for (RepoStatus label : labels) {
        if (label != RepoStatus::needsCommit && !isStandingLabel(label))
            result.words.push_back(labelWord(label));
    }
    return result;
}

StatusWord healthWord(std::optional<int> score) {
    if (!score) return {"–", Tone::dim};
    Tone tone = *score >= kHealthyScore    ? Tone::good
                : *score >= kTroubledScore ? Tone::attention
                                           : Tone::problem;
    return {std::to_string(*score), tone};
}

std::optional<ActionSuggestion> advice(const Description& description, const SyncState& sync,
                                       std::string_view branch, std::string_view defaultBranch,
                                       std::string_view cwd) {
    if (description.github == Standing::detached) {
        return ActionAssistant::switchToBranch(defaultBranch, cwd);
    }
    SyncState current = sync;
    if (description.syncStatus) current.status = *description.syncStatus;
    return ActionAssistant::suggestion(current, branch, defaultBranch, cwd);
}

}  // namespace quorvane::RepoStanding
