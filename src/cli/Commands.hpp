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

// Each returns the process exit status: 0 done, 1 failed.
namespace Commands {

int reposAdd(CommandContext& context, const std::vector<std::string>& paths);
int reposList(CommandContext& context, bool json);
int reposRemove(CommandContext& context, const std::string& idOrPath);

int foldersAdd(CommandContext& context, const std::vector<std::string>& paths);
int foldersRemove(CommandContext& context, const std::vector<std::string>& paths);
int foldersList(CommandContext& context);

int scan(CommandContext& context, bool json);
// One sync cycle over the GitHub accounts; exits 1 only when every account failed.
int sync(CommandContext& context, bool scanFirst, bool json);
int status(CommandContext& context, bool json);

// GitHub accounts. Adding reads the token from standard input, never from the
// arguments, and keeps it in the secret store only. Each exits 1 when the account
// is not connected afterwards.
struct AccountsAddOptions {
    std::string name;
    std::optional<std::string> apiURL;  // GitHub Enterprise Server's REST API
    bool json = false;
};
int accountsAdd(CommandContext& context, const AccountsAddOptions& options);
// The token for a new account called `name`: the first line of standard input,
// asked for without echo on a terminal. Nothing, with the reason in `problem`.
std::optional<std::string> readAccountToken(const CommandContext& context, const std::string& name,
                                            std::string& problem);
int accountsImportGh(CommandContext& context, const std::optional<std::string>& apiURL, bool json);
int accountsList(CommandContext& context, bool json);
// `key` is the account's id, a unique start of it, its name or its login.
int accountsCheck(CommandContext& context, const std::string& key, bool json);
int accountsRemove(CommandContext& context, const std::string& key);

struct CommitsOptions {
    std::optional<std::string> repo;  // id or path; all repositories when absent
    size_t limit = 20;
    bool all = false;
    bool allAuthors = false;  // colleagues' commits too, with who made them
    bool json = false;
};
int commits(CommandContext& context, const CommitsOptions& options);

int doctor(CommandContext& context);

// The views: they read the data folder as the last scan left it, without the writer
// lock, so they work beside a running daemon. Days are local days; `day` absent means
// today.
int today(CommandContext& context, bool json, bool scanFirst);

struct SessionsOptions {
    std::optional<Date> day;
    std::optional<std::string> repo;  // id or path; all repositories when absent
    bool json = false;
};
int sessions(CommandContext& context, const SessionsOptions& options);

int week(CommandContext& context, std::optional<Date> day, bool json);

// The heatmap's default length and the most it draws: a year, and ten.
inline constexpr int kDefaultHeatmapDays = 365;
inline constexpr int kMaxHeatmapDays = 3660;
int heatmap(CommandContext& context, int days, bool json);

int ranking(CommandContext& context, Aggregator::RankingOrder order, bool json);
int insights(CommandContext& context, InsightsPeriod period, bool json);

// The day's or the week's report, read from the data folder without the writer lock.
// Markdown goes to standard output and JSON and CSV to the reports folder, unless
// `outDir` names a folder: then every format is written there. A written file's
// path is printed.
struct ReportOptions {
    enum class Period { daily, weekly };
    enum class Format { markdown, json, csv };
    Period period = Period::daily;
    Format format = Format::markdown;
    std::optional<Date> day;  // the day, or any day of the week; today when absent
    std::optional<std::filesystem::path> outDir;
    bool toStandardOutput = false;  // "--out -": any format printed, no file
    // The daily report with GitHub alignment and the activity table, in Markdown;
    // with `ai`, also the AI summary of the configured provider.
    bool extended = false;
    bool ai = false;
};
int report(CommandContext& context, const ReportOptions& options);

// Shows a day's journal, or changes it: a field given replaces that field (blank
// text clears it), and `edit` opens the entry in the person's editor.
struct JournalOptions {
    std::optional<Date> day;  // today when absent
    std::optional<std::string> notes;
    std::optional<std::string> blockers;
    std::optional<std::string> tomorrow;
    bool edit = false;
    bool json = false;
};
int journal(CommandContext& context, const JournalOptions& options);
// Edits the day's entry in the person's editor, reading it without the writer lock,
// and returns the three fields as edited, to be written by whoever holds the data
// folder. Nothing, with the reason on stderr, when the editor failed.
std::optional<JournalOptions> editJournalHere(CommandContext& context,
                                              const JournalOptions& options);
// The command line that writes `options`' fields for its day.
std::vector<std::string> journalWords(const JournalOptions& options);

// Lists the open reminders (all of them with `all`), newest first.
int reminders(CommandContext& context, bool all, bool json);
// Resolves the open reminder with this id, or with this unique id prefix.
int dismissReminder(CommandContext& context, const std::string& id);

// How the tracked repositories stand against GitHub, as the last sync stored it
// (or, before any sync, as the local scan suggests). Read without the writer lock.
int alignment(CommandContext& context, bool json);
int inventory(CommandContext& context, InventoryFilter filter, const std::string& search,
              bool json);
int backlog(CommandContext& context, bool json);
// One repository (its id, path or name) or every tracked one.
int health(CommandContext& context, const std::optional<std::string>& repo, bool json);
int branches(CommandContext& context, const std::optional<std::string>& repo, bool json);

// The daemon as a systemd user service: the unit in ~/.config/systemd/user, enabled
// and started when the person's service manager answers. `explicitDataDir` writes
// the chosen data folder into the unit.
int serviceInstall(CommandContext& context, bool explicitDataDir);
int serviceUninstall(CommandContext& context);
int serviceStatus(CommandContext& context);
// The unit a package installs for every user, the same as `serviceInstall` writes
// but for the daemon of `executable`.
int serviceUnit(std::ostream& out, const std::string& executable);

// The shell completion script for `shell` (bash, zsh or fish) and the manual page,
// printed from the command definitions so that they cannot drift from them.
int completion(std::ostream& out, const CommandReference& commands, const std::string& shell);
int manualPage(std::ostream& out, const CommandReference& commands);

// The settings of config.json by their dotted names ("sync.interval"). `configSet`
// checks the value against its key before anything is touched, and changes it
// through the data folder's writer, on top of any edit made by hand. Unknown keys,
// refused values and an unreadable config.json exit 1.
int configList(CommandContext& context, bool json);
int configGet(CommandContext& context, const std::string& key, bool json);
int configSet(CommandContext& context, const std::string& key, const std::string& value);
// Adds entries to a list setting (`identities`), or takes them from it; an entry
// already there is not added twice, and one that is not there is said on stderr and
// makes the exit 1.
enum class ListChange { add, remove };
int configChangeList(CommandContext& context, const std::string& key,
                     const std::vector<std::string>& values, ListChange change);
// Keeps the secret `name` ("ai": the Anthropic API key) in the secret store: the
// first line of standard input, asked for without echo on a terminal. With
// `remove`, deletes it instead.
int configSetSecret(CommandContext& context, const std::string& name, bool remove);
// The API key for `config set-secret ai`, read as `readAccountToken` reads a token.
std::optional<std::string> readAIKey(const CommandContext& context, std::string& problem);
// The keys and what each takes, for the help of `quorvane config`.
std::string configKeysHelp();

// What agents have asked for, and the person's answer. Listing, showing and the
// audit log only read; approving and rejecting change the data folder, so they go
// to the daemon while it runs. A proposal is named by its id or the first
// characters of it.
int proposalsList(CommandContext& context, bool all, bool json);
int proposalsShow(CommandContext& context, const std::string& id, bool json);
int proposalsApprove(CommandContext& context, const std::string& id, bool json);
int proposalsReject(CommandContext& context, const std::string& id);
inline constexpr int kDefaultAuditLines = 50;
int auditLog(CommandContext& context, int limit, bool json);
int agentStatus(CommandContext& context, bool json);
// Registers quorvane-mcp with Claude Code at a scope ("user", "project", "local"),
// passing on the data folder when one was given, and prints the entry for other
// MCP clients; takes it out again; lists what Claude Code has registered.
int agentRegister(CommandContext& context, const std::string& scope, bool explicitDataDir);
int agentUnregister(CommandContext& context, const std::string& scope);
int agentRegistrations(CommandContext& context);

// Runs in the foreground as the data folder's writer until SIGTERM or SIGINT.
int daemon(CommandContext& context);

// The most git work running at once during a scan.
inline constexpr size_t kMaxParallelScans = 8;

}  // namespace Commands
}  // namespace quorvane
