#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/Tone.hpp"
#include "github/RepoStanding.hpp"
#include "records/GitHubAccount.hpp"
#include "records/ReminderEvent.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/SyncState.hpp"

namespace quorvane {

struct CommandContext;

// The colours of the command line's output, and which state takes which. Each
// family of states has its tones here, and only here, but for how a repository
// stands and its health: those words and tones are RepoStanding's, which the
// reports share.
namespace Style {

// `text` in the tone's colour when `color` is on; otherwise `text` itself.
std::string paint(bool color, Tone tone, std::string_view text);
// The same, coloured when the command's output shows colour.
std::string paint(const CommandContext& context, Tone tone, std::string_view text);
// A word in its own tone.
std::string paint(const CommandContext& context, const StatusWord& word);
// Words in their tones, joined by ", ".
std::string paint(const CommandContext& context, const std::vector<StatusWord>& words);

// The tone of the word for a sync status.
Tone toneOf(SyncState::Status status);
Tone toneOf(GitHubAccount::Status status);
Tone toneOf(ReminderEvent::Kind kind);

// A working tree: good when clean, waiting for a commit otherwise.
Tone changesTone(const GitFileCounts& files);

}  // namespace Style
}  // namespace quorvane
