#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "platform/Shell.hpp"

namespace quorvane::bench {

// Counts the children started through it.
class CountingRunner final : public ProcessRunner {
public:
    ShellResult run(const ProcessRequest& request) const override {
        ++started_;
        {
            std::lock_guard lock(mutex_);
            ++byFolder_[request.cwd.value_or("")];
        }
        return shell_.run(request);
    }
    LaunchResult startDetached(const ProcessRequest& request) const override {
        return shell_.startDetached(request);
    }
    long started() const { return started_.load(); }
    void reset() {
        started_ = 0;
        std::lock_guard lock(mutex_);
        byFolder_.clear();
    }
    // Children started in each working folder since the last reset.
    std::map<std::string, int> byFolder() const {
        std::lock_guard lock(mutex_);
        return byFolder_;
    }

private:
    Shell shell_;
    mutable std::atomic<long> started_{0};
    mutable std::mutex mutex_;
    mutable std::map<std::string, int> byFolder_;
};

}  // namespace quorvane::bench
