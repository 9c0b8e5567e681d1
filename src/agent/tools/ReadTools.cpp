// The agent's read tools and resources: what the tracker knows, as JSON. They
// change no repository and no setting; a rescan, a sync and an exported report
// only refresh or add to the tracker's own data.
#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include <fmt/format.h>

#include "agent/AgentService.hpp"
#include "agent/AgentToolSupport.hpp"
#include "base/EnumNames.hpp"
#include "base/PathHelpers.hpp"
#include "base/RemoteURL.hpp"
#include "base/TextHelpers.hpp"
#include "git/Aggregator.hpp"
#include "git/GitCommand.hpp"
#include "git/GitParsing.hpp"
#include "git/GitScanner.hpp"
#include "github/RepoMapper.hpp"
#include "reports/MarkdownReport.hpp"
#include "reports/ReportExport.hpp"

namespace quorvane {

using namespace AgentToolSupport;

namespace {

// What a call that names no count gets: enough to see the recent past without
// flooding the agent's context.
constexpr size_t kDefaultCommitLimit = 20;
constexpr size_t kDefaultRankingLimit = 50;
// git is asked for no more than this many commits, whatever the call says: the
// answer is read whole into memory and sent as one line.
constexpr size_t kMaxCommitLimit = 1000;
constexpr double kGitTimeout = 15;
constexpr double kGitLogTimeout = 20;
// The day records read around a date; wider than any week that holds it.
constexpr std::chrono::seconds kWeekSeconds{604800};

const char* const kNoAccountHint =
    "no GitHub account is connected — add one in Quorvane → Accounts";
const char* const kBadLimitHint = "`limit` must be a whole number, 0 or more";

// ---- Arguments ------------------------------------------------------------------

// The whole number in `key`, `fallback` when absent; nothing when it is there but is
// no whole number of 0 or more.
std::optional<size_t> countArg(const Json& args, const char* key, size_t fallback) {
    auto it = args.find(key);
    if (it == args.end()) return fallback;
    if (!it->is_number_integer() || it->get<long long>() < 0) return std::nullopt;
    return static_cast<size_t>(it->get<long long>());
}

// ---- Encoders -------------------------------------------------------------------
// Each record has one encoder, so a record reads the same in every tool and
// resource. Dates are ISO 8601 in UTC with whole seconds; an optional field that is
// empty prints as null, so an agent finds every key whether or not it is known.

template <NamedEnum E>
AgentJSON nameOf(E value) {
    return AgentJSON(std::string(enumName(value)));
}

AgentJSON optionalDate(const std::optional<Date>& date) {
    return date ? AgentJSON(DateHelpers::isoString(*date)) : AgentJSON(nullptr);
}

AgentJSON optionalInt(const std::optional<int>& value) {
    return value ? AgentJSON(*value) : AgentJSON(nullptr);
}

AgentJSON statusList(const std::vector<RepoStatus>& statuses) {
    AgentJSON::Array names;
    for (RepoStatus status : statuses) names.push_back(nameOf(status));
    return AgentJSON(std::move(names));
}

AgentJSON filesJSON(const GitFileCounts& files) {
    return AgentJSON(AgentJSON::Object{{"modified", files.modified},
                                       {"staged", files.staged},
                                       {"untracked", files.untracked},
                                       {"deleted", files.deleted},
                                       {"renamed", files.renamed}});
}

AgentJSON snapshotJSON(const RepoSnapshot& snapshot) {
    return AgentJSON(AgentJSON::Object{
        {"branch", snapshot.branch},
        {"ahead", snapshot.ahead},
        {"behind", snapshot.behind},
        {"commitsToday", snapshot.commitsToday},
        {"isDirty", snapshot.files.total() > 0},
        {"modified", snapshot.files.modified},
        {"files", filesJSON(snapshot.files)},
        {"hasUpstream", snapshot.hasUpstream},
        {"isDetachedHead", snapshot.isDetachedHead},
        {"remoteURL", optionalText(snapshot.remoteURL)},
        {"lastCommitSha", optionalText(snapshot.lastCommitSha)},
        {"lastCommitMessage", optionalText(snapshot.lastCommitMessage)},
        {"lastCommitAt", optionalDate(snapshot.lastCommitAt)},
        {"lastWorkingTreeChangeAt", optionalDate(snapshot.lastWorkingTreeChangeAt)},
        {"capturedAt", DateHelpers::isoString(snapshot.capturedAt)},
        {"error", optionalText(snapshot.error)}});
}

AgentJSON mappingJSON(const RepositoryMapping& mapping) {
    return AgentJSON(AgentJSON::Object{{"id", mapping.id},
                                       {"localRepoId", optionalText(mapping.localRepoID)},
                                       {"remoteRepoId", optionalText(mapping.remoteRepoID)},
                                       {"accountId", optionalText(mapping.accountID)},
                                       {"kind", nameOf(mapping.kind)},
                                       {"confidence", mapping.confidence},
                                       {"confirmedByUser", mapping.confirmedByUser},
                                       {"createdAt", DateHelpers::isoString(mapping.createdAt)}});
}

AgentJSON remoteJSON(const RemoteRepository& remote) {
    return AgentJSON(AgentJSON::Object{{"id", remote.id},
                                       {"accountId", remote.accountID},
                                       {"owner", remote.owner},
                                       {"name", remote.name},
                                       {"fullName", remote.fullName},
                                       {"htmlURL", remote.htmlURL},
                                       {"isPrivate", remote.isPrivate},
                                       {"isFork", remote.isFork},
                                       {"isArchived", remote.isArchived},
                                       {"defaultBranch", remote.defaultBranch},
                                       {"description", optionalText(remote.description)},
                                       {"language", optionalText(remote.language)},
                                       {"pushedAt", optionalDate(remote.pushedAt)},
                                       {"updatedAt", optionalDate(remote.updatedAt)}});
}

AgentJSON syncJSON(const SyncState& state) {
    return AgentJSON(
        AgentJSON::Object{{"repoId", state.id},
                          {"status", nameOf(state.status)},
                          {"remoteRepoId", optionalText(state.remoteRepoID)},
                          {"accountId", optionalText(state.accountID)},
                          {"localAhead", state.localAhead},
                          {"localBehind", state.localBehind},
                          {"hasUpstream", state.hasUpstream},
                          {"calculatedAt", DateHelpers::isoString(state.calculatedAt)}});
}

AgentJSON healthJSON(const ProjectHealthSnapshot& health) {
    return AgentJSON(AgentJSON::Object{{"score", health.score},
                                       {"reasonsPositive", textList(health.reasonsPositive)},
                                       {"reasonsNegative", textList(health.reasonsNegative)},
                                       {"capturedAt", DateHelpers::isoString(health.capturedAt)}});
}

AgentJSON repoConfigJSON(const RepoConfig& repo, const std::optional<std::string>& remoteURL) {
    return AgentJSON(AgentJSON::Object{{"repoId", repo.id},
                                       {"name", repo.name},
                                       {"displayName", optionalText(repo.displayName)},
                                       {"localPath", repo.localPath},
                                       {"defaultBranch", repo.defaultBranch},
                                       {"trackingEnabled", repo.trackingEnabled},
                                       {"aliases", textList(repo.aliases)},
                                       {"remoteURL", optionalText(remoteURL)}});
}

AgentJSON auditJSON(const AuditLogEntry& entry) {
    return AgentJSON(AgentJSON::Object{{"id", entry.id},
                                       {"at", DateHelpers::isoString(entry.at)},
                                       {"actor", entry.actor},
                                       {"tool", entry.tool},
                                       {"argsSummary", entry.argsSummary},
                                       {"status", entry.status},
                                       {"detail", optionalText(entry.detail)},
                                       {"proposalId", optionalText(entry.proposalId)}});
}

AgentJSON activityRowJSON(const ActivityRow& row) {
    return AgentJSON(AgentJSON::Object{
        {"repoId", row.repoID},
        {"name", row.name},
        {"branch", row.branch},
        {"localPath", row.localPath},
        {"lastActivityAt", optionalDate(row.lastActivityAt)},
        {"lastWorkingTreeChangeAt", optionalDate(row.lastWorkingTreeChangeAt)},
        {"commitsToday", row.commitsToday},
        {"estimatedSecondsToday", row.estimatedSecondsToday},
        {"workedToday", row.workedToday},
        {"files", filesJSON(row.files)},
        {"ahead", row.ahead},
        {"behind", row.behind},
        {"hasRemote", row.hasRemote},
        {"statuses", statusList(row.statuses)},
        {"syncStatus", row.syncStatus ? nameOf(*row.syncStatus) : AgentJSON(nullptr)}});
}

// Neither the payload, the token nor what binds it: a token never leaves by a listing.
AgentJSON proposalJSON(const PendingProposal& proposal) {
    return AgentJSON(AgentJSON::Object{{"id", proposal.id},
                                       {"kind", nameOf(proposal.kind)},
                                       {"title", proposal.title},
                                       {"summary", proposal.summary},
                                       {"status", nameOf(proposal.status)},
                                       {"confidence", optionalInt(proposal.confidence)},
                                       {"evidence", textList(proposal.evidence)},
                                       {"createdAt", DateHelpers::isoString(proposal.createdAt)}});
}

AgentJSON todayLineJSON(const RepoTodayLine& line) {
    return AgentJSON(AgentJSON::Object{{"repoId", line.repoID},
                                       {"name", line.name},
                                       {"branch", line.branch},
                                       {"commitsToday", line.commitsToday},
                                       {"ahead", line.ahead},
                                       {"behind", line.behind},
                                       {"estimatedSeconds", line.estimatedSeconds},
                                       {"statuses", statusList(line.statuses)},
                                       {"files", filesJSON(line.files)},
                                       {"lastCommitAt", optionalDate(line.lastCommitAt)},
                                       {"workedInWindow", line.workedInWindow}});
}

AgentJSON todaySummaryJSON(const TodaySummary& summary) {
    AgentJSON::Array lines;
    for (const RepoTodayLine& line : summary.lines) lines.push_back(todayLineJSON(line));
    return AgentJSON(AgentJSON::Object{{"dateKey", summary.dateKey},
                                       {"activeProjects", summary.activeProjects},
                                       {"totalCommits", summary.totalCommits},
                                       {"needsPushCount", summary.needsPushCount},
                                       {"needsCommitCount", summary.needsCommitCount},
                                       {"behindCount", summary.behindCount},
                                       {"modifiedFiles", summary.modifiedFiles},
                                       {"stagedFiles", summary.stagedFiles},
                                       {"lines", std::move(lines)}});
}

AgentJSON weeklySummaryJSON(const WeeklySummary& summary) {
    AgentJSON::Array days;
    for (const DayBreakdown& day : summary.perDay) {
        days.emplace_back(AgentJSON::Object{{"dateKey", day.dateKey},
                                            {"weekday", day.weekday},
                                            {"projectCount", day.projectCount},
                                            {"commitCount", day.commitCount},
                                            {"seconds", day.seconds}});
    }
    AgentJSON::Array attention;
    for (const RepoTodayLine& line : summary.needsAttention) {
        attention.push_back(todayLineJSON(line));
    }
    AgentJSON::Array repos;
    for (const WeekRepoLine& line : summary.perRepo) {
        repos.emplace_back(AgentJSON::Object{{"repoId", line.repoID},
                                             {"name", line.name},
                                             {"localPath", line.localPath},
                                             {"commits", line.commits},
                                             {"seconds", line.seconds}});
    }
    return AgentJSON(AgentJSON::Object{{"weekKey", summary.weekKey},
                                       {"activeRepos", summary.activeRepos},
                                       {"totalCommits", summary.totalCommits},
                                       {"totalSeconds", summary.totalSeconds},
                                       {"mostActive", optionalText(summary.mostActive)},
                                       {"mostNeglected", optionalText(summary.mostNeglected)},
                                       {"perDay", std::move(days)},
                                       {"needsAttention", std::move(attention)},
                                       {"perRepo", std::move(repos)}});
}

// ---- What the store holds -------------------------------------------------------

// The configured repository `text` names: by id, by its configured path, or by a
// path that resolves to its id (so "~/code/app" finds it).
const RepoConfig* findRepo(const AppConfig& config, const std::string& text) {
    const bool isPath = text.starts_with('/') || text.starts_with('~');
    const std::string resolved = isPath ? PathHelpers::canonicalPath(text) : text;
    for (const RepoConfig& repo : config.repositories) {
        if (repo.id == text || repo.localPath == text || repo.id == resolved) return &repo;
    }
    return nullptr;
}

// The URL of the last scan, else the configured one: a failed scan knows none.
std::optional<std::string> remoteURLOf(const Store& store, const RepoConfig& repo) {
    std::optional<RepoSnapshot> snapshot = store.snapshot(repo.id);
    return snapshot && snapshot->remoteURL ? snapshot->remoteURL : repo.remoteURL;
}

std::optional<ProjectHealthSnapshot> newestHealth(const Store& store, const std::string& repoID) {
    std::vector<ProjectHealthSnapshot> records = store.health(repoID);
    if (records.empty()) return std::nullopt;
    return *std::max_element(records.begin(), records.end(), [](const auto& a, const auto& b) {
        return a.capturedAt < b.capturedAt;
    });
}

// A repository counts as mapped only through a link of kind `mapped`; the other
// kinds say why there is none.
bool isMappedLocal(const std::vector<RepositoryMapping>& mappings, const std::string& repoID) {
    return std::any_of(mappings.begin(), mappings.end(), [&](const RepositoryMapping& mapping) {
        return mapping.kind == RepositoryMapping::Kind::mapped && mapping.localRepoID == repoID;
    });
}

bool isMappedRemote(const std::vector<RepositoryMapping>& mappings, const std::string& remoteID) {
    return std::any_of(mappings.begin(), mappings.end(), [&](const RepositoryMapping& mapping) {
        return mapping.kind == RepositoryMapping::Kind::mapped && mapping.remoteRepoID == remoteID;
    });
}

// What is known of one repository. Absent parts are left out rather than null: the
// agent reads what is there. The status read leaves out the slower-moving health
// and mapping.
AgentJSON repositoryJSON(const Store& store, const RepoConfig& repo, bool statusOnly) {
    AgentJSON::Object result{
        {"repoId", repo.id}, {"name", displayNameOf(repo)}, {"localPath", repo.localPath}};
    if (std::optional<RepoSnapshot> snapshot = store.snapshot(repo.id)) {
        result.emplace("snapshot", snapshotJSON(*snapshot));
    }
    if (std::optional<SyncState> state = store.syncState(repo.id)) {
        result.emplace("syncState", syncJSON(*state));
    }
    if (std::optional<std::string> url = remoteURLOf(store, repo))
        result.emplace("remoteURL", *url);
    if (statusOnly) return AgentJSON(std::move(result));
    if (std::optional<ProjectHealthSnapshot> health = newestHealth(store, repo.id)) {
        result.emplace("health", healthJSON(*health));
    }
    const std::vector<RepositoryMapping> mappings = store.mappings();
    auto mapping = std::find_if(mappings.begin(), mappings.end(), [&](const auto& candidate) {
        return candidate.localRepoID == repo.id;
    });
    if (mapping != mappings.end()) result.emplace("mapping", mappingJSON(*mapping));
    return AgentJSON(std::move(result));
}

AgentJSON accountsJSON(const Store& store) {
    AgentJSON::Array items;
    for (const GitHubAccount& account : store.accounts()) {
        items.emplace_back(AgentJSON::Object{
            {"id", account.id},
            {"displayName", account.displayName},
            {"username", account.username},
            {"authType", nameOf(account.authType)},
            {"status", nameOf(account.status)},
            {"syncEnabled", account.syncEnabled},
            {"lastSyncAt", optionalDate(account.lastSyncAt)},
            {"remoteRepositoryCount", static_cast<int>(store.remoteRepos(account.id).size())}});
    }
    return AgentJSON(std::move(items));
}

AgentJSON remotesJSON(const std::vector<RemoteRepository>& remotes) {
    AgentJSON::Array items;
    for (const RemoteRepository& remote : remotes) items.push_back(remoteJSON(remote));
    return AgentJSON(std::move(items));
}

AgentJSON unmappedRemoteJSON(const Store& store) {
    const std::vector<RepositoryMapping> mappings = store.mappings();
    std::vector<RemoteRepository> remotes = store.remoteRepos(std::nullopt);
    std::erase_if(remotes, [&](const RemoteRepository& remote) {
        return isMappedRemote(mappings, remote.id);
    });
    return remotesJSON(remotes);
}

// The tracked repositories without a link. One with tracking off is left out: the
// mapper never looks at it, so it would stay here forever. `withoutRemoteOnly`
// keeps those that have no remote URL at all, the ones nothing could map.
AgentJSON unmappedLocalJSON(const Store& store, const AppConfig& config, bool withoutRemoteOnly) {
    const std::vector<RepositoryMapping> mappings = store.mappings();
    AgentJSON::Array items;
    for (const RepoConfig& repo : config.repositories) {
        if (!repo.trackingEnabled || isMappedLocal(mappings, repo.id)) continue;
        std::optional<std::string> url = remoteURLOf(store, repo);
        if (withoutRemoteOnly && url) continue;
        items.push_back(repoConfigJSON(repo, url));
    }
    return AgentJSON(std::move(items));
}

// Every status but `synced` asks for something: a push, a pull, a link, an account.
AgentJSON needsAttentionJSON(const Store& store) {
    AgentJSON::Array items;
    for (const SyncState& state : store.syncStates()) {
        if (state.status != SyncState::Status::synced) items.push_back(syncJSON(state));
    }
    return AgentJSON(std::move(items));
}

AgentJSON pendingMappingProposalsJSON(const Store& store) {
    AgentJSON::Array items;
    for (const PendingProposal& proposal : store.proposals(PendingProposal::Status::pending)) {
        if (proposal.kind == PendingProposal::Kind::mapping)
            items.push_back(proposalJSON(proposal));
    }
    return AgentJSON(std::move(items));
}

// The worst first: the overview is read for what needs care.
AgentJSON healthOverviewJSON(const Store& store, const AppConfig& config) {
    std::vector<ProjectHealthSnapshot> scored;
    for (const RepoConfig& repo : config.repositories) {
        if (std::optional<ProjectHealthSnapshot> health = newestHealth(store, repo.id)) {
            scored.push_back(std::move(*health));
        }
    }
    std::stable_sort(scored.begin(), scored.end(),
                     [](const auto& a, const auto& b) { return a.score < b.score; });
    AgentJSON::Array items;
    for (const ProjectHealthSnapshot& health : scored) {
        items.emplace_back(AgentJSON::Object{
            {"repoId", health.repoID},
            {"score", health.score},
            {"topConcern", health.reasonsNegative.empty() ? AgentJSON(nullptr)
                                                          : AgentJSON(health.reasonsNegative[0])}});
    }
    return AgentJSON(std::move(items));
}

AgentJSON branchOverviewJSON(const Store& store) {
    AgentJSON::Array items;
    for (const BranchRecord& branch : store.branches(std::nullopt)) {
        items.emplace_back(
            AgentJSON::Object{{"repoId", branch.repoID},
                              {"name", branch.name},
                              {"isLocal", branch.isLocal},
                              {"isRemote", branch.isRemote},
                              {"ahead", branch.aheadCount},
                              {"behind", branch.behindCount},
                              {"upstreamName", optionalText(branch.upstreamName)},
                              {"lastCommitSha", optionalText(branch.lastCommitSha)},
                              {"lastCommitDate", optionalDate(branch.lastCommitDate)}});
    }
    return AgentJSON(std::move(items));
}

// ---- Days and weeks -------------------------------------------------------------

TodaySummary summaryOn(const Store& store, const AppConfig& config, Date day, Date now) {
    Aggregator::DateRange range = Aggregator::dayRange(day);
    return Aggregator::summary(
        range.start, range.end, DateHelpers::dateKey(day), config.repositories, store.snapshots(),
        store.commitsBetween(range.start, range.end),
        Aggregator::sessionsEndingIn(store.sessions(std::nullopt, std::nullopt), range), now,
        Identity::of(config, store.snapshots()));
}

WeeklySummary weekOf(const Store& store, const AppConfig& config, Date day) {
    return Aggregator::weeklySummary(day, config.repositories,
                                     store.dayActivities(DateHelpers::dateKey(day - kWeekSeconds),
                                                         DateHelpers::dateKey(day + kWeekSeconds)),
                                     store.commitsBetween(day - kWeekSeconds, day + kWeekSeconds),
                                     Identity::of(config, store.snapshots()));
}

std::string dailyMarkdown(const Store& store, const AppConfig& config, Date day, Date now) {
    std::string dateKey = DateHelpers::dateKey(day);
    std::vector<DayActivity> dayRecords = store.dayActivities(dateKey);
    // What is left to do covers every repository, worked on that day or not: today as
    // the snapshots say, another day as its last scan left it.
    std::vector<RepoTodayLine> standings =
        dateKey == DateHelpers::dateKey(now)
            ? Aggregator::standings(config.repositories, store.snapshots(), now)
            : Aggregator::standingsAsRecorded(config.repositories, dayRecords);
    DailyReport report =
        Aggregator::dailyReport(day, summaryOn(store, config, day, now), store.journal(dateKey),
                                standings, store.branches(std::nullopt));
    report.scanRecorded = Aggregator::scanRecorded(dayRecords);
    // Newest first, as the store lists commits; grouping keeps it within each repository.
    Aggregator::DateRange range = Aggregator::dayRange(day);
    std::vector<CommitRecord> dayCommits = store.commitsBetween(range.start, range.end);
    std::stable_sort(
        dayCommits.begin(), dayCommits.end(),
        [](const CommitRecord& a, const CommitRecord& b) { return a.committedAt > b.committedAt; });
    return MarkdownReport::daily(
        report, config.repositories,
        Aggregator::countedCommits(dayCommits, range, Identity::of(config, store.snapshots()))
            .byRepo);
}

// ---- Reports of the tracker's own ----------------------------------------------

std::string bulletList(const std::vector<std::string>& items) {
    if (items.empty()) return "- none\n";
    std::string text;
    for (const std::string& item : items) text += "- " + item + "\n";
    return text;
}

// The links that are missing or broken, by why; the mapped ones are only counted.
std::string mappingReport(const std::vector<RepositoryMapping>& mappings,
                          const std::vector<RemoteRepository>& remotes, const AppConfig& config) {
    using Kind = RepositoryMapping::Kind;
    auto localSide = [&](const std::string& id) {
        const RepoConfig* repo = findRepo(config, id);
        return repo ? displayNameOf(*repo) + " (" + repo->localPath + ")" : id;
    };
    auto remoteSide = [&](const std::string& id) {
        for (const RemoteRepository& remote : remotes) {
            if (remote.id == id) return remote.fullName + " (" + remote.accountID + ")";
        }
        return id;
    };
    int mapped = 0;
    std::map<Kind, std::vector<std::string>> lines;
    for (const RepositoryMapping& mapping : mappings) {
        if (mapping.kind == Kind::mapped) {
            ++mapped;
            continue;
        }
        std::string line;
        if (mapping.localRepoID) line = localSide(*mapping.localRepoID);
        if (mapping.remoteRepoID) {
            line += (line.empty() ? "" : " → ") + remoteSide(*mapping.remoteRepoID);
        }
        lines[mapping.kind].push_back(line.empty() ? mapping.id : line);
    }
    std::string text = fmt::format("# Mapping Report\n\n- Mapped: **{}**\n\n", mapped);
    const std::pair<Kind, const char*> sections[] = {
        {Kind::remoteOnly, "Remote only"},
        {Kind::accountMismatch, "Account mismatch"},
        {Kind::localOnly, "Local only"},
        {Kind::remoteInaccessible, "Remote inaccessible"}};
    for (const auto& [kind, title] : sections) {
        text += fmt::format("## {} ({})\n\n", title, lines[kind].size());
        text += bulletList(lines[kind]) + "\n";
    }
    return text;
}

std::string healthReport(const std::string& name, const ProjectHealthSnapshot& health) {
    return fmt::format(
        "# Project Health — {}\n\nScore: **{}**/100\n\n## Strengths\n\n{}\n"
        "## Concerns\n\n{}",
        name, health.score, bulletList(health.reasonsPositive), bulletList(health.reasonsNegative));
}

// ---- Remote repositories --------------------------------------------------------

// The remotes `text` names, at the first of these that names any: the full id; its
// "owner/name", in any case or read from a GitHub URL (one per account that holds
// it); a bare name. More than one means the text is ambiguous.
std::vector<RemoteRepository> remotesNamed(const std::vector<RemoteRepository>& remotes,
                                           const std::string& text) {
    auto where = [&](auto&& matches) {
        std::vector<RemoteRepository> found;
        std::copy_if(remotes.begin(), remotes.end(), std::back_inserter(found), matches);
        return found;
    };
    std::vector<RemoteRepository> found =
        where([&](const RemoteRepository& remote) { return remote.id == text; });
    if (!found.empty()) return found;

    std::string ownerName = text;
    if (auto parsed = RepoMapper::ownerRepo(text)) ownerName = parsed->first + "/" + parsed->second;
    const std::string wanted = Text::asciiLower(ownerName);
    found = where([&](const RemoteRepository& remote) {
        return Text::asciiLower(remote.owner + "/" + remote.name) == wanted;
    });
    if (!found.empty() || text.find('/') != std::string::npos) return found;

    return where(
        [&](const RemoteRepository& remote) { return Text::asciiLower(remote.name) == wanted; });
}

// ---- Git ------------------------------------------------------------------------

// Where git must stop looking upwards for a repository: the parent of the outermost
// allowed root holding `path`, so that a folder inside a root never reads a
// repository that encloses the root. Nothing when that root is "/".
std::optional<std::string> gitCeiling(const std::string& path,
                                      const std::vector<std::string>& roots) {
    std::optional<std::string> outermost;
    for (const std::string& root : roots) {
        const std::string base = AgentService::canonical(root);
        if (base.empty() || !AgentService::isInsideAllowedRoot(path, {base})) continue;
        if (!outermost || base.size() < outermost->size()) outermost = base;
    }
    if (!outermost || *outermost == "/") return std::nullopt;
    return std::filesystem::path(*outermost).parent_path().string();
}

// The lines of a git answer, split on "\n" alone: a folder's name may hold any
// other byte, and must be compared as it is.
std::vector<std::string> answerLines(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    std::vector<std::string> lines;
    for (;;) {
        const size_t end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) return lines;
        text.remove_prefix(end + 1);
    }
}

struct GitRemote {
    std::string name;
    std::optional<std::string> fetchURL;
    std::optional<std::string> pushURL;
};

// `git remote -v`: "name<TAB>url (fetch)" and "name<TAB>url (push)", in git's order.
std::vector<GitRemote> parseRemotes(std::string_view listing) {
    std::vector<GitRemote> remotes;
    for (std::string_view line : Text::nonEmptyLines(listing)) {
        size_t tab = line.find('\t');
        size_t open = line.rfind(" (");
        if (tab == std::string_view::npos || open == std::string_view::npos || open < tab) continue;
        std::string name(line.substr(0, tab));
        // An address may carry a token: the agent gets it without.
        std::string url = RemoteURL::withoutCredentials(line.substr(tab + 1, open - tab - 1));
        std::string_view kind = line.substr(open);
        auto it = std::find_if(remotes.begin(), remotes.end(),
                               [&](const GitRemote& remote) { return remote.name == name; });
        if (it == remotes.end()) it = remotes.insert(remotes.end(), GitRemote{name, {}, {}});
        (kind == " (push)" ? it->pushURL : it->fetchURL) = std::move(url);
    }
    return remotes;
}

AgentJSON ownerRepoJSON(const std::optional<std::string>& url) {
    if (!url) return AgentJSON(nullptr);
    std::optional<std::pair<std::string, std::string>> parsed = RepoMapper::ownerRepo(*url);
    return parsed ? AgentJSON(parsed->first + "/" + parsed->second) : AgentJSON(nullptr);
}

AgentJSON commitJSON(const CommitRecord& commit) {
    return AgentJSON(
        AgentJSON::Object{{"sha", commit.sha},
                          {"shortSha", commit.shortSha},
                          {"message", commit.message},
                          {"author", commit.authorName},
                          {"email", commit.authorEmail},
                          {"committedAt", DateHelpers::isoString(commit.committedAt)}});
}

}  // namespace

