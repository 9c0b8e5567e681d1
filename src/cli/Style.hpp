#pragma once

#include <string>
#include <string_view>

#include "git/RepoSnapshot.hpp"
#include "github/GitHubAccount.hpp"
#include "github/SyncState.hpp"
#include "reports/ReminderEvent.hpp"

namespace quorvane {

struct CommandContext;

// What a word in the output says about how things stand, which its colour shows:
// green when nothing needs doing, yellow when something is waiting for the person,
// red when something is wrong, dim for what is only background.
enum class Tone { plain, good, attention, problem, dim };

// The colours of the command line's output, and which state takes which. Each
// family of states has its tones here, and only here.
namespace Style {

// `text` in the tone's colour when `color` is on; otherwise `text` itself.
std::string paint(bool color, Tone tone, std::string_view text);
// The same, coloured when the command's output shows colour.
std::string paint(const CommandContext& context, Tone tone, std::string_view text);

Tone toneOf(RepoStatus status);
Tone toneOf(SyncState::Status status);
Tone toneOf(GitHubAccount::Status status);
Tone toneOf(ReminderEvent::Kind kind);

// A health score: good near 100, a problem once several deductions add up.
Tone healthTone(int score);
// A working tree: good when clean, waiting for a commit otherwise.
Tone changesTone(const GitFileCounts& files);
// A branch against its upstream: good when up to date, waiting for a push or a
// pull when apart, and only background when there is no upstream to compare.
Tone upstreamTone(const RepoSnapshot& snapshot);

}  // namespace Style
}  // namespace quorvane
