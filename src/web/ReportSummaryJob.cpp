#include "web/ReportSummaryJob.hpp"

#include <exception>

#include "base/TextHelpers.hpp"

namespace quorvane {

namespace {

const char* stateName(ReportSummaryJob::State state) {
    switch (state) {
        case ReportSummaryJob::State::idle: return "idle";
        case ReportSummaryJob::State::running: return "running";
        case ReportSummaryJob::State::done: return "done";
        case ReportSummaryJob::State::failed: return "failed";
        case ReportSummaryJob::State::cancelled: return "cancelled";
    }
    return "idle";
}

}  // namespace

ReportSummaryJob::ReportSummaryJob(const Clock& clock, std::function<void()> ended)
    : clock_(clock), ended_(std::move(ended)) {}

ReportSummaryJob::~ReportSummaryJob() {
    stop();
}

bool ReportSummaryJob::start(const std::string& dateKey, const std::string& provider, Work work) {
    std::lock_guard lock(mutex_);
    if (stopped_ || state_ == State::running) return false;
    // The last run has ended: its thread has nothing left to do but return.
    if (thread_.joinable()) thread_.join();
    state_ = State::running;
    dateKey_ = dateKey;
    provider_ = provider;
    startedAt_ = clock_.now();
    result_ = Json();
    problem_.clear();
    cancel_ = std::make_unique<Cancellation>();
    thread_ = std::thread([this, work = std::move(work)] { run(work); });
    return true;
}

void ReportSummaryJob::run(Work work) {
    const Cancellation* cancel = nullptr;
    {
        // Replaced only by the next start, which waits for this thread first.
        std::lock_guard lock(mutex_);
        cancel = cancel_.get();
    }
    Json result;
    std::string problem;
    bool failed = false;
    try {
        result = work(*cancel);
    } catch (const std::exception& error) {
        failed = true;
        problem = Text::visible(error.what());
    }
    {
        std::lock_guard lock(mutex_);
        endedAt_ = clock_.now();
        if (cancel->isCancelled()) {
            state_ = State::cancelled;
        } else if (failed) {
            state_ = State::failed;
            problem_ = problem;
        } else {
            state_ = State::done;
            result_ = std::move(result);
        }
    }
    if (ended_) ended_();
}

bool ReportSummaryJob::cancel() {
    std::lock_guard lock(mutex_);
    if (state_ != State::running) return false;
    cancel_->cancel();
    return true;
}

void ReportSummaryJob::stop() {
    std::thread running;
    {
        std::lock_guard lock(mutex_);
        stopped_ = true;
        if (state_ == State::running) cancel_->cancel();
        running = std::move(thread_);
    }
    if (running.joinable()) running.join();
}

Json ReportSummaryJob::status() const {
    std::lock_guard lock(mutex_);
    Json status = {{"state", stateName(state_)}};
    if (state_ == State::idle) return status;
    const Date until = state_ == State::running ? clock_.now() : endedAt_;
    status["dateKey"] = dateKey_;
    status["provider"] = provider_;
    status["startedAt"] = toJson(startedAt_);
    status["elapsedSeconds"] = (until - startedAt_).count();
    status["cancelling"] = state_ == State::running && cancel_->isCancelled();
    if (state_ == State::done) status["result"] = result_;
    if (state_ == State::failed) status["problem"] = problem_;
    return status;
}

}  // namespace quorvane