AgentResult AgentService::listAccounts(const Call& call) {
    return ok(call, accountsJSON(store_));
}

AgentResult AgentService::listRemoteRepositories(const Call& call) {
    OptionalArg<std::string> account = optionalArg<std::string>(call.args, "accountId");
    if (account.problem) return refuse(call, *account.problem);
    return ok(call, remotesJSON(store_.remoteRepos(account.value)));
}

AgentResult AgentService::listLocalRepositories(const Call& call) {
    return ok(call, localRepositories(call.config));
}

AgentResult AgentService::getRepository(const Call& call) {
    return repositoryAnswer(call, false);
}

AgentResult AgentService::getRepositoryStatus(const Call& call) {
    return repositoryAnswer(call, true);
}

AgentResult AgentService::getUnmappedRemote(const Call& call) {
    return ok(call, unmappedRemoteJSON(store_));
}

AgentResult AgentService::getDailySummary(const Call& call) {
    return forDay(call, [&](Date day) {
        return ok(call, todaySummaryJSON(summaryOn(store_, call.config, day, clock_.now())));
    });
}

AgentResult AgentService::getWeeklySummary(const Call& call) {
    return forDay(call, [&](Date day) {
        return ok(call, weeklySummaryJSON(weekOf(store_, call.config, day)));
    });
}

