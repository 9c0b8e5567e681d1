// quorvane alignment, inventory, backlog, health and branches: how the tracked
// repositories stand against GitHub, read from the data folder as the last scan
// and sync left it, without the writer lock.
#include <algorithm>
#include <ostream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/AlignmentQueries.hpp"
#include "base/EnumNames.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/Style.hpp"
#include "screens/AlignmentViewModels.hpp"
#include "screens/BranchesViewModel.hpp"

namespace quorvane::Commands {

namespace {

// What every view here reads: the configuration and the store, as they are on disk.
// `readable` is false, with the reason on stderr, when either could not be read.
struct Reading {
    AppConfig config;
    Store store;
    bool readable = false;
    explicit Reading(const CommandContext& context)
        : store(context.dataDir, context.clock, Store::Access::readOnly) {
        std::optional<AppConfig> read = readConfig(context);
        if (!read) return;
        config = std::move(*read);
        readable = loadForReading(context, store);
    }
};

// The repositories a command about one or all covers; nothing printed yet.
std::optional<std::vector<const RepoConfig*>> reposFor(const CommandContext& context,
                                                       const AppConfig& config,
                                                       const std::optional<std::string>& key) {
    if (!key) return trackedRepos(config);
    const RepoConfig* repo = resolveRepo(context, config, *key);
    if (repo == nullptr) return std::nullopt;
    return std::vector<const RepoConfig*>{repo};
}

// Commits ahead and behind, when there are any.
std::string arrows(const V2RepoLine& line) {
    if (line.ahead == 0 && line.behind == 0) return "";
    return fmt::format("↑{} ↓{}", line.ahead, line.behind);
}

Tone kindTone(RepositoryMapping::Kind kind) {
    using Kind = RepositoryMapping::Kind;
    switch (kind) {
        case Kind::mapped: return Tone::good;
        case Kind::localOnly: return Tone::plain;
        case Kind::remoteOnly: return Tone::plain;
        case Kind::accountMismatch: return Tone::problem;
        case Kind::remoteInaccessible: return Tone::problem;
    }
    return Tone::plain;
}

}  // namespace

// How the tracked repositories stand against GitHub, as the last sync stored it
// (or, before any sync, as the local scan suggests). Read without the writer lock.
int alignment(CommandContext& context, bool json) {
    Reading reading(context);
    if (!reading.readable) return 1;
    GitAlignmentViewModel::View view =
        GitAlignmentViewModel::load(GitAlignmentViewModel::sourceOf(reading.store, reading.config));
    if (json) {
        context.out << JsonCodec::pretty(GitAlignmentViewModel::toJson(view));
        return 0;
    }
    printAsOf(context.out, reading.config, reading.store, context.clock.now());
    if (trackedRepos(reading.config).empty()) {
        context.out << kNothingTracked;
        return 0;
    }
    namespace V = GitAlignmentViewModel;
    const V::Overview& o = *view.overview;
    // The counts flow onto more lines when the screen is narrow, never splitting a
    // label from its count.
    std::vector<std::string> counts = {fmt::format("{} {}", V::kOnGitHubLabel, o.withRemote),
                                       fmt::format("{} {}", V::kLocalOnlyLabel, o.localOnly),
                                       fmt::format("{} {}", V::kSyncedLabel, o.synced),
                                       fmt::format("{} {}", V::kNeedsPushLabel, o.needsPush),
                                       fmt::format("{} {}", V::kNeedsPullLabel, o.needsPull),
                                       fmt::format("{} {}", V::kNoUpstreamLabel, o.noUpstream),
                                       fmt::format("{} {}", V::kDivergedLabel, o.diverged)};
    for (const auto& [label, count] : {std::pair{V::kRemoteOnlyLabel, o.remoteOnly},
                                       std::pair{V::kOtherRemoteLabel, o.otherRemote},
                                       std::pair{V::kAccountIssuesLabel, o.accountIssues},
                                       std::pair{V::kBranchMismatchLabel, o.branchMismatch}}) {
        if (count > 0) counts.push_back(fmt::format("{} {}", label, count));
    }
    context.out << V::kTitle << "\n";
    std::string line = fmt::format("{}:", V::kCountsHeading);
    for (size_t i = 0; i < counts.size(); ++i) {
        std::string next = (i == 0 ? " " : " · ") + counts[i];
        if (context.columns > 0 &&
            displayWidth(line) + displayWidth(next) + (i + 1 < counts.size() ? 2 : 0) >
                context.columns) {
            context.out << line << (i == 0 ? "" : " ·") << "\n";
            line = "  " + counts[i];
        } else {
            line += next;
        }
    }
    context.out << line << "\n";
    if (view.derivedOffline)
        context.out << Style::paint(context, Tone::dim, V::kDerivedMark) << "\n";
    if (view.sections.empty()) {
        context.out << "\n" << V::kEmptyTitle << "\n" << V::kEmptyText << "\n";
        return 0;
    }
    // Sections that share a title are printed as one, under the title they share,
    // so that each count at the head names the rows below one title.
    struct Printed {
        std::string_view title;
        Tone tone;
        std::vector<const V::Entry*> entries;
    };
    std::vector<Printed> printed;
    for (const V::Section& section : view.sections) {
        auto same = std::find_if(printed.begin(), printed.end(),
                                 [&](const Printed& p) { return p.title == V::titleOf(section); });
        if (same == printed.end()) {
            printed.push_back({V::titleOf(section), Style::toneOf(section.status), {}});
            same = printed.end() - 1;
        }
        for (const V::Entry& entry : section.entries) same->entries.push_back(&entry);
    }
    using TextLayout::Shrink;
    for (const Printed& section : printed) {
        context.out << "\n" << Style::paint(context, section.tone, section.title) << "\n";
        // Every repository's line is laid out in one table, so the columns line up
        // across the section, then printed with its command below it.
        std::vector<std::vector<std::string>> rows;
        for (const V::Entry* entry : section.entries) {
            const V2RepoLine& entryLine = entry->line;
            // A repository only GitHub has has neither a checkout nor a score.
            const bool remoteOnly = entryLine.syncStatus == SyncState::Status::remoteOnly;
            StatusWord health = RepoStanding::healthWord(entryLine.health);
            rows.push_back(
                {"  " + Text::visible(entryLine.name),
                 entryLine.branch.empty() ? (remoteOnly ? "" : "(detached)")
                                          : Text::visible(entryLine.branch),
                 arrows(entryLine),
                 remoteOnly ? "" : Style::paint(context, health.tone, "health " + health.text),
                 Text::visible(entryLine.account.value_or(""))});
        }
        std::vector<std::string> lines = TextLayout::layoutTable(
            rows, {context.columns,
                   {Shrink::cutEnd, Shrink::cutEnd, Shrink::never, Shrink::never, Shrink::cutEnd}});
        for (size_t i = 0; i < section.entries.size(); ++i) {
            context.out << lines[i] << "\n";
            const std::optional<ActionSuggestion>& suggestion = section.entries[i]->suggestion;
            if (!suggestion) continue;
            printCommand(context.out, suggestion->command, context.columns);
        }
    }
    // Said once, as `quorvane health` says it, rather than on every line.
    bool unscored = std::any_of(view.sections.begin(), view.sections.end(), [](const auto& s) {
        return std::any_of(s.entries.begin(), s.entries.end(),
                           [](const V::Entry& entry) { return !entry.line.health; });
    });
    if (unscored) {
        context.out << "\n"
                    << Style::paint(
                           context, Tone::dim,
                           fmt::format("health {}: no score yet, it comes with a sync ({})",
                                       RepoStanding::healthWord(std::nullopt).text,
                                       RepoStanding::kScoreCommand))
                    << "\n";
    }
    return 0;
}

int inventory(CommandContext& context, InventoryFilter filter, const std::string& search,
              bool json) {
    Reading reading(context);
    if (!reading.readable) return 1;
    std::vector<InventoryRow> rows = GitHubInventoryViewModel::filtered(
        Queries::inventory(reading.store, reading.config, filter, context.clock.now()), search);
    if (json) {
        Json array = Json::array();
        for (const InventoryRow& row : rows) array.push_back(toJson(row));
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    printAsOf(context.out, reading.config, reading.store, context.clock.now());
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
        table.push_back({Text::visible(row.name),
                         Style::paint(context, kindTone(row.kind), V::rowBadge(row)),
                         row.account.empty() ? "-" : Text::visible(row.account),
                         tags.empty() ? "-" : fmt::format("{}", fmt::join(tags, ",")),
                         Text::visible(row.localPath.value_or("-")) +
                             std::string(row.localNotTracked ? V::kNotTrackedMark : "")});
    }
    using TextLayout::Shrink;
    printTable(context.out, table,
               {context.columns,
                {Shrink::cutEnd, Shrink::never, Shrink::cutEnd, Shrink::never, Shrink::cutMiddle},
                true});
    context.out << "\n" << rows.size() << V::kCountSuffix << "\n";
    return 0;
}

int backlog(CommandContext& context, bool json) {
    Reading reading(context);
    if (!reading.readable) return 1;
    RepoBacklogViewModel::View view =
        RepoBacklogViewModel::load(reading.store, reading.config, context.clock.now());
    if (json) {
        context.out << JsonCodec::pretty(RepoBacklogViewModel::toJson(view));
        return 0;
    }
    printAsOf(context.out, reading.config, reading.store, context.clock.now());
    namespace V = RepoBacklogViewModel;
    struct Group {
        std::string_view title;
        const std::vector<V::Item>* items;
        Tone tone;
    };
    std::vector<Group> groups = {{V::kActiveTitle, &view.active, Tone::good},
                                 {V::kNeedsCleanupTitle, &view.needsCleanup, Tone::attention},
                                 {V::kRemoteOnlyTitle, &view.remoteOnly, Tone::plain},
                                 {V::kStaleTitle, &view.stale, Tone::dim},
                                 {V::kLocalOnlyTitle, &view.localOnly, Tone::plain},
                                 {V::kOtherRemoteTitle, &view.otherRemote, Tone::plain}};
    bool any = false;
    for (const Group& group : groups) any = any || !group.items->empty();
    if (!any) {
        context.out << V::kEmptyTitle << "\n" << V::kEmptyText << "\n";
        return 0;
    }
    context.out << V::kTitle << "\n" << V::kSubtitle << "\n";
    using TextLayout::Shrink;
    for (const Group& group : groups) {
        if (group.items->empty()) continue;
        context.out << "\n"
                    << Style::paint(context, group.tone,
                                    fmt::format("{} ({})", group.title, group.items->size()))
                    << "\n";
        std::vector<std::vector<std::string>> rows;
        for (const V::Item& item : *group.items) {
            std::string tags = std::string(item.isPrivate ? "[Private]" : "") +
                               (item.isPrivate && item.isArchived ? "  " : "") +
                               (item.isArchived ? "[Archived]" : "");
            rows.push_back({"  " + Text::visible(item.name), Text::visible(item.detail), tags});
        }
        printTable(context.out, rows,
                   {context.columns, {Shrink::cutEnd, Shrink::cutMiddle, Shrink::never}});
    }
    return 0;
}

// One repository (its id, path or name) or every tracked one.
int health(CommandContext& context, const std::optional<std::string>& repo, bool json) {
    Reading reading(context);
    if (!reading.readable) return 1;
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
    printAsOf(context.out, reading.config, reading.store, context.clock.now());
    if (scores.empty()) {
        context.out << "No health score yet: it comes with a sync (quorvane sync).\n";
        return 0;
    }
    for (const auto& [config, score] : scores) {
        context.out << fmt::format("{}  {}\n", Text::visible(displayNameOf(*config)),
                                   Style::paint(context, RepoStanding::healthWord(score.score)));
        for (const std::string& reason : score.reasonsNegative)
            printWrapped(context.out, Text::visible(reason), context.columns, "  - ");
        for (const std::string& reason : score.reasonsPositive)
            printWrapped(context.out, Text::visible(reason), context.columns, "  + ");
    }
    return 0;
}

int branches(CommandContext& context, const std::optional<std::string>& repo, bool json) {
    Reading reading(context);
    if (!reading.readable) return 1;
    std::optional<std::vector<const RepoConfig*>> repos = reposFor(context, reading.config, repo);
    if (!repos) return 1;
    const Date now = context.clock.now();
    if (json) {
        context.out << JsonCodec::pretty(
            BranchesViewModel::toJson(BranchesViewModel::fromStore(reading.store, *repos, now)));
        return 0;
    }
    printAsOf(context.out, reading.config, reading.store, now);
    bool any = false;
    for (const RepoConfig* config : *repos) {
        std::vector<BranchesViewModel::Row> rows =
            BranchesViewModel::fromStore(reading.store, {config}, now);
        if (rows.empty()) continue;
        any = true;
        context.out << Text::visible(displayNameOf(*config)) << "\n";
        std::vector<std::vector<std::string>> table = {
            {"  BRANCH", "HERE", "GITHUB", "UPSTREAM", "AHEAD", "BEHIND", "HEAD", "NOTE"}};
        for (const BranchesViewModel::Row& row : rows) {
            const BranchRecord& b = row.record;
            std::string note = b.merged ? "merged" : "";
            if (row.stale) note += note.empty() ? "stale" : ", stale";
            table.push_back(
                {"  " + Text::visible(b.name), b.isLocal ? "yes" : "-", b.isRemote ? "yes" : "-",
                 Text::visible(b.upstreamName.value_or("-")),
                 b.aheadCount > 0
                     ? Style::paint(context, Tone::attention, std::to_string(b.aheadCount))
                     : std::to_string(b.aheadCount),
                 b.behindCount > 0
                     ? Style::paint(context, Tone::attention, std::to_string(b.behindCount))
                     : std::to_string(b.behindCount),
                 Style::paint(context, Tone::dim,
                              b.lastCommitSha ? Text::visible(b.lastCommitSha->substr(0, 8)) : "-"),
                 Style::paint(context, Tone::dim, note)});
        }
        using TextLayout::Shrink;
        printTable(context.out, table,
                   {context.columns,
                    {Shrink::cutEnd, Shrink::never, Shrink::never, Shrink::cutEnd},
                    true});
        for (const BranchesViewModel::Row& row : rows) {
            if (!row.suggestion) continue;
            printWrapped(context.out, row.suggestion->title + ": " + Text::visible(row.record.name),
                         context.columns, "  ");
            printCommand(context.out, row.suggestion->command, context.columns);
        }
    }
    if (!any) printWrapped(context.out, BranchesViewModel::kEmptyText, context.columns);
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareAlignmentCommands(CommandTable& table) {
    auto& json = table.keep<bool>();
    table
        .add("alignment",
             "Show how each tracked repository stands against GitHub, with the command to align "
             "it\n"
             "Counts at the top, each the number of rows under its title, then one section per\n"
             "status (Needs Push, Needs Pull, Diverged, No Upstream, Remote Only, Local Only,\n"
             "Other Remote, Account Issues, Branch Mismatch), each repository with its branch,\n"
             "commits ahead and behind, health and the git command to copy. Quorvane never "
             "runs\n"
             "these itself. Before any sync the sections are derived from the local scan,\n"
             "marked so, and come without commands.",
             {DataUse::reads, [&](CommandContext& c) { return Commands::alignment(c, json); }})
        ->add_flag("--json", json, "Print {overview, derivedOffline, sections} as JSON");

    auto& filter = table.keep<std::string>("all");
    auto& search = table.keep<std::string>();
    CLI::App* inventory = table.add(
        "inventory",
        "List every repository the last sync saw, on GitHub, here, or both\n"
        "Each with its kind (Mapped, Local, Other remote, Remote, Account?, Inaccessible),\n"
        "account, tags and local folder, marked (not tracked) for a confirmed link whose\n"
        "folder is no longer tracked, by name. --filter active keeps what was worked on\n"
        "here or pushed to GitHub in the last 30 days, stale what was not; archived\n"
        "repositories are in neither, only under --filter archived.",
        {DataUse::reads, [&](CommandContext& c) {
             InventoryFilter chosen = InventoryFilter::all;
             for (const auto& [value, name] : enumCases(InventoryFilter{})) {
                 if (name == filter) chosen = value;
             }
             return Commands::inventory(c, chosen, search, json);
         }});
    inventory
        ->add_option("--filter", filter,
                     "all, mapped, remoteOnly, localOnly, privateOnly, stale, active or archived")
        ->type_name("FILTER")
        ->check(CLI::IsMember({"all", "mapped", "remoteOnly", "localOnly", "privateOnly", "stale",
                               "active", "archived"}));
    inventory->add_option("--search", search, "Only names or accounts holding TEXT (any case)")
        ->type_name("TEXT");
    inventory->add_flag("--json", json, "Print the rows as a JSON array");

    table
        .add("backlog",
             "Sort every repository into one group: what is active, what needs cleaning up\n"
             "The groups are Active, Needs Cleanup, Remote Only, Stale, Local Only and Other\n"
             "Remote. Needs Cleanup holds what has something to push, pull, publish or an\n"
             "account problem; Stale holds archived repositories; Remote Only also holds a\n"
             "linked repository whose folder is no longer tracked; Other Remote, what has a\n"
             "remote elsewhere than GitHub.",
             {DataUse::reads, [&](CommandContext& c) { return Commands::backlog(c, json); }})
        ->add_flag("--json", json,
                   "Print {active, needsCleanup, remoteOnly, stale, localOnly, otherRemote} as "
                   "JSON");

    auto& repo = table.keep<std::optional<std::string>>();
    CLI::App* health = table.add(
        "health",
        "Show each repository's health score (100 less its problems) and the reasons\n"
        "Computed by each sync: scan errors, uncommitted changes, unpushed commits, being\n"
        "behind, no upstream, not on GitHub, and weeks without activity cost points.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::health(c, repo, json); }});
    health->add_option("REPO", repo, "One repository: its id, path or name");
    health->add_flag("--json", json, "Print the scores as a JSON array");

    CLI::App* branches = table.add(
        "branches",
        "List each repository's branches, here and on GitHub, as of the last sync\n"
        "Local branches first, with their upstream and commits ahead and behind, then the\n"
        "branches only GitHub has.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::branches(c, repo, json); }});
    branches->add_option("REPO", repo, "One repository: its id, path or name");
    branches->add_flag("--json", json, "Print the branch records as a JSON array");
}

}  // namespace quorvane
