#include "screens/DaysViewModels.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>

#include <fmt/format.h>

namespace quorvane {

namespace DayKeys {

std::string shifted(Date day, int days) {
    // Noon, not midnight: a day of 23 or 25 hours never moves noon off its day.
    Date noon = DateHelpers::startOfDay(day) + std::chrono::hours(12);
    return DateHelpers::dateKey(noon + kDay * days);
}

}  // namespace DayKeys

namespace ActivityViewModel {

namespace {

bool olderCommit(const CommitRecord& a, const CommitRecord& b) {
    return a.committedAt != b.committedAt ? a.committedAt < b.committedAt : a.sha < b.sha;
}

// The session of the commit's repository that holds it: one that ran over it, else
// the one it opened, which starts at the scan after it.
SessionEntry* holderOf(std::vector<SessionEntry>& entries, const CommitRecord& commit) {
    for (SessionEntry& entry : entries) {
        if (commit.committedAt >= entry.session.startedAt &&
            commit.committedAt <= entry.session.endedAt)
            return &entry;
    }
    for (SessionEntry& entry : entries) {
        if (commit.committedAt < entry.session.startedAt &&
            commit.committedAt >= entry.session.startedAt - kLeadIn)
            return &entry;
    }
    return nullptr;
}

// When the repository's first work of the day began: a session's start may lie on
// the day before, which still puts it first.
Date firstWork(const RepoTimeline& line) {
    std::optional<Date> first;
    auto consider = [&](Date date) {
        if (!first || date < *first) first = date;
    };
    for (const SessionEntry& entry : line.sessions) {
        consider(entry.session.startedAt);
        for (const CommitRecord& commit : entry.commits) consider(commit.committedAt);
    }
    for (const CommitRecord& commit : line.outside) consider(commit.committedAt);
    return first.value_or(Date{});
}

// The clock time alone on the day shown, the date too on any other.
std::string momentOn(Date date, const std::string& dayKey) {
    std::tm parts = DateHelpers::localParts(date);
    std::string clock = fmt::format("{:02}:{:02}", parts.tm_hour, parts.tm_min);
    std::string key = DateHelpers::dateKey(date);
    return key == dayKey ? clock : key + " " + clock;
}

Json commitJson(const std::vector<CommitRecord>& commits, const std::string& dayKey) {
    Json list = Json::array();
    for (const CommitRecord& commit : commits) {
        list.push_back(
            {{"commit", quorvane::toJson(commit)}, {"time", momentOn(commit.committedAt, dayKey)}});
    }
    return list;
}

}  // namespace

Day build(Date day, Date now, const std::vector<RepoConfig>& repositories,
          std::vector<WorkSession> sessions, std::vector<CommitRecord> commits) {
    Day result;
    result.dateKey = DateHelpers::dateKey(day);
    result.previousDateKey = DayKeys::shifted(day, -1);
    if (result.dateKey < DateHelpers::dateKey(now)) result.nextDateKey = DayKeys::shifted(day, 1);

    std::map<std::string, std::string> names;
    for (const RepoConfig& repo : repositories) names[repo.id] = displayNameOf(repo);
    std::map<std::string, RepoTimeline> byRepo;
    auto lineOf = [&](const std::string& repoID) -> RepoTimeline& {
        RepoTimeline& line = byRepo[repoID];
        if (line.repoID.empty()) {
            line.repoID = repoID;
            auto named = names.find(repoID);
            // A repository no longer configured goes by its folder, as the CLI names it.
            line.name = named != names.end() ? named->second
                                             : std::filesystem::path(repoID).filename().string();
        }
        return line;
    };

    std::stable_sort(
        sessions.begin(), sessions.end(),
        [](const WorkSession& a, const WorkSession& b) { return a.startedAt < b.startedAt; });
    for (const WorkSession& session : sessions) {
        RepoTimeline& line = lineOf(session.repoID);
        line.sessions.push_back({session, {}});
        line.seconds += session.estimatedSeconds;
        result.seconds += session.estimatedSeconds;
        ++result.sessionCount;
    }
    std::sort(commits.begin(), commits.end(), olderCommit);
    for (const CommitRecord& commit : commits) {
        RepoTimeline& line = lineOf(commit.repoID);
        SessionEntry* holder = holderOf(line.sessions, commit);
        (holder != nullptr ? holder->commits : line.outside).push_back(commit);
        ++line.commitCount;
        ++result.commitCount;
    }

    for (auto& [id, line] : byRepo) result.repositories.push_back(std::move(line));
    std::stable_sort(result.repositories.begin(), result.repositories.end(),
                     [](const RepoTimeline& a, const RepoTimeline& b) {
                         Date first = firstWork(a), second = firstWork(b);
                         return first != second ? first < second : a.name < b.name;
                     });
    return result;
}

Json toJson(const Day& day) {
    Json repositories = Json::array();
    for (const RepoTimeline& line : day.repositories) {
        Json sessions = Json::array();
        for (const SessionEntry& entry : line.sessions) {
            const WorkSession& session = entry.session;
            sessions.push_back(
                {{"session", quorvane::toJson(session)},
                 {"start", momentOn(session.startedAt, day.dateKey)},
                 {"end", session.isOpen ? "open" : momentOn(session.endedAt, day.dateKey)},
                 {"evidence", evidenceWords(session.source)},
                 {"commits", commitJson(entry.commits, day.dateKey)}});
        }
        repositories.push_back({{"repoID", line.repoID},
                                {"name", line.name},
                                {"sessions", sessions},
                                {"outside", commitJson(line.outside, day.dateKey)},
                                {"commitCount", line.commitCount},
                                {"seconds", line.seconds}});
    }
    Json json{{"dateKey", day.dateKey},         {"previousDateKey", day.previousDateKey},
              {"repositories", repositories},   {"sessionCount", day.sessionCount},
              {"commitCount", day.commitCount}, {"seconds", day.seconds}};
    if (day.nextDateKey) json["nextDateKey"] = *day.nextDateKey;
    return json;
}

std::string_view evidenceWords(WorkSession::Source source) {
    switch (source) {
        case WorkSession::Source::localGit: return "git";
        case WorkSession::Source::fileActivity: return "file changes";
        case WorkSession::Source::mixed: return "git and file changes";
        case WorkSession::Source::manual: return "entered by hand";
    }
    return "";
}

}  // namespace ActivityViewModel

namespace WeekViewModel {

Json toJson(const WeeklySummary& summary) {
    Json json = quorvane::toJson(summary);
    // The summary's days run Monday to Sunday, so a day's key names its week.
    if (std::optional<Date> monday = DateHelpers::parseDateKey(summary.weekKey)) {
        json["previousWeekKey"] = DayKeys::shifted(*monday, -7);
        json["nextWeekKey"] = DayKeys::shifted(*monday, 7);
    }
    return json;
}

}  // namespace WeekViewModel

namespace CalendarViewModel {

namespace {

constexpr std::array<std::string_view, 7> kCalendarWeekdays = {"Mon", "Tue", "Wed", "Thu",
                                                               "Fri", "Sat", "Sun"};

bool isActive(const DayBreakdown& day) {
    return day.commitCount > 0 || day.seconds > 0;
}

}  // namespace

int level(int commits, int busiest) {
    if (commits <= 0 || busiest <= 0) return 0;
    return std::clamp((commits * 4 + busiest - 1) / busiest, 1, 4);
}

Calendar build(std::vector<DayBreakdown> days) {
    Calendar calendar;
    calendar.days = std::move(days);
    if (calendar.days.empty()) return calendar;
    auto row = std::find(kCalendarWeekdays.begin(), kCalendarWeekdays.end(),
                         calendar.days.front().weekday);
    calendar.lead =
        row == kCalendarWeekdays.end() ? 0 : static_cast<int>(row - kCalendarWeekdays.begin());
    int busiest = 0;
    for (const DayBreakdown& day : calendar.days) busiest = std::max(busiest, day.commitCount);
    int run = 0;
    for (const DayBreakdown& day : calendar.days) {
        run = isActive(day) ? run + 1 : 0;
        calendar.streaks.push_back(run);
        calendar.levels.push_back(level(day.commitCount, busiest));
        calendar.longestStreak = std::max(calendar.longestStreak, run);
        calendar.totalCommits += day.commitCount;
        calendar.totalSeconds += day.seconds;
        if (isActive(day)) ++calendar.activeDays;
    }
    // Today is not over: until it has work, yesterday's streak still stands.
    const size_t last = calendar.days.size() - 1;
    calendar.currentStreak = calendar.streaks[last] > 0 || last == 0 ? calendar.streaks[last]
                                                                     : calendar.streaks[last - 1];
    return calendar;
}

Json daysJson(const Calendar& calendar) {
    Json list = Json::array();
    for (size_t i = 0; i < calendar.days.size(); ++i) {
        Json day = quorvane::toJson(calendar.days[i]);
        day["streak"] = calendar.streaks[i];
        day["level"] = calendar.levels[i];
        list.push_back(day);
    }
    return list;
}

Json toJson(const Calendar& calendar) {
    return Json{{"days", daysJson(calendar)},
                {"lead", calendar.lead},
                {"currentStreak", calendar.currentStreak},
                {"longestStreak", calendar.longestStreak},
                {"totalCommits", calendar.totalCommits},
                {"totalSeconds", calendar.totalSeconds},
                {"activeDays", calendar.activeDays}};
}

}  // namespace CalendarViewModel

}  // namespace quorvane
