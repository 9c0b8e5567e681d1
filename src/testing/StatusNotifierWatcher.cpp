#include "testing/StatusNotifierWatcher.hpp"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace quorvane::testing {

struct StatusNotifierWatcherHandlers {
    static int registerItem(sd_bus_message* call, void* userdata, sd_bus_error* error);
    static int registerHost(sd_bus_message* call, void* userdata, sd_bus_error* error);
    static int property(sd_bus* bus, const char* path, const char* interface, const char* property,
                        sd_bus_message* reply, void* userdata, sd_bus_error* error);
};

namespace {

constexpr const char* kName = "org.kde.StatusNotifierWatcher";
constexpr const char* kPath = "/StatusNotifierWatcher";
constexpr const char* kItemPath = "/StatusNotifierItem";
constexpr const char* kMenuPath = "/MenuBar";

const sd_bus_vtable kVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("RegisterStatusNotifierItem", "s", "",
                  StatusNotifierWatcherHandlers::registerItem, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RegisterStatusNotifierHost", "s", "",
                  StatusNotifierWatcherHandlers::registerHost, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("RegisteredStatusNotifierItems", "as", StatusNotifierWatcherHandlers::property,
                    0, 0),
    SD_BUS_PROPERTY("IsStatusNotifierHostRegistered", "b", StatusNotifierWatcherHandlers::property,
                    0, 0),
    SD_BUS_PROPERTY("ProtocolVersion", "i", StatusNotifierWatcherHandlers::property, 0, 0),
    SD_BUS_SIGNAL("StatusNotifierItemRegistered", "s", 0),
    SD_BUS_SIGNAL("StatusNotifierItemUnregistered", "s", 0),
    SD_BUS_SIGNAL("StatusNotifierHostRegistered", "", 0),
    SD_BUS_VTABLE_END};

// A connection of the caller's own to the test's bus, closed when it goes.
struct Connection {
    sd_bus* bus = nullptr;
    std::string problem;
    explicit Connection(const std::string& address) {
        int r = sd_bus_new(&bus);
        if (r >= 0) r = sd_bus_set_address(bus, address.c_str());
        if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
        if (r >= 0) r = sd_bus_start(bus);
        if (r < 0) problem = std::string("cannot connect to the test's bus: ") + std::strerror(-r);
    }
    ~Connection() { sd_bus_flush_close_unref(bus); }
};

std::string callProblem(const char* what, const sd_bus_error& error, int r) {
    return std::string(what) + ": " +
           (error.message != nullptr ? error.message : std::strerror(-r));
}

// Reads a{sv} of one menu entry into `entry`.
int readEntryProperties(sd_bus_message* m, StatusNotifierWatcher::MenuEntry& entry) {
    int r = sd_bus_message_enter_container(m, 'a', "{sv}");
    if (r < 0) return r;
    while ((r = sd_bus_message_enter_container(m, 'e', "sv")) > 0) {
        const char* key = nullptr;
        if ((r = sd_bus_message_read(m, "s", &key)) < 0) return r;
        const std::string name = key;
        char type = 0;
        const char* contents = nullptr;
        if ((r = sd_bus_message_peek_type(m, &type, &contents)) < 0) return r;
        const std::string signature = contents == nullptr ? "" : contents;
        if (name == "label" && signature == "s") {
            const char* text = nullptr;
            r = sd_bus_message_read(m, "v", "s", &text);
            entry.label = text;
        } else if (name == "type" && signature == "s") {
            const char* text = nullptr;
            r = sd_bus_message_read(m, "v", "s", &text);
            entry.separator = std::string(text) == "separator";
        } else if (name == "enabled" && signature == "b") {
            int value = 1;
            r = sd_bus_message_read(m, "v", "b", &value);
            entry.enabled = value != 0;
        } else {
            r = sd_bus_message_skip(m, "v");
        }
        if (r < 0) return r;
        if ((r = sd_bus_message_exit_container(m)) < 0) return r;
    }
    if (r < 0) return r;
    return sd_bus_message_exit_container(m);
}

}  // namespace

int StatusNotifierWatcherHandlers::registerItem(sd_bus_message* call, void* userdata,
                                                sd_bus_error*) {
    const char* service = nullptr;
    int r = sd_bus_message_read(call, "s", &service);
    if (r < 0) return r;
    auto* watcher = static_cast<StatusNotifierWatcher*>(userdata);
    {
        std::lock_guard lock(watcher->mutex_);
        watcher->registered_.emplace_back(service);
    }
    watcher->arrived_.notify_all();
    sd_bus_emit_signal(sd_bus_message_get_bus(call), kPath, kName, "StatusNotifierItemRegistered",
                       "s", service);
    return sd_bus_reply_method_return(call, "");
}

int StatusNotifierWatcherHandlers::registerHost(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "");
}

int StatusNotifierWatcherHandlers::property(sd_bus*, const char*, const char*, const char* property,
                                            sd_bus_message* reply, void* userdata, sd_bus_error*) {
    auto* watcher = static_cast<StatusNotifierWatcher*>(userdata);
    const std::string name = property;
    if (name == "IsStatusNotifierHostRegistered") return sd_bus_message_append(reply, "b", 1);
    if (name == "ProtocolVersion") return sd_bus_message_append(reply, "i", 0);
    std::vector<std::string> items = watcher->registrations();
    int r = sd_bus_message_open_container(reply, 'a', "s");
    for (const std::string& item : items) {
        if (r >= 0) r = sd_bus_message_append_basic(reply, 's', item.c_str());
    }
    return r < 0 ? r : sd_bus_message_close_container(reply);
}

