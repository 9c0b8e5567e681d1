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
#include "app/TrackingOperations.hpp"
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
#include "persistence/Store.hpp"
#include "platform/DesktopNotifier.hpp"
#include "screens/ProjectsViewModel.hpp"

namespace quorvane::Commands {

namespace fs = std::filesystem;

// The paths as the person meant them: a relative one starts in the folder the
// command was typed in.
std::vector<std::string> absolutePaths(const CommandContext& context,
                                       const std::vector<std::string>& paths) {
    std::vector<std::string> out;
    for (const std::string& path : paths) out.push_back(absolutePath(context, path));
    return out;
}

// The path as the person typed it, for a message about `path` made absolute.
std::string typedPath(const CommandContext& context, const std::vector<std::string>& typed,
                      const std::string& path) {
    for (const std::string& each : typed) {
        if (absolutePath(context, each) == path) return each;
    }
    return path;
}

// Says on stderr what was refused, under the name the person typed.
void reportRefused(CommandContext& context, const std::vector<std::string>& typed,
                   const std::vector<TrackingOperations::Refusal>& refused, std::string_view verb) {
    for (const TrackingOperations::Refusal& refusal : refused) {
        context.err << fmt::format("quorvane: cannot {} {}: {}\n", verb,
                                   Text::visible(typedPath(context, typed, refusal.path)),
                                   Text::visible(refusal.problem));
    }
}

int reposAdd(CommandContext& context, const std::vector<std::string>& paths) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    // Every path is checked before anything is written, so one bad path adds nothing.
    TrackingOperations::WorkTrees trees =
        TrackingOperations::workTrees(context.runner, absolutePaths(context, paths));
    if (!trees.refused.empty()) {
        reportRefused(context, paths, trees.refused, "track");
        context.err << "quorvane: nothing was added\n";
        return 1;
    }
    TrackingOperations::Tracked tracked =
        TrackingOperations::track(writer->env(), context.runner, trees.tops, [&](int days) {
            context.out << fmt::format("reading the last {} days of history...\n", days);
        });
    if (!tracked.notSaved.empty()) return reportNotSaved(context, tracked.notSaved);
    for (const std::string& top : tracked.alreadyTracked) {
        context.out << fmt::format("already tracked: {}\n", Text::visible(top));
    }
    for (const DiscoveredRepo& repo : tracked.added) {
        context.out << fmt::format("tracking {} ({})\n", Text::visible(repo.name),
                                   Text::visible(repo.repoID));
    }
    return reportFlush(context, tracked.partlySaved) ? 0 : 1;
}

int reposList(CommandContext& context, bool json) {
    std::optional<AppConfig> read = readConfig(context);
    if (!read) return 1;
    const AppConfig& config = *read;
    if (json) {
        Store store(context.dataDir, context.clock, Store::Access::readOnly);
        if (!loadForReading(context, store)) return 1;
        context.out << JsonCodec::pretty(
            ProjectsViewModel::repositories(config, store, context.clock.now()));
        return 0;
    }
    if (config.repositories.empty()) {
        context.out << "No repositories are tracked yet. Track one with: quorvane repos add PATH\n";
        return 0;
    }
    std::vector<std::vector<std::string>> rows = {{"NAME", "DEFAULT", "TRACKED", "PATH", "REMOTE"}};
    for (const RepoConfig& repo : config.repositories) {
        rows.push_back(
            {Text::visible(repo.displayName.value_or(repo.name)), Text::visible(repo.defaultBranch),
             repo.trackingEnabled ? "yes" : Style::paint(context, Tone::dim, "paused"),
             Text::visible(repo.localPath), Text::visible(repo.remoteURL.value_or("-"))});
    }
    using TextLayout::Shrink;
    printTable(
        context.out, rows,
        {context.columns,
         {Shrink::cutEnd, Shrink::cutEnd, Shrink::never, Shrink::cutMiddle, Shrink::cutMiddle},
         true});
    return 0;
}

int reposRemove(CommandContext& context, const std::string& idOrPath) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    AppConfig config = env.config();
    const RepoConfig* repo = resolveRepo(context, config, idOrPath);
    if (repo == nullptr) return 1;
    std::string id = repo->id, name = repo->name;
    TrackingOperations::Untracked untracked = TrackingOperations::untrack(env, id);
    if (!untracked.flushed) {
        reportFlush(context, untracked.problem);
        return 1;
    }
    if (!untracked.problem.empty()) return reportNotSaved(context, untracked.problem);
    context.out << fmt::format("stopped tracking {} ({}); its recorded history was removed\n",
                               Text::visible(name), Text::visible(id));
    return 0;
}

