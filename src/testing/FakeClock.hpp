#pragma once

#include <atomic>

#include "platform/Clock.hpp"

namespace quorvane::testing {

// A clock that says what the test sets, and moves only when told to.
class FakeClock final : public Clock {
public:
    explicit FakeClock(Date now) : now_(now.time_since_epoch().count()) {}

    Date now() const override { return Date(std::chrono::seconds(now_.load())); }
    void set(Date now) { now_ = now.time_since_epoch().count(); }
    void advance(std::chrono::seconds by) { now_ += by.count(); }

private:
    std::atomic<long long> now_;
};

}  // namespace quorvane::testing
