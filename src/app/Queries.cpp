#include "app/Queries.hpp"

#include "base/EnumNames.hpp"
#include "github/RepoStanding.hpp"

#include <algorithm>

namespace quorvane::Queries {

namespace {

constexpr std::chrono::seconds kDaySeconds{86400};
constexpr std::chrono::seconds kWeekSeconds{604800};

std::vector<WorkSession> sessionsEndingIn(const Store& store, const Aggregator::DateRange& range) {
    return Aggregator::sessionsEndingIn(store.sessions(std::nullopt, std::nullopt), range);
}

const char* periodLabel(InsightsPeriod period) {
    switch (period) {
        case InsightsPeriod::today: return "Today";
        case InsightsPeriod::month: return "Last 30 days";
        case InsightsPeriod::allTime: return "All time";
    }
    return "Today";
}

TodaySummary summaryOver(const Store& store, const AppConfig& config, Date now,
                         const Aggregator::DateRange& range, const std::string& label) {
    return Aggregator::summary(range.start, range.end, label, config.repositories,
                               store.snapshots(), store.commitsBetween(range.start, range.end),
                               sessionsEndingIn(store, range), now, identity(store, config));
}

}  // namespace

Identity identity(const Store& store, const AppConfig& config) {
    return Identity::of(config, store.snapshots());
}

TodaySummary todaySummary(const Store& store, const AppConfig& config, Date now) {
    return summaryOver(store, config, now, Aggregator::dayRange(now), DateHelpers::dateKey(now));
}

Json todayJson(const Store& store, const AppConfig& config, Date now) {
    TodaySummary today = todaySummary(store, config, now);
    Json json = toJson(today);
    for (size_t i = 0; i < today.lines.size(); ++i) {
        const RepoTodayLine& line = today.lines[i];
        std::optional<RepoSnapshot> snapshot = store.snapshot(line.repoID);
        std::optional<SyncState> sync = store.syncState(line.repoID);
        RepoStanding::Description described = RepoStanding::describe(
            line.statuses, snapshot ? &*snapshot : nullptr, sync ? &*sync : nullptr);
        Json words = Json::array();
        for (const StatusWord& word : described.words) {
            words.push_back({{"text", word.text}, {"tone", enumName(word.tone)}});
        }
        json["lines"][i]["standing"] = std::move(words);
    }
    return json;
}

std::vector<ReminderEvent> remindersNewestFirst(const Store& store, bool all) {
    std::vector<ReminderEvent> events = store.reminders(!all);
    std::stable_sort(events.begin(), events.end(),
                     [](const auto& a, const auto& b) { return a.triggeredAt > b.triggeredAt; });
    return events;
}

TodaySummary summary(const Store& store, const AppConfig& config, Date now, Date from, Date to) {
    Aggregator::DateRange range{Aggregator::dayRange(from).start, Aggregator::dayRange(to).end};
    std::string fromKey = DateHelpers::dateKey(from);
    std::string toKey = DateHelpers::dateKey(to);
    std::string label = fromKey == toKey ? fromKey : fromKey + " → " + toKey;
    return summaryOver(store, config, now, range, label);
}

DailyReportInput dailyReport(const Store& store, const AppConfig& config, Date now, Date day) {
    DailyReportInput input;
    std::string dateKey = DateHelpers::dateKey(day);
    std::vector<DayActivity> dayRecords = store.dayActivities(dateKey);
    TodaySummary daySummary = summary(store, config, now, day, day);
    std::vector<RepoTodayLine> standings;
    // Today's snapshots say how things stand now; another day is shown as it was left.
    if (dateKey == DateHelpers::dateKey(now)) {
        standings = Aggregator::standings(config.repositories, store.snapshots(), now);
    } else {
        daySummary = Aggregator::asRecorded(std::move(daySummary), config.repositories, dayRecords);
        standings = Aggregator::standingsAsRecorded(config.repositories, dayRecords);
    }
    input.report = Aggregator::dailyReport(day, daySummary, store.journal(dateKey), standings,
                                           store.branches(std::nullopt));
    input.report.scanRecorded = Aggregator::scanRecorded(dayRecords);
    // Newest first, as the store lists commits; grouping keeps it within each repository.
    Aggregator::DateRange range = Aggregator::dayRange(day);
    std::vector<CommitRecord> dayCommits = store.commitsBetween(range.start, range.end);
    std::stable_sort(
        dayCommits.begin(), dayCommits.end(),
        [](const CommitRecord& a, const CommitRecord& b) { return a.committedAt > b.committedAt; });
    input.commitsByRepo =
        Aggregator::countedCommits(dayCommits, range, identity(store, config)).byRepo;
    return input;
}

ActivityInsights insights(const Store& store, const AppConfig& config, Date now,
                          InsightsPeriod period) {
    Aggregator::DateRange range = Aggregator::bounds(period, now);
    return Aggregator::insights(range.start, range.end, periodLabel(period), config.repositories,
                                store.snapshots(), store.commitsBetween(range.start, range.end),
                                sessionsEndingIn(store, range), identity(store, config));
}

WeeklySummary weeklySummary(const Store& store, const AppConfig& config, Date date) {
    // Two weeks either side is wider than any week holding `date`; the aggregator
    // picks the seven days out of it.
    std::vector<DayActivity> days = store.dayActivities(DateHelpers::dateKey(date - kWeekSeconds),
                                                        DateHelpers::dateKey(date + kWeekSeconds));
    std::vector<CommitRecord> commits =
        store.commitsBetween(date - kWeekSeconds, date + kWeekSeconds);
    return Aggregator::weeklySummary(date, config.repositories, days, commits,
                                     identity(store, config));
}

std::vector<DayBreakdown> heatmap(const Store& store, const AppConfig& config, Date now,
                                  int daysBack) {
    if (daysBack <= 0) return {};
    Date from = now - kDaySeconds * (daysBack + 1);
    std::vector<DayActivity> days =
        store.dayActivities(DateHelpers::dateKey(from), DateHelpers::dateKey(now));
    return Aggregator::heatmap(daysBack, now, days, config.repositories,
                               store.commitsBetween(from, now + kDaySeconds),
                               identity(store, config));
}

std::vector<ActivityRow> activityRanking(const Store& store, const AppConfig& config, Date now,
                                         Aggregator::RankingOrder order) {
    Aggregator::DateRange today = Aggregator::dayRange(now);
    return Aggregator::activityRanking(
        now, config.repositories, store.snapshots(), store.commitsBetween(today.start, today.end),
        sessionsEndingIn(store, today), store.syncStates(), now, order, identity(store, config));
}

std::vector<WorkSession> sessionsOn(const Store& store, Date day,
                                    const std::optional<std::string>& repoID) {
    Aggregator::DateRange range = Aggregator::dayRange(day);
    std::vector<WorkSession> found = store.sessions(repoID, std::nullopt);
    std::erase_if(found, [&](const WorkSession& session) {
        return session.startedAt > range.end || session.endedAt < range.start;
    });
    std::stable_sort(found.begin(), found.end(), [](const WorkSession& a, const WorkSession& b) {
        return a.startedAt < b.startedAt;
    });
    return found;
}

}  // namespace quorvane::Queries
