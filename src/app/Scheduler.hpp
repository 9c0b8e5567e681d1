#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/Clock.hpp"

namespace quorvane {

// The service's timers on one thread: each recurring task says when it is next due
// and what it does, and the thread sleeps on the Clock until the earliest is due.
// Tasks run one at a time on that thread, never while holding the scheduler's lock,
// so a task may arm, disarm or reschedule tasks itself. A run that throws is logged
// and costs that round only, never the thread.
class Scheduler {
public:
    enum class TaskID { scan, sync, review, snoozed };

    // When a task that started its round at `roundStart` is next due, now that it is
    // `now`; nothing while its settings give it no time. A round starts when the task
    // is armed and when it starts to run.
    using DueFunction = std::function<std::optional<Date>(Date roundStart, Date now)>;

    enum class OnReschedule {
        keepRound,     // a new interval counts from the start of the round under way
        restartRound,  // a new time counts from the moment it was set
    };

    struct Task {
        // How the log names the task when a run fails.
        std::string name;
        DueFunction due;
        std::function<void()> run;
        OnReschedule onReschedule = OnReschedule::keepRound;
    };

    explicit Scheduler(const Clock& clock) : clock_(clock) {}
    ~Scheduler() { stop(); }
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    // Puts `task` in place of the one with this id, its round starting now, and
    // starts the thread if it is not running. Nothing once stopped.
    void arm(TaskID id, Task task);
    void disarm(TaskID id);
    bool isArmed(TaskID id) const;

    // The settings the tasks read have changed: their times are worked out again.
    void reschedule();
    // Runs the task as soon as the thread is free, its next round counting from then.
    void runSoon(TaskID id);

    // Ends the thread, waiting for a task under way; nothing is armed again after.
    void stop();

    // One round of the thread: runs each task due at the clock's time, in id order,
    // and returns when the next is due; nothing when none is.
    std::optional<Date> step();

private:
    struct Slot {
        Task task;
        Date roundStart;
        bool idle = false;  // no time the last it was asked
        bool runSoon = false;
    };
    void loop(std::stop_token stop);
    // With mutex_ held: takes in a reschedule, and says whether `slot` is due at `now`
    // and when it next is.
    std::optional<Date> dueOf(Slot& slot, Date now);

    const Clock& clock_;
    Wakeup wakeup_;
    mutable std::mutex mutex_;
    std::map<TaskID, Slot> slots_;
    std::optional<Date> rescheduledAt_;  // when the settings last changed, until taken in
    bool stopped_ = false;
    std::mutex threadLifecycle_;
    std::jthread thread_;
};

}  // namespace quorvane
