#include "testing/NotificationServer.hpp"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace quorvane::testing {

// The bus callbacks; a friend so they can record into the server.
struct NotificationServerHandlers {
    static int notify(sd_bus_message* call, void* userdata, sd_bus_error* error);
    static int closeNotification(sd_bus_message* call, void* userdata, sd_bus_error* error);
    static int getCapabilities(sd_bus_message* call, void* userdata, sd_bus_error* error);
};

namespace {

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";

// Reads one variant's value: a string as it is, anything else (which the notifier
// never sends) as "<signature>". The message is positioned on the variant.
int readVariant(sd_bus_message* call, std::string& out) {
    char type = 0;
    const char* contents = nullptr;
    int r = sd_bus_message_peek_type(call, &type, &contents);
    if (r < 0) return r;
    std::string signature = contents == nullptr ? "" : contents;
    r = sd_bus_message_enter_container(call, SD_BUS_TYPE_VARIANT, signature.c_str());
    if (r < 0) return r;
    if (signature == "s") {
        const char* text = nullptr;
        r = sd_bus_message_read_basic(call, 's', &text);
        out = text == nullptr ? "" : text;
    } else {
        r = sd_bus_message_skip(call, signature.c_str());
        out = "<" + signature + ">";
    }
    if (r < 0) return r;
    return sd_bus_message_exit_container(call);
}

int readHints(sd_bus_message* call, std::map<std::string, std::string>& hints) {
    int r = sd_bus_message_enter_container(call, SD_BUS_TYPE_ARRAY, "{sv}");
    if (r < 0) return r;
    while ((r = sd_bus_message_enter_container(call, SD_BUS_TYPE_DICT_ENTRY, "sv")) > 0) {
        const char* key = nullptr;
        r = sd_bus_message_read_basic(call, 's', &key);
        if (r < 0) return r;
        std::string value;
        r = readVariant(call, value);
        if (r < 0) return r;
        hints[key] = value;
        r = sd_bus_message_exit_container(call);
        if (r < 0) return r;
    }
    if (r < 0) return r;
    return sd_bus_message_exit_container(call);
}

const sd_bus_vtable kVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", NotificationServerHandlers::notify,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("CloseNotification", "u", "", NotificationServerHandlers::closeNotification,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetCapabilities", "", "as", NotificationServerHandlers::getCapabilities,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("ActionInvoked", "us", 0),
    SD_BUS_SIGNAL("NotificationClosed", "uu", 0),
    SD_BUS_VTABLE_END};

}  // namespace

int NotificationServerHandlers::notify(sd_bus_message* call, void* userdata, sd_bus_error*) {
    NotificationServer::Notification notification;
    const char* appName = nullptr;
    const char* appIcon = nullptr;
    const char* summary = nullptr;
    const char* body = nullptr;
    int r = sd_bus_message_read(call, "susss", &appName, &notification.replacesID, &appIcon,
                                &summary, &body);
    if (r < 0) return r;
    notification.appName = appName;
    notification.appIcon = appIcon;
    notification.summary = summary;
    notification.body = body;

    char** actions = nullptr;
    r = sd_bus_message_read_strv(call, &actions);
    if (r < 0) return r;
    for (char** action = actions; action != nullptr && *action != nullptr; ++action) {
        notification.actions.emplace_back(*action);
        std::free(*action);
    }
    std::free(actions);

    r = readHints(call, notification.hints);
    if (r < 0) return r;
    r = sd_bus_message_read(call, "i", &notification.expireTimeout);
    if (r < 0) return r;

    uint32_t id = static_cast<NotificationServer*>(userdata)->record(std::move(notification));
    return sd_bus_reply_method_return(call, "u", id);
}

int NotificationServerHandlers::closeNotification(sd_bus_message* call, void* userdata,
                                                  sd_bus_error*) {
    uint32_t id = 0;
    int r = sd_bus_message_read(call, "u", &id);
    if (r < 0) return r;
    static_cast<NotificationServer*>(userdata)->recordClose(id);
    return sd_bus_reply_method_return(call, "");
}

