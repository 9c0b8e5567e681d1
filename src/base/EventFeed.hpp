#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace quorvane {

// What happened in the running service that an open screen shows: a scan finished,
// a proposal arrived or was decided, a reminder was raised. Each event has a number
// one above the last, so a reader that saw up to N asks for what came after N.
struct FeedEvent {
    uint64_t number = 0;
    std::string kind;  // "scan", "proposal", "reminder", ...
    std::string data;  // a JSON text
};

// The service's events for readers that come and go (the dashboard's open pages).
// Only the latest `kKept` are kept: a reader that fell further behind gets the ones
// still kept and reloads what it shows, which it does on every event anyway.
// Any thread may publish and read at once.
class EventFeed {
public:
    static constexpr size_t kKept = 64;

    void publish(std::string kind, std::string data);

    // The events numbered above `after`, oldest first. Waits up to `timeout` for
    // one when there is none yet; empty when the wait ran out or the feed closed.
    std::vector<FeedEvent> after(uint64_t after, std::chrono::milliseconds timeout);
    // The number of the latest event; 0 before the first.
    uint64_t latest() const;

    // Wakes every waiting reader and lets none wait again: the service is stopping.
    void close();
    bool closed() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable published_;
    std::deque<FeedEvent> events_;
    uint64_t latest_ = 0;
    bool closed_ = false;
};

}  // namespace quorvane
