#pragma once

#include <string>

#include "records/ReminderEvent.hpp"

namespace quorvane {

// Shows reminders to the user, and takes them down once resolved. The real one is
// DesktopNotifier; tests substitute one that records what it was given. Both
// operations may be called from any thread, never throw and report nothing back: a
// reminder is stored whether or not it could be shown.
class Notifier {
public:
    virtual ~Notifier() = default;

    // Shows `event`; a reminder shown before replaces its own notification.
    virtual void post(const ReminderEvent& event) = 0;

    // Takes down the notification of the reminder with id `reminderID`, now resolved.
    // Does nothing for a reminder this notifier has not shown.
    virtual void close(const std::string& reminderID) = 0;
};

}  // namespace quorvane