AgentResult AgentService::getSettings(const Call& call) {
    return ok(call, settingsResource(call.config));
}

AgentResult AgentService::getHealthOverview(const Call& call) {
    return ok(call, healthOverviewJSON(store_, call.config));
}

AgentResult AgentService::getBranchOverview(const Call& call) {
    return ok(call, branchOverviewJSON(store_));
}

AgentResult AgentService::generateDailyReport(const Call& call) {
    return forDay(call, [&](Date day) {
        return ok(call, AgentJSON(AgentJSON::Object{
                            {"markdown", dailyMarkdown(store_, call.config, day, clock_.now())}}));
    });
}

AgentResult AgentService::generateWeeklyReport(const Call& call) {
    return forDay(call, [&](Date day) {
        return ok(call, AgentJSON(AgentJSON::Object{{"markdown", MarkdownReport::weekly(weekOf(
                                                                     store_, call.config, day))}}));
    });
}

AgentResult AgentService::generateMappingReport(const Call& call) {
    return ok(call,
              AgentJSON(AgentJSON::Object{
                  {"markdown", mappingReport(store_.mappings(), store_.remoteRepos(std::nullopt),
                                             call.config)}}));
}

AgentJSON AgentService::settingsResource(const AppConfig& config) const {
    return AgentJSON(AgentJSON::Object{
        {"scanFolders", textList(config.scanFolders)},
        {"scanIntervalMinutes", config.scanIntervalMinutes},
        {"autoTrackNewRepos", config.autoTrackNewRepos},
        {"dailyReviewTime", config.dailyReviewTime},
        {"theme", std::string(enumName(config.theme))},
        {"mapping", AgentJSON::Object{{"autoMapByURL", config.mapping.autoMapByURL},
                                      {"defaultCloneFolder", config.mapping.defaultCloneFolder}}},
        {"agent",
         AgentJSON::Object{{"enabled", config.agent.enabled},
                           {"permissionLevel", std::string(enumName(config.agent.permissionLevel))},
                           {"allowedRoots", textList(config.agent.allowedRoots)},
                           {"maxScanDepth", config.agent.maxScanDepth},
                           {"requireGuiConfirmation", config.agent.requireGuiConfirmation}}},
        {"repositoryCount", static_cast<int>(config.repositories.size())}});
}

