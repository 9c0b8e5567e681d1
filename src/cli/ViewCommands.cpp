// The views of the command line: today, sessions, week, heatmap, ranking and
// insights. Each reads the data folder without the writer lock and prints either a
// table for a person or the record itself as JSON.
#include <algorithm>
#include <array>
#include <ctime>
#include <map>
#include <ostream>
#include <span>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/AppEnvironment.hpp"
#include "app/Queries.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/Commands.hpp"
#include "cli/ControlClient.hpp"
#include "cli/Style.hpp"
#include "persistence/DataFolderLock.hpp"
#include "persistence/PauseMarker.hpp"
#include "persistence/Store.hpp"
#include "platform/DesktopNotifier.hpp"
#include "platform/InterruptWatch.hpp"
#include "screens/AttentionViewModel.hpp"
#include "screens/DaysViewModels.hpp"
#include "screens/StatusBarViewModel.hpp"

namespace quorvane::Commands {

// The heatmap's default length and the most it draws: a year, and ten.
inline constexpr int kDefaultHeatmapDays = 365;
inline constexpr int kMaxHeatmapDays = 3660;

struct SessionsOptions {
    std::optional<Date> day;
    std::optional<std::string> repo;  // id or path; all repositories when absent
    bool json = false;
};

namespace {

namespace fs = std::filesystem;

// What every view starts from: the configuration and the store as they are on disk.
struct View {
    AppConfig config;
    Store store;
    Date now;
    // False, with the reason on stderr, when either could not be read: the view would
    // show nothing tracked, or nothing recorded, where there is.
    bool readable = false;

