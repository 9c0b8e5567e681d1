// quorvane alignment, inventory, backlog, health and branches: how the tracked
// repositories stand against GitHub, read from the data folder as the last scan
// and sync left it, without the writer lock.
#include <algorithm>
#include <ostream>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/AlignmentQueries.hpp"
#include "cli/CommandSupport.hpp"
#include "base/EnumNames.hpp"
#include "base/TextHelpers.hpp"
#include "git/Aggregator.hpp"
#include "screens/AlignmentViewModels.hpp"

namespace quorvane::Commands {

namespace {

// What every view here reads: the configuration and the store, as they are on disk.
struct Reading {
    AppConfig config;
    Store store;
    explicit Reading(const CommandContext& context)
        : config(readConfig(context)),
          store(context.dataDir, context.clock, Store::Access::readOnly) {
        store.load();
    }
};

std::vector<RepoSnapshot> latestSnapshots(const Reading& reading) {
    std::vector<RepoSnapshot> snapshots;
    for (const RepoConfig& repo : reading.config.repositories) {
        if (std::optional<RepoSnapshot> snapshot = reading.store.snapshot(repo.id)) {
            snapshots.push_back(*snapshot);
        }
    }
    return snapshots;
}

// The repositories a command about one or all covers; nothing printed yet.
std::optional<std::vector<const RepoConfig*>> reposFor(const CommandContext& context,
                                                       const AppConfig& config,
                                                       const std::optional<std::string>& key) {
    if (!key) return trackedRepos(config);
    const RepoConfig* repo = resolveRepo(context, config, *key);
    if (repo == nullptr) return std::nullopt;
    return std::vector<const RepoConfig*>{repo};
}

std::string standing(const V2RepoLine& line) {
    std::string text = line.branch.empty() ? "(detached)" : line.branch;
    if (line.ahead > 0 || line.behind > 0)
        text += fmt::format("  ↑{} ↓{}", line.ahead, line.behind);
    return text;
}

}  // namespace

int alignment(CommandContext& context, bool json) {
    Reading reading(context);
    GitAlignmentViewModel::Source source{
        [&] {
            return Aggregator::alignmentOverview(reading.config.repositories,
                                                 latestSnapshots(reading));
        },
        [&] { return Queries::gitAlignmentGroups(reading.store, reading.config); },
        [&] { return Queries::gitAlignmentGroupsDerived(reading.store, reading.config); },
        [&](const std::string& repoID) {
            return Queries::suggestedCommand(reading.store, reading.config, repoID);
        }};
    GitAlignmentViewModel::View view = GitAlignmentViewModel::load(source);
    if (json) {
        context.out << JsonCodec::pretty(GitAlignmentViewModel::toJson(view));
        return 0;
    }
    if (trackedRepos(reading.config).empty()) {
        context.out << kNothingTracked;
        return 0;
    }
    namespace V = GitAlignmentViewModel;
    const AlignmentOverview& o = *view.overview;
    context.out << V::kTitle << "\n"
                << fmt::format("{}: {} {} · {} {} · {} {} · {} {} · {} {} · {} {} · {} {}\n",
                               V::kCountsHeading, V::kOnGitHubLabel, o.withRemote,
                               V::kLocalOnlyLabel, o.localOnly, V::kSyncedLabel, o.synced,
                               V::kNeedsPushLabel, o.needsPush, V::kNeedsPullLabel, o.needsPull,
                               V::kNoUpstreamLabel, o.noUpstream, V::kDivergedLabel, o.diverged);
    if (view.derivedOffline) context.out << V::kDerivedMark << "\n";
    if (view.sections.empty()) {
        context.out << "\n" << V::kEmptyTitle << "\n" << V::kEmptyText << "\n";
        return 0;
    }
    for (const V::Section& section : view.sections) {
        context.out << "\n" << V::sectionTitle(section.status) << "\n";
        std::vector<std::vector<std::string>> rows;
        for (const V::Entry& entry : section.entries) {
            const V2RepoLine& line = entry.line;
            rows.push_back({"  " + line.name, standing(line), fmt::format("health {}", line.health),
                            line.account.value_or("")});
        }
        std::ostringstream table;
        printTable(table, rows);
        std::istringstream lines(table.str());
        std::string text;
        for (const V::Entry& entry : section.entries) {
            std::getline(lines, text);
            context.out << text << "\n";
            if (entry.suggestion) context.out << "      $ " << entry.suggestion->command << "\n";
        }
    }
    return 0;
}

int inventory(CommandContext& context, InventoryFilter filter, const std::string& search,
              bool json) {
    Reading reading(context);
    std::vector<InventoryRow> rows = GitHubInventoryViewModel::filtered(
        Queries::inventory(reading.store, reading.config, filter, context.clock.now()), search);
    if (json) {
        Json array = Json::array();
        for (const InventoryRow& row : rows) array.push_back(toJson(row));
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    namespace V = GitHubInventoryViewModel;
    if (rows.empty()) {
        context.out << (reading.store.mappings().empty() ? V::kNoData : V::kNoMatch) << "\n";
        return 0;
    }
    std::vector<std::vector<std::string>> table = {
        {"NAME", "KIND", "ACCOUNT", "TAGS", "LOCAL PATH"}};
    for (const InventoryRow& row : rows) {
        std::vector<std::string> tags;
        if (row.isPrivate) tags.emplace_back(V::kPrivateTag);
        if (row.isArchived) tags.emplace_back(V::kArchivedTag);
        table.push_back({row.name, std::string(V::kindBadge(row.kind)),
                         row.account.empty() ? "-" : row.account,
                         tags.empty() ? "-" : fmt::format("{}", fmt::join(tags, ",")),
                         row.localPath.value_or("-")});
    }
    printTable(context.out, table);
    context.out << "\n" << rows.size() << V::kCountSuffix << "\n";
    return 0;
}

int backlog(CommandContext& context, bool json) {
    Reading reading(context);
    RepoBacklogViewModel::View view =
        RepoBacklogViewModel::load(Queries::inventory(reading.store, reading.config,
                                                      InventoryFilter::all, context.clock.now()),
                                   Queries::gitAlignmentGroups(reading.store, reading.config));
    if (json) {
        context.out << JsonCodec::pretty(RepoBacklogViewModel::toJson(view));
        return 0;
    }
    namespace V = RepoBacklogViewModel;
    std::vector<std::pair<std::string_view, const std::vector<V::Item>*>> groups = {
        {V::kActiveTitle, &view.active},
        {V::kNeedsCleanupTitle, &view.needsCleanup},
        {V::kRemoteOnlyTitle, &view.remoteOnly},
        {V::kStaleTitle, &view.stale},
        {V::kLocalOnlyTitle, &view.localOnly}};
    bool any = false;
    for (const auto& [title, items] : groups) any = any || !items->empty();
    if (!any) {
        context.out << V::kEmptyTitle << "\n" << V::kEmptyText << "\n";
        return 0;
    }
    context.out << V::kTitle << "\n" << V::kSubtitle << "\n";
    for (const auto& [title, items] : groups) {
        if (items->empty()) continue;
        context.out << "\n" << title << " (" << items->size() << ")\n";
        for (const V::Item& item : *items) {
            context.out << "  " << item.name << "  " << item.detail
                        << (item.isPrivate ? "  [Private]" : "")
                        << (item.isArchived ? "  [Archived]" : "") << "\n";
        }
    }
    return 0;
}

int health(CommandContext& context, const std::optional<std::string>& repo, bool json) {
    Reading reading(context);
    std::optional<std::vector<const RepoConfig*>> repos = reposFor(context, reading.config, repo);
    if (!repos) return 1;
    std::vector<std::pair<const RepoConfig*, ProjectHealthSnapshot>> scores;
    for (const RepoConfig* config : *repos) {
        std::vector<ProjectHealthSnapshot> stored = reading.store.health(config->id);
        if (stored.empty()) continue;
        scores.emplace_back(config, *std::max_element(stored.begin(), stored.end(),
                                                      [](const auto& a, const auto& b) {
                                                          return a.capturedAt < b.capturedAt;
                                                      }));
    }
    if (json) {
        Json array = Json::array();
        for (const auto& [config, score] : scores) array.push_back(toJson(score));
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    if (scores.empty()) {
        context.out << "No health score yet: it comes with a sync (quorvane sync).\n";
        return 0;
    }
    for (const auto& [config, score] : scores) {
        context.out << fmt::format("{}  {}\n", displayNameOf(*config), score.score);
        for (const std::string& reason : score.reasonsNegative)
            context.out << "  - " << reason << "\n";
        for (const std::string& reason : score.reasonsPositive)
            context.out << "  + " << reason << "\n";
    }
    return 0;
}

// A repository's branch rows as the sync merged them: those here first, then
// those only GitHub has, each part by name.
std::vector<BranchRecord> branchRows(const Store& store, const std::string& repoID) {
    std::vector<BranchRecord> rows = store.branches(repoID);
    std::stable_sort(rows.begin(), rows.end(), [](const BranchRecord& a, const BranchRecord& b) {
        if (a.isLocal != b.isLocal) return a.isLocal;
        return a.name < b.name;
    });
    return rows;
}

int branches(CommandContext& context, const std::optional<std::string>& repo, bool json) {
    Reading reading(context);
    std::optional<std::vector<const RepoConfig*>> repos = reposFor(context, reading.config, repo);
    if (!repos) return 1;
    if (json) {
        Json array = Json::array();
        for (const RepoConfig* config : *repos) {
            for (const BranchRecord& branch : branchRows(reading.store, config->id)) {
                array.push_back(toJson(branch));
            }
        }
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    bool any = false;
    for (const RepoConfig* config : *repos) {
        std::vector<BranchRecord> records = branchRows(reading.store, config->id);
        if (records.empty()) continue;
        any = true;
        context.out << displayNameOf(*config) << "\n";
        std::vector<std::vector<std::string>> table = {
            {"  BRANCH", "HERE", "GITHUB", "UPSTREAM", "AHEAD", "BEHIND", "HEAD"}};
        for (const BranchRecord& b : records) {
            table.push_back({"  " + b.name, b.isLocal ? "yes" : "-", b.isRemote ? "yes" : "-",
                             b.upstreamName.value_or("-"), std::to_string(b.aheadCount),
                             std::to_string(b.behindCount),
                             b.lastCommitSha ? b.lastCommitSha->substr(0, 8) : "-"});
        }
        printTable(context.out, table);
    }
    if (!any) context.out << "No branches recorded yet: they come with a sync (quorvane sync).\n";
    return 0;
}

}  // namespace quorvane::Commands
