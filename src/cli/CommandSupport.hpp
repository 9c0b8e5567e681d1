#pragma once

#include <filesystem>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/DateHelpers.hpp"
#include "base/TextLayout.hpp"
#include "cli/Commands.hpp"
#include "github/RepoStanding.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/ConfigService.hpp"
#include "persistence/DataFolderLock.hpp"
#include "persistence/Store.hpp"
#include "platform/InterruptWatch.hpp"
#include "platform/Notifier.hpp"
#include "records/RepoSnapshot.hpp"

// What the commands share: the data folder's access rules and the plain-text layout.
namespace quorvane::Commands {

inline constexpr const char* kNothingTracked =
    "No repositories are tracked yet. Track one with: quorvane repos add PATH\n";

ConfigService configService(const CommandContext& context);

// Becomes the one writer of the data folder, or says who is and returns nothing.
std::optional<DataFolderLock> takeWriterLock(const CommandContext& context);

// The data folder's state for a command that changes it. Inside the daemon, for a
// command sent over its control socket, that is the daemon's own environment, so
// the change reaches everything it runs; otherwise this process becomes the data
// folder's writer and loads its own.
class WriterAccess {
public:
    // Nothing, with the reason on stderr, when another process is the writer. A
    // one-shot environment gets `notifier` for the reminders its scans raise.
    static std::optional<WriterAccess> open(CommandContext& context, Notifier* notifier = nullptr);
    WriterAccess(WriterAccess&&) noexcept;
    WriterAccess& operator=(WriterAccess&&) noexcept;
    ~WriterAccess();

    // Loaded on first use, so a command that refuses its arguments first leaves the
    // data folder as it was.
    AppEnvironment& env();
    bool inDaemon() const { return service_ != nullptr; }

private:
    WriterAccess() = default;
    const CommandContext* context_ = nullptr;
    Notifier* notifier_ = nullptr;
    AppEnvironment* service_ = nullptr;
    std::optional<DataFolderLock> lock_;  // released after own_ is gone
    std::unique_ptr<AppEnvironment> own_;
    // Stops own_'s work and children on Ctrl-C or SIGTERM. Declared after own_ so it
    // is destroyed first: its thread may be inside own_->shutdown() when the command
    // ends, and joining it must come before own_ is freed.
    std::unique_ptr<InterruptWatch> interrupts_;
};

// True when the configuration was saved; otherwise says why on stderr.
bool reportSave(const CommandContext& context, const ConfigService::SaveResult& result);

// Says the change was not saved, and why; returns the exit status 1.
int reportNotSaved(const CommandContext& context, const std::string& problem);

// `path` as the person meant it: a relative path starts in the folder the command
// was typed in.
std::string absolutePath(const CommandContext& context, const std::string& path);

// True when `problem` is empty; otherwise says on stderr what was not saved.
bool reportFlush(const CommandContext& context, const std::string& problem);

// What a reader sees: the configuration as it is on disk (the defaults when there
// is none), never written. Nothing, with the reason and the way out on stderr, when
// config.json is there but cannot be read.
std::optional<AppConfig> readConfig(const CommandContext& context);

// Loads `store`, opened read-only, for a reader. False, with each file that could not
// be read and why on stderr, when one could not: what the view would show without
// it could be wrong.
bool loadForReading(const CommandContext& context, Store& store);
// The same check after a question: a month's commit file is read only when asked for.
bool reportUnreadable(const CommandContext& context, const Store& store);

std::string firstLine(std::string_view text);

// The columns UTF-8 text takes on a terminal; colour escapes take none.
size_t displayWidth(std::string_view text);

// Columns padded to their widest cell, two spaces apart, no trailing blanks.
void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows);
// The same, fitted to `fit.width` by the columns `fit.shrink` lets give way.
void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows,
                const TextLayout::TableFit& fit);

// Prints `text` broken at spaces into lines of at most `width` columns, the first
// line after `prefix` and the others indented as far as the prefix reaches.
void printWrapped(std::ostream& out, std::string_view text, size_t width,
                  std::string_view prefix = "");

// A command to copy, below the line it belongs to, after "      $ ": broken only
// between words, each piece but the last ending in a continuation, so that it
// still pastes as one.
void printCommand(std::ostream& out, std::string_view command, size_t columns);

// "1 commit", "2 commits", "3 repositories", "4 days".
std::string plural(int count, std::string_view noun);

// "18:58" in local time.
std::string localClockTime(Date date);

// The first eight characters of an id: UUIDs differ there, so a list can show
// these and a person can type them back.
std::string shortID(const std::string& id);

// How old what the views show is: when the latest scan of a tracked repository
// began over a minute before `now`, "as of 14:03", or "as of 2026-03-01 14:03" when
// it was another day. Empty when it is fresher, or nothing tracked was scanned.
std::string asOfNote(const AppConfig& config, const Store& store, Date now);
// Prints the note as a line of its own, when there is one.
void printAsOf(std::ostream& out, const AppConfig& config, const Store& store, Date now);

std::string describeChanges(const GitFileCounts& files);
// Where the branch stands against its upstream, with the counts when it is apart
// from it: "synced", "needs push (2 ahead)", "no upstream".
StatusWord describeUpstream(const RepoSnapshot& snapshot);

// The tracked repository with this id, or whose id is this path once resolved.
const RepoConfig* findRepo(const AppConfig& config, const std::string& idOrPath);

// The repository a person means by `key`: its id, its path, or else its name or
// display name, without regard to case. Nothing otherwise, with the reason on
// stderr; when several share the name, their paths, to choose from.
const RepoConfig* resolveRepo(const CommandContext& context, const AppConfig& config,
                              const std::string& key);

// The repositories with tracking on, in configuration order.
std::vector<const RepoConfig*> trackedRepos(const AppConfig& config);

}  // namespace quorvane::Commands
