#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <set>
#include <vector>

#include "platform/FileDescriptor.hpp"

namespace quorvane::testing {

// Leaves the process no descriptor to spare while it exists: the soft limit is
// lowered to just above the highest one open and every free number below it is
// taken. Both are given back when it goes away. Nothing else in the process may
// rely on opening a descriptor meanwhile.
class SpentDescriptors {
public:
    SpentDescriptors();
    ~SpentDescriptors();
    SpentDescriptors(const SpentDescriptors&) = delete;
    SpentDescriptors& operator=(const SpentDescriptors&) = delete;

    // False when the limit could not be lowered or a descriptor was still free.
    bool spent() const { return spent_; }

private:
    rlimit saved_{};
    bool lowered_ = false;
    bool spent_ = false;
    std::vector<Fd> taken_;
};

// The ids of this process's threads.
std::set<pid_t> threadIds();

// The processor time one thread of this process has used, user and system
// together, in clock ticks. Its /proc file is opened at once, so it can be read
// while no descriptor is left.
class ThreadCpuTime {
public:
    explicit ThreadCpuTime(pid_t thread);

    bool valid() const { return stat_.valid(); }
    // -1 when the file cannot be read.
    long ticks() const;

private:
    Fd stat_;
};

}  // namespace quorvane::testing
