#include "app/Scheduler.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "base/Log.hpp"

namespace quorvane {

void Scheduler::arm(TaskID id, Task task) {
    // The lifecycle lock first: a stop that has begun either sees this thread or
    // keeps it from starting.
    std::lock_guard lifecycle(threadLifecycle_);
    {
        std::lock_guard lock(mutex_);
        if (stopped_) return;
        slots_.insert_or_assign(id, Slot{std::move(task), clock_.now()});
    }
    wakeup_.notify();
    if (!thread_.joinable()) {
        thread_ = std::jthread([this](std::stop_token stop) { loop(stop); });
    }
}

void Scheduler::disarm(TaskID id) {
    {
        std::lock_guard lock(mutex_);
        slots_.erase(id);
    }
    wakeup_.notify();
}

bool Scheduler::isArmed(TaskID id) const {
    std::lock_guard lock(mutex_);
    return slots_.contains(id);
}

void Scheduler::reschedule() {
    {
        std::lock_guard lock(mutex_);
        // The moment of the change, not the moment the thread gets to it.
        rescheduledAt_ = clock_.now();
    }
    wakeup_.notify();
}

void Scheduler::runSoon(TaskID id) {
    {
        std::lock_guard lock(mutex_);
        auto slot = slots_.find(id);
        if (slot == slots_.end()) return;
        slot->second.runSoon = true;
    }
    wakeup_.notify();
}

void Scheduler::stop() {
    {
        std::lock_guard lock(mutex_);
        stopped_ = true;
        slots_.clear();
    }
    // Joined outside the lifecycle lock: the task under way may arm a task, which
    // takes that lock, and must be able to finish.
    std::jthread thread;
    {
        std::lock_guard lifecycle(threadLifecycle_);
        thread = std::move(thread_);
    }
    if (thread.joinable()) {
        thread.request_stop();
        thread.join();
    }
}

std::optional<Date> Scheduler::dueOf(Slot& slot, Date now) {
    std::optional<Date> due = slot.task.due(slot.roundStart, now);
    if (!due) {
        slot.idle = true;
    } else if (slot.idle) {
        // Given a time again after having none: it counts from this moment.
        slot.idle = false;
        slot.roundStart = now;
        due = slot.task.due(slot.roundStart, now);
    }
    if (slot.runSoon) return now;
    return due;
}

std::optional<Date> Scheduler::step() {
    {
        std::lock_guard lock(mutex_);
        if (std::optional<Date> changedAt = std::exchange(rescheduledAt_, std::nullopt)) {
            for (auto& [id, slot] : slots_) {
                if (slot.task.onReschedule == OnReschedule::restartRound) {
                    slot.roundStart = *changedAt;
                }
            }
        }
    }
    for (TaskID id : {TaskID::scan, TaskID::sync, TaskID::review, TaskID::snoozed}) {
        std::function<void()> run;
        std::string name;
        {
            std::lock_guard lock(mutex_);
            auto slot = slots_.find(id);
            if (stopped_ || slot == slots_.end()) continue;
            Date now = clock_.now();
            std::optional<Date> due = dueOf(slot->second, now);
            if (!due || *due > now) continue;
            slot->second.runSoon = false;
            // The next round counts from the start of this one, so what the run
            // itself reports is seen after its round is in place.
            slot->second.roundStart = now;
            run = slot->second.task.run;
            name = slot->second.task.name;
        }
        try {
            run();
        } catch (const std::exception& error) {
            Log::app().error(fmt::format("{} failed: {}", name, error.what()));
        }
        // A run that outlasted its interval starts the next round when it ends, so a
        // slow task never runs back to back.
        std::lock_guard lock(mutex_);
        auto slot = slots_.find(id);
        if (slot == slots_.end()) continue;
        Date now = clock_.now();
        std::optional<Date> next = slot->second.task.due(slot->second.roundStart, now);
        if (next && *next < now) slot->second.roundStart = now;
    }
    std::lock_guard lock(mutex_);
    Date now = clock_.now();
    std::optional<Date> next;
    for (auto& [id, slot] : slots_) {
        std::optional<Date> due = dueOf(slot, now);
        if (due && (!next || *due < *next)) next = due;
    }
    return next;
}

void Scheduler::loop(std::stop_token stop) {
    while (!stop.stop_requested()) {
        std::optional<Date> next = step();
        if (stop.stop_requested()) return;
        clock_.waitUntil(next, wakeup_, stop);
    }
}

}  // namespace quorvane
