#include "cli/CommandLine.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <sstream>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "agent/ClaudeRegistration.hpp"
#include "app/AppInfo.hpp"
#include "base/DateHelpers.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "base/TextLayout.hpp"
#include "cli/Commands.hpp"
#include "cli/ControlClient.hpp"
#include "cli/ControlProtocol.hpp"
#include "platform/HttpTransport.hpp"

namespace quorvane {

namespace {

constexpr const char* kAbout = R"(Quorvane keeps a local record of your daily Git work.

It reads the Git repositories you track (read-only: it never changes a
repository) and tells you, for each, what is uncommitted, what is not yet
pushed or pulled, and what you committed today. 'quorvane daemon' keeps
watching in the background, estimating work sessions from file changes and
commits. Everything it keeps lives in your data folder: $XDG_DATA_HOME/Quorvane,
by default ~/.local/share/Quorvane.)";

constexpr const char* kExamples = R"(
Examples:
  quorvane repos add ~/code/project    track one repository
  quorvane folders add ~/code          remember a folder that holds repositories
  quorvane scan                        read every tracked repository now
  quorvane scan --json                 the same, as JSON snapshots
  quorvane accounts add --name Work    add a GitHub account (token on stdin)
  quorvane sync                        read GitHub and link repositories to remotes
  quorvane alignment                   what differs from GitHub, with the command to align it
  quorvane status                      what the last scan found, without scanning
  quorvane commits --repo ~/code/api   the stored commits of one repository
  quorvane today                       what you did today, per repository
  quorvane week --date 2026-03-02      the week holding that day, Monday first
  quorvane heatmap --days 90           a calendar of the last 90 days' commits
  quorvane report daily                today's report as Markdown
  quorvane daemon                      keep watching and scanning until Ctrl-C

Run 'quorvane COMMAND --help' for the details of a command.)";

// Lists each command by the first line of its description; the rest of it is
// shown by that command's own --help. Help fits the screen: lines longer than it
// is wide are broken at spaces.
class SummaryFormatter final : public CLI::Formatter {
public:
    explicit SummaryFormatter(size_t width) : width_(width) {}

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        std::istringstream lines(CLI::Formatter::make_help(app, std::move(name), mode));
        std::string help, line;
        while (std::getline(lines, line)) {
            for (const std::string& piece : fitHelpLine(line)) help += piece + "\n";
        }
        return help;
    }

    std::string make_description(const CLI::App* app) const override {
        return reflow(CLI::Formatter::make_description(app));
    }

    std::string make_subcommand(const CLI::App* sub) const override {
        std::string summary = sub->get_description();
        summary = summary.substr(0, summary.find('\n'));
        std::stringstream out;
        CLI::detail::format_help(out, sub->get_display_name(true), summary, column_width_);
        return out.str();
    }

private:
    // A line too wide for the screen, broken at spaces. A line in two columns (a
    // name, then its description) continues under the description, or, when the
    // name leaves too little room, has the description on lines of its own.
    std::vector<std::string> fitHelpLine(const std::string& line) const {
        if (line.empty() || TextLayout::visibleWidth(line) <= width_) return {line};
        size_t start = line.find_first_not_of(' ');
        if (start == std::string::npos) return {line};
        std::vector<std::string> lines;
        std::string head;
        std::string_view text = std::string_view(line).substr(start);
        size_t hang = std::min(start, width_ / 2);
        size_t gap = line.find("  ", start);
        size_t second = gap == std::string::npos ? gap : line.find_first_not_of(' ', gap);
        if (second != std::string::npos) {
            text = std::string_view(line).substr(second);
            if (TextLayout::visibleWidth(line.substr(0, second)) <= width_ / 2) {
                head = line.substr(0, second);
                hang = TextLayout::visibleWidth(head);
            } else {
                lines.push_back(line.substr(0, gap));
                hang = std::min(start + 4, width_ / 2);
            }
        }
        if (head.empty()) head = std::string(hang, ' ');
        std::vector<std::string> pieces = TextLayout::wrap(text, width_ > hang ? width_ - hang : 1);
        for (size_t i = 0; i < pieces.size(); ++i) {
            lines.push_back((i == 0 ? head : std::string(hang, ' ')) + pieces[i]);
        }
        return lines;
    }

    // Paragraphs written for a wider screen are joined and broken anew; the first
    // line (the summary) and indented lines, such as examples, keep their own.
    std::string reflow(const std::string& text) const {
        std::istringstream in(text);
        std::string out, line;
        std::vector<std::string> paragraph;
        auto flush = [&] {
            bool wide = std::any_of(paragraph.begin(), paragraph.end(), [&](const std::string& l) {
                return TextLayout::visibleWidth(l) > width_;
            });
            if (wide) {
                std::string joined;
                for (const std::string& l : paragraph) joined += (joined.empty() ? "" : " ") + l;
                paragraph = TextLayout::wrap(joined, width_);
            }
            for (const std::string& l : paragraph) out += l + "\n";
            paragraph.clear();
        };
        for (bool first = true; std::getline(in, line); first = false) {
            if (first || line.empty() || line.starts_with(' ')) {
                flush();
                out += line + "\n";
            } else {
                paragraph.push_back(line);
            }
        }
        flush();
        return out;
    }

    size_t width_;
};

// Reads a secret from the person's terminal or standard input; nothing, with the
// reason in `problem`, when there is none.
using SecretReader =
    std::function<std::optional<std::string>(const CommandContext&, std::string& problem)>;

// Runs a command that changes the data folder in the daemon that holds it. What the
// daemon cannot do for the person happens here first: a new account's token or the
// AI key is read from this terminal, and a journal entry is edited in this person's
// editor.

int forward(ControlClient& daemon, CommandContext& context, std::vector<std::string> words,
            const SecretReader& readSecret, const Commands::JournalOptions* journalOptions) {
    ControlProtocol::Request request;
    std::error_code ec;
    request.workingDirectory = std::filesystem::current_path(ec).string();
    // A folder removed while the shell stood in it has no path any more; the shell's
    // name for it makes relative paths fail as they would here.
    if (const char* pwd = std::getenv("PWD"); ec && pwd != nullptr) request.workingDirectory = pwd;
    if (!request.workingDirectory.starts_with('/')) {
        context.err << "quorvane: cannot tell the current folder, which the daemon needs to "
                       "resolve relative paths\n";
        return 1;
    }
    if (readSecret) {
        std::string problem;
        std::optional<std::string> secret = readSecret(context, problem);
        if (!secret) {
            context.err << "quorvane: " << problem << "\n";
            return 1;
        }
        request.input = *secret + "\n";
    }
    if (journalOptions != nullptr && journalOptions->edit) {
        std::optional<Commands::JournalOptions> edited =
            Commands::editJournalHere(context, *journalOptions);
        if (!edited) return 1;
        words = Commands::journalWords(*edited);
    }
    request.arguments = std::move(words);
    // A window narrower or wider than any layout is made for is laid out at the nearest.
    request.terminal = {context.color, std::clamp<size_t>(context.columns, 20, 1000),
                        context.progress};
    return daemon.run(request, context.out, context.err);
}

// How a command line came to be run: by the person, or by the daemon for a client.
struct Invocation {
    // The daemon's own state and data folder, for a command a client sent it.
    AppEnvironment* service = nullptr;
    std::filesystem::path serviceDataDir;
    std::filesystem::path workingDir;
    std::optional<std::string> input;
    ControlProtocol::TerminalLayout terminal;
    // Colour and width for the person's terminal (the client's, for the daemon).
    TerminalStyle style;
};

