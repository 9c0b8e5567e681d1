#include "platform/DesktopNotifier.hpp"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <system_error>

#include <fmt/format.h>

#include "base/Log.hpp"

namespace quorvane {
namespace {

constexpr const char* kService = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";

// The event sound of the freedesktop sound theme for a newly arrived message; servers
// that play sounds play it, the others ignore the hint.
constexpr const char* kSoundName = "message-new-instant";

// A server that is being started by bus activation answers within a few seconds; a
// reminder is not worth holding a scan up longer than this.
constexpr uint64_t kCallTimeoutMicroseconds = 5'000'000;

}  // namespace

// Releases the bus connection and message references on every path out of a call.
struct DesktopNotifier::BusHandles {
    sd_bus* bus = nullptr;
    sd_bus_message* call = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;

    ~BusHandles() {
        sd_bus_error_free(&error);
        sd_bus_message_unref(reply);
        sd_bus_message_unref(call);
        sd_bus_flush_close_unref(bus);
    }
};

void DesktopNotifier::post(const Notification& notification) {
    std::lock_guard lock(mutex_);
    BusHandles h;
    if (!connect(h)) return;

    uint32_t replacesID = 0;
    if (auto known = shown_.find(notification.key); known != shown_.end()) {
        replacesID = known->second;
    }
    int r = sd_bus_message_new_method_call(h.bus, &h.call, kService, kPath, kInterface, "Notify");
    // app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout
    if (r >= 0) {
        r = sd_bus_message_append(h.call, "susss", "Quorvane", replacesID, "",
                                  notification.title.c_str(), notification.body.c_str());
    }
    if (r >= 0) r = sd_bus_message_append(h.call, "as", 0);
    if (r >= 0) r = sd_bus_message_append(h.call, "a{sv}", 1, "sound-name", "s", kSoundName);
    if (r >= 0) r = sd_bus_message_append(h.call, "i", int32_t{-1});
    if (r < 0) {
        noteFailure("cannot build the notification", r);
        return;
    }
    r = sd_bus_call(h.bus, h.call, kCallTimeoutMicroseconds, &h.error, &h.reply);
    if (r < 0) {
        noteFailure(sd_bus_error_is_set(&h.error) ? h.error.name : "the notification call failed",
                    r);
        return;
    }
    uint32_t id = 0;
    r = sd_bus_message_read(h.reply, "u", &id);
    if (r < 0) {
        noteFailure("the notification server's answer holds no id", r);
        return;
    }
    shown_[notification.key] = id;
}

void DesktopNotifier::close(const std::string& key) {
    std::lock_guard lock(mutex_);
    auto known = shown_.find(key);
    if (known == shown_.end()) return;
    uint32_t id = known->second;
    // Forgotten whatever comes of the call: a closed key posted again is a notification
    // of its own, so its id would serve nothing.
    shown_.erase(known);
    BusHandles h;
    if (!connect(h)) return;
    int r = sd_bus_message_new_method_call(h.bus, &h.call, kService, kPath, kInterface,
                                           "CloseNotification");
    if (r >= 0) r = sd_bus_message_append(h.call, "u", id);
    if (r < 0) {
        noteFailure("cannot build the call that closes a notification", r);
        return;
    }
    // The user may have dismissed the notification already, and some servers answer
    // that with an error; either way it is gone, so the answer is not looked at.
    sd_bus_call(h.bus, h.call, kCallTimeoutMicroseconds, &h.error, &h.reply);
}

bool DesktopNotifier::connect(BusHandles& h) {
    // Only an address given by the session counts: guessing a socket path would reach
    // another user's or a stale bus when run outside a desktop session.
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address == nullptr || *address == '\0') {
        noteFailure("no session bus", 0);
        return false;
    }
    // One connection per call: reminders are rare, and a connection of our own needs
    // no lock of the bus library's and survives a restarted bus.
    int r = sd_bus_new(&h.bus);
    if (r >= 0) r = sd_bus_set_address(h.bus, address);
    if (r >= 0) r = sd_bus_set_bus_client(h.bus, 1);
    if (r >= 0) r = sd_bus_start(h.bus);
    if (r < 0) {
        noteFailure("cannot connect to the session bus", r);
        return false;
    }
    return true;
}

void DesktopNotifier::noteFailure(const char* what, int error) {
    if (failureLogged_.exchange(true)) return;
    std::string reason =
        error < 0 ? fmt::format("{} ({})", what,
                                std::error_code(-error, std::generic_category()).message())
                  : what;
    Log::app().log(LogLevel::notice,
                   fmt::format("Desktop notifications are unavailable: {}; reminders are kept "
                               "but not shown.",
                               reason));
}

}  // namespace quorvane