    explicit View(const CommandContext& context)
        : store(context.dataDir, context.clock, Store::Access::readOnly), now(context.clock.now()) {
        std::optional<AppConfig> read = readConfig(context);
        if (!read) return;
        config = std::move(*read);
        readable = loadForReading(context, store);
    }
};

// "1h 05m", "12m"; work under a minute shows as "<1m" so that it is not mistaken for none.
std::string duration(int seconds) {
    if (seconds <= 0) return "0m";
    if (seconds < 60) return "<1m";
    int minutes = seconds / 60;
    if (minutes < 60) return fmt::format("{}m", minutes);
    return fmt::format("{}h {:02}m", minutes / 60, minutes % 60);
}

// A table cell for time worked: a dash rather than "0m" keeps idle rows quiet.
std::string durationCell(int seconds) {
    return seconds > 0 ? duration(seconds) : "-";
}

std::string countCell(int count) {
    return count > 0 ? std::to_string(count) : "-";
}

// The words of a repository's labels and, once a sync has run, of its standing
// against GitHub, as the store holds them now.
RepoStanding::Description describe(const Store& store, const std::string& repoID,
                                   const std::vector<RepoStatus>& labels) {
    std::optional<RepoSnapshot> snapshot = store.snapshot(repoID);
    std::optional<SyncState> sync = store.syncState(repoID);
    return RepoStanding::describe(labels, snapshot ? &*snapshot : nullptr, sync ? &*sync : nullptr);
}

// GitHub's column: "-" for a repository no sync has looked at.
std::string githubCell(const CommandContext& context, const Store& store, const std::string& repoID,
                       const RepoStanding::Description& description) {
    if (!store.syncState(repoID)) return "-";
    return Style::paint(context, RepoStanding::word(description.github));
}

// The clock time alone on the reference day, the date too on any other.
std::string moment(Date date, Date day) {
    if (DateHelpers::dateKey(date) == DateHelpers::dateKey(day)) return localClockTime(date);
    return DateHelpers::dateKey(date) + " " + localClockTime(date);
}

std::string momentCell(std::optional<Date> date, Date day) {
    return date ? moment(*date, day) : "-";
}

std::string branchCell(const std::string& branch) {
    return branch.empty() ? "(detached)" : Text::visible(branch);
}

// Display names by repository id; a repository no longer configured goes by its folder.
class RepoNames {
public:
    explicit RepoNames(const AppConfig& config) {
        for (const RepoConfig& repo : config.repositories) {
            bool named = repo.displayName && !repo.displayName->empty();
            names_[repo.id] = named ? *repo.displayName : repo.name;
        }
    }
    // As shown: a name comes from a folder or a repository's configuration.
    std::string operator()(const std::string& repoID) const {
        auto it = names_.find(repoID);
        return Text::visible(it != names_.end() ? it->second
                                                : fs::path(repoID).filename().string());
    }

private:
    std::map<std::string, std::string> names_;
};

bool anySnapshot(const View& view) {
    return std::any_of(view.config.repositories.begin(), view.config.repositories.end(),
                       [&](const RepoConfig& repo) {
                           return repo.trackingEnabled && view.store.snapshot(repo.id).has_value();
                       });
}

// How long a view waits for the daemon's scan: one of many repositories, or one
// queued behind another command, takes a while; past this the view shows what is
// recorded rather than keep the person waiting.
constexpr std::chrono::seconds kDaemonScanWait{30};

constexpr const char* kNotScanned =
    "Nothing is recorded yet: the views show what scans store. Run: quorvane scan\n";

constexpr std::array<const char*, 7> kWeekdays = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

// The heatmap's shades, from an empty day to the busiest.
constexpr std::array<const char*, 5> kShades = {"·", "░", "▒", "▓", "█"};

const char* shade(int commits, int busiest) {
    return kShades[static_cast<size_t>(CalendarViewModel::level(commits, busiest))];
}

// Rows Monday to Sunday, one column per week, the oldest week on the left; the month
// labels sit above the column holding each month's first day.
void printCalendar(std::ostream& out, std::span<const DayBreakdown> days) {
    static constexpr std::array<const char*, 12> kMonths = {
        "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::string margin = "    ";

    // The row of the first day fixes every other cell: day i sits `lead + i` cells
    // after the Monday of the first column.
    size_t lead = 0;
    for (size_t row = 0; row < kWeekdays.size(); ++row) {
        if (days.front().weekday == kWeekdays[row]) lead = row;
    }
    size_t columns = (lead + days.size() + 6) / 7;
    std::vector<std::vector<const char*>> grid(7, std::vector<const char*>(columns, " "));
    int busiest = 0;
    for (const DayBreakdown& day : days) busiest = std::max(busiest, day.commitCount);

    // Each month is named above the column holding its first day; months start at
    // least four columns apart, so their labels never collide. The window's first,
    // partial month is named too when its label ends before the next one starts.
    std::string months;
    auto label = [&](size_t column, int month) {
        if (months.size() < column + 3) months.resize(column + 3, ' ');
        months.replace(column, 3, kMonths[static_cast<size_t>(month)]);
    };
    std::optional<int> firstMonth;
    for (size_t i = 0; i < days.size(); ++i) {
        size_t cell = lead + i;
        grid[cell % 7][cell / 7] = shade(days[i].commitCount, busiest);
        std::optional<Date> date = DateHelpers::parseDateKey(days[i].dateKey);
        if (!date) continue;
        std::tm parts = DateHelpers::localParts(*date);
        if (parts.tm_mday == 1) {
            label(cell / 7, parts.tm_mon);
        } else if (i == 0) {
            firstMonth = parts.tm_mon;
        }
    }
    size_t firstLabel = months.find_first_not_of(' ');
    if (firstMonth && (firstLabel == std::string::npos || firstLabel >= 4)) label(0, *firstMonth);
    while (!months.empty() && months.back() == ' ') months.pop_back();
    out << margin << months << '\n';
    for (size_t row = 0; row < grid.size(); ++row) {
        std::string line = std::string(kWeekdays[row]) + " ";
        for (const char* cell : grid[row]) line += cell;
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out << line << '\n';
    }
}

// As many calendars as it takes to fit `width`, one below the other, oldest first:
// every one but the first starts on a Monday, so the rows keep their weekdays.
void printCalendars(std::ostream& out, const std::vector<DayBreakdown>& days, size_t width) {
    // The weekday margin and a month label's overhang past its week take 6 columns.
    size_t weeks = width > 7 + 6 ? width - 6 : 7;
    size_t lead = 0;
    for (size_t row = 0; row < kWeekdays.size(); ++row) {
        if (days.front().weekday == kWeekdays[row]) lead = row;
    }
    std::span<const DayBreakdown> rest(days);
    size_t take = weeks * 7 - lead;
    while (!rest.empty()) {
        if (rest.size() != days.size()) out << '\n';
        size_t count = std::min(take, rest.size());
        printCalendar(out, rest.first(count));
        rest = rest.subspan(count);
        take = weeks * 7;
    }
    out << "    less";
    for (const char* glyph : kShades) out << ' ' << glyph;
    out << " more\n";
}

// The ids of the repositories in config.json, tracked or not.
std::vector<std::string> configuredIDs(const CommandContext& context) {
    std::vector<std::string> ids;
    try {
        for (const RepoConfig& repo : configService(context).read().repositories) {
            ids.push_back(repo.id);
        }
    } catch (const ConfigUnreadable&) {
        // The view that follows reads it again and says why it cannot.
    }
    return ids;
}

// Has the daemon scan, over its control socket, and waits for that scan to end: one
// that starts after this asks, so what was committed a moment ago is in it. The ids
// it newly tracked.
std::vector<std::string> scanInDaemon(CommandContext& context, ControlClient& daemon) {
    std::vector<std::string> before = configuredIDs(context);
    ControlProtocol::Request request;
    request.arguments = {"scan", "--json"};
    request.workingDirectory = "/";  // a scan names no path
    if (context.progress) context.err << "scanning..." << std::flush;
    // The snapshots it prints are what the view reads from the data folder anyway;
    // what it says on stderr waits until the progress line is gone.
    std::ostringstream printed, said;
    std::optional<int> status = daemon.runWithin(request, printed, said, kDaemonScanWait);
    if (context.progress) context.err << "\r\033[K" << std::flush;
    context.err << said.str();
    if (!status) {
        context.err << fmt::format(
            "quorvane: the daemon did not finish its scan within {} seconds; showing what it "
            "last recorded, which may be stale\n",
            kDaemonScanWait.count());
        return {};
    }
    std::vector<std::string> added;
    for (const std::string& id : configuredIDs(context)) {
        if (std::find(before.begin(), before.end(), id) == before.end()) added.push_back(id);
    }
    return added;
}

// Has the data folder's writer scan before a view: this process when it can become
// the writer, the daemon when it is. The ids the scan newly tracked.
std::vector<std::string> scanBeforeView(CommandContext& context) {
    LockAttempt attempt = DataFolderLock::acquire(context.dataDir);
    if (!attempt.lock) {
        // The daemon takes requests; a one-shot command that writes takes none, and
        // then the view shows what is recorded, with its age once over a minute.
        std::optional<ControlClient> daemon = ControlClient::connect(context.dataDir, context.err);
        return daemon ? scanInDaemon(context, *daemon) : std::vector<std::string>{};
    }
    DesktopNotifier notifier;
    AppEnvironment env(context.dataDir, context.clock, context.runner, &notifier);
    InterruptWatch interrupts([&env](int) { env.shutdown(); });
    env.load();
    if (context.progress) context.err << "scanning..." << std::flush;
    std::vector<std::string> enrolled = env.rescanNowOnMain();
    if (context.progress) context.err << "\r\033[K" << std::flush;
    // The view that follows still shows what is on disk; the warning says it is stale.
    reportFlush(context, env.saveProblem());
    return enrolled;
}

}  // namespace

// The views: they read the data folder as the last scan left it, without the writer
// lock, so they work beside a running daemon. Days are local days; `day` absent means
// today.
// One line of JSON a status bar reads every few seconds: from the stored state
// only, never scanning, so it costs a read of the data folder.
int statusBar(CommandContext& context) {
    View view(context);
    if (!view.readable) return 1;
    context.out << StatusBarViewModel::of(view.store, view.config, view.now,
                                          PauseMarker::isPaused(context.dataDir))
                       .dump(-1, ' ', false, Json::error_handler_t::replace)
                << "\n";
    return 0;
}

int today(CommandContext& context, bool json, bool scanFirst) {
    std::vector<std::string> enrolled;
    if (scanFirst) enrolled = scanBeforeView(context);
    View view(context);
    if (!view.readable) return 1;
    if (!json) {
        printAsOf(context.out, view.config, view.store, view.now);
        for (const std::string& id : enrolled)
            context.out << fmt::format("newly tracked: {}\n", Text::visible(id));
    }
    if (json) {
        context.out << JsonCodec::pretty(Queries::todayJson(view.store, view.config, view.now));
        return 0;
    }
    TodaySummary summary = Queries::todaySummary(view.store, view.config, view.now);
    if (trackedRepos(view.config).empty()) {
        context.out << kNothingTracked;
        return 0;
    }
    if (!anySnapshot(view)) {
        context.out << kNotScanned;
        return 0;
    }
    // Colleagues' commits came with a pull: they are not the person's work, but a
    // figure that leaves them out says how many there were.
    context.out << fmt::format(
        "Today, {}: {}, {}{}\n", summary.dateKey, plural(summary.activeProjects, "active project"),
        plural(summary.totalCommits, "commit"),
        summary.pulledInCommits > 0
            ? fmt::format(" (and {} pulled in from others)", summary.pulledInCommits)
            : std::string());
    context.out << fmt::format(
        "to push: {}, to commit: {}, behind: {}; files modified: {}, staged: {}\n",
        summary.needsPushCount, summary.needsCommitCount, summary.behindCount,
        summary.modifiedFiles, summary.stagedFiles);
    if (summary.lines.empty()) {
        context.out << "\nNothing done yet today: no commits, no work noticed and nothing "
                       "uncommitted.\n";
        return 0;
    }
    // Once a sync has run, GitHub's side of each repository stands beside what the
    // local scan says, in the same words.
    bool anySync = !view.store.syncStates().empty();
    std::vector<std::vector<std::string>> rows = {
        {"REPOSITORY", "BRANCH", "COMMITS", "CHANGES", "TIME", "STATUS", "LAST COMMIT"}};
    if (anySync) rows[0].push_back("GITHUB");
    for (const RepoTodayLine& line : summary.lines) {
        RepoStanding::Description described = describe(view.store, line.repoID, line.statuses);
        rows.push_back(
            {Text::visible(line.name), branchCell(line.branch), countCell(line.commitsToday),
             Style::paint(context, Style::changesTone(line.files), describeChanges(line.files)),
             durationCell(line.estimatedSeconds), Style::paint(context, described.words),
             momentCell(line.lastCommitAt, view.now)});
        if (anySync) rows.back().push_back(githubCell(context, view.store, line.repoID, described));
    }
    context.out << '\n';
    using TextLayout::Shrink;
    printTable(context.out, rows,
               {context.columns,
                {Shrink::cutEnd, Shrink::cutEnd, Shrink::never, Shrink::wrapItems, Shrink::never,
                 Shrink::wrapItems, Shrink::wrap, Shrink::never},
                true});
    return 0;
}

int sessions(CommandContext& context, const SessionsOptions& options) {
    View view(context);
    if (!view.readable) return 1;
    std::optional<std::string> repoID;
    if (options.repo) {
        const RepoConfig* repo = resolveRepo(context, view.config, *options.repo);
        if (repo == nullptr) return 1;
        repoID = repo->id;
    }
    Date day = options.day.value_or(view.now);
    std::vector<WorkSession> found = Queries::sessionsOn(view.store, day, repoID);
    if (options.json) {
        context.out << JsonCodec::pretty(toJson(found));
        return 0;
    }
    printAsOf(context.out, view.config, view.store, view.now);
    std::string dayKey = DateHelpers::dateKey(day);
    if (found.empty()) {
        context.out << fmt::format(
            "No work sessions on {}. Scans estimate them from the changes they see.\n", dayKey);
        return 0;
    }
    RepoNames names(view.config);
    std::vector<std::vector<std::string>> rows = {
        {"REPOSITORY", "STARTED", "ENDED", "DURATION", "EVIDENCE", "CONFIDENCE"}};
    int total = 0;
    for (const WorkSession& session : found) {
        total += session.estimatedSeconds;
        rows.push_back({names(session.repoID), moment(session.startedAt, day),
                        session.isOpen ? "open" : moment(session.endedAt, day),
                        duration(session.estimatedSeconds),
                        std::string(ActivityViewModel::evidenceWords(session.source)),
                        std::string(enumName(session.confidence))});
    }
    context.out << fmt::format("Work sessions on {}\n\n", dayKey);
    using TextLayout::Shrink;
    printTable(context.out, rows,
               {context.columns,
                {Shrink::cutEnd, Shrink::never, Shrink::never, Shrink::never, Shrink::wrap},
                true});
    context.out << fmt::format("\n{}, {}\n", plural(static_cast<int>(found.size()), "session"),
                               duration(total));
    return 0;
}

int week(CommandContext& context, std::optional<Date> day, bool json) {
    View view(context);
    if (!view.readable) return 1;
    WeeklySummary summary = Queries::weeklySummary(view.store, view.config, day.value_or(view.now));
    if (json) {
        context.out << JsonCodec::pretty(WeekViewModel::toJson(summary));
        return 0;
    }
    printAsOf(context.out, view.config, view.store, view.now);
    if (trackedRepos(view.config).empty()) {
        context.out << kNothingTracked;
        return 0;
    }
    context.out << fmt::format("Week of {} to {}\n\n", summary.perDay.front().dateKey,
                               summary.perDay.back().dateKey);
    std::vector<std::vector<std::string>> rows = {{"DAY", "DATE", "PROJECTS", "COMMITS", "TIME"}};
    for (const DayBreakdown& breakdown : summary.perDay) {
        rows.push_back({breakdown.weekday, breakdown.dateKey, countCell(breakdown.projectCount),
                        countCell(breakdown.commitCount), durationCell(breakdown.seconds)});
    }
    rows.push_back({"total", "", countCell(summary.activeRepos), countCell(summary.totalCommits),
                    durationCell(summary.totalSeconds)});
    printTable(context.out, rows);
    if (summary.perRepo.empty()) {
        context.out << "\nNo work recorded in this week.\n";
        return 0;
    }

    context.out << '\n';
    if (summary.mostActive) {
        context.out << fmt::format("most active:    {}\n", Text::visible(*summary.mostActive));
    }
    if (summary.mostNeglected) {
        context.out << fmt::format("most neglected: {}\n", Text::visible(*summary.mostNeglected));
    }
    for (const RepoTodayLine& line : summary.needsAttention) {
        printWrapped(
            context.out,
            fmt::format(
                "{} ({})", Text::visible(line.name),
                Style::paint(context,
                             RepoStanding::describe(line.statuses, nullptr, nullptr).words)),
            context.columns, "needs attention: ");
    }
    context.out << '\n';
    std::vector<std::vector<std::string>> repoRows = {{"REPOSITORY", "COMMITS", "TIME", "PATH"}};
    for (const WeekRepoLine& line : summary.perRepo) {
        repoRows.push_back({Text::visible(line.name), countCell(line.commits),
                            durationCell(line.seconds), Text::visible(line.localPath)});
    }
    using TextLayout::Shrink;
    printTable(
        context.out, repoRows,
        {context.columns, {Shrink::cutEnd, Shrink::never, Shrink::never, Shrink::cutMiddle}, true});
    return 0;
}

int heatmap(CommandContext& context, int days, bool json) {
    View view(context);
    if (!view.readable) return 1;
    const CalendarViewModel::Calendar calendar =
        CalendarViewModel::build(Queries::heatmap(view.store, view.config, view.now, days));
    const std::vector<DayBreakdown>& cells = calendar.days;
    if (json) {
        context.out << JsonCodec::pretty(CalendarViewModel::daysJson(calendar));
        return 0;
    }
    printAsOf(context.out, view.config, view.store, view.now);
    if (trackedRepos(view.config).empty()) {
        context.out << kNothingTracked;
        return 0;
    }
    if (cells.empty()) return 0;
    printCalendars(context.out, cells, context.columns);
    std::string summary =
        fmt::format("{} on {} of the last {} ({} to {})", plural(calendar.totalCommits, "commit"),
                    plural(calendar.activeDays, "day"), plural(days, "day"), cells.front().dateKey,
                    cells.back().dateKey);
    if (calendar.totalSeconds > 0)
        summary += fmt::format(", {} of work", duration(calendar.totalSeconds));
    context.out << '\n';
    printWrapped(context.out, summary, context.columns);
    printWrapped(context.out,
                 fmt::format("days in a row with work: {} now, {} at most", calendar.currentStreak,
                             calendar.longestStreak),
                 context.columns);
    return 0;
}

int ranking(CommandContext& context, Aggregator::RankingOrder order, bool json) {
    View view(context);
    if (!view.readable) return 1;
    std::vector<ActivityRow> rows =
        Queries::activityRanking(view.store, view.config, view.now, order);
    if (json) {
        context.out << JsonCodec::pretty(toJson(rows));
        return 0;
    }
    printAsOf(context.out, view.config, view.store, view.now);
    if (trackedRepos(view.config).empty()) {
        context.out << kNothingTracked;
        return 0;
    }
    if (rows.empty()) {
        context.out << kNotScanned;
        return 0;
    }
    bool anySync = std::any_of(rows.begin(), rows.end(),
                               [](const ActivityRow& row) { return row.syncStatus.has_value(); });
    std::vector<std::vector<std::string>> table = {
        {"REPOSITORY", "BRANCH", "LAST ACTIVITY", "COMMITS TODAY", "TIME", "CHANGES", "STATUS"}};
    if (anySync) table[0].push_back("GITHUB");
    for (const ActivityRow& row : rows) {
        RepoStanding::Description described = describe(view.store, row.repoID, row.statuses);
        table.push_back(
            {Text::visible(row.name), branchCell(row.branch),
             momentCell(row.lastActivityAt, view.now), countCell(row.commitsToday),
             durationCell(row.estimatedSecondsToday),
             Style::paint(context, Style::changesTone(row.files), describeChanges(row.files)),
             Style::paint(context, described.words)});
        if (anySync) table.back().push_back(githubCell(context, view.store, row.repoID, described));
    }
    using TextLayout::Shrink;
    printTable(context.out, table,
               {context.columns,
                {Shrink::cutEnd, Shrink::cutEnd, Shrink::wrap, Shrink::wrap, Shrink::never,
                 Shrink::wrapItems, Shrink::wrapItems, Shrink::never},
                true});
    return 0;
}

int insights(CommandContext& context, InsightsPeriod period, bool json) {
    View view(context);
    if (!view.readable) return 1;
    ActivityInsights counts = Queries::insights(view.store, view.config, view.now, period);
    if (json) {
        context.out << JsonCodec::pretty(toJson(counts));
        return 0;
    }
    printAsOf(context.out, view.config, view.store, view.now);
    if (trackedRepos(view.config).empty()) {
        context.out << kNothingTracked;
        return 0;
    }
    context.out << counts.label << '\n';
    printTable(context.out, {{"  projects worked on", std::to_string(counts.projectsWorked)},
                             {"  with a remote", std::to_string(counts.withRemote)},
                             {"  local only", std::to_string(counts.localOnly)},
                             {"  commits", std::to_string(counts.commits)},
                             {"  active branches", std::to_string(counts.branchesActive)},
                             {"  unpushed commits", std::to_string(counts.unpushedCommits)},
                             {"  time worked", duration(counts.estimatedSeconds)}});
    return 0;
}

// What waits for the person, most urgent first, each with the command that settles
// it; as the last scan and sync left it, without scanning.
int attention(CommandContext& context, bool json) {
    View view(context);
    if (!view.readable) return 1;
    namespace Attention = AttentionViewModel;
    std::vector<Attention::Item> waiting = Attention::fromStore(view.store, view.config, view.now);
    if (json) {
        context.out << JsonCodec::pretty(Attention::toJson(waiting));
        return 0;
    }
    printAsOf(context.out, view.config, view.store, view.now);
    if (waiting.empty()) {
        printWrapped(context.out, Attention::kEmptyText, context.columns);
        return 0;
    }
    for (const Attention::Item& item : waiting) {
        Tone tone = item.kind == Attention::Kind::account || item.kind == Attention::Kind::staleWork
                        ? Tone::problem
                        : Tone::attention;
        std::string head =
            item.name.empty() ? Style::paint(context, tone, item.title)
                              : fmt::format("{}  {}", Text::visible(item.name),
                                            Style::paint(context, tone, Text::visible(item.title)));
        printWrapped(context.out, head, context.columns);
        if (item.suggestion) {
            printCommand(context.out, item.suggestion->command, context.columns);
        } else if (item.link) {
            context.out << "      see the dashboard's " << *item.link << " screen\n";
        }
    }
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

// The views. They read the data folder only, so they answer while the daemon runs.
void declareViewCommands(CommandTable& table) {
    auto& json = table.keep<bool>();
    auto& bar = table.keep<bool>();
    CLI::App* status =
        table.add("status",
                  "Print what the last scan stored, without scanning\n"
                  "Reads the data folder only, so it works while another quorvane process is "
                  "writing.",
                  {.use = DataUse::reads,
                   .run =
                       [&](CommandContext& c) {
                           return bar ? Commands::statusBar(c) : Commands::status(c, json);
                       },
                   .daemonAnswers = true});
    status->add_flag("--json", json, "Print the stored snapshots as a JSON array");
    status
        ->add_flag("--bar", bar,
                   "Print one line of JSON for a status bar (waybar, polybar, i3blocks): what "
                   "waits to push, to pull, to commit and to review, with a tooltip")
        ->excludes("--json");

    auto& commitOptions = table.keep<Commands::CommitsOptions>();
    CLI::App* commits = table.add(
        "commits",
        "List the stored commits, newest first\n"
        "Scans record the commits of the day they run; \"local\" marks a commit that no\n"
        "remote-tracking branch contains yet. Only your own are listed, as the views\n"
        "count them (see 'quorvane config add identities'), unless --all-authors.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::commits(c, commitOptions); }});
    commits->add_option("--repo", commitOptions.repo, "Only this repository (id, path or name)")
        ->type_name("REPO");
    commits->add_option("--limit", commitOptions.limit, "Show at most N commits (default 20)")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    commits->add_flag("--all", commitOptions.all, "Show every stored commit");
    commits->add_flag("--all-authors", commitOptions.allAuthors,
                      "Also colleagues' commits, with their authors");
    commits->add_flag("--json", commitOptions.json, "Print the commits as a JSON array");

    auto& noScan = table.keep<bool>();
    CLI::App* today = table.add(
        "today",
        "Scan, then show today's work in each repository\n"
        "Lists the repositories with commits or work sessions today, or with uncommitted\n"
        "changes, busiest first. Time is estimated from the changes scans notice; the\n"
        "counters on top cover every tracked repository. It scans first, enrolling new\n"
        "repositories under the scan folders as 'quorvane scan' does; while the daemon\n"
        "runs, the daemon scans and it waits for that scan, up to 30 seconds. Beside\n"
        "another writing command, or when the daemon is late, it shows what is recorded.\n"
        "Like every view it says \"as of HH:MM\" on top when that is over a minute old.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::today(c, json, !noScan); }});
    today->add_flag("--json", json, "Print the day's summary as JSON");
    today->add_flag("--no-scan", noScan, "Only show what is recorded; do not scan first");

    table
        .add("attention",
             "Show what waits for you across the repositories, most urgent first\n"
             "Uncommitted work (first when a scan has seen it left for days), commits not\n"
             "pushed, branches behind their upstream, GitHub accounts whose token failed or\n"
             "was never checked, repositories no connected account reaches, and proposals\n"
             "from a coding agent. Each comes with the command that settles it, as 'quorvane\n"
             "alignment' gives them; git commands run in the repository's folder.\n"
             "Reads what the last scan and sync stored; 'quorvane scan' or 'quorvane sync'\n"
             "brings it up to date. The dashboard's Needs attention screen shows the same.",
             {DataUse::reads, [&](CommandContext& c) { return Commands::attention(c, json); }})
        ->add_flag("--json", json,
                   "Print {items, needsCommitCount, needsPushCount, behindCount, ...} as JSON");

    auto& sessionOptions = table.keep<Commands::SessionsOptions>();
    auto& date = table.keep<std::optional<std::string>>();
    auto day = [&date] { return date ? DateHelpers::parseDateKey(*date) : std::optional<Date>(); };
    CLI::App* sessions = table.add(
        "sessions",
        "List the work sessions of one day, oldest first\n"
        "A session is a stretch of work inferred from what changed between scans: it\n"
        "ends after 20 minutes without a change. An open session is still being extended.\n"
        "A session that runs across midnight shows on both days.",
        {DataUse::reads, [&, day](CommandContext& c) {
             sessionOptions.day = day();
             return Commands::sessions(c, sessionOptions);
         }});
    sessions->add_option("--date", date, "The local day (default today)")
        ->type_name("YYYY-MM-DD")
        ->check(localDateCheck());
    sessions->add_option("--repo", sessionOptions.repo, "Only this repository (id, path or name)")
        ->type_name("REPO");
    sessions->add_flag("--json", sessionOptions.json, "Print the sessions as a JSON array");

    CLI::App* week = table.add(
        "week",
        "Show a Monday-to-Sunday week: each day's projects, commits and time\n"
        "Then the week's totals, the most active and the most neglected repository,\n"
        "and one line per repository worked on. Days before a repository was tracked\n"
        "show the commits of its history (read when it was added), without time.",
        {DataUse::reads, [&, day](CommandContext& c) { return Commands::week(c, day(), json); }});
    week->add_option("--date", date, "Any day of the week to show (default today)")
        ->type_name("YYYY-MM-DD")
        ->check(localDateCheck());
    week->add_flag("--json", json, "Print the week's summary as JSON");

    auto& days = table.keep<int>(Commands::kDefaultHeatmapDays);
    CLI::App* heatmap = table.add(
        "heatmap",
        "Draw a calendar of daily commits, one column per week\n"
        "Rows run Monday to Sunday and the newest week is on the right. The darker the\n"
        "cell, the more commits that day, relative to the busiest day shown; a dot is a\n"
        "day without commits. Below: the totals, and the days in a row with work (a\n"
        "commit or a work session), ending today or, while today is quiet, yesterday.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::heatmap(c, days, json); }});
    heatmap
        ->add_option("--days", days,
                     fmt::format("How many days to show, ending today (default {}, at most {})",
                                 Commands::kDefaultHeatmapDays, Commands::kMaxHeatmapDays))
        ->type_name("N")
        ->check(CLI::Range(1, Commands::kMaxHeatmapDays));
    heatmap->add_flag("--json", json, "Print one record per day, with streak and shade, as JSON");

    auto& pureRecency = table.keep<bool>();
    CLI::App* ranking = table.add(
        "ranking",
        "Rank the repositories by activity\n"
        "Those worked on today come first (a commit, a change in the working tree or a\n"
        "work session), then the rest by their latest activity. Repositories under\n"
        "cache, trash and dependency folders (node_modules, ...) are left out.",
        {DataUse::reads, [&](CommandContext& c) {
             return Commands::ranking(c,
                                      pureRecency ? Aggregator::RankingOrder::pureRecency
                                                  : Aggregator::RankingOrder::workedTodayFirst,
                                      json);
         }});
    ranking->add_flag("--pure-recency", pureRecency,
                      "Order by latest activity alone, ignoring what happened today");
    ranking->add_flag("--json", json, "Print the rows as a JSON array");

    auto& period = table.keep<std::string>("today");
    CLI::App* insights = table.add(
        "insights",
        "Count the work of a period: projects, commits, branches, unpushed commits, time\n"
        "'today' starts at midnight, 'month' 30 days before today's midnight, and 'all'\n"
        "covers everything stored. Commits before tracking began count as far as the\n"
        "history read at 'repos add' goes.",
        {DataUse::reads, [&](CommandContext& c) {
             return Commands::insights(c,
                                       period == "month" ? InsightsPeriod::month
                                       : period == "all" ? InsightsPeriod::allTime
                                                         : InsightsPeriod::today,
                                       json);
         }});
    insights->add_option("--period", period, "today, month or all (default today)")
        ->type_name("PERIOD")
        ->check(CLI::IsMember({"today", "month", "all"}));
    insights->add_flag("--json", json, "Print the counts as JSON");
}

}  // namespace quorvane
