#include "git/WorkSessionEngine.hpp"

#include <algorithm>
#include <chrono>
#include <climits>

namespace quorvane::WorkSessionEngine {
namespace {

// What changed between two scans; the order of the checks below is the precedence.
enum class ActivityKind { commit, files, branch };

std::optional<ActivityKind> detectActivity(const std::optional<RepoSnapshot>& previous,
                                           const RepoSnapshot& current) {
    // Without an earlier scan nothing can be compared, so a first scan never opens a session.
    if (!previous) return std::nullopt;
    if (previous->lastCommitSha != current.lastCommitSha) return ActivityKind::commit;
    if (previous->files != current.files) return ActivityKind::files;
    if (previous->branch != current.branch) return ActivityKind::branch;
    return std::nullopt;
}

// A recent file event counts as activity for as long as the idle timeout lasts; a
// date in the future is a clock problem, not work.
bool fileActivityIsRecent(std::optional<Date> fileActivityAt, Date now, double idleTimeout) {
    if (!fileActivityAt || *fileActivityAt > now) return false;
    auto elapsed = std::chrono::duration<double>(now - *fileActivityAt).count();
    return elapsed <= idleTimeout;
}

// Dates hold whole seconds, so the difference is already rounded; only the floor
// at 0 and the int range remain.
int lengthInSeconds(Date from, Date to) {
    long long seconds = (to - from).count();
    return static_cast<int>(std::clamp<long long>(seconds, 0, INT_MAX));
}

WorkSession::Source evidenceOf(ActivityKind kind) {
    switch (kind) {
        case ActivityKind::commit: return WorkSession::Source::localGit;
        case ActivityKind::files:
        case ActivityKind::branch:
            // A branch switch is filed as file activity on purpose: no commit proves it.
            return WorkSession::Source::fileActivity;
    }
    return WorkSession::Source::fileActivity;
}

WorkSession::Confidence openingConfidence(ActivityKind kind) {
    switch (kind) {
        case ActivityKind::commit: return WorkSession::Confidence::high;
        case ActivityKind::files: return WorkSession::Confidence::medium;
        case ActivityKind::branch: return WorkSession::Confidence::low;
    }
    return WorkSession::Confidence::low;
}

// Confidence only ever rises: a commit proves work, file changes lift a weak session
// to medium, and a branch switch adds nothing.
WorkSession::Confidence raisedConfidence(WorkSession::Confidence current, ActivityKind kind) {
    switch (kind) {
        case ActivityKind::commit: return WorkSession::Confidence::high;
        case ActivityKind::files:
            return current == WorkSession::Confidence::low ? WorkSession::Confidence::medium
                                                           : current;
        case ActivityKind::branch: return current;
    }
    return current;
}

WorkSession::Source mergedSource(WorkSession::Source current, WorkSession::Source evidence) {
    // A session the user entered stays theirs, whatever the scans add to it.
    if (current == WorkSession::Source::manual || current == evidence) return current;
    return WorkSession::Source::mixed;
}

}  // namespace

std::vector<WorkSession> update(const std::optional<RepoSnapshot>& previous,
                                const RepoSnapshot& current, const std::optional<WorkSession>& open,
                                Date now, double idleTimeout, std::optional<Date> fileActivityAt,
                                const std::function<std::string()>& newID) {
    std::optional<ActivityKind> kind = detectActivity(previous, current);
    if (!kind && fileActivityIsRecent(fileActivityAt, now, idleTimeout)) {
        kind = ActivityKind::files;
    }

    if (kind && !open) {
        WorkSession session;
        session.id = newID();
        session.repoID = current.repoID;
        session.startedAt = now;
        session.endedAt = now;
        session.estimatedSeconds = 0;
        session.confidence = openingConfidence(*kind);
        session.source = evidenceOf(*kind);
        session.isOpen = true;
        return {session};
    }

    if (kind) {
        WorkSession session = *open;
        session.endedAt = now;
        session.isOpen = true;
        session.estimatedSeconds = lengthInSeconds(session.startedAt, now);
        session.confidence = raisedConfidence(session.confidence, *kind);
        session.source = mergedSource(session.source, evidenceOf(*kind));
        return {session};
    }

    if (!open) return {};

    auto idle = std::chrono::duration<double>(now - open->endedAt).count();
    if (idle < idleTimeout) return {};

    // The session ends at its last activity, so the idle wait is not counted as work.
    WorkSession closed = *open;
    closed.isOpen = false;
    closed.estimatedSeconds = lengthInSeconds(closed.startedAt, closed.endedAt);
    return {closed};
}

}  // namespace quorvane::WorkSessionEngine
