#pragma once

#include <atomic>
#include <mutex>
#include <set>

#include "platform/Clock.hpp"

namespace quorvane::testing {

// A clock that says what the test sets, and moves only when told to. A thread
// waiting on it wakes when a move reaches the time it waits for, so a test sees a
// timer fire as soon as it moves the clock past it.
class FakeClock final : public Clock {
public:
    explicit FakeClock(Date now) : now_(now.time_since_epoch().count()) {}

    Date now() const override { return Date(std::chrono::seconds(now_.load())); }
    void set(Date now) {
        now_ = now.time_since_epoch().count();
        recheckWaiters();
    }
    void advance(std::chrono::seconds by) {
        now_ += by.count();
        recheckWaiters();
    }

    void waitUntil(std::optional<Date> deadline, Wakeup& wakeup,
                   std::stop_token stop) const override {
        {
            std::lock_guard lock(waitersMutex_);
            waiters_.insert(&wakeup);
        }
        wakeup.wait(stop, std::nullopt, [&] { return deadline && now() >= *deadline; });
        std::lock_guard lock(waitersMutex_);
        waiters_.erase(&wakeup);
    }

private:
    // The waiters stay registered, and so alive, while the lock is held.
    void recheckWaiters() {
        std::lock_guard lock(waitersMutex_);
        for (Wakeup* waiter : waiters_) waiter->recheck();
    }

    std::atomic<long long> now_;
    mutable std::mutex waitersMutex_;
    mutable std::set<Wakeup*> waiters_;
};

}  // namespace quorvane::testing
