#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "cli/CommandReference.hpp"
#include "git/Aggregator.hpp"
#include "github/AlignmentSummaries.hpp"
#include "platform/Clock.hpp"
#include "platform/ProcessRunner.hpp"

namespace quorvane {

class AppEnvironment;

// What every command works with: where to print, the seams to the world, and the
// data folder the user chose.
struct CommandContext {
    std::ostream& out;
    std::ostream& err;
    const ProcessRunner& runner;
    const Clock& clock;
    std::filesystem::path dataDir;
    bool progress = false;  // show progress lines on standard error
    // Set when the daemon runs a command sent over its control socket: the command
    // changes the daemon's own state rather than becoming the data folder's writer.
    AppEnvironment* service = nullptr;
    // Where the command was typed, when that is not this process's folder: relative
    // paths on its command line start there.
    std::filesystem::path workingDir{};
    // What the command reads from standard input, when it was read elsewhere.
    std::optional<std::string> input{};
    // How plain-text output looks where it is read: coloured statuses, and lines no
    // wider than `columns`. Decided once for the person's terminal; commands never
    // look at a terminal themselves. JSON output ignores both.
    bool color = false;
    size_t columns = 80;
};

// What commands of one family use from another. Each command is reached through
// its row in the command table; each returns the process exit status: 0 done, 1
// failed.
namespace Commands {

// What the last scan stored, and the stored commits: the views list them.
int status(CommandContext& context, bool json);
// The same, as one line of JSON for a status bar.
int statusBar(CommandContext& context);
int attention(CommandContext& context, bool json);
struct CommitsOptions {
    std::optional<std::string> repo;  // id or path; all repositories when absent
    size_t limit = 20;
    bool all = false;
    bool allAuthors = false;  // colleagues' commits too, with who made them
    bool json = false;
};
int commits(CommandContext& context, const CommitsOptions& options);

// The API key for `config set-secret ai`, read as an account's token is read: the
// first line of standard input, asked for without echo on a terminal. Nothing, with
// the reason in `problem`.
std::optional<std::string> readAIKey(const CommandContext& context, std::string& problem);

// Whether the agent socket is up, and how it is set.
int agentStatus(CommandContext& context, bool json);

}  // namespace Commands
}  // namespace quorvane