int runWords(std::vector<std::string> words, std::ostream& out, std::ostream& err,
             const ProcessRunner& runner, const Clock& clock, const Invocation& how) {
    const TerminalStyle& style = how.style;
    CLI::App app(kAbout, "quorvane");
    // Before any command: they inherit it.
    app.formatter(std::make_shared<SummaryFormatter>(style.columns));
    app.require_subcommand(1);
    app.set_version_flag("-V,--version", fmt::format("quorvane {}", AppInfo::version()),
                         "Print the version and exit");

    // --data-dir is accepted by every command, before or after its name, and shown in its help.
    std::string dataDir;
    auto addDataDir = [&dataDir](CLI::App* command) {
        command
            ->add_option("--data-dir", dataDir,
                         "Keep configuration and data in DIR instead of the default data folder")
            ->type_name("DIR");
    };
    addDataDir(&app);

    std::function<int(CommandContext&)> action;
    bool diagnosing = false;  // doctor: reports an unsafe data folder rather than refusing it

    // repos
    CLI::App* repos = app.add_subcommand("repos", "Track, list and stop tracking repositories");
    repos->require_subcommand(1);
    repos->footer("\nA repository is identified by its canonical path (symbolic links resolved).");

    std::vector<std::string> addPaths;
    CLI::App* reposAdd = repos->add_subcommand(
        "add",
        "Track the Git repositories at PATH...\n"
        "A path inside a repository tracks the whole repository. A path that is not in a\n"
        "Git working tree is refused, and then nothing is added.\n"
        "A newly tracked repository's recent history is read at once: the commits of its\n"
        "local branches from the last historyDays days (90 by default; 'quorvane config\n"
        "set historyDays N' changes it, 0 reads none), and for each of those days its\n"
        "commit count and branches, so the week, heatmap and insights views have a past\n"
        "from the first day. No work time is invented for those days: time comes only\n"
        "from what scans see happen.");
    reposAdd->add_option("PATH", addPaths, "Repository folders")->required();
    reposAdd->callback(
        [&] { action = [&](CommandContext& c) { return Commands::reposAdd(c, addPaths); }; });

    bool listJson = false;
    CLI::App* reposList = repos->add_subcommand("list", "List the tracked repositories");
    reposList->add_flag("--json", listJson, "Print the repository configurations as JSON");
    reposList->callback(
        [&] { action = [&](CommandContext& c) { return Commands::reposList(c, listJson); }; });

    std::string removeTarget;
    CLI::App* reposRemove = repos->add_subcommand(
        "remove",
        "Stop tracking a repository, given by its id, path or name\n"
        "It is also remembered as ignored, so a scan folder does not enrol it again;\n"
        "'quorvane repos add' tracks it again. What Quorvane recorded about it (commits,\n"
        "sessions, daily activity) is deleted, but a link you confirmed to a GitHub\n"
        "repository is kept; nothing in the repository is touched.");
    reposRemove->add_option("REPO", removeTarget, "Repository id, path, name or display name")
        ->required();
    reposRemove->callback([&] {
        action = [&](CommandContext& c) { return Commands::reposRemove(c, removeTarget); };
    });

    // folders
    CLI::App* folders = app.add_subcommand(
        "folders", "Manage the scan folders: folders whose repositories are tracked automatically");
    folders->require_subcommand(1);

    std::vector<std::string> folderPaths;
    CLI::App* foldersAdd = folders->add_subcommand(
        "add",
        "Add folders to scan for repositories\n"
        "The next scan ('quorvane scan', 'quorvane today' or the daemon) looks for\n"
        "repositories up to 6 folders deep below each one (agent.maxScanDepth), skipping\n"
        "hidden folders and folders such as node_modules, vendor and dist, and tracks\n"
        "those it finds, reading their recent history as 'repos add' does. A repository\n"
        "removed with 'repos remove' is not tracked again.");
    foldersAdd->add_option("PATH", folderPaths, "Folders")->required();
    foldersAdd->callback(
        [&] { action = [&](CommandContext& c) { return Commands::foldersAdd(c, folderPaths); }; });

    CLI::App* foldersRemove = folders->add_subcommand(
        "remove", "Remove scan folders (repositories already tracked stay tracked)");
    foldersRemove->add_option("PATH", folderPaths, "Folders")->required();
    foldersRemove->callback([&] {
        action = [&](CommandContext& c) { return Commands::foldersRemove(c, folderPaths); };
    });

    CLI::App* foldersList = folders->add_subcommand("list", "List the scan folders");
    foldersList->callback(
        [&] { action = [](CommandContext& c) { return Commands::foldersList(c); }; });

    // scan
    bool scanJson = false;
    CLI::App* scan = app.add_subcommand(
        "scan",
        "Read every tracked repository now and print its state\n"
        "One line per repository, in the order they were added: branch, uncommitted\n"
        "changes, standing against the upstream branch, and today's commits. Up to 8\n"
        "repositories are read at once, with read-only git commands that take no locks.\n"
        "New repositories under the scan folders are tracked first and named; their\n"
        "recent history is read as 'repos add' does (see 'quorvane repos add --help').");
    scan->add_flag("--json", scanJson, "Print the snapshots as a JSON array");
    scan->callback(
        [&] { action = [&](CommandContext& c) { return Commands::scan(c, scanJson); }; });

    // sync
    bool syncScan = false, syncJson = false;
    CLI::App* sync = app.add_subcommand(
        "sync",
        "Read your GitHub accounts now and link each repository to its remote\n"
        "For every account with sync on: its repositories, and the branches of those you\n"
        "track; then each tracked repository is matched to its GitHub counterpart by its\n"
        "remote URL. Tokens come from the secret store (or gh and git's credential\n"
        "helpers for an account that uses gh). Exits 1 only when every account failed.");
    sync->add_flag("--scan", syncScan, "Scan the local repositories first");
    sync->add_flag("--json", syncJson, "Print the summary as JSON");
    sync->callback(
        [&] { action = [&](CommandContext& c) { return Commands::sync(c, syncScan, syncJson); }; });

    // accounts
    CLI::App* accounts = app.add_subcommand(
        "accounts",
        "Add, list, check and remove the GitHub accounts that sync reads\n"
        "An account's token stays in the secret store (the desktop's Secret Service, or\n"
        "secrets.json, mode 0600, in the data folder when none answers); config.json and\n"
        "the other data files only name it.");
    accounts->require_subcommand(1);

    Commands::AccountsAddOptions addOptions;
    CLI::App* accountsAdd = accounts->add_subcommand(
        "add",
        "Add an account for a personal access token, read from standard input\n"
        "On a terminal you are asked for the token and it is not shown as you type;\n"
        "otherwise the first line of standard input is taken, as in\n"
        "  secret-tool lookup ... | quorvane accounts add --name Work\n"
        "The token is never taken from the command line, where other users could read\n"
        "it. It is checked with GitHub at once. A token GitHub refuses still adds the\n"
        "account, as tokenInvalid, and the command exits 1. A classic token needs the\n"
        "'repo' scope to see private repositories; a fine-grained one needs read access to\n"
        "metadata.");
    accountsAdd->add_option("--name", addOptions.name, "The name you give the account")
        ->type_name("NAME")
        ->required();
    auto httpAddress = [](std::string& text) -> std::string {
        while (text.size() > 1 && text.back() == '/') text.pop_back();
        std::optional<std::string> url = parseURL(text);
        if (!url || !(url->starts_with("https://") || url->starts_with("http://"))) {
            return fmt::format(
                "\"{}\" is not an http or https address, such as "
                "https://github.example.com/api/v3",
                text);
        }
        if (!crossesTheNetworkInClear(*url)) return {};
        return fmt::format(
            "\"{}\" would send the token over plain http to another machine, where anyone on "
            "the way could read it: use the server's https:// address",
            text);
    };
    accountsAdd
        ->add_option("--api-url", addOptions.apiURL,
                     "The REST API of a GitHub Enterprise Server (default: GitHub's own)")
        ->type_name("URL")
        ->check(CLI::Validator(httpAddress, "", "address"));
    accountsAdd->add_flag("--json", addOptions.json, "Print the account and any problem as JSON");
    accountsAdd->callback(
        [&] { action = [&](CommandContext& c) { return Commands::accountsAdd(c, addOptions); }; });

    bool accountsJson = false;
    CLI::App* accountsImport = accounts->add_subcommand(
        "import-gh",
        "Add (or refresh) the account the gh tool is signed in to\n"
        "The token is looked for in GITHUB_TOKEN, GH_TOKEN, 'gh auth token' (through your\n"
        "login shell) and git's credential helpers for github.com, in that order. It is\n"
        "not copied: each sync asks for it again, so 'gh auth refresh' is all it takes.");
    std::optional<std::string> importURL;
    accountsImport
        ->add_option("--api-url", importURL,
                     "The REST API the token belongs to, for GitHub Enterprise Server")
        ->type_name("URL")
        ->check(CLI::Validator(httpAddress, "", "address"));
    accountsImport->add_flag("--json", accountsJson, "Print the account and any problem as JSON");
    accountsImport->callback([&] {
        action = [&](CommandContext& c) {
            return Commands::accountsImportGh(c, importURL, accountsJson);
        };
    });

    CLI::App* accountsList = accounts->add_subcommand(
        "list",
        "List the accounts: login, how the token is found, status, repositories and last sync\n"
        "REPOS counts the repositories the account reaches on GitHub, MAPPED those linked\n"
        "to a tracked local repository, as of the last sync.\n"
        "Reads the data folder only, so it works while the daemon runs.");
    accountsList->add_flag("--json", accountsJson,
                           "Print {account, reposCount, mappedCount} per account as a JSON array");
    accountsList->callback([&] {
        action = [&](CommandContext& c) { return Commands::accountsList(c, accountsJson); };
    });

    std::string accountKey;
    CLI::App* accountsCheck = accounts->add_subcommand(
        "check",
        "Ask GitHub whether an account's token still works, and keep the answer\n"
        "Exits 1 unless the account comes out connected.");
    accountsCheck
        ->add_option("ID|NAME", accountKey, "The account's id (or its start), name or login")
        ->required();
    accountsCheck->add_flag("--json", accountsJson, "Print the account and any problem as JSON");
    accountsCheck->callback([&] {
        action = [&](CommandContext& c) {
            return Commands::accountsCheck(c, accountKey, accountsJson);
        };
    });

    CLI::App* accountsRemove = accounts->add_subcommand(
        "remove",
        "Remove an account, its token and what sync read through it\n"
        "Deletes its token from the secret store (a gh account's token is gh's and stays),\n"
        "its remote repositories, their branches and the links to them. Your local\n"
        "repositories are not touched.");
    accountsRemove
        ->add_option("ID|NAME", accountKey, "The account's id (or its start), name or login")
        ->required();
    accountsRemove->callback([&] {
        action = [&](CommandContext& c) { return Commands::accountsRemove(c, accountKey); };
    });

    // alignment views
    bool alignmentJson = false;
    CLI::App* alignmentCommand = app.add_subcommand(
        "alignment",
        "Show how each tracked repository stands against GitHub, with the command to align it\n"
        "Counts at the top, each the number of rows under its title, then one section per\n"
        "status (Needs Push, Needs Pull, Diverged, No Upstream, Remote Only, Local Only,\n"
        "Other Remote, Account Issues, Branch Mismatch), each repository with its branch,\n"
        "commits ahead and behind, health and the git command to copy. Quorvane never runs\n"
        "these itself. Before any sync the sections are derived from the local scan,\n"
        "marked so, and come without commands.");
    alignmentCommand->add_flag("--json", alignmentJson,
                               "Print {overview, derivedOffline, sections} as JSON");
    alignmentCommand->callback(
        [&] { action = [&](CommandContext& c) { return Commands::alignment(c, alignmentJson); }; });

    std::string inventoryFilter = "all", inventorySearch;
    bool inventoryJson = false;
    CLI::App* inventoryCommand = app.add_subcommand(
        "inventory",
        "List every repository the last sync saw, on GitHub, here, or both\n"
        "Each with its kind (Mapped, Local, Other remote, Remote, Account?, Inaccessible),\n"
        "account, tags and local folder, marked (not tracked) for a confirmed link whose\n"
        "folder is no longer tracked, by name. --filter active keeps what was worked on\n"
        "here or pushed to GitHub in the last 30 days, stale what was not; archived\n"
        "repositories are in neither, only under --filter archived.");
    inventoryCommand
        ->add_option("--filter", inventoryFilter,
                     "all, mapped, remoteOnly, localOnly, privateOnly, stale, active or archived")
        ->type_name("FILTER")
        ->check(CLI::IsMember({"all", "mapped", "remoteOnly", "localOnly", "privateOnly", "stale",
                               "active", "archived"}));
    inventoryCommand
        ->add_option("--search", inventorySearch, "Only names or accounts holding TEXT (any case)")
        ->type_name("TEXT");
    inventoryCommand->add_flag("--json", inventoryJson, "Print the rows as a JSON array");
    inventoryCommand->callback([&] {
        InventoryFilter filter = InventoryFilter::all;
        for (const auto& [value, name] : enumCases(InventoryFilter{})) {
            if (name == inventoryFilter) filter = value;
        }
        action = [&, filter](CommandContext& c) {
            return Commands::inventory(c, filter, inventorySearch, inventoryJson);
        };
    });

    bool backlogJson = false;
    CLI::App* backlogCommand = app.add_subcommand(
        "backlog",
        "Sort every repository into one group: what is active, what needs cleaning up\n"
        "The groups are Active, Needs Cleanup, Remote Only, Stale, Local Only and Other\n"
        "Remote. Needs Cleanup holds what has something to push, pull, publish or an\n"
        "account problem; Stale holds archived repositories; Remote Only also holds a\n"
        "linked repository whose folder is no longer tracked; Other Remote, what has a\n"
        "remote elsewhere than GitHub.");
    backlogCommand->add_flag(
        "--json", backlogJson,
        "Print {active, needsCleanup, remoteOnly, stale, localOnly, otherRemote} as JSON");
    backlogCommand->callback(
        [&] { action = [&](CommandContext& c) { return Commands::backlog(c, backlogJson); }; });

    std::optional<std::string> repoKey;
    bool repoViewJson = false;
    CLI::App* healthCommand = app.add_subcommand(
        "health",
        "Show each repository's health score (100 less its problems) and the reasons\n"
        "Computed by each sync: scan errors, uncommitted changes, unpushed commits, being\n"
        "behind, no upstream, not on GitHub, and weeks without activity cost points.");
    healthCommand->add_option("REPO", repoKey, "One repository: its id, path or name");
    healthCommand->add_flag("--json", repoViewJson, "Print the scores as a JSON array");
    healthCommand->callback([&] {
        action = [&](CommandContext& c) { return Commands::health(c, repoKey, repoViewJson); };
    });

    CLI::App* branchesCommand = app.add_subcommand(
        "branches",
        "List each repository's branches, here and on GitHub, as of the last sync\n"
        "Local branches first, with their upstream and commits ahead and behind, then the\n"
        "branches only GitHub has.");
    branchesCommand->add_option("REPO", repoKey, "One repository: its id, path or name");
    branchesCommand->add_flag("--json", repoViewJson, "Print the branch records as a JSON array");
    branchesCommand->callback([&] {
        action = [&](CommandContext& c) { return Commands::branches(c, repoKey, repoViewJson); };
    });

    // status
    bool statusJson = false;
    CLI::App* status = app.add_subcommand(
        "status",
        "Print what the last scan stored, without scanning\n"
        "Reads the data folder only, so it works while another quorvane process is writing.");
    status->add_flag("--json", statusJson, "Print the stored snapshots as a JSON array");
    status->callback(
        [&] { action = [&](CommandContext& c) { return Commands::status(c, statusJson); }; });

    // commits
    Commands::CommitsOptions commitOptions;
    CLI::App* commits = app.add_subcommand(
        "commits",
        "List the stored commits, newest first\n"
        "Scans record the commits of the day they run; \"local\" marks a commit that no\n"
        "remote-tracking branch contains yet. Only your own are listed, as the views\n"
        "count them (see 'quorvane config add identities'), unless --all-authors.");
    commits->add_option("--repo", commitOptions.repo, "Only this repository (id, path or name)")
        ->type_name("REPO");
    commits->add_option("--limit", commitOptions.limit, "Show at most N commits (default 20)")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    commits->add_flag("--all", commitOptions.all, "Show every stored commit");
    commits->add_flag("--all-authors", commitOptions.allAuthors,
                      "Also colleagues' commits, with their authors");
    commits->add_flag("--json", commitOptions.json, "Print the commits as a JSON array");
    commits->callback(
        [&] { action = [&](CommandContext& c) { return Commands::commits(c, commitOptions); }; });

    // The views. They read the data folder only, so they answer while the daemon runs.
    auto localDate = [](std::string& text) -> std::string {
        if (DateHelpers::parseDateKey(text)) return {};
        return fmt::format("\"{}\" is not a date: expected YYYY-MM-DD, such as 2026-03-14", text);
    };
    CLI::Validator dateCheck(localDate, "", "local date");

    bool todayJson = false, todayNoScan = false;
    CLI::App* today = app.add_subcommand(
        "today",
        "Scan, then show today's work in each repository\n"
        "Lists the repositories with commits or work sessions today, or with uncommitted\n"
        "changes, busiest first. Time is estimated from the changes scans notice; the\n"
        "counters on top cover every tracked repository. It scans first, enrolling new\n"
        "repositories under the scan folders as 'quorvane scan' does; while the daemon\n"
        "runs, the daemon scans and it waits for that scan, up to 30 seconds. Beside\n"
        "another writing command, or when the daemon is late, it shows what is recorded.\n"
        "Like every view it says \"as of HH:MM\" on top when that is over a minute old.");
    today->add_flag("--json", todayJson, "Print the day's summary as JSON");
    today->add_flag("--no-scan", todayNoScan, "Only show what is recorded; do not scan first");
    today->callback([&] {
        action = [&](CommandContext& c) { return Commands::today(c, todayJson, !todayNoScan); };
    });

    Commands::SessionsOptions sessionOptions;
    std::optional<std::string> sessionDate;
    CLI::App* sessions = app.add_subcommand(
        "sessions",
        "List the work sessions of one day, oldest first\n"
        "A session is a stretch of work inferred from what changed between scans: it\n"
        "ends after 20 minutes without a change. An open session is still being extended.\n"
        "A session that runs across midnight shows on both days.");
    sessions->add_option("--date", sessionDate, "The local day (default today)")
        ->type_name("YYYY-MM-DD")
        ->check(dateCheck);
    sessions->add_option("--repo", sessionOptions.repo, "Only this repository (id, path or name)")
        ->type_name("REPO");
    sessions->add_flag("--json", sessionOptions.json, "Print the sessions as a JSON array");
    sessions->callback([&] {
        if (sessionDate) sessionOptions.day = DateHelpers::parseDateKey(*sessionDate);
        action = [&](CommandContext& c) { return Commands::sessions(c, sessionOptions); };
    });

    std::optional<std::string> weekDate;
    bool weekJson = false;
    CLI::App* week = app.add_subcommand(
        "week",
        "Show a Monday-to-Sunday week: each day's projects, commits and time\n"
        "Then the week's totals, the most active and the most neglected repository,\n"
        "and one line per repository worked on. Days before a repository was tracked\n"
        "show the commits of its history (read when it was added), without time.");
    week->add_option("--date", weekDate, "Any day of the week to show (default today)")
        ->type_name("YYYY-MM-DD")
        ->check(dateCheck);
    week->add_flag("--json", weekJson, "Print the week's summary as JSON");
    week->callback([&] {
        std::optional<Date> day;
        if (weekDate) day = DateHelpers::parseDateKey(*weekDate);
        action = [&, day](CommandContext& c) { return Commands::week(c, day, weekJson); };
    });

    int heatmapDays = Commands::kDefaultHeatmapDays;
    bool heatmapJson = false;
    CLI::App* heatmap = app.add_subcommand(
        "heatmap",
        "Draw a calendar of daily commits, one column per week\n"
        "Rows run Monday to Sunday and the newest week is on the right. The darker the\n"
        "cell, the more commits that day, relative to the busiest day shown; a dot is a\n"
        "day without commits.");
    heatmap
        ->add_option("--days", heatmapDays,
                     fmt::format("How many days to show, ending today (default {}, at most {})",
                                 Commands::kDefaultHeatmapDays, Commands::kMaxHeatmapDays))
        ->type_name("N")
        ->check(CLI::Range(1, Commands::kMaxHeatmapDays));
    heatmap->add_flag("--json", heatmapJson, "Print one record per day as a JSON array");
    heatmap->callback([&] {
        action = [&](CommandContext& c) { return Commands::heatmap(c, heatmapDays, heatmapJson); };
    });

    bool pureRecency = false;
    bool rankingJson = false;
    CLI::App* ranking = app.add_subcommand(
        "ranking",
        "Rank the repositories by activity\n"
        "Those worked on today come first (a commit, a change in the working tree or a\n"
        "work session), then the rest by their latest activity. Repositories under\n"
        "cache, trash and dependency folders (node_modules, ...) are left out.");
    ranking->add_flag("--pure-recency", pureRecency,
                      "Order by latest activity alone, ignoring what happened today");
    ranking->add_flag("--json", rankingJson, "Print the rows as a JSON array");
    ranking->callback([&] {
        action = [&](CommandContext& c) {
            return Commands::ranking(c,
                                     pureRecency ? Aggregator::RankingOrder::pureRecency
                                                 : Aggregator::RankingOrder::workedTodayFirst,
                                     rankingJson);
        };
    });

    std::string insightsPeriod = "today";
    bool insightsJson = false;
    CLI::App* insights = app.add_subcommand(
        "insights",
        "Count the work of a period: projects, commits, branches, unpushed commits, time\n"
        "'today' starts at midnight, 'month' 30 days before today's midnight, and 'all'\n"
        "covers everything stored. Commits before tracking began count as far as the\n"
        "history read at 'repos add' goes.");
    insights->add_option("--period", insightsPeriod, "today, month or all (default today)")
        ->type_name("PERIOD")
        ->check(CLI::IsMember({"today", "month", "all"}));
    insights->add_flag("--json", insightsJson, "Print the counts as JSON");
    insights->callback([&] {
        InsightsPeriod period = insightsPeriod == "month" ? InsightsPeriod::month
                                : insightsPeriod == "all" ? InsightsPeriod::allTime
                                                          : InsightsPeriod::today;
        action = [&, period](CommandContext& c) {
            return Commands::insights(c, period, insightsJson);
        };
    });

    // report
    std::string reportPeriod;
    std::string reportFormat = "md";
    std::optional<std::string> reportDate, reportOut;
    CLI::App* report = app.add_subcommand(
        "report",
        "Write the day's or the week's report as Markdown, JSON or CSV\n"
        "'daily' lists the day's counters, each project worked on or left uncommitted\n"
        "with its commits of that day, what is left to push or commit, and your journal\n"
        "notes. 'weekly' gives the week's totals, one row per day and the repositories\n"
        "that need attention. Markdown is printed; JSON and CSV are written to\n"
        "QVNQuorvane/Reports in your documents folder (XDG_DOCUMENTS_DIR, by default\n"
        "~/Documents), and --out writes any format to a folder of your choice. The path\n"
        "of a written file is printed. A weekly report comes as md or json: CSV is a\n"
        "day's table of projects. It reads what scans recorded and never scans itself;\n"
        "a past day shows how that day's last scan left each repository.\n"
        "'daily --extended' shows instead how each repository stands against GitHub\n"
        "(sync status, health, the safe command that aligns it) and a table of activity\n"
        "over the day, 30 days and all time. --ai adds a summary written by the provider\n"
        "set in ai.provider: Anthropic, with the key that 'quorvane config set-secret ai'\n"
        "stored, or an Ollama server. Only repository names, statuses, file counts,\n"
        "commit subjects and your journal notes are sent, never code or diffs. When no\n"
        "summary can be written the report comes without it and stderr says why.");
    report->add_option("PERIOD", reportPeriod, "daily or weekly")
        ->required()
        ->check(CLI::IsMember({"daily", "weekly"}));
    report->add_option("--date", reportDate, "The day, or any day of the week (default today)")
        ->type_name("YYYY-MM-DD")
        ->check(dateCheck);
    report->add_option("--format", reportFormat, "md, json or csv (default md)")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"md", "json", "csv"}));
    report->add_option("--out", reportOut, "Write the file into DIR; - prints it instead")
        ->type_name("DIR|-");
    bool reportExtended = false, reportAI = false;
    CLI::Option* extendedFlag = report->add_flag(
        "--extended", reportExtended, "daily only: with GitHub alignment and activity (md only)");
    report->add_flag("--ai", reportAI, "With --extended: add the AI provider's summary")
        ->needs(extendedFlag);
    report->callback([&] {
        Commands::ReportOptions options;
        options.period = reportPeriod == "weekly" ? Commands::ReportOptions::Period::weekly
                                                  : Commands::ReportOptions::Period::daily;
        options.format = reportFormat == "json"  ? Commands::ReportOptions::Format::json
                         : reportFormat == "csv" ? Commands::ReportOptions::Format::csv
                                                 : Commands::ReportOptions::Format::markdown;
        if (options.period == Commands::ReportOptions::Period::weekly &&
            options.format == Commands::ReportOptions::Format::csv) {
            throw CLI::ValidationError("--format",
                                       "a weekly report is written as md or json; csv is for "
                                       "'quorvane report daily'");
        }
        if (reportExtended && (options.period != Commands::ReportOptions::Period::daily ||
                               options.format != Commands::ReportOptions::Format::markdown)) {
            throw CLI::ValidationError("--extended", "the extended report is a daily report in md");
        }
        options.extended = reportExtended;
        options.ai = reportAI;
        if (reportDate) options.day = DateHelpers::parseDateKey(*reportDate);
        if (reportOut && *reportOut == "-") {
            options.toStandardOutput = true;
        } else if (reportOut) {
            options.outDir = PathHelpers::canonicalPath(*reportOut);
        }
        action = [&, options](CommandContext& c) { return Commands::report(c, options); };
    });

    // doctor
    CLI::App* doctor = app.add_subcommand(
        "doctor",
        "Check the data folder, git, the secret store and the configuration\n"
        "Says which secret store is in use: the desktop's Secret Service, or the file\n"
        "secrets.json in the data folder when none answers. Exits 1 when something is wrong.");
    doctor->callback([&] {
        action = [](CommandContext& c) { return Commands::doctor(c); };
        diagnosing = true;
    });

    // journal
    Commands::JournalOptions journalOptions;
    std::optional<std::string> journalDate;
    CLI::App* journal = app.add_subcommand(
        "journal",
        "Show or write the journal of a day: notes, blockers and plans for tomorrow\n"
        "With no option it shows the day's entry. --notes, --blockers and --tomorrow\n"
        "replace that part (\"\" clears it); --edit opens the whole entry in $VISUAL or\n"
        "$EDITOR. The journal goes into the day's report. While the daemon runs, the\n"
        "change is sent to it (the editor still opens here).");
    journal->add_option("--date", journalDate, "The local day (default today)")
        ->type_name("YYYY-MM-DD")
        ->check(dateCheck);
    journal->add_option("--notes", journalOptions.notes, "What you did or want to remember")
        ->type_name("TEXT");
    journal->add_option("--blockers", journalOptions.blockers, "What held you up")
        ->type_name("TEXT");
    journal->add_option("--tomorrow", journalOptions.tomorrow, "What comes next")
        ->type_name("TEXT");
    journal->add_flag("--edit", journalOptions.edit, "Edit the entry in your editor");
    journal->add_flag("--json", journalOptions.json, "Print the entry as JSON (null when none)");
    journal->callback([&] {
        if (journalDate) journalOptions.day = DateHelpers::parseDateKey(*journalDate);
        action = [&](CommandContext& c) { return Commands::journal(c, journalOptions); };
    });

    // reminders
    bool remindersAll = false, remindersJson = false;
    std::string dismissID;
    CLI::App* reminders = app.add_subcommand(
        "reminders",
        "List the reminders raised by scans: commits to push, work left uncommitted\n"
        "A reminder is raised once, when its condition appears (unpushed commits, changes\n"
        "worked on today with no commit, a branch behind its remote, changes left for\n"
        "days), shown as a desktop notification, and resolved by the first scan that finds\n"
        "the condition gone. Their switches and thresholds are the reminders.* settings\n"
        "of 'quorvane config list'.");
    reminders->require_subcommand(0, 1);
    reminders->add_flag("--all", remindersAll, "Also list resolved reminders (kept 30 days)");
    reminders->add_flag("--json", remindersJson, "Print the reminders as a JSON array");
    CLI::App* dismiss = reminders->add_subcommand(
        "dismiss", "Resolve an open reminder now, given its id or the first characters of it");
    dismiss->add_option("ID", dismissID, "Reminder id (as listed)")->required();
    dismiss->callback([&] {
        action = [&](CommandContext& c) { return Commands::dismissReminder(c, dismissID); };
    });
    reminders->callback([&] {
        if (dismiss->parsed()) return;
        action = [&](CommandContext& c) {
            return Commands::reminders(c, remindersAll, remindersJson);
        };
    });

    // proposals, audit, agent
    bool proposalsAll = false, proposalsJson = false;
    std::string proposalID;
    CLI::App* proposalsCommand = app.add_subcommand(
        "proposals",
        "List what coding agents have proposed, waiting for your decision\n"
        "An agent connected to the daemon's agent socket changes nothing on its own word:\n"
        "it proposes, you approve here, and approval mints a one-time token, valid 15\n"
        "minutes, that authorises exactly that action with exactly those arguments. The\n"
        "agent fetches the token and applies the action once. Every agent call is in\n"
        "'quorvane audit'.");
    proposalsCommand->require_subcommand(0, 1);
    proposalsCommand->add_flag("--all", proposalsAll,
                               "Also list approved, applied, rejected and expired proposals");
    proposalsCommand->add_flag("--json", proposalsJson, "Print the proposals as a JSON array");
    CLI::App* proposalsShowCommand = proposalsCommand->add_subcommand(
        "show", "Show one proposal in full: what it does, its tool and its arguments");
    proposalsShowCommand->add_option("ID", proposalID, "Proposal id, or its first characters")
        ->required();
    proposalsShowCommand->add_flag("--json", proposalsJson, "Print the proposal as JSON");
    proposalsShowCommand->callback([&] {
        action = [&](CommandContext& c) {
            return Commands::proposalsShow(c, proposalID, proposalsJson);
        };
    });
    CLI::App* proposalsApproveCommand = proposalsCommand->add_subcommand(
        "approve", "Approve a proposal: prints the one-time token for it and when it expires");
    proposalsApproveCommand->add_option("ID", proposalID, "Proposal id, or its first characters")
        ->required();
    proposalsApproveCommand->add_flag("--json", proposalsJson,
                                      "Print the id, token and expiry as JSON");
    proposalsApproveCommand->callback([&] {
        action = [&](CommandContext& c) {
            return Commands::proposalsApprove(c, proposalID, proposalsJson);
        };
    });
    CLI::App* proposalsRejectCommand = proposalsCommand->add_subcommand(
        "reject", "Turn a proposal down; a token already given for it stops working");
    proposalsRejectCommand->add_option("ID", proposalID, "Proposal id, or its first characters")
        ->required();
    proposalsRejectCommand->callback([&] {
        action = [&](CommandContext& c) { return Commands::proposalsReject(c, proposalID); };
    });
    proposalsCommand->callback([&] {
        if (!proposalsCommand->get_subcommands().empty()) return;
        action = [&](CommandContext& c) {
            return Commands::proposalsList(c, proposalsAll, proposalsJson);
        };
    });

    int auditLimit = Commands::kDefaultAuditLines;
    bool auditJson = false;
    CLI::App* auditCommand = app.add_subcommand(
        "audit",
        "Show the audit log of agent calls, and of your decisions on proposals\n"
        "Each line is one call: when, who (claude for an agent, user for you), the tool,\n"
        "how it ended and why. Tokens never appear in it. The log keeps 90 days and at\n"
        "most 5000 entries.");
    auditCommand->add_option("--limit", auditLimit, "How many of the newest entries to show")
        ->check(CLI::Range(1, 5000))
        ->capture_default_str();
    auditCommand->add_flag("--json", auditJson, "Print the entries as a JSON array, newest first");
    auditCommand->callback([&] {
        action = [&](CommandContext& c) { return Commands::auditLog(c, auditLimit, auditJson); };
    });

    bool agentJson = false;
    CLI::App* agentCommand = app.add_subcommand(
        "agent", "The agent socket that coding agents use to read and propose changes");
    agentCommand->require_subcommand(1);
    CLI::App* agentStatusCommand = agentCommand->add_subcommand(
        "status",
        "Say whether the agent socket is up\n"
        "Also where it is, the permission level, the allowed roots and how many tools it\n"
        "offers. When the daemon runs but could not open the socket, it says why.");
    agentStatusCommand->add_flag("--json", agentJson, "Print the status as JSON");
    agentStatusCommand->callback(
        [&] { action = [&](CommandContext& c) { return Commands::agentStatus(c, agentJson); }; });
    std::string agentScope = "user";
    auto addScope = [&](CLI::App* command) {
        command
            ->add_option("--scope", agentScope,
                         "Where Claude Code keeps it: user (every project, the default),\n"
                         "project (.mcp.json in this folder, to share) or local (this\n"
                         "project, only for you)")
            ->check(CLI::IsMember(ClaudeRegistration::scopes()));
    };
    CLI::App* agentRegisterCommand = agentCommand->add_subcommand(
        "register",
        "Add quorvane-mcp to Claude Code's MCP servers (claude mcp add)\n"
        "It also prints the entry to paste into any other MCP client's configuration.\n"
        "Registering again replaces the entry; with --data-dir the bridge talks to that\n"
        "folder's daemon.");
    addScope(agentRegisterCommand);
    agentRegisterCommand->callback([&] {
        action = [&](CommandContext& c) {
            return Commands::agentRegister(c, agentScope, !dataDir.empty());
        };
    });
    CLI::App* agentUnregisterCommand = agentCommand->add_subcommand(
        "unregister", "Take quorvane-mcp out of Claude Code with `claude mcp remove`");
    addScope(agentUnregisterCommand);
    agentUnregisterCommand->callback([&] {
        action = [&](CommandContext& c) { return Commands::agentUnregister(c, agentScope); };
    });
    agentCommand
        ->add_subcommand("registrations",
                         "List the MCP servers Claude Code knows, with `claude mcp list`")
        ->callback(
            [&] { action = [&](CommandContext& c) { return Commands::agentRegistrations(c); }; });

    // daemon
    CLI::App* daemon = app.add_subcommand(
        "daemon",
        "Keep watching and scanning in the foreground until stopped\n"
        "Scans once at start, then every scanIntervalMinutes (default 10), and notes file\n"
        "changes in tracked repositories as they happen, so that editing without\n"
        "committing still counts as work. With GitHub accounts it syncs them at start\n"
        "(sync.syncOnStart) and every sync.interval (m30 by default; manual turns it\n"
        "off); with sync.wifiOnly a round passes while NetworkManager calls the link\n"
        "metered. It is the data folder's one writer while it runs: commands that\n"
        "change the data folder are sent to it over quorvane.sock and run there.\n"
        "SIGTERM or SIGINT (Ctrl-C) stops it after saving everything; SIGUSR1 asks for\n"
        "a scan now.");
    daemon->callback([&] { action = [](CommandContext& c) { return Commands::daemon(c); }; });

    // service
    CLI::App* service =
        app.add_subcommand("service", "Run the daemon at every login, as a systemd user service");
    service->require_subcommand(1);
    CLI::App* serviceInstall = service->add_subcommand(
        "install",
        "Write the systemd user unit quorvane.service and start it\n"
        "The unit goes to ~/.config/systemd/user (XDG_CONFIG_HOME), runs this program's\n"
        "'daemon' (with --data-dir when you give one), restarts it after a failure and\n"
        "logs to the journal. When your user service manager answers, it is enabled and\n"
        "started at once; otherwise the command to do so is printed.");
    serviceInstall->callback([&] {
        action = [&](CommandContext& c) { return Commands::serviceInstall(c, !dataDir.empty()); };
    });
    CLI::App* serviceUninstall =
        service->add_subcommand("uninstall", "Stop the service and remove its unit");
    serviceUninstall->callback(
        [&] { action = [](CommandContext& c) { return Commands::serviceUninstall(c); }; });
    CLI::App* serviceStatus = service->add_subcommand(
        "status", "Say whether the unit is installed, what it runs, and whether it is running");
    serviceStatus->callback(
        [&] { action = [](CommandContext& c) { return Commands::serviceStatus(c); }; });

    // config
    CLI::App* configCommand = app.add_subcommand(
        "config",
        "Read and change the settings in config.json by name\n"
        "Each setting has a dotted name, such as sync.interval for \"interval\" inside\n"
        "\"sync\". 'set' checks the value before anything is written and prints what\n"
        "changed; an edit you made to config.json by hand is kept, the change is made on\n"
        "top of it. When the daemon makes the change, it follows it at once: a new scan\n"
        "or sync interval, review time or set of watched folders needs no restart. Lists\n"
        "keep their own commands: 'folders' for scanFolders, 'repos' for repositories\n"
        "and ignoredRepoIDs, 'accounts' for accounts, 'config add' and 'config remove'\n"
        "for identities.");
    configCommand->require_subcommand(1);
    std::string configKey, configValue;
    bool configJson = false;
    CLI::App* configList = configCommand->add_subcommand(
        "list",
        "Show every setting, its value and what it takes\n"
        "One setting a line, as 'KEY = VALUE', followed by what it does and the values it\n"
        "takes. With --json, one object of dotted keys and their values.");
    configList->add_flag("--json", configJson, "Print {\"KEY\": value, ...} as JSON");
    configList->callback(
        [&] { action = [&](CommandContext& c) { return Commands::configList(c, configJson); }; });
    CLI::App* configGet = configCommand->add_subcommand(
        "get",
        "Print the value of one setting\n"
        "As 'set' takes it: true, 10, m30, 21:30; none for no value, \"\" for empty text.");
    configGet->add_option("KEY", configKey, "A dotted key, such as sync.interval")->required();
    configGet->add_flag("--json", configJson, "Print the value as JSON");
    configGet->callback([&] {
        action = [&](CommandContext& c) { return Commands::configGet(c, configKey, configJson); };
    });
    CLI::App* configSet = configCommand->add_subcommand(
        "set",
        "Change one setting, after checking the value\n"
        "A value is a whole number within the key's range, true or false, a name spelled\n"
        "as config.json keeps it (m30, dark, applySettings), a time of day as HH:MM, or\n"
        "none to clear an optional number. A refused value changes nothing and exits 1.\n"
        "Prints the change, as 'scanIntervalMinutes: 10 → 5', or says it was unchanged.");
    configSet->add_option("KEY", configKey, "A dotted key, such as sync.interval")->required();
    configSet->add_option("VALUE", configValue, "The new value")->required();
    configSet->callback([&] {
        action = [&](CommandContext& c) { return Commands::configSet(c, configKey, configValue); };
    });
    std::vector<std::string> configEntries;
    auto listCommand = [&](const char* name, const char* what, Commands::ListChange change) {
        CLI::App* command = configCommand->add_subcommand(name, what);
        command->add_option("KEY", configKey, "A list key: identities")->required();
        command->add_option("VALUE", configEntries, "One entry or more")->required();
        command->callback([&, change] {
            action = [&, change](CommandContext& c) {
                return Commands::configChangeList(c, configKey, configEntries, change);
            };
        });
        return command;
    };
    CLI::App* configAdd = listCommand(
        "add",
        "Add entries to a list setting\n"
        "identities: your e-mail addresses and author names besides the user.email your\n"
        "repositories give, so your commits count as yours wherever you made them:\n"
        "  quorvane config add identities me@home.example \"Ann Example\"\n"
        "An entry already there is not added again; an address matches in any case.",
        Commands::ListChange::add);
    CLI::App* configRemove = listCommand(
        "remove",
        "Take entries from a list setting\n"
        "An entry that is not there is said on standard error, and the exit status is 1.",
        Commands::ListChange::remove);
    std::string secretName;
    bool secretRemove = false;
    CLI::App* configSetSecret = configCommand->add_subcommand(
        "set-secret",
        "Keep a secret in the secret store, read from standard input\n"
        "'ai' is the Anthropic API key that AI summaries use (ai.provider anthropic). On\n"
        "a terminal you are asked for it and it is not shown; otherwise the first line\n"
        "of standard input is taken, as in\n"
        "  secret-tool lookup ... | quorvane config set-secret ai\n"
        "It is never taken from the command line, where other users and your shell's\n"
        "history could read it. It goes to the desktop's Secret Service, or to\n"
        "secrets.json (mode 0600) in the data folder when none answers, under the name\n"
        "in ai.keychainRef; config.json never holds it.");
    configSetSecret->add_option("NAME", secretName, "ai: the Anthropic API key")
        ->required()
        ->check(CLI::IsMember({"ai"}));
    configSetSecret->add_flag("--remove", secretRemove, "Delete the stored secret instead");
    configSetSecret->callback([&] {
        action = [&](CommandContext& c) {
            return Commands::configSetSecret(c, secretName, secretRemove);
        };
    });
    // After the commands are made, so that list and get do not inherit it.
    const std::string configFooter = Commands::configKeysHelp() + R"(
