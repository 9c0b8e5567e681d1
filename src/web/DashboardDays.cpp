// The screens that look at days: Activity (one day's timeline), Week and Calendar.
// Each reads the store as the views of the command line do, and answers their JSON.
#include "app/Queries.hpp"
#include "screens/DaysViewModels.hpp"
#include "web/Dashboard.hpp"
#include "web/DashboardReply.hpp"

namespace quorvane::Dashboard {

namespace {

// The calendar's length, as 'heatmap' draws it by default: a year ending today.
constexpr int kCalendarDays = 365;

// The local day `?date=` names, or `now` when the address names none. Anything but
// one date key is refused with a 400 rather than read as today: a screen that quietly
// showed another day would mislead.
std::optional<Date> askedDay(const httplib::Request& request, httplib::Response& response,
                             Date now) {
    if (!request.has_param("date")) return now;
    if (request.get_param_value_count("date") != 1) {
        DashboardReply::sendError(response, 400, "give one date, as ?date=YYYY-MM-DD");
        return std::nullopt;
    }
    std::optional<Date> day = DateHelpers::parseDateKey(request.get_param_value("date"));
    if (!day) {
        DashboardReply::sendError(
            response, 400, "the date is not a day: give it as YYYY-MM-DD, such as 2026-03-14");
    }
    return day;
}

}  // namespace

void routeDays(DashboardServer& server, AppEnvironment& env, const Clock& clock,
               const ProcessRunner&) {
    // The sessions that touch the day and the person's commits made on it, as
    // 'sessions --date' and 'commits' list them.
    server.get("/api/v1/activity", [&env, &clock](const httplib::Request& request,
                                                  httplib::Response& response,
                                                  const DashboardSessions::Session&) {
        const Date now = clock.now();
        std::optional<Date> day = askedDay(request, response, now);
        if (!day) return;
        const Store& store = env.store();
        const AppConfig config = env.config();
        const Aggregator::DateRange range = Aggregator::dayRange(*day);
        std::vector<CommitRecord> commits = store.commitsBetween(range.start, range.end);
        const Identity identity = Queries::identity(store, config);
        std::erase_if(commits,
                      [&](const CommitRecord& commit) { return !identity.counts(commit); });
        DashboardReply::sendJson(
            response, ActivityViewModel::toJson(ActivityViewModel::build(
                          *day, now, config.repositories,
                          Queries::sessionsOn(store, *day, std::nullopt), std::move(commits))));
    });
    server.get("/api/v1/week",
               [&env, &clock](const httplib::Request& request, httplib::Response& response,
                              const DashboardSessions::Session&) {
                   std::optional<Date> day = askedDay(request, response, clock.now());
                   if (!day) return;
                   DashboardReply::sendJson(response, WeekViewModel::toJson(Queries::weeklySummary(
                                                          env.store(), env.config(), *day)));
               });
    server.get(
        "/api/v1/calendar", [&env, &clock](const httplib::Request&, httplib::Response& response,
                                           const DashboardSessions::Session&) {
            DashboardReply::sendJson(
                response, CalendarViewModel::toJson(CalendarViewModel::build(Queries::heatmap(
                              env.store(), env.config(), clock.now(), kCalendarDays))));
        });
}

}  // namespace quorvane::Dashboard