AgentJSON AgentService::localRepositories(const AppConfig& config) const {
    AgentJSON::Array repos;
    for (const RepoConfig& repo : config.repositories) {
        repos.push_back(repoConfigJSON(repo, remoteURLOf(store_, repo)));
    }
    return AgentJSON(std::move(repos));
}

AgentJSON AgentService::auditLog(std::optional<size_t> limit) const {
    AgentJSON::Array entries;
    for (const AuditLogEntry& entry : store_.auditEntries(limit)) {
        entries.push_back(auditJSON(entry));
    }
    return AgentJSON(std::move(entries));
}

AgentResult AgentService::getAuditLog(const Call& call) {
    std::optional<size_t> limit = countArg(call.args, "limit", kDefaultAuditLimit);
    if (!limit) return refuse(call, "error", "bad limit", "invalid_params", kBadLimitHint);
    return ok(call, auditLog(*limit));
}

AgentResult AgentService::getProposalStatus(const Call& call) {
    std::optional<std::string> id = textArg(call.args, "proposalId");
    if (!id || id->empty()) {
        return refuse(call, "error", "missing proposalId", "not_found", "missing proposalId");
    }
    std::optional<PendingProposal> proposal = store_.proposal(*id);
    if (!proposal) {
        return refuse(call, "error", "proposal not found", "not_found", "proposal not found");
    }
    AgentJSON::Object result{{"proposalId", proposal->id},
                             {"kind", std::string(enumName(proposal->kind))},
                             {"title", proposal->title},
                             {"status", std::string(enumName(proposal->status))},
                             {"intendedTool", optionalText(proposal->intendedTool)}};
    if (proposal->status != PendingProposal::Status::approved || !proposal->confirmationToken) {
        return ok(call, AgentJSON(std::move(result)));
    }
    // The agent's way to the token without the person typing it; the log says it
    // left, never what it is.
    result.emplace("confirmationToken", *proposal->confirmationToken);
    if (proposal->expiresAt)
        result.emplace("expiresAt", DateHelpers::isoString(*proposal->expiresAt));
    const std::string boundTo =
        proposal->intendedTool ? *proposal->intendedTool : std::string(enumName(proposal->kind));
    audit(call.tool, call.args, "token_disclosed", "token handed to caller for " + boundTo,
          proposal->id);
    return AgentResult::success(AgentJSON(std::move(result)).serialized());
}

