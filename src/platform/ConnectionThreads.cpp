#include "platform/ConnectionThreads.hpp"

#include <utility>

namespace quorvane {

void ConnectionThreads::start(Fd socket, std::function<void(Fd)> serve) {
    auto entry = std::make_unique<Entry>();
    Entry* raw = entry.get();
    entry->thread =
        std::thread([raw, serve = std::move(serve), socket = std::move(socket)]() mutable {
            serve(std::move(socket));
            raw->done = true;
        });
    std::lock_guard lock(mutex_);
    entries_.push_back(std::move(entry));
}

size_t ConnectionThreads::running() const {
    std::lock_guard lock(mutex_);
    size_t count = 0;
    for (const auto& entry : entries_) {
        if (!entry->done) ++count;
    }
    return count;
}

void ConnectionThreads::reapFinished() {
    std::list<std::unique_ptr<Entry>> finished;
    {
        std::lock_guard lock(mutex_);
        for (auto it = entries_.begin(); it != entries_.end();) {
            auto next = std::next(it);
            if ((*it)->done) finished.splice(finished.end(), entries_, it);
            it = next;
        }
    }
    // Outside the lock: a thread that has set done may still be on its way out.
    for (auto& entry : finished) entry->thread.join();
}

void ConnectionThreads::joinAll() {
    std::list<std::unique_ptr<Entry>> all;
    {
        std::lock_guard lock(mutex_);
        all.swap(entries_);
    }
    for (auto& entry : all) entry->thread.join();
}

}  // namespace quorvane
