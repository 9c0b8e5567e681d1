#pragma once

#include "reports/ReminderEvent.hpp"

namespace quorvane {

// Shows a newly raised reminder to the user. The real one is DesktopNotifier; tests
// substitute one that records what it was given. `post` may be called from any
// thread, never throws and reports nothing back: a reminder is stored whether or
// not it could be shown.
class Notifier {
public:
    virtual ~Notifier() = default;
    virtual void post(const ReminderEvent& event) = 0;
};

}  // namespace quorvane
