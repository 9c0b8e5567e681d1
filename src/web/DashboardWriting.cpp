// The Journal and Reports screens' API: a day's journal read and written as 'journal'
// does it, the reports as the files 'report' prints, and the AI summary written while
// the page shows it waiting.
#include <memory>
#include <stdexcept>

#include <fmt/format.h>

#include "app/ExtendedReportQueries.hpp"
#include "app/Queries.hpp"
#include "platform/HttpTransport.hpp"
#include "reports/AISummaryService.hpp"
#include "screens/JournalViewModel.hpp"
#include "screens/ReportsViewModel.hpp"
#include "web/Dashboard.hpp"
#include "web/DashboardReply.hpp"
#include "web/ReportSummaryJob.hpp"

namespace quorvane::Dashboard {

namespace {

using DashboardReply::objectBody;
using DashboardReply::sendError;
using DashboardReply::sendJson;

// The day a query names in `name` ("2026-11-26"), today when it names none; nothing,
// with the reason in `problem`, when the text is not a day.
std::optional<Date> askedDay(const httplib::Request& request, const char* name, Date now,
                             std::string& problem) {
    if (!request.has_param(name)) return now;
    std::string text = request.get_param_value(name);
    std::optional<Date> day = DateHelpers::parseDateKey(text);
    if (!day)
        problem = fmt::format("?{}= takes a day written YYYY-MM-DD, such as 2026-11-26", name);
    return day;
}

// Sends requests through `inner`, each ending as soon as `cancel` is cancelled.
class CancellableTransport final : public HttpTransport {
public:
    CancellableTransport(const HttpTransport& inner, const Cancellation& cancel)
        : inner_(inner), cancel_(cancel) {}
    HttpResponse get(const HttpRequest& request) const override {
        return inner_.get(withCancel(request));
    }
    HttpResponse post(const HttpRequest& request, const std::string& body) const override {
        return inner_.post(withCancel(request), body);
    }

private:
    HttpRequest withCancel(HttpRequest request) const {
        request.cancellation = &cancel_;
        return request;
    }
    const HttpTransport& inner_;
    const Cancellation& cancel_;
};

void sendFile(httplib::Response& response, const ReportsViewModel::ReportFile& file) {
    response.set_header("Content-Disposition",
                        fmt::format("attachment; filename=\"{}\"", file.fileName));
    response.set_content(file.bytes, file.contentType);
}

void routeJournal(DashboardServer& server, AppEnvironment& env, const Clock& clock) {
    server.get("/api/v1/journal", [&env, &clock](const httplib::Request& request,
                                                 httplib::Response& response,
                                                 const DashboardSessions::Session&) {
        std::string problem;
        std::optional<Date> day = askedDay(request, "date", clock.now(), problem);
        if (!day) return sendError(response, 400, problem);
        sendJson(response,
                 JournalViewModel::entryJson(env.store().journal(DateHelpers::dateKey(*day))));
    });
    server.get("/api/v1/journal/days", [&env, &clock](const httplib::Request&,
                                                      httplib::Response& response,
                                                      const DashboardSessions::Session&) {
        sendJson(response, JournalViewModel::daysJson(env.store().journals(),
                                                      DateHelpers::dateKey(clock.now())));
    });
    // The parts sent replace the day's; a blank one clears it, as --notes "" does.
    server.post(
        "/api/v1/journal", [&env](const httplib::Request& request, httplib::Response& response,
                                  const DashboardSessions::Session&) {
            Json body = objectBody(request);
            const char* shape =
                "send {\"date\": \"YYYY-MM-DD\", \"notes\", \"blockers\", \"tomorrow\": TEXT}";
            if (!body.is_object() || !body["date"].is_string())
                return sendError(response, 400, shape);
            std::optional<Date> day = DateHelpers::parseDateKey(body["date"].get<std::string>());
            if (!day) return sendError(response, 400, "the date is a day written YYYY-MM-DD");
            AppEnvironment::JournalChange change{DateHelpers::dateKey(*day), {}, {}, {}};
            for (auto [name, part] :
                 {std::pair{"notes", &change.notes}, std::pair{"blockers", &change.blockers},
                  std::pair{"tomorrow", &change.tomorrow}}) {
                if (!body.contains(name)) continue;
                if (!body[name].is_string()) return sendError(response, 400, shape);
                *part = body[name].get<std::string>();
            }
            AppEnvironment::JournalWrite written = env.writeJournal(change);
            if (!written.saved) return sendError(response, 500, "not saved: " + env.saveProblem());
            sendJson(response, Json{{"changed", written.changed},
                                    {"entry", JournalViewModel::entryJson(written.entry)}});
        });
}

void routeReportFiles(DashboardServer& server, AppEnvironment& env, const Clock& clock) {
    // The reports as 'report daily|weekly --format md|json|csv --out -' prints them,
    // and 'report daily --extended', each a download under the name the reports
    // folder would give it.
    server.get(
        R"(/api/v1/reports/(daily|weekly|extended)\.(md|json|csv))",
        [&env, &clock](const httplib::Request& request, httplib::Response& response,
                       const DashboardSessions::Session&) {
            const std::string kind = request.matches[1];
            const std::string extension = request.matches[2];
            const ReportsViewModel::Format format =
                extension == "json"  ? ReportsViewModel::Format::json
                : extension == "csv" ? ReportsViewModel::Format::csv
                                     : ReportsViewModel::Format::markdown;
            const Date now = clock.now();
            std::string problem;
            std::optional<Date> day =
                askedDay(request, kind == "weekly" ? "week" : "date", now, problem);
            if (!day) return sendError(response, 400, problem);
            const AppConfig config = env.config();
            const Store& store = env.store();
            if (kind == "daily") {
                return sendFile(response, ReportsViewModel::dailyFile(
                                              Queries::dailyReport(store, config, now, *day),
                                              config.repositories, format));
            }
            if (kind == "weekly") {
                std::optional<ReportsViewModel::ReportFile> file = ReportsViewModel::weeklyFile(
                    Queries::weeklySummary(store, config, *day), format);
                if (!file) {
                    return sendError(response, 404, "a weekly report is written as md or json");
                }
                return sendFile(response, *file);
            }
            if (format != ReportsViewModel::Format::markdown) {
                return sendError(response, 404, "the extended report is written as md");
            }
            sendFile(response, ReportsViewModel::extendedDailyFile(
                                   Queries::v2DailyReport(store, config, now, *day),
                                   ReportsViewModel::activityPeriods(store, config, now, *day),
                                   std::nullopt));
        });
}

// The AI summary of a day's extended report, asked for by the person: a run in the
// background that the page follows, as the command line's --ai sends it (commit
// subjects and counts, never code).
void routeSummary(DashboardServer& server, AppEnvironment& env, const Clock& clock) {
    auto job = std::make_shared<ReportSummaryJob>(
        clock, [&env] { env.events().publish("summary", "{}"); });
    server.whenStopping([job] { job->stop(); });
    auto status = [job] {
        Json now = job->status();
        if (now["state"] == "failed") now["failure"] = AISummaryService::kFailureMessage;
        return now;
    };
    server.get("/api/v1/reports/summary",
               [status](const httplib::Request&, httplib::Response& response,
                        const DashboardSessions::Session&) { sendJson(response, status()); });
    server.post("/api/v1/reports/summary", [&env, &clock, job, status](
                                               const httplib::Request& request,
                                               httplib::Response& response,
                                               const DashboardSessions::Session&) {
        Json body = objectBody(request);
        if (!body.is_object() || !body["date"].is_string()) {
            return sendError(response, 400, "send {\"date\": \"YYYY-MM-DD\"}");
        }
        std::optional<Date> day = DateHelpers::parseDateKey(body["date"].get<std::string>());
        if (!day) return sendError(response, 400, "the date is a day written YYYY-MM-DD");
        const AppConfig config = env.config();
        if (!env.aiProvider(env.transport())) {
            return sendError(response, 400,
                             fmt::format("{} {}", AISummaryService::kFailureMessage,
                                         ReportsViewModel::noProviderReason(config.ai.provider)));
        }
        auto work = [&env, &clock, day = *day](const Cancellation& cancel) {
            CancellableTransport transport(env.transport(), cancel);
            std::unique_ptr<AIProvider> provider = env.aiProvider(transport);
            if (!provider) throw std::runtime_error("the AI settings changed meanwhile");
            const AppConfig settings = env.config();
            const Date now = clock.now();
            V2DailyReport report = Queries::v2DailyReport(env.store(), settings, now, day);
            std::string summary =
                Queries::generateAISummary(env.store(), settings, report.base, *provider);
            ReportsViewModel::ReportFile file = ReportsViewModel::extendedDailyFile(
                report, ReportsViewModel::activityPeriods(env.store(), settings, now, day),
                summary);
            return Json{
                {"summary", summary}, {"markdown", file.bytes}, {"fileName", file.fileName}};
        };
        const std::string provider(ReportsViewModel::providerName(config.ai.provider));
        if (!job->start(DateHelpers::dateKey(*day), provider, work)) {
            return sendError(response, 409,
                             "a summary is being written already: wait for it or cancel it");
        }
        response.status = 202;
        sendJson(response, status());
    });
    server.post("/api/v1/reports/summary/cancel",
                [job, status](const httplib::Request&, httplib::Response& response,
                              const DashboardSessions::Session&) {
                    if (!job->cancel()) {
                        return sendError(response, 409, "no summary is being written");
                    }
                    sendJson(response, status());
                });
}

}  // namespace

void routeWriting(DashboardServer& server, AppEnvironment& env, const Clock& clock,
                  const ProcessRunner&) {
    routeJournal(server, env, clock);
    routeReportFiles(server, env, clock);
    routeSummary(server, env, clock);
}

}  // namespace quorvane::Dashboard