StatusNotifierWatcher::StatusNotifierWatcher() : problem_(bus_.problem()) {
    if (problem_.empty()) problem_ = start();
}

StatusNotifierWatcher::~StatusNotifierWatcher() {
    stop();
}

std::string StatusNotifierWatcher::start() {
    stopping_ = false;
    std::promise<std::string> ready;
    std::future<std::string> outcome = ready.get_future();
    thread_ = std::thread([this, ready = std::move(ready)]() mutable { serve(&ready); });
    if (outcome.wait_for(std::chrono::seconds(5)) != std::future_status::ready)
        return "the test's tray watcher did not start within 5 seconds";
    return outcome.get();
}

void StatusNotifierWatcher::stop() {
    stopping_ = true;
    if (thread_.joinable()) thread_.join();
}

std::string StatusNotifierWatcher::restart() {
    stop();
    return start();
}

void StatusNotifierWatcher::serve(std::promise<std::string>* ready) {
    serveOnBus(bus_.address(), kPath, kName, kVtable, this, stopping_, *ready, "the tray watcher");
}

std::vector<std::string> StatusNotifierWatcher::registrations() const {
    std::lock_guard lock(mutex_);
    return registered_;
}

std::vector<std::string> StatusNotifierWatcher::waitFor(size_t count,
                                                        std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, limit, [&] { return registered_.size() >= count; });
    return registered_;
}

std::vector<StatusNotifierWatcher::MenuEntry> StatusNotifierWatcher::menu(
    const std::string& item, std::string& problem) const {
    Connection connection(bus_.address());
    problem = connection.problem;
    if (!problem.empty()) return {};
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    int r = sd_bus_call_method(connection.bus, item.c_str(), kMenuPath, "com.canonical.dbusmenu",
                               "GetLayout", &error, &reply, "iias", 0, -1, 0);
    std::vector<MenuEntry> entries;
    uint32_t revision = 0;
    if (r >= 0) r = sd_bus_message_read(reply, "u", &revision);
    if (r >= 0) r = sd_bus_message_enter_container(reply, 'r', "ia{sv}av");
    int32_t rootID = -1;
    if (r >= 0) r = sd_bus_message_read(reply, "i", &rootID);
    if (r >= 0) r = sd_bus_message_skip(reply, "a{sv}");
    if (r >= 0) r = sd_bus_message_enter_container(reply, 'a', "v");
    while (r >= 0 && (r = sd_bus_message_enter_container(reply, 'v', "(ia{sv}av)")) > 0) {
        MenuEntry entry;
        r = sd_bus_message_enter_container(reply, 'r', "ia{sv}av");
        if (r >= 0) r = sd_bus_message_read(reply, "i", &entry.id);
        if (r >= 0) r = readEntryProperties(reply, entry);
        if (r >= 0) r = sd_bus_message_skip(reply, "av");
        if (r >= 0) r = sd_bus_message_exit_container(reply);
        if (r >= 0) r = sd_bus_message_exit_container(reply);
        entries.push_back(entry);
    }
    if (r < 0) {
        problem = callProblem("GetLayout failed", error, r);
        entries.clear();
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    return entries;
}

std::string StatusNotifierWatcher::click(const std::string& item, int32_t id) const {
    Connection connection(bus_.address());
    if (!connection.problem.empty()) return connection.problem;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    int r =
        sd_bus_call_method(connection.bus, item.c_str(), kMenuPath, "com.canonical.dbusmenu",
                           "Event", &error, nullptr, "isvu", id, "clicked", "i", 0, uint32_t{0});
    std::string problem = r < 0 ? callProblem("Event failed", error, r) : "";
    sd_bus_error_free(&error);
    return problem;
}

std::string StatusNotifierWatcher::property(const std::string& item,
                                            const std::string& name) const {
    Connection connection(bus_.address());
    if (!connection.problem.empty()) return "";
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    const bool tooltip = name == "ToolTip";
    int r =
        sd_bus_get_property(connection.bus, item.c_str(), kItemPath, "org.kde.StatusNotifierItem",
                            name.c_str(), &error, &reply, tooltip ? "(sa(iiay)ss)" : "s");
    std::string value;
    if (r >= 0 && tooltip) {
        const char* icon = nullptr;
        const char* title = nullptr;
        const char* text = nullptr;
        // sd_bus_get_property leaves the reply inside its variant.
        r = sd_bus_message_enter_container(reply, 'r', "sa(iiay)ss");
        if (r >= 0) r = sd_bus_message_read(reply, "s", &icon);
        if (r >= 0) r = sd_bus_message_skip(reply, "a(iiay)");
        if (r >= 0) r = sd_bus_message_read(reply, "ss", &title, &text);
        if (r >= 0) value = std::string(title) + "\n" + text;
    } else if (r >= 0) {
        const char* text = nullptr;
        r = sd_bus_message_read(reply, "s", &text);
        if (r >= 0) value = text;
    }
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    return value;
}

}  // namespace quorvane::testing
