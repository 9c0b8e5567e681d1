#pragma once

#include <signal.h>

#include <functional>
#include <thread>

#include "platform/FileDescriptor.hpp"

namespace quorvane {

// Gives the signals that end a one-shot command (SIGINT from Ctrl-C, SIGTERM,
// SIGHUP) to a thread of their own while it lives, so the command can stop what it
// started before it goes: git children run in sessions of their own, where Ctrl-C
// at the terminal never reaches them.
//
// Construct it before the command starts any thread: the signals are blocked in the
// constructing thread, and threads started later inherit that. When one arrives,
// `onSignal` runs on the watching thread, then the signal takes its course there:
// the command's own handler for it when it set one, else the end of the process. Destroying the
// watch without a signal puts the thread's signal mask back.
class InterruptWatch {
public:
    explicit InterruptWatch(std::function<void(int signal)> onSignal);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

private:
    void watch(int signalFd, int stopFd);

    std::function<void(int)> onSignal_;
    sigset_t previousMask_{};
    Fd signals_;
    Fd stop_;
    std::jthread watcher_;
};

}  // namespace quorvane
