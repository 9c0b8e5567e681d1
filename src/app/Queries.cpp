#include "app/Queries.hpp"

#include <algorithm>
#include <ctime>

namespace quorvane::Queries {

namespace {

constexpr std::chrono::seconds kDaySeconds{86400};
constexpr std::chrono::seconds kWeekSeconds{604800};

// The sessions whose end falls inside `range`: a session counts for the day it ended
// on, so one that began before the range but ended in it belongs to it.
std::vector<WorkSession> sessionsEndingIn(const Store& store, const Aggregator::DateRange& range) {
    std::vector<WorkSession> found = store.sessions(std::nullopt, std::nullopt);
    std::erase_if(found, [&](const WorkSession& session) {
        return session.endedAt < range.start || session.endedAt > range.end;
    });
    return found;
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
                               sessionsEndingIn(store, range), now);
}

}  // namespace

Aggregator::DateRange dayRange(Date day) {
    Date start = DateHelpers::startOfDay(day);
    std::time_t t = start.time_since_epoch().count();
    std::tm parts{};
    localtime_r(&t, &parts);
    // The next calendar day's midnight, not start + 24 h: a day with a daylight-saving
    // change is 23 or 25 hours long.
    Date next =
        DateHelpers::fromLocal(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday + 1, 0, 0, 0);
    return {start, next - std::chrono::seconds(1)};
}

TodaySummary todaySummary(const Store& store, const AppConfig& config, Date now) {
    return summaryOver(store, config, now, dayRange(now), DateHelpers::dateKey(now));
}

TodaySummary summary(const Store& store, const AppConfig& config, Date now, Date from, Date to) {
    Aggregator::DateRange range{dayRange(from).start, dayRange(to).end};
    std::string fromKey = DateHelpers::dateKey(from);
    std::string toKey = DateHelpers::dateKey(to);
    std::string label = fromKey == toKey ? fromKey : fromKey + " → " + toKey;
    return summaryOver(store, config, now, range, label);
}

DailyReportInput dailyReport(const Store& store, const AppConfig& config, Date now, Date day) {
    DailyReportInput input;
    std::string dateKey = DateHelpers::dateKey(day);
    input.report =
        Aggregator::dailyReport(day, summary(store, config, now, day, day), store.journal(dateKey));
    Aggregator::DateRange range = dayRange(day);
    // The store's order, newest first; grouping keeps it within each repository.
    for (CommitRecord& commit : store.commits(std::nullopt)) {
        if (commit.committedAt < range.start || commit.committedAt > range.end) continue;
        input.commitsByRepo[commit.repoID].push_back(std::move(commit));
    }
    return input;
}

ActivityInsights insights(const Store& store, const AppConfig& config, Date now,
                          InsightsPeriod period) {
    Aggregator::DateRange range = Aggregator::bounds(period, now);
    return Aggregator::insights(range.start, range.end, periodLabel(period), config.repositories,
                                store.snapshots(), store.commitsBetween(range.start, range.end),
                                sessionsEndingIn(store, range));
}

WeeklySummary weeklySummary(const Store& store, const AppConfig& config, Date date) {
    // Two weeks either side is wider than any week holding `date`; the aggregator
    // picks the seven days out of it.
    std::vector<DayActivity> days = store.dayActivities(DateHelpers::dateKey(date - kWeekSeconds),
                                                        DateHelpers::dateKey(date + kWeekSeconds));
    return Aggregator::weeklySummary(date, config.repositories, days);
}

std::vector<DayBreakdown> heatmap(const Store& store, Date now, int daysBack) {
    if (daysBack <= 0) return {};
    std::vector<DayActivity> days = store.dayActivities(
        DateHelpers::dateKey(now - kDaySeconds * daysBack), DateHelpers::dateKey(now));
    return Aggregator::heatmap(daysBack, now, days);
}

std::vector<ActivityRow> activityRanking(const Store& store, const AppConfig& config, Date now,
                                         Aggregator::RankingOrder order) {
    return Aggregator::activityRanking(now, config.repositories, store.snapshots(),
                                       sessionsEndingIn(store, dayRange(now)), store.syncStates(),
                                       now, order);
}

std::vector<WorkSession> sessionsOn(const Store& store, Date day,
                                    const std::optional<std::string>& repoID) {
    Aggregator::DateRange range = dayRange(day);
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
