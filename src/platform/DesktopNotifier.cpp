#include "platform/DesktopNotifier.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>

#include <fmt/format.h>

#include "base/Log.hpp"
#include "base/TextHelpers.hpp"

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
constexpr uint64_t kNotifierCallTimeoutMicroseconds = 5'000'000;

std::string errorText(int error) {
    return std::error_code(-error, std::generic_category()).message();
}

// Milliseconds until sd-bus's absolute CLOCK_MONOTONIC deadline, for poll; -1 for none.
int pollTimeout(sd_bus* bus) {
    uint64_t until = 0;
    if (sd_bus_get_timeout(bus, &until) <= 0 || until == UINT64_MAX) return -1;
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    uint64_t nowUs =
        static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
    if (until <= nowUs) return 0;
    return static_cast<int>(std::min<uint64_t>((until - nowUs + 999) / 1000, 60'000));
}

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

// A connection of its own that hears the notification server's signals, and the
// thread that processes it. The connection is subscribed before the constructor
// returns, so a signal about a notification posted afterwards cannot slip past;
// from then on only the thread touches it. An eventfd wakes the thread to stop.
class DesktopNotifier::Listener {
public:
    Listener(const char* address, DesktopNotifier& owner) : owner_(owner) {
        wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (wake_ < 0) {
            problem_ = "eventfd: " + errorText(-errno);
            return;
        }
        int r = sd_bus_new(&bus_);
        if (r >= 0) r = sd_bus_set_address(bus_, address);
        if (r >= 0) r = sd_bus_set_bus_client(bus_, 1);
        if (r >= 0) r = sd_bus_start(bus_);
        // Every signal of the interface; the owner checks who sent it.
        if (r >= 0) {
            r = sd_bus_match_signal(bus_, &slot_, nullptr, kPath, kInterface, nullptr,
                                    &Listener::onSignal, this);
        }
        if (r < 0) {
            problem_ = "cannot listen on the session bus (" + errorText(r) + ")";
            return;
        }
        running_ = true;
        thread_ = std::thread([this] { run(); });
    }

    ~Listener() {
        if (thread_.joinable()) {
            uint64_t one = 1;
            // Cannot fail short of a full counter, which one write never reaches.
            [[maybe_unused]] ssize_t written = ::write(wake_, &one, sizeof one);
            thread_.join();
        }
        sd_bus_slot_unref(slot_);
        sd_bus_flush_close_unref(bus_);
        if (wake_ >= 0) ::close(wake_);
    }

    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    const std::string& problem() const { return problem_; }
    // False once the bus went away under the thread, which has then ended.
    bool running() const { return running_; }

private:
    void run() {
        for (;;) {
            int r = sd_bus_process(bus_, nullptr);
            if (r < 0) break;
            if (r > 0) continue;
            pollfd waits[2] = {
                {sd_bus_get_fd(bus_), static_cast<short>(sd_bus_get_events(bus_)), 0},
                {wake_, POLLIN, 0}};
            r = ::poll(waits, 2, pollTimeout(bus_));
            if (r < 0 && errno != EINTR) break;
            if (waits[1].revents != 0) return;
        }
        running_ = false;
    }

    static int onSignal(sd_bus_message* message, void* userdata, sd_bus_error*) {
        auto* self = static_cast<Listener*>(userdata);
        const char* sender = sd_bus_message_get_sender(message);
        std::string from = sender == nullptr ? "" : sender;
        uint32_t id = 0;
        if (sd_bus_message_is_signal(message, kInterface, "ActionInvoked") > 0) {
            const char* action = nullptr;
            if (sd_bus_message_read(message, "us", &id, &action) < 0) return 0;
            self->owner_.actionInvoked(from, id, action);
        } else if (sd_bus_message_is_signal(message, kInterface, "NotificationClosed") > 0) {
            uint32_t reason = 0;
            if (sd_bus_message_read(message, "uu", &id, &reason) < 0) return 0;
            self->owner_.notificationClosed(from, id);
        }
        return 0;
    }

    DesktopNotifier& owner_;
    sd_bus* bus_ = nullptr;
    sd_bus_slot* slot_ = nullptr;
    int wake_ = -1;
    std::atomic<bool> running_{false};
    std::string problem_;
    std::thread thread_;
};

DesktopNotifier::DesktopNotifier() = default;

DesktopNotifier::~DesktopNotifier() {
    // Joined here, before the members its callbacks reach go.
    std::unique_ptr<Listener> listener;
    {
        std::lock_guard lock(mutex_);
        listener = std::move(listener_);
    }
}

void DesktopNotifier::setActionHandler(ActionHandler handler) {
    std::lock_guard lock(handlerMutex_);
    handler_ = std::move(handler);
}

void DesktopNotifier::post(const Notification& notification) {
    std::lock_guard lock(mutex_);
    BusHandles h;
    if (!connect(h)) return;

    uint32_t replacesID = 0;
    if (auto known = shown_.find(notification.key); known != shown_.end()) {
        replacesID = known->second.id;
    }
    // Buttons nobody would hear are worse than none.
    std::vector<std::string> actionKeys;
    if (!notification.actions.empty() && canOfferActions(h)) {
        for (const NotificationAction& action : notification.actions) {
            actionKeys.push_back(action.key);
        }
    }
    // A body the server reads as markup would let a repository's or an agent's
    // text in it bold, hide or link what it likes: it is shown as the text it is.
    const std::string body =
        capabilities(h).bodyMarkup ? Text::escapeMarkup(notification.body) : notification.body;
    int r = sd_bus_message_new_method_call(h.bus, &h.call, kService, kPath, kInterface, "Notify");
    // app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout
    if (r >= 0) {
        r = sd_bus_message_append(h.call, "susss", "Quorvane", replacesID, "",
                                  notification.title.c_str(), body.c_str());
    }
    // The actions are pairs of the key and the label the button shows.
    if (r >= 0) r = sd_bus_message_open_container(h.call, SD_BUS_TYPE_ARRAY, "s");
    if (!actionKeys.empty()) {
        for (const NotificationAction& action : notification.actions) {
            if (r >= 0)
                r = sd_bus_message_append(h.call, "ss", action.key.c_str(), action.label.c_str());
        }
    }
    if (r >= 0) r = sd_bus_message_close_container(h.call);
    if (r >= 0) r = sd_bus_message_append(h.call, "a{sv}", 1, "sound-name", "s", kSoundName);
    if (r >= 0) r = sd_bus_message_append(h.call, "i", int32_t{-1});
    if (r < 0) {
        noteFailure("cannot build the notification", r);
        return;
    }
    r = sd_bus_call(h.bus, h.call, kNotifierCallTimeoutMicroseconds, &h.error, &h.reply);
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
    if (const char* sender = sd_bus_message_get_sender(h.reply)) server_ = sender;
    shown_[notification.key] = Shown{id, std::move(actionKeys)};
}

void DesktopNotifier::close(const std::string& key) {
    std::lock_guard lock(mutex_);
    auto known = shown_.find(key);
    if (known == shown_.end()) return;
    uint32_t id = known->second.id;
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
    sd_bus_call(h.bus, h.call, kNotifierCallTimeoutMicroseconds, &h.error, &h.reply);
}

bool DesktopNotifier::canOfferActions(BusHandles& h) {
    if (!capabilities(h).actions) return false;
    // A listener whose bus went away is replaced; its thread has ended.
    if (listener_ && !listener_->running()) listener_.reset();
    if (listener_) return true;
    auto listener = std::make_unique<Listener>(std::getenv("DBUS_SESSION_BUS_ADDRESS"), *this);
    if (!listener->problem().empty()) {
        if (!listenFailureLogged_.exchange(true)) {
            Log::app().log(LogLevel::notice,
                           "Notification buttons are unavailable: " + listener->problem() +
                               "; notifications are shown without them.");
        }
        return false;
    }
    listener_ = std::move(listener);
    return true;
}

const DesktopNotifier::Capabilities& DesktopNotifier::capabilities(BusHandles& h) {
    if (capabilities_) return *capabilities_;
    sd_bus_message* reply = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int r = sd_bus_call_method(h.bus, kService, kPath, kInterface, "GetCapabilities", &error,
                               &reply, "");
    char** names = nullptr;
    if (r >= 0) r = sd_bus_message_read_strv(reply, &names);
    // A server that cannot say is taken to offer nothing; asking again would not
    // change it.
    Capabilities found;
    for (char** name = names; r >= 0 && name != nullptr && *name != nullptr; ++name) {
        found.actions = found.actions || std::string_view(*name) == "actions";
        found.bodyMarkup = found.bodyMarkup || std::string_view(*name) == "body-markup";
    }
    for (char** name = names; name != nullptr && *name != nullptr; ++name) std::free(*name);
    std::free(names);
    sd_bus_message_unref(reply);
    sd_bus_error_free(&error);
    capabilities_ = found;
    return *capabilities_;
}

void DesktopNotifier::actionInvoked(const std::string& sender, uint32_t id,
                                    const std::string& action) {
    std::string key;
    {
        std::lock_guard lock(mutex_);
        if (sender != server_) return;
        auto found = std::find_if(shown_.begin(), shown_.end(),
                                  [&](const auto& entry) { return entry.second.id == id; });
        if (found == shown_.end()) return;
        const std::vector<std::string>& offered = found->second.actionKeys;
        if (std::find(offered.begin(), offered.end(), action) == offered.end()) return;
        key = found->first;
    }
    ActionHandler handler;
    {
        std::lock_guard lock(handlerMutex_);
        handler = handler_;
    }
    // Without a lock held: the handler may post or close.
    if (handler) handler(key, action);
}

void DesktopNotifier::notificationClosed(const std::string& sender, uint32_t id) {
    std::lock_guard lock(mutex_);
    if (sender != server_) return;
    std::erase_if(shown_, [&](const auto& entry) { return entry.second.id == id; });
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
    std::string reason = error < 0 ? fmt::format("{} ({})", what, errorText(error)) : what;
    Log::app().log(LogLevel::notice,
                   fmt::format("Desktop notifications are unavailable: {}; reminders are kept "
                               "but not shown.",
                               reason));
}

}  // namespace quorvane
