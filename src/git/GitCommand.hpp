#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/ProcessRunner.hpp"

namespace quorvane::GitCommand {

// The one git the program runs; PATH is never searched for it.
inline constexpr std::string_view kGitPath = "/usr/bin/git";

// A git child in `path` that only reads. A repository is untrusted input (it may
// have been unpacked from anywhere), so the child:
// - may not take optional locks, so a scan never holds index.lock while the user works;
// - may not prompt for a password, nor reach any remote (every transport refused);
// - runs none of the programs a configuration can name: fsmonitor, hooks, pager,
//   askpass, credential helpers, the signature checker of `log`;
// - does not inherit variables that would point it at another repository.
// The settings are given through GIT_CONFIG_COUNT, which outranks every file the
// repository can bring (includes too), and leaves the arguments as given.
// A `cancellation`, when given, stops the child early and keeps new ones from starting.
ProcessRequest request(const std::string& path, std::vector<std::string> arguments, double timeout,
                       const Cancellation* cancellation = nullptr);

// A git child for a command the person confirmed (push, fetch, pull), run as when
// they type it: their credential helpers, hooks and transports stay in force, so
// pushing works as it does in their terminal. It still may not prompt (nobody is
// at a terminal to answer) and does not inherit variables that would point it at
// another repository than the `-C` path in `arguments`.
ProcessRequest confirmedActionRequest(std::vector<std::string> arguments, double timeout);

// The configuration entries every read-only child gets, in order.
const std::vector<std::pair<std::string, std::string>>& readOnlySettings();

// The arguments that list the filter drivers a repository's configuration defines,
// NUL-separated with their scope: `git config` reads files and runs nothing.
std::vector<std::string> filterDriverQuery();

// The driver names of a `filterDriverQuery` answer that come from the repository's
// own configuration (its config file, worktree file and what they include); the
// user's global and system files are theirs and are trusted. A name may hold dots.
std::vector<std::string> repositoryFilterDrivers(std::string_view queryOutput);

// Adds the driver that config `key`, read from `scope`, belongs to, unless it is
// the user's own (global or system), not a filter key, or already listed.
void addRepositoryFilterDriver(std::vector<std::string>& drivers, std::string_view scope,
                               std::string_view key);

// Adds to `request` the settings that switch off each named filter driver (no
// clean, smudge or process command, not required), so that comparing a work tree
// file with the index reads the file's bytes as they are.
void disableFilterDrivers(ProcessRequest& request, const std::vector<std::string>& drivers);

}  // namespace quorvane::GitCommand
