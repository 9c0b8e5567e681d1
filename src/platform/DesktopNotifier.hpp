#pragma once

#include <atomic>

#include "platform/Notifier.hpp"

namespace quorvane {

// Posts reminders to the desktop's notification server over the session bus: the
// kind's title as the summary, the reminder's message as the body, with the
// desktop's sound for a new message. Without a session bus (no
// DBUS_SESSION_BUS_ADDRESS, as under a bare service manager or over ssh) or when
// the bus or the server refuses, nothing is shown; the first such failure is
// logged, later ones are not, so a headless machine does not fill the log.
class DesktopNotifier final : public Notifier {
public:
    void post(const ReminderEvent& event) override;

private:
    void noteFailure(const char* what, int error);

    std::atomic<bool> failureLogged_{false};
};

}  // namespace quorvane
