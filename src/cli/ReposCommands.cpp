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
#include "cli/CommandSupport.hpp"
#include "cli/Style.hpp"
#include "app/Enrollment.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
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
    std::optional<DataFolderLock> writer = takeWriterLock(context);
    if (!writer) return 1;
    // Every path is checked before anything is written, so one bad path adds nothing.
    std::vector<std::string> tops;
    bool refused = false;
    for (const std::string& path : paths) {
        WorkTree tree = workTreeAt(context, path);
        // git's answer has invalid bytes already replaced, so the given path tells.
        if (tree.problem.empty() && !Text::isValidUtf8(PathHelpers::canonicalPath(path))) {
            tree.problem =
                "its path is not valid UTF-8, which the data files cannot hold; rename the "
                "folder to track it";
        }
        if (!tree.problem.empty()) {
            context.err << fmt::format("quorvane: cannot track {}: {}\n",
                                       Text::escapeInvalidUtf8(path), tree.problem);
            refused = true;
            continue;
        }
        if (std::find(tops.begin(), tops.end(), tree.top) == tops.end()) tops.push_back(tree.top);
    }
    if (refused) {
        context.err << "quorvane: nothing was added\n";
        return 1;
    }

    AppEnvironment env(context.dataDir, context.clock, context.runner);
    env.load();
    // Tracking by hand lifts an earlier "stop tracking".
    bool lifted = env.applyConfigChange([&](AppConfig& config) {
        std::erase_if(config.ignoredRepoIDs, [&](const std::string& id) {
            return std::find(tops.begin(), tops.end(), id) != tops.end();
        });
    });
    if (!lifted) {
        reportFlush(context, env.saveProblem());
        return 1;
    }
    RepoDiscovery discovery(context.runner);
    std::vector<DiscoveredRepo> found;
    AppConfig current = env.config();
    for (const std::string& top : tops) {
        if (findRepo(current, top) != nullptr) {
            context.out << fmt::format("already tracked: {}\n", top);
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
            context.out << fmt::format("tracking {} ({})\n", repo.name, repo.repoID);
        }
    }
    if (!env.store().flush()) return reportFlush(context, env.store().flushProblem()) ? 0 : 1;
    return reportFlush(context, env.saveProblem()) ? 0 : 1;
}

int reposList(CommandContext& context, bool json) {
    AppConfig config = readConfig(context);
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
        rows.push_back({repo.displayName.value_or(repo.name), repo.defaultBranch,
                        repo.trackingEnabled ? "yes" : Style::paint(context, Tone::dim, "paused"),
                        repo.localPath, repo.remoteURL.value_or("-")});
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
    std::optional<DataFolderLock> writer = takeWriterLock(context);
    if (!writer) return 1;
    ConfigService service = configService(context);
    AppConfig config = service.load();
    const RepoConfig* repo = resolveRepo(context, config, idOrPath);
    if (repo == nullptr) return 1;
    std::string id = repo->id, name = repo->name;
    std::erase_if(config.repositories, [&](const RepoConfig& r) { return r.id == id; });
    // Remembered as ignored, so that a scan of its folder does not enrol it again.
    if (std::find(config.ignoredRepoIDs.begin(), config.ignoredRepoIDs.end(), id) ==
        config.ignoredRepoIDs.end()) {
        config.ignoredRepoIDs.push_back(id);
    }
    if (!reportSave(context, service.save(config))) return 1;
    // What was recorded about it goes too, so no view goes on counting a repository
    // that is no longer tracked; tracking it again reads its recent history anew.
    Store store(context.dataDir, context.clock);
    store.load();
    store.purgeRepo(id);
    if (!store.flush()) {
        reportFlush(context, store.flushProblem());
        return 1;
    }
    context.out << fmt::format("stopped tracking {} ({}); its recorded history was removed\n", name,
                               id);
    return 0;
}

int foldersAdd(CommandContext& context, const std::vector<std::string>& paths) {
    std::optional<DataFolderLock> writer = takeWriterLock(context);
    if (!writer) return 1;
    std::vector<std::string> folders;
    bool refused = false;
    for (const std::string& path : paths) {
        std::string canonical = PathHelpers::canonicalPath(path);
        if (!isFolder(canonical)) {
            context.err << fmt::format("quorvane: cannot add {}: no such folder\n", path);
            refused = true;
            continue;
        }
        folders.push_back(canonical);
    }
    if (refused) {
        context.err << "quorvane: nothing was added\n";
        return 1;
    }
    ConfigService service = configService(context);
    AppConfig config = service.load();
    bool changed = false;
    for (const std::string& folder : folders) {
        if (std::find(config.scanFolders.begin(), config.scanFolders.end(), folder) !=
            config.scanFolders.end()) {
            context.out << fmt::format("already a scan folder: {}\n", folder);
            continue;
        }
        config.scanFolders.push_back(folder);
        context.out << fmt::format("scan folder added: {}\n", folder);
        changed = true;
    }
    if (changed && !reportSave(context, service.save(config))) return 1;
    return 0;
}

int foldersRemove(CommandContext& context, const std::vector<std::string>& paths) {
    std::optional<DataFolderLock> writer = takeWriterLock(context);
    if (!writer) return 1;
    ConfigService service = configService(context);
    AppConfig config = service.load();
    std::vector<std::string> matches;
    for (const std::string& path : paths) {
        std::string canonical = PathHelpers::canonicalPath(path);
        auto it = std::find_if(config.scanFolders.begin(), config.scanFolders.end(),
                               [&](const std::string& f) { return f == path || f == canonical; });
        if (it == config.scanFolders.end()) {
            context.err << fmt::format(
                "quorvane: {} is not a scan folder (see: quorvane folders list)\n", path);
            context.err << "quorvane: nothing was removed\n";
            return 1;
        }
        matches.push_back(*it);
    }
    for (const std::string& folder : matches) {
        std::erase(config.scanFolders, folder);
        context.out << fmt::format("scan folder removed: {}\n", folder);
    }
    return reportSave(context, service.save(config)) ? 0 : 1;
}

int foldersList(CommandContext& context) {
    AppConfig config = readConfig(context);
    if (config.scanFolders.empty()) {
        context.out << "No scan folders yet. Add one with: quorvane folders add PATH\n";
        return 0;
    }
    for (const std::string& folder : config.scanFolders) context.out << folder << '\n';
    return 0;
}

}  // namespace quorvane::Commands