AgentResult AgentService::listPendingProposals(const Call& call) {
    std::optional<PendingProposal::Status> status;
    if (auto it = call.args.find("status"); it != call.args.end()) {
        const std::string text = it->is_string() ? it->get<std::string>() : it->dump();
        status = enumFromName<PendingProposal::Status>(text);
        if (!status) {
            return refuse(call, "error", "unknown status", "invalid_params",
                          "unknown status `" + text + "`");
        }
    }
    AgentJSON::Array items;
    for (const PendingProposal& proposal : store_.proposals(status)) {
        items.emplace_back(
            AgentJSON::Object{{"proposalId", proposal.id},
                              {"kind", std::string(enumName(proposal.kind))},
                              {"title", proposal.title},
                              {"status", std::string(enumName(proposal.status))},
                              {"createdAt", DateHelpers::isoString(proposal.createdAt)}});
    }
    return ok(call, AgentJSON(std::move(items)));
}

// ---- Repositories ---------------------------------------------------------------

AgentResult AgentService::repositoryAnswer(const Call& call, bool statusOnly) {
    std::optional<std::string> id = textArg(call.args, "repoId");
    if (!id || id->empty()) {
        return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    }
    const RepoConfig* repo = findRepo(call.config, *id);
    if (!repo) return refuse(call, "error", "repo not found", "not_found", "repo not found");
    return ok(call, repositoryJSON(store_, *repo, statusOnly));
}

