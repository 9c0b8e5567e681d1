#pragma once

#include <string>
#include <vector>

namespace quorvane {

// A button on a notification: `key` is what the owner is told when the person
// presses it, `label` what the button reads.
struct NotificationAction {
    std::string key;
    std::string label;

    bool operator==(const NotificationAction&) const = default;
};

// What the desktop shows: a headline and a line of text. `key` names what is shown,
// so a notification posted again under the same key replaces the earlier one and
// `close(key)` takes it down. `actions` are offered where the desktop can offer them
// and left out where it cannot, so nothing may depend on one being pressed.
struct Notification {
    std::string key;
    std::string title;
    std::string body;
    std::vector<NotificationAction> actions;

    bool operator==(const Notification&) const = default;
};

// Shows notifications to the user, and takes them down once they no longer hold. The
// real one is DesktopNotifier; tests substitute one that records what it was given.
// Both operations may be called from any thread, never throw and report nothing back:
// whatever a notification tells of is kept whether or not it could be shown.
class Notifier {
public:
    virtual ~Notifier() = default;

    // Shows `notification`; one shown before under the same key is replaced.
    virtual void post(const Notification& notification) = 0;

    // Takes down the notification shown under `key`. Does nothing for a key this
    // notifier has not shown.
    virtual void close(const std::string& key) = 0;
};

}  // namespace quorvane
