#include "platform/InterruptWatch.hpp"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

namespace quorvane {

namespace {

sigset_t endingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, signal);
    return set;
}

}  // namespace

InterruptWatch::InterruptWatch(std::function<void(int)> onSignal) : onSignal_(std::move(onSignal)) {
    const sigset_t set = endingSignals();
    pthread_sigmask(SIG_BLOCK, &set, &previousMask_);
    signals_ = Fd(::signalfd(-1, &set, SFD_CLOEXEC));
    stop_ = Fd(::eventfd(0, EFD_CLOEXEC));
    // Without either descriptor nothing can be watched: the signals then keep their
    // usual effect, which ends the command at once.
    if (!signals_.valid() || !stop_.valid()) {
        pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
        return;
    }
    watcher_ = std::jthread([this] { watch(signals_.get(), stop_.get()); });
}

InterruptWatch::~InterruptWatch() {
    if (watcher_.joinable()) {
        uint64_t one = 1;
        [[maybe_unused]] ssize_t written = ::write(stop_.get(), &one, sizeof one);
        watcher_.join();
    }
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

void InterruptWatch::watch(int signalFd, int stopFd) {
    pollfd fds[2] = {{signalFd, POLLIN, 0}, {stopFd, POLLIN, 0}};
    for (;;) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents != 0) return;
        signalfd_siginfo info{};
        if (::read(signalFd, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) continue;
        const int signal = static_cast<int>(info.ssi_signo);
        onSignal_(signal);
        // Ended by the signal itself, so the shell that started the command sees
        // Ctrl-C as Ctrl-C. A handler the command installed (one that puts the
        // terminal back, say) runs first, here.
        sigset_t just;
        sigemptyset(&just);
        sigaddset(&just, signal);
        pthread_sigmask(SIG_UNBLOCK, &just, nullptr);
        ::raise(signal);
        return;
    }
}

}  // namespace quorvane