int foldersAdd(CommandContext& context, const std::vector<std::string>& paths) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    TrackingOperations::FolderChange change =
        TrackingOperations::addScanFolders(writer->env(), absolutePaths(context, paths));
    if (!change.refused.empty()) {
        reportRefused(context, paths, change.refused, "add");
        context.err << "quorvane: nothing was added\n";
        return 1;
    }
    for (const std::string& folder : change.unchanged) {
        context.out << fmt::format("already a scan folder: {}\n", Text::visible(folder));
    }
    if (!change.notSaved.empty()) return reportNotSaved(context, change.notSaved);
    for (const std::string& folder : change.changed) {
        context.out << fmt::format("scan folder added: {}\n", Text::visible(folder));
    }
    return 0;
}

int foldersRemove(CommandContext& context, const std::vector<std::string>& paths) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    TrackingOperations::FolderChange change =
        TrackingOperations::removeScanFolders(writer->env(), absolutePaths(context, paths));
    if (!change.refused.empty()) {
        context.err << fmt::format(
            "quorvane: {} is not a scan folder (see: quorvane folders list)\n",
            Text::visible(typedPath(context, paths, change.refused.front().path)));
        context.err << "quorvane: nothing was removed\n";
        return 1;
    }
    if (!change.notSaved.empty()) return reportNotSaved(context, change.notSaved);
    for (const std::string& folder : change.changed) {
        context.out << fmt::format("scan folder removed: {}\n", Text::visible(folder));
    }
    return 0;
}

int foldersList(CommandContext& context, bool json) {
    std::optional<AppConfig> read = readConfig(context);
    if (!read) return 1;
    const AppConfig& config = *read;
    if (json) {
        context.out << JsonCodec::pretty(ProjectsViewModel::scanFolders(config));
        return 0;
    }
    if (config.scanFolders.empty()) {
        context.out << "No scan folders yet. Add one with: quorvane folders add PATH\n";
        return 0;
    }
    for (const std::string& folder : config.scanFolders) {
        context.out << Text::visible(folder) << '\n';
    }
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareReposCommands(CommandTable& table) {
    CLI::App* repos = table.group("repos", "Track, list and stop tracking repositories");
    repos->footer("\nA repository is identified by its canonical path (symbolic links resolved).");
    auto& paths = table.keep<std::vector<std::string>>();
    table
        .add(repos, "add",
             "Track the Git repositories at PATH...\n"
             "A path inside a repository tracks the whole repository. A path that is not in a\n"
             "Git working tree is refused, and then nothing is added.\n"
             "A newly tracked repository's recent history is read at once: the commits of its\n"
             "local branches from the last historyDays days (90 by default; 'quorvane config\n"
             "set historyDays N' changes it, 0 reads none), and for each of those days its\n"
             "commit count and branches, so the week, heatmap and insights views have a past\n"
             "from the first day. No work time is invented for those days: time comes only\n"
             "from what scans see happen.",
             {DataUse::writes, [&](CommandContext& c) { return Commands::reposAdd(c, paths); }})
        ->add_option("PATH", paths, "Repository folders")
        ->required();
    auto& json = table.keep<bool>();
    table
        .add(repos, "list", "List the tracked repositories",
             {DataUse::reads, [&](CommandContext& c) { return Commands::reposList(c, json); }})
        ->add_flag("--json", json,
                   "Print the repository configurations as JSON, each with its standing");
    auto& target = table.keep<std::string>();
    table
        .add(repos, "remove",
             "Stop tracking a repository, given by its id, path or name\n"
             "It is also remembered as ignored, so a scan folder does not enrol it again;\n"
             "'quorvane repos add' tracks it again. What Quorvane recorded about it (commits,\n"
             "sessions, daily activity) is deleted, but a link you confirmed to a GitHub\n"
             "repository is kept; nothing in the repository is touched.",
             {DataUse::writes, [&](CommandContext& c) { return Commands::reposRemove(c, target); }})
        ->add_option("REPO", target, "Repository id, path, name or display name")
        ->required();

    CLI::App* folders = table.group(
        "folders", "Manage the scan folders: folders whose repositories are tracked automatically");
    table
        .add(folders, "add",
             "Add folders to scan for repositories\n"
             "The next scan ('quorvane scan', 'quorvane today' or the daemon) looks for\n"
             "repositories up to 6 folders deep below each one (agent.maxScanDepth), skipping\n"
             "hidden folders and folders such as node_modules, vendor and dist, and tracks\n"
             "those it finds, reading their recent history as 'repos add' does. A repository\n"
             "removed with 'repos remove' is not tracked again.",
             {DataUse::writes, [&](CommandContext& c) { return Commands::foldersAdd(c, paths); }})
        ->add_option("PATH", paths, "Folders")
        ->required();
    table
        .add(
            folders, "remove", "Remove scan folders (repositories already tracked stay tracked)",
            {DataUse::writes, [&](CommandContext& c) { return Commands::foldersRemove(c, paths); }})
        ->add_option("PATH", paths, "Folders")
        ->required();
    table
        .add(folders, "list", "List the scan folders",
             {DataUse::reads, [&](CommandContext& c) { return Commands::foldersList(c, json); }})
        ->add_flag("--json", json, "Print the scan folders as a JSON array");
}

}  // namespace quorvane