int NotificationServerHandlers::getCapabilities(sd_bus_message* call, void* userdata,
                                                sd_bus_error*) {
    auto* server = static_cast<NotificationServer*>(userdata);
    bool actions = false;
    {
        std::lock_guard lock(server->mutex_);
        ++server->capabilityQueries_;
        actions = server->actions_ == NotificationServer::Actions::offered;
    }
    return actions ? sd_bus_reply_method_return(call, "as", 4, "body", "body-markup", "actions",
                                                "sound")
                   : sd_bus_reply_method_return(call, "as", 2, "body", "sound");
}

NotificationServer::NotificationServer(Actions actions)
    : problem_(bus_.problem()), actions_(actions) {
    if (!problem_.empty()) return;
    std::promise<std::string> ready;
    std::future<std::string> outcome = ready.get_future();
    // The thread owns the promise, so nothing it touches goes away under it.
    thread_ = std::thread([this, ready = std::move(ready)]() mutable { serve(&ready); });
    // sd-bus bounds each of its own calls, but the test says so itself sooner.
    if (outcome.wait_for(std::chrono::seconds(5)) == std::future_status::ready) {
        problem_ = outcome.get();
    } else {
        problem_ = "the test's notification server did not start within 5 seconds";
    }
}

NotificationServer::~NotificationServer() {
    stopping_ = true;
    if (thread_.joinable()) thread_.join();
}

void NotificationServer::serve(std::promise<std::string>* ready) {
    // The connection is made and used on that thread only; what the test asked to
    // send goes out between waits.
    serveOnBus(bus_.address(), kPath, kName, kVtable, this, stopping_, *ready, "notifications",
               [this](sd_bus* bus) { sendQueued(bus); });
}

uint32_t NotificationServer::record(Notification notification) {
    std::lock_guard lock(mutex_);
    // A replacement keeps the id of the notification it replaces.
    notification.id = notification.replacesID != 0 ? notification.replacesID : nextID_++;
    received_.push_back(std::move(notification));
    arrived_.notify_all();
    return received_.back().id;
}

void NotificationServer::recordClose(uint32_t id) {
    std::lock_guard lock(mutex_);
    closed_.push_back(id);
}

bool NotificationServer::invokeAction(uint32_t id, const std::string& action) {
    return send(id, action);
}

bool NotificationServer::dismiss(uint32_t id) {
    return send(id, std::nullopt);
}

bool NotificationServer::send(uint32_t id, std::optional<std::string> action) {
    if (!problem_.empty()) return false;
    auto signal = std::make_shared<Signal>();
    signal->id = id;
    signal->action = std::move(action);
    std::future<bool> sent = signal->sent.get_future();
    {
        std::lock_guard lock(mutex_);
        queued_.push_back(signal);
    }
    // The server thread looks at the queue at least every 50 ms.
    return sent.wait_for(std::chrono::seconds(5)) == std::future_status::ready && sent.get();
}

void NotificationServer::sendQueued(sd_bus* bus) {
    std::vector<std::shared_ptr<Signal>> signals;
    {
        std::lock_guard lock(mutex_);
        signals.swap(queued_);
    }
    for (const auto& signal : signals) {
        // 2: dismissed by the user.
        int r = signal->action ? sd_bus_emit_signal(bus, kPath, kName, "ActionInvoked", "us",
                                                    signal->id, signal->action->c_str())
                               : sd_bus_emit_signal(bus, kPath, kName, "NotificationClosed", "uu",
                                                    signal->id, uint32_t{2});
        if (r >= 0) r = sd_bus_flush(bus);
        signal->sent.set_value(r >= 0);
    }
}

size_t NotificationServer::capabilityQueries() const {
    std::lock_guard lock(mutex_);
    return capabilityQueries_;
}

std::vector<uint32_t> NotificationServer::closed() const {
    std::lock_guard lock(mutex_);
    return closed_;
}

std::vector<NotificationServer::Notification> NotificationServer::notifications() const {
    std::lock_guard lock(mutex_);
    return received_;
}

std::vector<NotificationServer::Notification> NotificationServer::waitFor(
    size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, limit, [&] { return received_.size() >= count; });
    return received_;
}

}  // namespace quorvane::testing
