#include "platform/Cancellation.hpp"

#include <sys/eventfd.h>

#include <cstdint>

namespace quorvane {

Cancellation::Cancellation() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Cancellation::cancel() {
    if (cancelled_.exchange(true)) return;
    if (!event_.valid()) return;
    // The counter is never read back, so it stays readable for every later poll.
    uint64_t one = 1;
    ssize_t written = ::write(event_.get(), &one, sizeof one);
    (void)written;
}

}  // namespace quorvane