Examples:
  quorvane config list                       every setting, value and meaning
  quorvane config get sync.interval          one value, such as m30
  quorvane config set scanIntervalMinutes 5  scan every 5 minutes
  quorvane config set dailyReviewTime 18:45  the end-of-day reminder at 18:45
  quorvane config set sync.interval manual   sync only on 'quorvane sync'
  quorvane config set agent.autoApproveConfidenceThreshold none)";
    configCommand->footer(configFooter);
    configSet->footer(configFooter);
    addDataDir(configCommand);
    for (CLI::App* command : configCommand->get_subcommands({})) addDataDir(command);

    // Hidden: what the build writes from these very definitions and installs beside
    // the program, so the completions, the manual and the packaged unit match it.
    // They print without a data folder.
    std::function<int()> printReference;
    std::string completionShell, unitExecutable;
    CLI::App* completion =
        app.add_subcommand("completion", "Print the completion script for SHELL");
    completion->group("");
    completion->add_option("SHELL", completionShell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    completion->callback([&] {
        printReference = [&] {
            return Commands::completion(out, describeCommands(app), completionShell);
        };
    });
    CLI::App* manpage = app.add_subcommand("manpage", "Print the manual page, in roff");
    manpage->group("");
    manpage->callback(
        [&] { printReference = [&] { return Commands::manualPage(out, describeCommands(app)); }; });
    CLI::App* serviceUnit = service->add_subcommand(
        "unit", "Print the systemd user unit, for every user, that runs EXECUTABLE's daemon");
    serviceUnit->group("");
    serviceUnit->add_option("EXECUTABLE", unitExecutable, "The installed program")->required();
    serviceUnit->callback(
        [&] { printReference = [&] { return Commands::serviceUnit(out, unitExecutable); }; });

    for (CLI::App* group : {repos, folders, accounts, service, proposalsCommand, agentCommand}) {
        addDataDir(group);
        for (CLI::App* command : group->get_subcommands({})) addDataDir(command);
    }
    for (CLI::App* command :
         {scan, sync, status, commits, doctor, journal, reminders, dismiss, daemon, auditCommand}) {
        addDataDir(command);
    }
    for (CLI::App* command :
         {today, sessions, week, heatmap, ranking, insights, report, alignmentCommand,
          inventoryCommand, backlogCommand, healthCommand, branchesCommand}) {
        addDataDir(command);
    }
    app.footer(kExamples);

    // "quorvane help COMMAND..." is "quorvane COMMAND... --help".
    if (!words.empty() && words[0] == "help") {
        words.erase(words.begin());
        words.push_back("--help");
    }
    if (!words.empty() && !words[0].starts_with("-")) {
        std::vector<std::string> commands, shown;
        for (const CLI::App* command : app.get_subcommands({})) {
            commands.push_back(command->get_name());
            // The hidden ones (completion scripts, the manual page) are never suggested.
            if (!command->get_group().empty()) shown.push_back(command->get_name());
        }
        if (std::find(commands.begin(), commands.end(), words[0]) == commands.end()) {
            std::optional<std::string> nearest = Text::nearestName(words[0], shown);
            err << fmt::format(
                "quorvane: '{}' is not a command.{}\n"
                "Run 'quorvane --help' for the list of commands.\n",
                words[0], nearest ? fmt::format(" Did you mean '{}'?", *nearest) : "");
            return 2;
        }
    }
    std::vector<const char*> arguments = {"quorvane"};
    for (const std::string& word : words) arguments.push_back(word.c_str());
    try {
        app.parse(static_cast<int>(arguments.size()), arguments.data());
    } catch (const CLI::ParseError& error) {
        int code = app.exit(error, out, err);
        return code == static_cast<int>(CLI::ExitCodes::Success) ? 0 : 2;
    }
    if (printReference) {
        if (how.service == nullptr) return printReference();
        err << "quorvane: the daemon runs only commands that change the data folder\n";
        return 2;
    }
    if (!action) return 0;

    // The commands that change the data folder: while the daemon runs they are sent
    // to it, and they are all it runs for others.
    bool writes = journal->parsed() && (journalOptions.notes || journalOptions.blockers ||
                                        journalOptions.tomorrow || journalOptions.edit);
    for (const CLI::App* command :
         {reposAdd, reposRemove, foldersAdd, foldersRemove, scan, sync, dismiss, accountsAdd,
          accountsImport, accountsCheck, accountsRemove, configSet, configAdd, configRemove,
          configSetSecret, proposalsApproveCommand, proposalsRejectCommand}) {
        writes = writes || command->parsed();
    }
    if (how.service != nullptr) {
        if (!writes) {
            err << "quorvane: the daemon runs only commands that change the data folder\n";
            return 2;
        }
        // Nobody sits at the daemon's terminal: the command line runs the editor on
        // the person's side and sends the text it leaves.
        if (journal->parsed() && journalOptions.edit) {
            err << "quorvane: the daemon opens no editor; 'quorvane journal --edit' opens it "
                   "where it is typed and sends the daemon the text\n";
            return 2;
        }
        CommandContext context{out, err, runner, clock, how.serviceDataDir, how.terminal.progress};
        context.service = how.service;
        context.color = style.color;
        context.columns = style.columns;
        context.workingDir = how.workingDir;
        // A secret comes with the request or not at all: the daemon's own standard
        // input is whatever it was started with, perhaps a terminal of its own.
        context.input = how.input.value_or("");
        try {
            return action(context);
        } catch (const std::exception& error) {
            err << fmt::format("quorvane: {}\n", error.what());
            return 1;
        }
    }

    std::filesystem::path dir = dataDir.empty()
                                    ? PathHelpers::appSupportDir()
                                    : std::filesystem::path(PathHelpers::canonicalPath(dataDir));
    if (!PathHelpers::ensurePrivateDirectory(dir)) {
        std::optional<std::string> problem = PathHelpers::dataFolderProblem(dir);
        err << fmt::format("quorvane: cannot use the data folder{}\n",
                           problem ? ": " + *problem : " " + dir.string());
        return 1;
    }
    // Whoever can write to the data folder can change what every command reads and
    // swap its files; doctor still runs, to say so.
    if (std::optional<std::string> problem = PathHelpers::dataFolderProblem(dir);
        problem && !diagnosing) {
        err << fmt::format("quorvane: refusing the data folder: {}\n", *problem);
        return 1;
    }
    // A folder this user cannot read makes every file in it look missing, so a view
    // would report nothing tracked and nothing recorded.
    if (!diagnosing && ::access(dir.c_str(), R_OK | X_OK) != 0) {
        err << fmt::format("quorvane: cannot read the data folder {}: {}\n", dir.string(),
                           std::strerror(errno));
        return 1;
    }
    CommandContext context{out, err, runner, clock, dir, ::isatty(STDERR_FILENO) == 1};
    context.color = style.color;
    context.columns = style.columns;
    if (writes) {
        if (std::optional<ControlClient> running = ControlClient::connect(dir, err)) {
            // A secret is read here, from the person's terminal, and sent with the command.
            SecretReader readSecret;
            if (accountsAdd->parsed()) {
                readSecret = [&](const CommandContext& c, std::string& problem) {
                    return Commands::readAccountToken(c, addOptions.name, problem);
                };
            } else if (configSetSecret->parsed() && !secretRemove) {
                readSecret = Commands::readAIKey;
            }
            return forward(*running, context, words, readSecret,
                           journal->parsed() ? &journalOptions : nullptr);
        }
    }
    // Decoding errors are handled where files are read, but for a config.json that
    // cannot be read, which ends a command here before it changed anything. Whatever
    // else goes wrong ends the command with its reason rather than an abort. What was
    // saved before stays saved: every file is replaced whole or not at all.
    try {
        return action(context);
    } catch (const std::exception& error) {
        err << fmt::format("quorvane: {}\n", error.what());
        return 1;
    }
}

}  // namespace

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                   const ProcessRunner& runner, const Clock& clock) {
    return runCommandLine(argc, argv, out, err, runner, clock, detectTerminal());
}

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                   const ProcessRunner& runner, const Clock& clock, const TerminalStyle& style) {
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) words.emplace_back(argv[i]);
    Invocation how;
    how.style = style;
    return runWords(std::move(words), out, err, runner, clock, how);
}

int runForwardedCommand(const ControlProtocol::Request& request, std::ostream& out,
                        std::ostream& err, const ProcessRunner& runner, const Clock& clock,
                        AppEnvironment& env, const std::filesystem::path& dataDir) {
    Invocation how;
    how.service = &env;
    how.serviceDataDir = dataDir;
    how.workingDir = request.workingDirectory;
    how.input = request.input;
    how.terminal = request.terminal;
    how.style = TerminalStyle{request.terminal.color, request.terminal.columns};
    return runWords(request.arguments, out, err, runner, clock, how);
}

}  // namespace quorvane
