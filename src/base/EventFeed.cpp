#include "base/EventFeed.hpp"

namespace quorvane {

void EventFeed::publish(std::string kind, std::string data) {
    {
        std::lock_guard lock(mutex_);
        events_.push_back(FeedEvent{++latest_, std::move(kind), std::move(data)});
        if (events_.size() > kKept) events_.pop_front();
    }
    published_.notify_all();
}

std::vector<FeedEvent> EventFeed::after(uint64_t after, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    published_.wait_for(lock, timeout, [&] { return closed_ || latest_ > after; });
    std::vector<FeedEvent> found;
    if (closed_) return found;
    for (const FeedEvent& event : events_) {
        if (event.number > after) found.push_back(event);
    }
    return found;
}

uint64_t EventFeed::latest() const {
    std::lock_guard lock(mutex_);
    return latest_;
}

void EventFeed::close() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    published_.notify_all();
}

bool EventFeed::closed() const {
    std::lock_guard lock(mutex_);
    return closed_;
}

}  // namespace quorvane
