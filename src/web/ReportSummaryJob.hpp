#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "base/DateHelpers.hpp"
#include "platform/Cancellation.hpp"
#include "platform/Clock.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// The AI summary a person asked for on the Reports screen, written on a thread of
// its own while the page shows how long it has been waiting: a provider may take a
// minute, longer than a page should hold a request open with nothing shown. One
// at a time; the person may cancel it, which ends the provider's request.
class ReportSummaryJob {
public:
    enum class State { idle, running, done, failed, cancelled };

    // The work: the summary's result as the page reads it, written while `cancel`
    // is not cancelled. Throws, with a message for the person, when it fails.
    using Work = std::function<Json(const Cancellation& cancel)>;

    // `ended` is told each time a run ends, however it ends.
    ReportSummaryJob(const Clock& clock, std::function<void()> ended);
    // Cancels a run under way and waits for its thread.
    ~ReportSummaryJob();
    ReportSummaryJob(const ReportSummaryJob&) = delete;
    ReportSummaryJob& operator=(const ReportSummaryJob&) = delete;

    // Starts `work` for the day `dateKey`, asked of `provider`; false while another
    // run is under way (a cancelled one included, until its request has ended).
    bool start(const std::string& dateKey, const std::string& provider, Work work);
    // Asks a run under way to stop; false when none is.
    bool cancel();
    // Cancels a run under way and waits for it; nothing starts afterwards.
    void stop();

    // Where the last run stands, as the page reads it: "state", "dateKey",
    // "provider", "startedAt", "elapsedSeconds" (up to now while it runs), and once
    // ended, "result" (done) or "problem" (failed).
    Json status() const;

private:
    void run(Work work);

    const Clock& clock_;
    std::function<void()> ended_;
    mutable std::mutex mutex_;
    State state_ = State::idle;
    bool stopped_ = false;
    std::string dateKey_;
    std::string provider_;
    Date startedAt_{};
    Date endedAt_{};
    Json result_;
    std::string problem_;
    std::unique_ptr<Cancellation> cancel_;
    std::thread thread_;
};

}  // namespace quorvane
