#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>

#include "base/DateHelpers.hpp"

namespace quorvane {

// Wakes a thread that waits on a Clock before the time it waits for has come. A
// notify made while nobody waits is kept for the next wait, so none is lost.
class Wakeup {
public:
    void notify();

    // For the clocks: blocks until notify() is called, `stop` is requested,
    // `reached()` holds, or the real-time `deadline` passes, and consumes a notify.
    // `reached` is read under the wake-up's lock, so a clock whose time moves must
    // call recheck() afterwards to have it read again.
    void wait(std::stop_token stop, std::optional<std::chrono::system_clock::time_point> deadline,
              const std::function<bool()>& reached);
    void recheck();

private:
    std::mutex mutex_;
    std::condition_variable_any changed_;
    bool notified_ = false;
};

// Every "now" of the program comes through a Clock, so engines and tests can fix
// time. Local-time rules (day keys, local midnight) follow the process's TZ.
class Clock {
public:
    virtual ~Clock() = default;
    virtual Date now() const = 0;

    // Blocks until this clock reads `deadline` or later (never, for none), `wakeup`
    // is notified, or `stop` is requested. Whoever waits looks at the clock again
    // afterwards: returning says only that something may have changed.
    virtual void waitUntil(std::optional<Date> deadline, Wakeup& wakeup,
                           std::stop_token stop) const = 0;
};

// The system's real-time clock, truncated to whole seconds.
class SystemClock final : public Clock {
public:
    Date now() const override;
    // A deadline on the wall clock, so time spent suspended counts toward it.
    void waitUntil(std::optional<Date> deadline, Wakeup& wakeup,
                   std::stop_token stop) const override;
};

}  // namespace quorvane
