#include "cli/Style.hpp"

#include "cli/Commands.hpp"

namespace quorvane::Style {
namespace {

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

std::string paint(const CommandContext& context, const StatusWord& word) {
    return paint(context.color, word.tone, word.text);
}

std::string paint(const CommandContext& context, const std::vector<StatusWord>& words) {
    std::string out;
    for (const StatusWord& word : words) {
        if (!out.empty()) out += ", ";
        out += paint(context, word);
    }
    return out;
}

Tone toneOf(SyncState::Status status) {
    return RepoStanding::word(RepoStanding::of(status)).tone;
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

Tone changesTone(const GitFileCounts& files) {
    return files.total() == 0 ? Tone::good : Tone::attention;
}

}  // namespace quorvane::Style
