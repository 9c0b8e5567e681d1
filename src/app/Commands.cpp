#include "app/Commands.hpp"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <ostream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/BoundedParallel.hpp"
#include "app/Enrollment.hpp"
#include "app/PathHelpers.hpp"
#include "app/TextHelpers.hpp"
#include "git/GitCommand.hpp"
#include "git/GitScanner.hpp"
#include "git/RepoDiscovery.hpp"
#include "persistence/ConfigService.hpp"

namespace quorvane::Commands {

namespace fs = std::filesystem;

namespace {

ConfigService configService(const CommandContext& context) {
    return ConfigService(context.dataDir / "config.json", context.clock);
}

bool isFolder(const std::string& path) {
    std::error_code ec;
    return fs::is_directory(path, ec);
}

std::string firstLine(std::string_view text) {
    std::vector<std::string_view> lines = Text::nonEmptyLines(text);
    return lines.empty() ? std::string() : std::string(Text::trim(lines.front()));
}

// Finds the top of the working tree holding `path`, or says why there is none.
struct WorkTree {
    std::string top;
    std::string problem;
};

WorkTree workTreeAt(const CommandContext& context, const std::string& path) {
    std::string canonical = PathHelpers::canonicalPath(path);
    if (!isFolder(canonical)) return {"", "no such folder"};
    ShellResult result =
        context.runner.run(GitCommand::request(canonical, {"rev-parse", "--show-toplevel"}, 15));
    std::string top = firstLine(result.stdOut);
    if (!result.succeeded() || top.empty()) {
        std::string reason = firstLine(result.stdErr);
        return {"", reason.empty() ? "not a git working tree"
                                   : "not a git working tree (" + reason + ")"};
    }
    return {PathHelpers::canonicalPath(top), ""};
}

// Display width of UTF-8 text, counted in code points.
size_t displayWidth(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()), 0);
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line.append(widths[i] - displayWidth(row[i]) + 2, ' ');
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out << line << '\n';
    }
}

std::string plural(int count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string describeChanges(const GitFileCounts& files) {
    if (files.total() == 0) return "clean";
    std::vector<std::string> parts;
    auto add = [&](int count, std::string_view label) {
        if (count > 0) parts.push_back(fmt::format("{} {}", count, label));
    };
    add(files.modified, "modified");
    add(files.staged, "staged");
    add(files.untracked, "untracked");
    add(files.deleted, "deleted");
    add(files.renamed, "renamed");
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string describeUpstream(const RepoSnapshot& snapshot) {
    if (!snapshot.hasUpstream) return "no upstream";
    if (snapshot.ahead == 0 && snapshot.behind == 0) return "up to date";
    std::vector<std::string> parts;
    if (snapshot.ahead > 0) parts.push_back(fmt::format("{} ahead", snapshot.ahead));
    if (snapshot.behind > 0) parts.push_back(fmt::format("{} behind", snapshot.behind));
    return fmt::format("{}", fmt::join(parts, ", "));
}

const RepoConfig* findRepo(const AppConfig& config, const std::string& idOrPath) {
    std::string canonical = PathHelpers::canonicalPath(idOrPath);
    for (const RepoConfig& repo : config.repositories) {
        if (repo.id == idOrPath || repo.id == canonical) return &repo;
    }
    return nullptr;
}

}  // namespace

int reposAdd(CommandContext& context, const std::vector<std::string>& paths) {
    // Every path is checked before anything is written, so one bad path adds nothing.
    std::vector<std::string> tops;
    bool refused = false;
    for (const std::string& path : paths) {
        WorkTree tree = workTreeAt(context, path);
        if (!tree.problem.empty()) {
            context.err << fmt::format("quorvane: cannot track {}: {}\n", path, tree.problem);
            refused = true;
            continue;
        }
        if (std::find(tops.begin(), tops.end(), tree.top) == tops.end()) tops.push_back(tree.top);
    }
    if (refused) {
        context.err << "quorvane: nothing was added\n";
        return 1;
    }

    ConfigService service = configService(context);
    AppConfig config = service.load();
    RepoDiscovery discovery(context.runner);
    Date now = context.clock.now();
    bool changed = false;
    for (const std::string& top : tops) {
        if (findRepo(config, top) != nullptr) {
            context.out << fmt::format("already tracked: {}\n", top);
            continue;
        }
        RepoConfig repo = enrollmentConfig(discovery.makeRepo(top), now);
        std::erase(config.ignoredRepoIDs, repo.id);
        context.out << fmt::format("tracking {} ({})\n", repo.name, repo.id);
        config.repositories.push_back(std::move(repo));
        changed = true;
    }
    if (changed) service.save(config);
    return 0;
}

int reposList(CommandContext& context, bool json) {
    AppConfig config = configService(context).load();
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
                        repo.trackingEnabled ? "yes" : "paused", repo.localPath,
                        repo.remoteURL.value_or("-")});
    }
    printTable(context.out, rows);
    return 0;
}

