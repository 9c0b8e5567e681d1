#include "cli/Commands.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <map>
#include <mutex>
#include <ostream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/AppEnvironment.hpp"
#include "app/Enrollment.hpp"
#include "app/Queries.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/Style.hpp"
#include "git/GitCommand.hpp"
#include "git/GitScanner.hpp"
#include "git/RepoDiscovery.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/ConfigService.hpp"
#include "persistence/DataFolderLock.hpp"
#include "persistence/KeychainStore.hpp"
#include "persistence/PauseMarker.hpp"
#include "persistence/Store.hpp"
#include "platform/DesktopNotifier.hpp"

namespace quorvane::Commands {

namespace fs = std::filesystem;

namespace {

// The state table of `scan` and `status`: one row per repository, in configuration order.
void printStates(const CommandContext& context, const std::vector<const RepoConfig*>& repos,
                 const std::vector<std::optional<RepoSnapshot>>& snapshots) {
    std::vector<std::vector<std::string>> rows = {
        {"REPOSITORY", "BRANCH", "CHANGES", "UPSTREAM", "TODAY", ""}};
    for (size_t i = 0; i < repos.size(); ++i) {
        std::string name = Text::visible(repos[i]->displayName.value_or(repos[i]->name));
        const std::optional<RepoSnapshot>& snapshot = snapshots[i];
        if (!snapshot) {
            rows.push_back(
                {name, "-", "-", "-", "-", Style::paint(context, Tone::dim, "not scanned yet")});
        } else if (snapshot->error) {
            rows.push_back({name, "-", "-", "-", "-",
                            Style::paint(context, Tone::problem,
                                         "error: " + Text::visible(*snapshot->error))});
        } else {
            rows.push_back(
                {name, snapshot->isDetachedHead ? "(detached)" : Text::visible(snapshot->branch),
                 Style::paint(context, Style::changesTone(snapshot->files),
                              describeChanges(snapshot->files)),
                 Style::paint(context, describeUpstream(*snapshot)),
                 plural(snapshot->commitsToday, "commit"), ""});
        }
    }
    // An error goes below its repository's row when the row has no room for it.
    using TextLayout::Shrink;
    printTable(
        context.out, rows,
        {context.columns,
         {Shrink::cutEnd, Shrink::cutEnd, Shrink::wrapItems, Shrink::wrapItems, Shrink::never},
         true,
         true});
}

}  // namespace

int scan(CommandContext& context, bool json, bool changedOnly) {
    DesktopNotifier notifier;
    std::optional<WriterAccess> writer = WriterAccess::open(context, &notifier);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    // Only the daemon's watcher knows what changed; without it a quiet repository
    // cannot be told from one changed behind our back, so all are read.
    if (changedOnly && !writer->inDaemon()) {
        context.err << "no daemon is watching the repositories: reading every one\n";
    }
    using Scope = AppEnvironment::ScanScope;
    Scope scope = changedOnly ? Scope::changed : Scope::everything;
    if (context.progress) context.err << "scanning..." << std::flush;
    // Inside the daemon a scan may be running already: this one comes after it.
    std::vector<std::string> enrolled =
        writer->inDaemon() ? env.rescanWhenFree(scope) : env.rescanNowOnMain(scope);
    if (context.progress) context.err << "\r\033[K" << std::flush;
    // What was read is still shown; the exit status says it was not kept.
    const int status = reportFlush(context, env.saveProblem()) ? 0 : 1;

    AppConfig config = env.config();
    std::vector<const RepoConfig*> active = trackedRepos(config);
    std::vector<std::optional<RepoSnapshot>> snapshots;
    for (const RepoConfig* repo : active) snapshots.push_back(env.store().snapshot(repo->id));
    if (json) {
        Json array = Json::array();
        for (const auto& snapshot : snapshots) {
            if (snapshot) array.push_back(toJson(*snapshot));
        }
        context.out << JsonCodec::pretty(array);
        return status;
    }
    for (const std::string& id : enrolled) {
        printWrapped(context.out, Text::visible(id), context.columns, "newly tracked: ");
    }
    if (active.empty()) {
        context.out << kNothingTracked;
        return status;
    }
    printStates(context, active, snapshots);
    return status;
}

// One sync cycle over the GitHub accounts; exits 1 only when every account failed.
int sync(CommandContext& context, bool scanFirst, bool json) {
    DesktopNotifier notifier;
    std::optional<WriterAccess> writer = WriterAccess::open(context, &notifier);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    env.reconcileAccounts();
    if (context.progress) context.err << "syncing..." << std::flush;
    RemoteSyncSummary summary = env.syncNow(scanFirst);
    if (context.progress) context.err << "\r\033[K" << std::flush;
    int status = reportFlush(context, env.saveProblem()) ? 0 : 1;
    if (summary.accountsFailed > 0 && summary.accountsSynced == 0) status = 1;
    if (json) {
        context.out << JsonCodec::pretty(toJson(summary));
        return status;
    }
    if (summary.accountsSynced + summary.accountsFailed == 0) {
        context.out << "No GitHub account to sync.\n";
        return status;
    }
    printWrapped(context.out,
                 fmt::format("{} synced, {} failed; {}, {} linked to their remote",
                             plural(summary.accountsSynced, "account"),
                             plural(summary.accountsFailed, "account"),
                             plural(summary.remoteRepos, "remote repository"),
                             plural(summary.mappedRepos, "repository")),
                 context.columns);
    for (const std::string& error : summary.errors) {
        printWrapped(context.out, Style::paint(context, Tone::problem, Text::visible(error)),
                     context.columns, "  ");
    }
    return status;
}

int status(CommandContext& context, bool json) {
    std::optional<AppConfig> read = readConfig(context);
    if (!read) return 1;
    const AppConfig& config = *read;
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    std::vector<const RepoConfig*> active = trackedRepos(config);
    std::vector<std::optional<RepoSnapshot>> snapshots;
    for (const RepoConfig* repo : active) snapshots.push_back(store.snapshot(repo->id));

    if (json) {
        Json array = Json::array();
        for (const auto& snapshot : snapshots) {
            if (snapshot) array.push_back(toJson(*snapshot));
        }
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    printAsOf(context.out, config, store, context.clock.now());
    if (PauseMarker::isPaused(context.dataDir)) {
        context.out << "watching paused: no periodic scans until 'quorvane resume'\n";
    }
    if (active.empty()) {
        context.out << kNothingTracked;
        return 0;
    }
    std::optional<Date> newest;
    for (const auto& snapshot : snapshots) {
        if (snapshot && (!newest || snapshot->capturedAt > *newest)) newest = snapshot->capturedAt;
    }
    printStates(context, active, snapshots);
    context.out << (newest ? fmt::format("\nlast scan: {} {}\n", DateHelpers::dateKey(*newest),
                                         localClockTime(*newest))
                           : std::string("\nnot scanned yet: run quorvane scan\n"));
    return 0;
}

int commits(CommandContext& context, const CommitsOptions& options) {
    // The stored commits stand without config.json; it only names their repositories,
    // and without it each goes by its folder's name.
    std::optional<AppConfig> read = readConfig(context);
    if (!read && options.repo) return 1;
    const AppConfig config = read.value_or(AppConfig{});
    std::optional<std::string> repoID;
    if (options.repo) {
        const RepoConfig* repo = resolveRepo(context, config, *options.repo);
        if (repo == nullptr) return 1;
        repoID = repo->id;
    }
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    std::vector<CommitRecord> found = store.commits(repoID, std::nullopt);
    if (!reportUnreadable(context, store)) return 1;
    if (!options.allAuthors) {
        const Identity identity = Queries::identity(store, config);
        std::erase_if(found, [&](const CommitRecord& commit) { return !identity.counts(commit); });
    }
    if (!options.all && found.size() > options.limit) found.resize(options.limit);

    if (options.json) {
        context.out << JsonCodec::pretty(toJson(found));
        return 0;
    }
    printAsOf(context.out, config, store, context.clock.now());
    if (found.empty()) {
        context.out << "No commits are stored yet. They are recorded by: quorvane scan\n";
        return 0;
    }
    std::map<std::string, std::string> names;
    for (const RepoConfig& repo : config.repositories)
        names[repo.id] = Text::visible(repo.displayName.value_or(repo.name));
    std::vector<std::vector<std::string>> rows;
    for (const CommitRecord& commit : found) {
        auto name = names.find(commit.repoID);
        rows.push_back(
            {DateHelpers::dateKey(commit.committedAt) + " " + localClockTime(commit.committedAt),
             Style::paint(context, Tone::dim, commit.shortSha),
             name != names.end() ? name->second
                                 : Text::visible(fs::path(commit.repoID).filename().string()),
             commit.isLocalOnly ? Style::paint(context, Tone::attention, "local") : "",
             Text::visible(commit.message)});
        if (options.allAuthors)
            rows.back().insert(rows.back().begin() + 3, Text::visible(commit.authorName));
    }
    // One line per commit, as git's own short log: a long subject is cut, not wrapped.
    using TextLayout::Shrink;
    std::vector<Shrink> shrink = {Shrink::never, Shrink::never, Shrink::cutEnd, Shrink::never,
                                  Shrink::cutEnd};
    if (options.allAuthors) shrink.insert(shrink.begin() + 3, Shrink::cutEnd);
    printTable(context.out, rows, {context.columns, shrink});
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareScanCommands(CommandTable& table) {
    auto& json = table.keep<bool>();
    auto& changedOnly = table.keep<bool>();
    CLI::App* scan = table.add(
        "scan",
        "Read every tracked repository now and print its state\n"
        "One line per repository, in the order they were added: branch, uncommitted\n"
        "changes, standing against the upstream branch, and today's commits. Up to 8\n"
        "repositories are read at once, with read-only git commands that take no locks.\n"
        "New repositories under the scan folders are tracked first and named; their\n"
        "recent history is read as 'repos add' does (see 'quorvane repos add --help').\n"
        "With --changed, a running daemon reads only the repositories whose files or git\n"
        "state changed since it last read them, as its periodic scan does; the others\n"
        "keep that reading. Without a daemon nothing watches them, so all are read.",
        {DataUse::writes, [&](CommandContext& c) { return Commands::scan(c, json, changedOnly); }});
    scan->add_flag("--json", json, "Print the snapshots as a JSON array");
    scan->add_flag("--changed", changedOnly,
                   "Read only the repositories the daemon saw change; all without a daemon");

    auto& scanFirst = table.keep<bool>();
    CLI::App* sync = table.add(
        "sync",
        "Read your GitHub accounts now and link each repository to its remote\n"
        "For every account with sync on: its repositories, and the branches of those you\n"
        "track; then each tracked repository is matched to its GitHub counterpart by its\n"
        "remote URL. Tokens come from the secret store (or gh and git's credential\n"
        "helpers for an account that uses gh). Exits 1 only when every account failed.",
        {DataUse::writes, [&](CommandContext& c) { return Commands::sync(c, scanFirst, json); }});
    sync->add_flag("--scan", scanFirst, "Scan the local repositories first");
    sync->add_flag("--json", json, "Print the summary as JSON");
}

}  // namespace quorvane
