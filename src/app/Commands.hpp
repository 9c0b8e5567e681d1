#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "platform/Clock.hpp"
#include "platform/ProcessRunner.hpp"

namespace quorvane {

// What every command works with: where to print, the seams to the world, and the
// data folder the user chose.
struct CommandContext {
    std::ostream& out;
    std::ostream& err;
    const ProcessRunner& runner;
    const Clock& clock;
    std::filesystem::path dataDir;
    bool progress = false;  // show progress lines on standard error
};

// Each returns the process exit status: 0 done, 1 failed.
namespace Commands {

int reposAdd(CommandContext& context, const std::vector<std::string>& paths);
int reposList(CommandContext& context, bool json);
int reposRemove(CommandContext& context, const std::string& idOrPath);

int foldersAdd(CommandContext& context, const std::vector<std::string>& paths);
int foldersRemove(CommandContext& context, const std::vector<std::string>& paths);
int foldersList(CommandContext& context);

int scan(CommandContext& context, bool json);
int status(CommandContext& context, bool json);

struct CommitsOptions {
    std::optional<std::string> repo;  // id or path; all repositories when absent
    size_t limit = 20;
    bool all = false;
    bool json = false;
};
int commits(CommandContext& context, const CommitsOptions& options);

int doctor(CommandContext& context);

// Runs in the foreground as the data folder's writer until SIGTERM or SIGINT.
int daemon(CommandContext& context);

// The most git work running at once during a scan.
inline constexpr size_t kMaxParallelScans = 8;

}  // namespace Commands
}  // namespace quorvane
