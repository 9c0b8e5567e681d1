#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace quorvane::testing {

// A latch whose waits give up after a limit, so a test whose threads never all
// arrive fails in seconds instead of hanging until the suite's timeout. Once one
// wait has given up the latch is broken: every later wait fails at once, so
// threads that would have queued behind each other cannot add their limits up.
class BoundedLatch {
public:
    explicit BoundedLatch(int count) : count_(count) {}

    void countDown() {
        {
            std::lock_guard lock(mutex_);
            if (count_ > 0) --count_;
        }
        reached_.notify_all();
    }

    // True when the count reached zero within `limit`.
    bool wait(std::chrono::milliseconds limit = kLimit) {
        std::unique_lock lock(mutex_);
        if (reached_.wait_for(lock, limit, [&] { return count_ == 0 || broken_; }) && count_ == 0) {
            return true;
        }
        broken_ = true;
        reached_.notify_all();
        return false;
    }

    bool arriveAndWait(std::chrono::milliseconds limit = kLimit) {
        countDown();
        return wait(limit);
    }

    static constexpr std::chrono::milliseconds kLimit{5000};

private:
    std::mutex mutex_;
    std::condition_variable reached_;
    int count_;
    bool broken_ = false;
};

}  // namespace quorvane::testing