AgentResult AgentService::getRepositoriesStatus(const Call& call) {
    auto ids = call.args.find("repoIds");
    if (ids == call.args.end() || !ids->is_array()) {
        return refuse(call, "error", "missing repoIds", "not_found", "missing repoIds");
    }
    // One unknown id among known ones still answers for the known ones, with the
    // unknown one marked where it stood.
    AgentJSON::Array items;
    for (const Json& id : *ids) {
        const RepoConfig* repo =
            id.is_string() ? findRepo(call.config, id.get<std::string>()) : nullptr;
        if (repo) {
            items.push_back(repositoryJSON(store_, *repo, true));
        } else {
            items.emplace_back(AgentJSON::Object{{"repoId", AgentJSON::fromJson(id)},
                                                 {"error", "repo not found"}});
        }
    }
    return ok(call, AgentJSON(std::move(items)));
}

AgentResult AgentService::getUnmappedLocal(const Call& call) {
    OptionalArg<bool> withoutRemoteOnly = optionalArg<bool>(call.args, "withoutRemoteOnly");
    if (withoutRemoteOnly.problem) return refuse(call, *withoutRemoteOnly.problem);
    return ok(call,
              unmappedLocalJSON(store_, call.config, withoutRemoteOnly.value.value_or(false)));
}

// The mapping proposals for one remote that still wait on the person (pending, or
// approved and not yet applied), at or above the confidence asked for.
AgentResult AgentService::getMappingCandidates(const Call& call) {
    std::optional<std::string> text = textArg(call.args, "remoteRepoId");
    if (!text || text->empty()) {
        return refuse(call, "error", "missing remoteRepoId", "not_found",
                      "`remoteRepoId` is required");
    }
    OptionalArg<double> minConfidenceGiven = minConfidenceArg(call.args);
    if (minConfidenceGiven.problem) return refuse(call, *minConfidenceGiven.problem);
    const double minConfidence = minConfidenceGiven.value.value_or(kDefaultMinConfidence);
    std::optional<RemoteRepository> remote = resolveRemote(*text);
    if (!remote) {
        return refuse(call, "error", "remote not found", "not_found", remoteNotFoundHint(*text));
    }
    AgentJSON::Array items;
    for (const PendingProposal& proposal : store_.proposals(std::nullopt)) {
        if (proposal.kind != PendingProposal::Kind::mapping) continue;
        if (proposal.status != PendingProposal::Status::pending &&
            proposal.status != PendingProposal::Status::approved) {
            continue;
        }
        const Json payload = parseArgs(proposal.payloadJSON);
        if (textArg(payload, "remoteRepoId") != remote->id) continue;
        if (proposal.confidence.value_or(0) < minConfidence) continue;
        auto local = payload.find("localRepoId");
        items.emplace_back(
            AgentJSON::Object{{"proposalId", proposal.id},
                              {"remoteRepoId", remote->id},
                              {"localRepoId", local == payload.end() ? AgentJSON(nullptr)
                                                                     : AgentJSON::fromJson(*local)},
                              {"confidence", optionalInt(proposal.confidence)},
                              {"evidence", textList(proposal.evidence)},
                              {"title", proposal.title},
                              {"status", nameOf(proposal.status)}});
    }
    return ok(call, AgentJSON(std::move(items)));
}

AgentResult AgentService::getActivityRanking(const Call& call) {
    using Order = Aggregator::RankingOrder;
    Order order = Order::workedTodayFirst;
    if (auto it = call.args.find("sort"); it != call.args.end()) {
        const std::string sort = it->is_string() ? it->get<std::string>() : it->dump();
        static const std::map<std::string, Order> kOrders = {
            {"workedTodayFirst", Order::workedTodayFirst},
            {"lastActivity", Order::pureRecency},
            {"lastWorkingTreeChangeAt", Order::workingTreeChange}};
        auto found = kOrders.find(sort);
        if (found == kOrders.end()) {
            return refuse(call, "error", "unknown sort", "invalid_params",
                          "unknown sort `" + sort +
                              "`; use workedTodayFirst, lastActivity or lastWorkingTreeChangeAt");
        }
        order = found->second;
    }
    std::optional<size_t> limit = countArg(call.args, "limit", kDefaultRankingLimit);
    if (!limit) return refuse(call, "error", "bad limit", "invalid_params", kBadLimitHint);
    OptionalArg<bool> workedTodayOnly = optionalArg<bool>(call.args, "workedTodayOnly");
    if (workedTodayOnly.problem) return refuse(call, *workedTodayOnly.problem);

    const Date now = clock_.now();
    const Aggregator::DateRange today = Aggregator::dayRange(now);
    std::vector<ActivityRow> rows = Aggregator::activityRanking(
        now, call.config.repositories, store_.snapshots(),
        store_.commitsBetween(today.start, today.end),
        Aggregator::sessionsEndingIn(store_.sessions(std::nullopt, std::nullopt), today),
        store_.syncStates(), now, order, Identity::of(call.config, store_.snapshots()));
    if (workedTodayOnly.value.value_or(false)) {
        std::erase_if(rows, [](const ActivityRow& row) { return !row.workedToday; });
    }
    AgentJSON::Array items;
    for (size_t i = 0; i < rows.size() && i < *limit; ++i)
        items.push_back(activityRowJSON(rows[i]));
    return ok(call, AgentJSON(std::move(items)));
}

// ---- Refreshing the tracker's own data ------------------------------------------

AgentResult AgentService::rescanNow(const Call& call) {
    std::vector<std::string> added = env_.rescanNow();
    AgentJSON::Object result{{"newlyTracked", textList(added)},
                             {"newlyTrackedCount", static_cast<int>(added.size())}};
    return ok(call, AgentJSON(std::move(result)), "newRepos=" + std::to_string(added.size()));
}

