#pragma once

#include <atomic>

#include "platform/FileDescriptor.hpp"

namespace quorvane {

// A one-way signal that work should stop: once `cancel` is called it stays
// cancelled. Besides the flag it offers a descriptor that becomes readable at that
// moment, so a thread blocked in poll() on a child process wakes up at once instead
// of at the child's timeout. Safe to use from any thread.
class Cancellation {
public:
    Cancellation();
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    void cancel();
    bool isCancelled() const { return cancelled_.load(); }

    // Readable (POLLIN) once cancelled; -1 when no descriptor could be had, in which
    // case a waiter falls back on looking at `isCancelled` now and then.
    int pollDescriptor() const { return event_.get(); }

private:
    std::atomic<bool> cancelled_{false};
    Fd event_;
};

}  // namespace quorvane