int reposRemove(CommandContext& context, const std::string& idOrPath) {
    ConfigService service = configService(context);
    AppConfig config = service.load();
    const RepoConfig* repo = findRepo(config, idOrPath);
    if (repo == nullptr) {
        context.err << fmt::format(
            "quorvane: {} is not a tracked repository (see: quorvane repos list)\n", idOrPath);
        return 1;
    }
    std::string id = repo->id, name = repo->name;
    std::erase_if(config.repositories, [&](const RepoConfig& r) { return r.id == id; });
    // Remembered as ignored, so that a scan of its folder does not enrol it again.
    if (std::find(config.ignoredRepoIDs.begin(), config.ignoredRepoIDs.end(), id) ==
        config.ignoredRepoIDs.end()) {
        config.ignoredRepoIDs.push_back(id);
    }
    service.save(config);
    context.out << fmt::format("stopped tracking {} ({})\n", name, id);
    return 0;
}

int foldersAdd(CommandContext& context, const std::vector<std::string>& paths) {
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
    if (changed) service.save(config);
    return 0;
}

int foldersRemove(CommandContext& context, const std::vector<std::string>& paths) {
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
    service.save(config);
    return 0;
}

int foldersList(CommandContext& context) {
    AppConfig config = configService(context).load();
    if (config.scanFolders.empty()) {
        context.out << "No scan folders yet. Add one with: quorvane folders add PATH\n";
        return 0;
    }
    for (const std::string& folder : config.scanFolders) context.out << folder << '\n';
    return 0;
}

int scan(CommandContext& context, bool json) {
    AppConfig config = configService(context).load();
    std::vector<const RepoConfig*> active;
    for (const RepoConfig& repo : config.repositories) {
        if (repo.trackingEnabled) active.push_back(&repo);
    }

    GitScanner scanner(context.runner, context.clock);
    std::atomic<size_t> finished{0};
    std::mutex progressMutex;
    std::vector<RepoSnapshot> snapshots = boundedParallelMap<RepoSnapshot>(
        active.size(), kMaxParallelScans, [&](size_t i) {
            RepoSnapshot snapshot = scanner.scan(active[i]->localPath, active[i]->ignoreUntracked);
            size_t done = finished.fetch_add(1) + 1;
            if (context.progress) {
                std::lock_guard lock(progressMutex);
                context.err << fmt::format("\rscanning {}/{}", done, active.size()) << std::flush;
            }
            return snapshot;
        });
    if (context.progress && !active.empty()) context.err << "\r\033[K" << std::flush;

    if (json) {
        Json array = Json::array();
        for (const RepoSnapshot& snapshot : snapshots) array.push_back(toJson(snapshot));
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    if (active.empty()) {
        context.out << "No repositories are tracked yet. Track one with: quorvane repos add PATH\n";
        return 0;
    }
    std::vector<std::vector<std::string>> rows = {
        {"REPOSITORY", "BRANCH", "CHANGES", "UPSTREAM", "TODAY", ""}};
    for (size_t i = 0; i < active.size(); ++i) {
        const RepoSnapshot& snapshot = snapshots[i];
        std::string name = active[i]->displayName.value_or(active[i]->name);
        if (snapshot.error) {
            rows.push_back({name, "-", "-", "-", "-", "error: " + *snapshot.error});
            continue;
        }
        rows.push_back({name, snapshot.isDetachedHead ? "(detached)" : snapshot.branch,
                        describeChanges(snapshot.files), describeUpstream(snapshot),
                        plural(snapshot.commitsToday, "commit"), ""});
    }
    printTable(context.out, rows);
    return 0;
}

}  // namespace quorvane::Commands