AgentResult AgentService::syncRemoteInventory(const Call& call) {
    if (store_.accounts().empty()) {
        return refuse(call, "error", "no account", "not_found", kNoAccountHint);
    }
    RemoteSyncSummary summary = env_.syncNow(false);
    // A sync that reached no account failed; one that reached some answers with the
    // others' errors. A token problem wins over the rate limit: waiting cures the
    // limit, only the person can cure the token. Other causes (the network, a
    // server) have no code of their own and are answered with their error lines.
    const bool nothingSynced = summary.accountsSynced == 0 && summary.accountsFailed > 0;
    if (nothingSynced && (summary.tokenFailures > 0 || summary.rateLimitFailures > 0)) {
        std::string errors;
        for (const std::string& line : summary.errors)
            errors += (errors.empty() ? "" : "; ") + line;
        return refuse(call, "error", "sync failed: " + errors,
                      summary.tokenFailures > 0 ? "invalid_token" : "rate_limited",
                      "GitHub sync failed: " + errors);
    }
    AgentJSON::Object result{{"accountsSynced", summary.accountsSynced},
                             {"accountsFailed", summary.accountsFailed},
                             {"remoteRepositories", summary.remoteRepos},
                             {"mappedRepositories", summary.mappedRepos},
                             {"syncedAt", optionalDate(summary.syncedAt)},
                             {"errors", textList(summary.errors)},
                             {"skipped", summary.skipped},
                             {"skippedReason", optionalText(summary.skippedReason)}};
    return ok(call, AgentJSON(std::move(result)),
              fmt::format("accounts={} remotes={} mapped={}", summary.accountsSynced,
                          summary.remoteRepos, summary.mappedRepos));
}

// ---- Git reads ------------------------------------------------------------------

ShellResult AgentService::readGit(const std::string& path, std::vector<std::string> arguments,
                                  double timeout) const {
    return runner_.run(GitCommand::request(path, std::move(arguments), timeout));
}

AgentService::GitTarget AgentService::gitRepositoryAt(const Call& call) {
    // The dispatcher checked the path against the allowed roots as it resolves; git
    // is pointed at that same resolved folder.
    const std::string path = canonical(*textArg(call.args, "path"));
    const std::vector<std::string>& roots = call.config.agent.allowedRoots;
    std::optional<std::string> ceiling = gitCeiling(path, roots);
    auto probe = [&](std::vector<std::string> arguments) {
        ProcessRequest request = GitCommand::request(path, std::move(arguments), kGitTimeout);
        if (ceiling) request.environment.emplace_back("GIT_CEILING_DIRECTORIES", *ceiling);
        return runner_.run(request);
    };
    // Found from here, a repository may still keep what git reads elsewhere: a
    // ".git" file names its git folder, a linked worktree shares the common folder
    // of its main repository (history, branches, remotes), and core.worktree moves
    // the work tree. Each must lie inside the roots too.
    std::vector<std::string> folders = {"rev-parse", "--path-format=absolute", "--git-dir",
                                        "--git-common-dir"};
    std::vector<std::string> withWorkTree = folders;
    withWorkTree.emplace_back("--show-toplevel");
    ShellResult found = probe(withWorkTree);
    size_t expected = 3;
    if (!found.succeeded()) {
        // A bare repository, or a folder inside a git folder, has no work tree.
        found = probe(folders);
        expected = 2;
    }
    if (!found.succeeded()) return {};
    const std::vector<std::string> read = answerLines(found.stdOut);
    // A folder name holding a line end cannot be told apart from two: not read.
    const bool inside =
        read.size() == expected && std::all_of(read.begin(), read.end(), [&](const auto& folder) {
            return isInsideAllowedRoot(folder, roots);
        });
    // Once git found the repository from here without climbing past the root, the
    // reads after it find the same one: the nearest repository upwards.
    if (!inside) return {std::nullopt, true};
    return {path, false};
}

AgentResult AgentService::readGitRemote(const Call& call) {
    const GitTarget target = gitRepositoryAt(call);
    if (target.outsideRoots) return refuseOutsideRoots(call, "repository outside allowedRoots");
    const std::optional<std::string>& path = target.path;
    ShellResult listing;
    if (path) listing = readGit(*path, {"remote", "-v"}, kGitTimeout);
    if (!path || !listing.succeeded()) {
        return refuse(call, "error", "not a git repo", "not_found", "not a git repo");
    }
    AgentJSON::Array remotes;
    for (const GitRemote& remote : parseRemotes(listing.stdOut)) {
        remotes.emplace_back(AgentJSON::Object{{"name", remote.name},
                                               {"fetchURL", optionalText(remote.fetchURL)},
                                               {"pushURL", optionalText(remote.pushURL)},
                                               {"ownerRepo", ownerRepoJSON(remote.fetchURL)}});
    }
    return ok(call, AgentJSON(AgentJSON::Object{{"path", *path}, {"remotes", std::move(remotes)}}));
}

AgentResult AgentService::readGitBranches(const Call& call) {
    const GitTarget target = gitRepositoryAt(call);
    if (target.outsideRoots) return refuseOutsideRoots(call, "repository outside allowedRoots");
    const std::optional<std::string>& path = target.path;
    if (!path) return refuse(call, "error", "not a git repo", "not_found", "not a git repo");
    AgentJSON::Array branches;
    for (const LocalBranchInfo& branch : GitScanner(runner_, clock_).localBranches(*path)) {
        branches.emplace_back(AgentJSON::Object{{"name", branch.name},
                                                {"upstream", optionalText(branch.upstream)},
                                                {"ahead", branch.ahead},
                                                {"behind", branch.behind},
                                                {"lastSha", optionalText(branch.lastSha)},
                                                {"lastCommitAt", optionalDate(branch.lastDate)}});
    }
    return ok(call,
              AgentJSON(AgentJSON::Object{{"path", *path}, {"branches", std::move(branches)}}));
}

AgentResult AgentService::readGitCommits(const Call& call) {
    std::optional<size_t> limit = countArg(call.args, "limit", kDefaultCommitLimit);
    if (!limit) return refuse(call, "error", "bad limit", "invalid_params", kBadLimitHint);
    const GitTarget target = gitRepositoryAt(call);
    if (target.outsideRoots) return refuseOutsideRoots(call, "repository outside allowedRoots");
    const std::optional<std::string>& path = target.path;
    if (!path) return refuse(call, "error", "not a git repo", "not_found", "not a git repo");
    // NUL-separated fields, so no subject or author name can forge the next field.
    ShellResult log = readGit(*path,
                              {"log", "-z", "-n", std::to_string(std::min(*limit, kMaxCommitLimit)),
                               GitParsing::kCommitFormat},
                              kGitLogTimeout);
    AgentJSON::Array commits;
    if (log.succeeded()) {
        for (const CommitRecord& commit : GitParsing::commits(log.stdOut, *path, "")) {
            commits.push_back(commitJSON(commit));
        }
    } else if (readGit(*path, {"rev-parse", "-q", "--verify", "HEAD"}, kGitTimeout).succeeded()) {
        // A repository with a commit whose history git cannot read.
        return refuse(call, "error", "not a git repo", "not_found", "not a git repo");
    }
    // Otherwise nothing is committed yet: a new repository's history is empty.
    return ok(call, AgentJSON(AgentJSON::Object{{"path", *path}, {"commits", std::move(commits)}}));
}

