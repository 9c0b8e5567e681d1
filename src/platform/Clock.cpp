#include "platform/Clock.hpp"

#include <algorithm>

namespace quorvane {

void Wakeup::notify() {
    {
        std::lock_guard lock(mutex_);
        notified_ = true;
    }
    changed_.notify_all();
}

void Wakeup::wait(std::stop_token stop,
                  std::optional<std::chrono::system_clock::time_point> deadline,
                  const std::function<bool()>& reached) {
    std::unique_lock lock(mutex_);
    auto ready = [&] { return notified_ || reached(); };
    if (deadline) {
        changed_.wait_until(lock, stop, *deadline, ready);
    } else {
        changed_.wait(lock, stop, ready);
    }
    notified_ = false;
}

void Wakeup::recheck() {
    // Taking the lock orders the clock's change before or after the waiter's check:
    // a waiter between its check and its sleep cannot miss this notify.
    { std::lock_guard lock(mutex_); }
    changed_.notify_all();
}

Date SystemClock::now() const {
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

void SystemClock::waitUntil(std::optional<Date> deadline, Wakeup& wakeup,
                            std::stop_token stop) const {
    std::optional<std::chrono::system_clock::time_point> until;
    if (deadline) {
        // A year at most: longer waits overflow the clock's arithmetic, and a wait
        // that ends early only makes its owner look again.
        constexpr std::chrono::seconds kLongest{366LL * 24 * 3600};
        until = std::min<std::chrono::system_clock::time_point>(*deadline, now() + kLongest);
    }
    wakeup.wait(stop, until, [] { return false; });
}

}  // namespace quorvane
