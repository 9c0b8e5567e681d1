#include "cli/Style.hpp"

#include "cli/Commands.hpp"

namespace quorvane::Style {
namespace {

// A score this high or higher has at most one small deduction.
constexpr int kHealthyScore = 90;
// Below this, several deductions add up to a repository that needs care.
constexpr int kTroubledScore = 70;

// Select Graphic Rendition codes; a reset ends each painted stretch so that
// nothing after it, padding included, takes its colour.
std::string_view opening(Tone tone) {
    switch (tone) {
        case Tone::plain: return "";
        case Tone::good: return "\x1b[32m";
        case Tone::attention: return "\x1b[33m";
        case Tone::problem: return "\x1b[31m";
        case Tone::dim: return "\x1b[2m";
    }
    return "";
}

}  // namespace

std::string paint(bool color, Tone tone, std::string_view text) {
    std::string_view open = opening(tone);
    if (!color || open.empty() || text.empty()) return std::string(text);
    std::string out;
    out.reserve(open.size() + text.size() + 4);
    out += open;
    out += text;
    out += "\x1b[0m";
    return out;
}

std::string paint(const CommandContext& context, Tone tone, std::string_view text) {
    return paint(context.color, tone, text);
}

Tone toneOf(RepoStatus status) {
    switch (status) {
        case RepoStatus::synced: return Tone::good;
        case RepoStatus::activeToday: return Tone::good;
        case RepoStatus::needsCommit: return Tone::attention;
        case RepoStatus::needsPush: return Tone::attention;
        case RepoStatus::behindRemote: return Tone::attention;
        case RepoStatus::stale: return Tone::attention;
        case RepoStatus::noRemote: return Tone::attention;
        case RepoStatus::detachedHead: return Tone::attention;
        case RepoStatus::inactive: return Tone::dim;
        case RepoStatus::error: return Tone::problem;
    }
    return Tone::plain;
}

Tone toneOf(SyncState::Status status) {
    using Status = SyncState::Status;
    switch (status) {
        case Status::synced: return Tone::good;
        case Status::needsPush: return Tone::attention;
        case Status::needsPull: return Tone::attention;
        case Status::noUpstream: return Tone::attention;
        case Status::localOnly: return Tone::attention;
        case Status::branchMismatch: return Tone::attention;
        case Status::diverged: return Tone::problem;
        case Status::accountMissing: return Tone::problem;
        case Status::remoteInaccessible: return Tone::problem;
        case Status::remoteOnly: return Tone::dim;
        case Status::unknown: return Tone::dim;
    }
    return Tone::plain;
}

Tone toneOf(GitHubAccount::Status status) {
    using Status = GitHubAccount::Status;
    switch (status) {
        case Status::connected: return Tone::good;
        case Status::unchecked: return Tone::attention;
        case Status::tokenInvalid: return Tone::problem;
        case Status::error: return Tone::problem;
    }
    return Tone::plain;
}

Tone toneOf(ReminderEvent::Kind kind) {
    using Kind = ReminderEvent::Kind;
    switch (kind) {
        case Kind::needsPush: return Tone::attention;
        case Kind::needsCommit: return Tone::attention;
        case Kind::behindRemote: return Tone::attention;
        case Kind::staleDirty: return Tone::attention;
        case Kind::needsPull: return Tone::attention;
        case Kind::noUpstream: return Tone::attention;
        case Kind::remoteOnly: return Tone::dim;
        case Kind::tokenIssue: return Tone::problem;
        case Kind::endDayReview: return Tone::plain;
    }
    return Tone::plain;
}

Tone healthTone(int score) {
    if (score >= kHealthyScore) return Tone::good;
    if (score >= kTroubledScore) return Tone::attention;
    return Tone::problem;
}

Tone changesTone(const GitFileCounts& files) {
    return files.total() == 0 ? Tone::good : Tone::attention;
}

Tone upstreamTone(const RepoSnapshot& snapshot) {
    if (!snapshot.hasUpstream) return Tone::dim;
    return snapshot.ahead == 0 && snapshot.behind == 0 ? Tone::good : Tone::attention;
}

}  // namespace quorvane::Style