AgentResult AgentService::readGitStatus(const Call& call) {
    const GitTarget target = gitRepositoryAt(call);
    if (target.outsideRoots) return refuseOutsideRoots(call, "repository outside allowedRoots");
    const std::optional<std::string>& path = target.path;
    std::optional<std::string> porcelain;
    if (path) porcelain = GitScanner(runner_, clock_).porcelainStatus(*path, false);
    // A bare repository has no work tree to report on.
    if (!porcelain) return refuse(call, "error", "not a git repo", "not_found", "not a git repo");
    GitFileCounts files = GitParsing::fileCounts(*porcelain, false);
    return ok(call,
              AgentJSON(AgentJSON::Object{
                  {"path", *path}, {"files", filesJSON(files)}, {"isDirty", files.total() > 0}}));
}

// ---- Reports --------------------------------------------------------------------

AgentResult AgentService::forDay(const Call& call, const std::function<AgentResult(Date)>& tool) {
    // A day that cannot be read is refused rather than taken as today: the wrong
    // day's report would look right.
    for (const char* key : {"date", "day"}) {
        auto it = call.args.find(key);
        if (it == call.args.end()) continue;
        std::optional<Date> day =
            it->is_string() ? DateHelpers::parseDateKey(it->get<std::string>()) : std::nullopt;
        if (!day) {
            return refuse(call, "error", "bad date", "invalid_params",
                          std::string("`") + key + "` must be a day, yyyy-MM-dd");
        }
        return tool(*day);
    }
    return tool(clock_.now());
}

AgentResult AgentService::generateHealthReport(const Call& call) {
    std::optional<std::string> id = textArg(call.args, "repoId");
    if (!id || id->empty())
        return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    const RepoConfig* repo = findRepo(call.config, *id);
    std::optional<ProjectHealthSnapshot> health = newestHealth(store_, repo ? repo->id : *id);
    if (!health) {
        return refuse(call, "error", "no health snapshot", "not_found", "no health snapshot");
    }
    // A repository no longer configured keeps its score; its folder's name stands in.
    const std::string name =
        repo ? displayNameOf(*repo) : std::filesystem::path(*id).filename().string();
    return ok(call, AgentJSON(AgentJSON::Object{{"markdown", healthReport(name, *health)},
                                                {"score", health->score}}));
}

// Written where the report command writes: "daily-<day>.md" or "weekly-<Monday>.md"
// in the reports folder, replaced whole, readable by the user alone.
AgentResult AgentService::exportReportMarkdown(const Call& call) {
    std::string kind = "daily";
    if (auto it = call.args.find("kind"); it != call.args.end()) {
        kind = it->is_string() ? it->get<std::string>() : it->dump();
    }
    if (kind != "daily" && kind != "weekly") {
        return refuse(call, "error", "bad kind", "invalid_params",
                      "kind must be \"daily\" or \"weekly\"");
    }
    return forDay(call, [&](Date day) {
        std::string fileName;
        std::string text;
        if (kind == "daily") {
            fileName = "daily-" + DateHelpers::dateKey(day) + ".md";
            text = dailyMarkdown(store_, call.config, day, clock_.now());
        } else {
            WeeklySummary week = weekOf(store_, call.config, day);
            fileName = "weekly-" + week.weekKey + ".md";
            text = MarkdownReport::weekly(week);
        }
        try {
            std::filesystem::path written =
                ReportExport::saveText(ReportExport::defaultBaseDir(), fileName, text);
            return ok(call, AgentJSON(AgentJSON::Object{{"path", written.string()}}),
                      "wrote " + written.string());
        } catch (const ReportExport::ReportExportError& error) {
            return refuse(call, "error", "write failed", "not_found",
                          std::string("write failed: ") + error.what());
        }
    });
}

// ---- Resources and remote look-ups ----------------------------------------------

AgentResult AgentService::handleResourceRead(const Call& call) {
    std::optional<std::string> uri = textArg(call.args, "uri");
    if (!uri) return refuse(call, "error", "missing uri", "not_found", "`uri` required");
    const AppConfig& config = call.config;
    // Exact names only: a known name with anything after it is another resource.
    if (*uri == "quorvane://repositories/local") return ok(call, localRepositories(config));
    if (*uri == "quorvane://repositories/remote") {
        return ok(call, remotesJSON(store_.remoteRepos(std::nullopt)));
    }
    if (*uri == "quorvane://repositories/unmapped") {
        return ok(call,
                  AgentJSON(AgentJSON::Object{{"local", unmappedLocalJSON(store_, config, false)},
                                              {"remote", unmappedRemoteJSON(store_)}}));
    }
    if (*uri == "quorvane://repositories/needs-attention") {
        return ok(call, needsAttentionJSON(store_));
    }
    if (*uri == "quorvane://mappings/candidates") {
        return ok(call, pendingMappingProposalsJSON(store_));
    }
    if (*uri == "quorvane://reports/today") {
        const Date now = clock_.now();
        return ok(call, todaySummaryJSON(summaryOn(store_, config, now, now)));
    }
    if (*uri == "quorvane://reports/week") {
        return ok(call, weeklySummaryJSON(weekOf(store_, config, clock_.now())));
    }
    if (*uri == "quorvane://settings") return ok(call, settingsResource(config));
    if (*uri == "quorvane://audit-log") return ok(call, auditLog(kDefaultAuditLimit));
    return refuse(call, "error", "unknown uri " + *uri, "not_found",
                  "unknown resource `" + *uri + "`");
}

std::optional<RemoteRepository> AgentService::resolveRemote(const std::string& text) const {
    std::vector<RemoteRepository> found = remotesNamed(store_.remoteRepos(std::nullopt), text);
    if (found.size() != 1) return std::nullopt;
    return found.front();
}

std::string AgentService::remoteNotFoundHint(const std::string& text) const {
    const std::vector<RemoteRepository> remotes = store_.remoteRepos(std::nullopt);
    std::set<std::string> accounts;
    for (const RemoteRepository& remote : remotesNamed(remotes, text)) {
        accounts.insert(remote.accountID);
    }
    if (accounts.size() > 1) {
        return "`" + text +
               "` matches repositories on more than one account — pass the full "
               "`<accountId>:<owner>/<name>` id from `list_remote_repositories`";
    }
    if (remotes.empty()) {
        return "the GitHub inventory is empty — run `sync_remote_inventory_now` first, then "
               "look `" +
               text + "` up with `list_remote_repositories`";
    }
    return "no remote matches `" + text + "` — list them with `list_remote_repositories`";
}

}  // namespace quorvane
