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

namespace quorvane::Commands {

namespace fs = std::filesystem;

int reposAdd(CommandContext& context, const std::vector<std::string>& paths) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    // Every path is checked before anything is written, so one bad path adds nothing.
    std::vector<std::string> tops;
    bool refused = false;
    for (const std::string& path : paths) {
        WorkTree tree = workTreeAt(context, path);
        // git's answer has invalid bytes already replaced, so the given path tells.
        if (tree.problem.empty()) {
            tree.problem = unstorablePathProblem(
                PathHelpers::canonicalPath(absolutePath(context, path)), "track it");
        }
        if (!tree.problem.empty()) {
            context.err << fmt::format("quorvane: cannot track {}: {}\n", Text::visible(path),
                                       Text::visible(tree.problem));
            refused = true;
            continue;
        }
        if (std::find(tops.begin(), tops.end(), tree.top) == tops.end()) tops.push_back(tree.top);
    }
    if (refused) {
        context.err << "quorvane: nothing was added\n";
        return 1;
    }

    AppEnvironment& env = writer->env();
    // Tracking by hand lifts an earlier "stop tracking".
    bool lifted = env.applyConfigChange([&](AppConfig& config) {
        std::erase_if(config.ignoredRepoIDs, [&](const std::string& id) {
            return std::find(tops.begin(), tops.end(), id) != tops.end();
        });
    });
    if (!lifted) return reportNotSaved(context, env.saveProblem());
    RepoDiscovery discovery(context.runner);
    std::vector<DiscoveredRepo> found;
    AppConfig current = env.config();
    for (const std::string& top : tops) {
        if (findRepo(current, top) != nullptr) {
            context.out << fmt::format("already tracked: {}\n", Text::visible(top));
            continue;
        }
        found.push_back(discovery.makeRepo(top));
    }
    if (!found.empty() && current.historyDays > 0) {
        context.out << fmt::format("reading the last {} days of history...\n", current.historyDays);
    }
    std::vector<std::string> added = env.addDiscovered(found);
    for (const DiscoveredRepo& repo : found) {
        if (std::find(added.begin(), added.end(), repo.repoID) != added.end()) {
            context.out << fmt::format("tracking {} ({})\n", Text::visible(repo.name),
                                       Text::visible(repo.repoID));
        }
    }
    if (!env.store().flush()) return reportFlush(context, env.store().flushProblem()) ? 0 : 1;
    return reportFlush(context, env.saveProblem()) ? 0 : 1;
}

int reposList(CommandContext& context, bool json) {
    std::optional<AppConfig> read = readConfig(context);
    if (!read) return 1;
    const AppConfig& config = *read;
    if (json) {
        context.out << JsonCodec::pretty(toJson(config.repositories));
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
    bool saved = env.applyConfigChange([&](AppConfig& changed) {
        std::erase_if(changed.repositories, [&](const RepoConfig& r) { return r.id == id; });
        // Remembered as ignored, so that a scan of its folder does not enrol it again.
        if (std::find(changed.ignoredRepoIDs.begin(), changed.ignoredRepoIDs.end(), id) ==
            changed.ignoredRepoIDs.end()) {
            changed.ignoredRepoIDs.push_back(id);
        }
    });
    if (!saved) return reportNotSaved(context, env.saveProblem());
    // What was recorded about it goes too, so no view goes on counting a repository
    // that is no longer tracked; tracking it again reads its recent history anew.
    // A link the person confirmed to a GitHub repository is their decision about
    // that repository as much: it stays, so the repository stays listed with it.
    std::vector<RepositoryMapping> confirmed;
    for (const RepositoryMapping& mapping : env.store().mappings()) {
        if (mapping.localRepoID == id && mapping.confirmedByUser && mapping.remoteRepoID) {
            confirmed.push_back(mapping);
        }
    }
    env.store().purgeRepo(id);
    env.store().upsertMappings(confirmed);
    if (!env.store().flush()) {
        reportFlush(context, env.store().flushProblem());
        return 1;
    }
    context.out << fmt::format("stopped tracking {} ({}); its recorded history was removed\n",
                               Text::visible(name), Text::visible(id));
    return 0;
}

int foldersAdd(CommandContext& context, const std::vector<std::string>& paths) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    std::vector<std::string> folders;
    bool refused = false;
    for (const std::string& path : paths) {
        std::string canonical = PathHelpers::canonicalPath(absolutePath(context, path));
        std::string problem =
            isFolder(canonical) ? unstorablePathProblem(canonical, "scan it") : "no such folder";
        if (!problem.empty()) {
            context.err << fmt::format("quorvane: cannot add {}: {}\n", Text::visible(path),
                                       problem);
            refused = true;
            continue;
        }
        folders.push_back(canonical);
    }
    if (refused) {
        context.err << "quorvane: nothing was added\n";
        return 1;
    }
    AppEnvironment& env = writer->env();
    AppConfig config = env.config();
    std::vector<std::string> added;
    for (const std::string& folder : folders) {
        if (std::find(config.scanFolders.begin(), config.scanFolders.end(), folder) !=
                config.scanFolders.end() ||
            std::find(added.begin(), added.end(), folder) != added.end()) {
            context.out << fmt::format("already a scan folder: {}\n", Text::visible(folder));
            continue;
        }
        added.push_back(folder);
    }
    if (added.empty()) return 0;
    bool saved = env.applyConfigChange([&](AppConfig& changed) {
        for (const std::string& folder : added) {
            if (std::find(changed.scanFolders.begin(), changed.scanFolders.end(), folder) ==
                changed.scanFolders.end()) {
                changed.scanFolders.push_back(folder);
            }
        }
    });
    if (!saved) return reportNotSaved(context, env.saveProblem());
    for (const std::string& folder : added) {
        context.out << fmt::format("scan folder added: {}\n", Text::visible(folder));
    }
    return 0;
}

int foldersRemove(CommandContext& context, const std::vector<std::string>& paths) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    AppConfig config = env.config();
    std::vector<std::string> matches;
    for (const std::string& path : paths) {
        std::string canonical = PathHelpers::canonicalPath(absolutePath(context, path));
        // Besides the folder itself: an entry as the list prints it, and one an older
        // version stored with U+FFFD in place of each byte that was not UTF-8.
        auto it = std::find_if(
            config.scanFolders.begin(), config.scanFolders.end(), [&](const std::string& f) {
                return f == path || f == canonical || Text::visible(f) == path ||
                       f == Text::repairUtf8(path) || f == Text::repairUtf8(canonical);
            });
        if (it == config.scanFolders.end()) {
            context.err << fmt::format(
                "quorvane: {} is not a scan folder (see: quorvane folders list)\n",
                Text::visible(path));
            context.err << "quorvane: nothing was removed\n";
            return 1;
        }
        matches.push_back(*it);
    }
    bool saved = env.applyConfigChange([&](AppConfig& changed) {
        for (const std::string& folder : matches) std::erase(changed.scanFolders, folder);
    });
    if (!saved) return reportNotSaved(context, env.saveProblem());
    for (const std::string& folder : matches) {
        context.out << fmt::format("scan folder removed: {}\n", Text::visible(folder));
    }
    return 0;
}

int foldersList(CommandContext& context) {
    std::optional<AppConfig> read = readConfig(context);
    if (!read) return 1;
    const AppConfig& config = *read;
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
        ->add_flag("--json", json, "Print the repository configurations as JSON");
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
    table.add(folders, "list", "List the scan folders", {DataUse::reads, Commands::foldersList});
}

}  // namespace quorvane
