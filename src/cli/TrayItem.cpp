#include "cli/TrayItem.hpp"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "cli/CommandLine.hpp"
#include "cli/ControlClient.hpp"
#include "platform/FileDescriptor.hpp"
#include "screens/TrayModel.hpp"

namespace quorvane {

namespace {

constexpr const char* kItemPath = "/StatusNotifierItem";
constexpr const char* kItemInterface = "org.kde.StatusNotifierItem";
constexpr const char* kMenuPath = "/MenuBar";
constexpr const char* kMenuInterface = "com.canonical.dbusmenu";
constexpr const char* kWatcherName = "org.kde.StatusNotifierWatcher";

// How long the tray waits for the daemon: the bar is a read of the data folder, a
// command may be a whole sync. The daemon finishes a command the tray stopped
// waiting for.
constexpr std::chrono::milliseconds kBarPatience{10'000};
constexpr std::chrono::milliseconds kCommandPatience{120'000};

using TrayModel::Action;
using TrayModel::DaemonState;

}  // namespace

struct TrayItem::Impl {
    Impl(Options chosen, const ProcessRunner& processRunner, const Clock& wallClock)
        : options(std::move(chosen)), runner(processRunner), clock(wallClock) {}

    Options options;
    const ProcessRunner& runner;
    const Clock& clock;
    std::ostream* err = nullptr;
    std::mutex errMutex;

    // The main thread's: the bus, the loop and what the item shows.
    sd_event* event = nullptr;
    sd_bus* bus = nullptr;
    std::string busName;
    DaemonState shown;
    uint32_t revision = 1;

    // Between the main thread and the worker, which talks to the daemon.
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Action> jobs;  // Action::Kind::none stands for a refresh alone
    bool stopping = false;
    std::optional<DaemonState> heard;
    Fd heardSignal;  // an eventfd the worker writes once `heard` is set
    std::thread worker;

    void say(const std::string& line) {
        std::lock_guard lock(errMutex);
        *err << "quorvane-tray: " << line << "\n" << std::flush;
    }

    void queue(Action action) {
        {
            std::lock_guard lock(mutex);
            jobs.push_back(std::move(action));
        }
        wake.notify_one();
    }

    // The worker: runs what the menu asked for, in order, and reads the bar after each.
    void work() {
        for (;;) {
            Action job;
            {
                std::unique_lock lock(mutex);
                wake.wait(lock, [&] { return stopping || !jobs.empty(); });
                if (stopping) return;
                job = std::move(jobs.front());
                jobs.pop_front();
            }
            perform(job);
            std::optional<DaemonState> state = readBar();
            if (!state) continue;
            {
                std::lock_guard lock(mutex);
                heard = *state;
            }
            uint64_t one = 1;
            if (::write(heardSignal.get(), &one, sizeof one) < 0) say("cannot wake the main loop");
        }
    }

    void perform(const Action& action) {
        if (action.kind == Action::Kind::openHere) {
            // The same command line as `quorvane open PAGE`. What it prints on
            // standard output may be a login address, which stays out of any log.
            std::vector<std::string> words = action.words;
            words.insert(words.begin(), "quorvane");
            words.insert(words.end(), {"--data-dir", options.dataDir.string()});
            std::vector<const char*> argv;
            for (const std::string& word : words) argv.push_back(word.c_str());
            std::ostringstream out, problems;
            if (runCommandLine(static_cast<int>(argv.size()), argv.data(), out, problems, runner,
                               clock) != 0) {
                say(fmt::format("{}: {}", fmt::join(action.words, " "), problems.str()));
            }
            return;
        }
        if (action.kind != Action::Kind::sendDaemon) return;
        std::ostringstream out, problems;
        std::optional<ControlClient> daemon = ControlClient::connect(options.dataDir, problems);
        if (!daemon) {
            say(fmt::format("{}: the daemon is not running", fmt::join(action.words, " ")));
            return;
        }
        ControlProtocol::Request request;
        request.arguments = action.words;
        request.workingDirectory = "/";
        std::optional<int> status = daemon->runWithin(request, out, problems, kCommandPatience);
        if (!status) {
            say(fmt::format("{}: still running in the daemon", fmt::join(action.words, " ")));
        } else if (*status != 0) {
            say(fmt::format("{} failed: {}", fmt::join(action.words, " "), problems.str()));
        }
    }

    // What the daemon says now; a daemon that is busy past the patience leaves the
    // item as it is.
    std::optional<DaemonState> readBar() {
        std::ostringstream out, problems;
        std::optional<ControlClient> daemon = ControlClient::connect(options.dataDir, problems);
        if (!daemon) return DaemonState{};
        ControlProtocol::Request request;
        request.arguments = {"status", "--bar"};
        request.workingDirectory = "/";
        std::optional<int> status = daemon->runWithin(request, out, problems, kBarPatience);
        if (!status) return std::nullopt;
        std::string line = out.str();
        std::optional<DaemonState> state =
            *status == 0 ? TrayModel::fromBarLine(line.substr(0, line.find('\n'))) : std::nullopt;
        if (!state) say("the daemon's status line could not be read: " + problems.str());
        return state;
    }

    // On the main thread: shows what the worker heard, and says what changed.
    void show(const DaemonState& next) {
        const TrayModel::Look before = TrayModel::look(shown);
        const std::vector<TrayModel::Entry> menuBefore = TrayModel::menu(shown);
        shown = next;
        const TrayModel::Look after = TrayModel::look(shown);
        if (after.iconName != before.iconName)
            sd_bus_emit_signal(bus, kItemPath, kItemInterface, "NewIcon", "");
        if (after.tooltipText != before.tooltipText || after.tooltipTitle != before.tooltipTitle)
            sd_bus_emit_signal(bus, kItemPath, kItemInterface, "NewToolTip", "");
        if (after.status != before.status)
            sd_bus_emit_signal(bus, kItemPath, kItemInterface, "NewStatus", "s",
                               after.status.c_str());
        if (TrayModel::menu(shown) != menuBefore) {
            ++revision;
            sd_bus_emit_signal(bus, kMenuPath, kMenuInterface, "LayoutUpdated", "ui", revision,
                               int32_t{0});
        }
    }

    // The watcher keeps the list the hosts show; one that starts after the tray, or
    // restarts with the panel, is told again.
    void registerWithWatcher() {
        int r = sd_bus_call_method_async(
            bus, nullptr, kWatcherName, "/StatusNotifierWatcher", kWatcherName,
            "RegisterStatusNotifierItem",
            [](sd_bus_message* reply, void* userdata, sd_bus_error*) -> int {
                auto* self = static_cast<Impl*>(userdata);
                // No watcher yet is usual at login; its arrival brings a new try.
                if (const sd_bus_error* e = sd_bus_message_get_error(reply);
                    e != nullptr && !sd_bus_error_has_name(e, SD_BUS_ERROR_SERVICE_UNKNOWN)) {
                    self->say(fmt::format("the tray host refused the icon: {}",
                                          e->message != nullptr ? e->message : e->name));
                }
                return 0;
            },
            this, "s", busName.c_str());
        if (r < 0) say(fmt::format("cannot reach the tray host: {}", std::strerror(-r)));
    }

    void act(const Action& action) {
        if (action.kind == Action::Kind::quit) {
            sd_event_exit(event, 0);
            return;
        }
        if (action.kind != Action::Kind::none) queue(action);
    }
};

namespace {

using Impl = TrayItem::Impl;

Impl& trayOf(void* userdata) {
    return *static_cast<Impl*>(userdata);
}

// --- the item ---

int trayItemProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply,
                     void* userdata, sd_bus_error*) {
    Impl& tray = trayOf(userdata);
    const TrayModel::Look look = TrayModel::look(tray.shown);
    const std::string name = property;
    auto text = [&](const std::string& value) {
        return sd_bus_message_append_basic(reply, 's', value.c_str());
    };
    if (name == "Category") return text("ApplicationStatus");
    if (name == "Id") return text("quorvane");
    if (name == "Title") return text("Quorvane");
    if (name == "Status") return text(look.status);
    if (name == "IconName") return text(look.iconName);
    if (name == "AttentionIconName") return text(look.attentionIconName);
    if (name == "OverlayIconName" || name == "IconThemePath") return text("");
    if (name == "WindowId") return sd_bus_message_append(reply, "i", int32_t{0});
    if (name == "ItemIsMenu") return sd_bus_message_append(reply, "b", 1);
    if (name == "Menu") return sd_bus_message_append(reply, "o", kMenuPath);
    if (name == "IconPixmap" || name == "AttentionIconPixmap" || name == "OverlayIconPixmap")
        return sd_bus_message_append(reply, "a(iiay)", 0);
    if (name == "ToolTip") {
        return sd_bus_message_append(reply, "(sa(iiay)ss)", look.iconName.c_str(), 0,
                                     look.tooltipTitle.c_str(), look.tooltipText.c_str());
    }
    return -ENOENT;
}

int trayActivate(sd_bus_message* call, void* userdata, sd_bus_error*) {
    Impl& tray = trayOf(userdata);
    tray.act(TrayModel::activate(tray.shown));
    return sd_bus_reply_method_return(call, "");
}

int traySecondaryActivate(sd_bus_message* call, void* userdata, sd_bus_error*) {
    Impl& tray = trayOf(userdata);
    tray.act(TrayModel::secondaryActivate(tray.shown));
    return sd_bus_reply_method_return(call, "");
}

// The item is its menu (ItemIsMenu): the host shows /MenuBar itself, and scrolling
// means nothing here.
int trayIgnored(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "");
}

const sd_bus_vtable kTrayItemVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Category", "s", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Id", "s", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Title", "s", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Status", "s", trayItemProperty, 0, 0),
    SD_BUS_PROPERTY("WindowId", "i", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("IconName", "s", trayItemProperty, 0, 0),
    SD_BUS_PROPERTY("IconThemePath", "s", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("IconPixmap", "a(iiay)", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("OverlayIconName", "s", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("OverlayIconPixmap", "a(iiay)", trayItemProperty, 0,
                    SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("AttentionIconName", "s", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("AttentionIconPixmap", "a(iiay)", trayItemProperty, 0,
                    SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("ToolTip", "(sa(iiay)ss)", trayItemProperty, 0, 0),
    SD_BUS_PROPERTY("ItemIsMenu", "b", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Menu", "o", trayItemProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("Activate", "ii", "", trayActivate, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("SecondaryActivate", "ii", "", traySecondaryActivate, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ContextMenu", "ii", "", trayIgnored, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Scroll", "is", "", trayIgnored, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("NewTitle", "", 0),
    SD_BUS_SIGNAL("NewIcon", "", 0),
    SD_BUS_SIGNAL("NewAttentionIcon", "", 0),
    SD_BUS_SIGNAL("NewOverlayIcon", "", 0),
    SD_BUS_SIGNAL("NewToolTip", "", 0),
    SD_BUS_SIGNAL("NewStatus", "s", 0),
    SD_BUS_VTABLE_END};

// --- the menu ---

// One property of an entry as a variant; nothing for one it does not have.
int trayAppendEntryProperty(sd_bus_message* m, const TrayModel::Entry& entry,
                            const std::string& name) {
    auto entryOpen = [&](const char* type) {
        int r = sd_bus_message_open_container(m, 'e', "sv");
        if (r >= 0) r = sd_bus_message_append_basic(m, 's', name.c_str());
        if (r >= 0) r = sd_bus_message_open_container(m, 'v', type);
        return r;
    };
    auto entryClose = [&]() {
        int r = sd_bus_message_close_container(m);
        return r < 0 ? r : sd_bus_message_close_container(m);
    };
    int r = 0;
    if (name == "label" && !entry.separator) {
        if ((r = entryOpen("s")) < 0) return r;
        if ((r = sd_bus_message_append_basic(m, 's', entry.label.c_str())) < 0) return r;
        return entryClose();
    }
    if (name == "type" && entry.separator) {
        if ((r = entryOpen("s")) < 0) return r;
        if ((r = sd_bus_message_append_basic(m, 's', "separator")) < 0) return r;
        return entryClose();
    }
    if (name == "enabled" || name == "visible") {
        int value = name == "visible" || entry.enabled ? 1 : 0;
        if ((r = entryOpen("b")) < 0) return r;
        if ((r = sd_bus_message_append_basic(m, 'b', &value)) < 0) return r;
        return entryClose();
    }
    return 0;
}

// The entry's properties as a{sv}: those `names` asks for, all when it is empty.
int trayAppendEntryProperties(sd_bus_message* m, const TrayModel::Entry& entry,
                              const std::vector<std::string>& names) {
    static const std::vector<std::string> kAll = {"type", "label", "enabled", "visible"};
    int r = sd_bus_message_open_container(m, 'a', "{sv}");
    if (r < 0) return r;
    for (const std::string& name : names.empty() ? kAll : names) {
        if ((r = trayAppendEntryProperty(m, entry, name)) < 0) return r;
    }
    return sd_bus_message_close_container(m);
}

int trayAppendRoot(sd_bus_message* m, const std::vector<TrayModel::Entry>& entries, int depth,
                   const std::vector<std::string>& names) {
    int r = sd_bus_message_open_container(m, 'r', "ia{sv}av");
    if (r >= 0)
        r = sd_bus_message_append(m, "ia{sv}", int32_t{0}, 1, "children-display", "s", "submenu");
    if (r >= 0) r = sd_bus_message_open_container(m, 'a', "v");
    for (size_t i = 0; r >= 0 && depth != 0 && i < entries.size(); ++i) {
        r = sd_bus_message_open_container(m, 'v', "(ia{sv}av)");
        if (r >= 0) r = sd_bus_message_open_container(m, 'r', "ia{sv}av");
        if (r >= 0) r = sd_bus_message_append_basic(m, 'i', &entries[i].id);
        if (r >= 0) r = trayAppendEntryProperties(m, entries[i], names);
        if (r >= 0) r = sd_bus_message_append(m, "av", 0);
        if (r >= 0) r = sd_bus_message_close_container(m);
        if (r >= 0) r = sd_bus_message_close_container(m);
    }
    if (r >= 0) r = sd_bus_message_close_container(m);
    if (r >= 0) r = sd_bus_message_close_container(m);
    return r;
}

std::vector<std::string> trayReadStrings(sd_bus_message* m, int& r) {
    char** read = nullptr;
    r = sd_bus_message_read_strv(m, &read);
    std::vector<std::string> out;
    for (char** s = read; s != nullptr && *s != nullptr; ++s) {
        out.emplace_back(*s);
        std::free(*s);
    }
    std::free(read);
    return out;
}

int trayGetLayout(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    Impl& tray = trayOf(userdata);
    int32_t parent = 0;
    int32_t depth = -1;
    int r = sd_bus_message_read(call, "ii", &parent, &depth);
    if (r < 0) return r;
    std::vector<std::string> names = trayReadStrings(call, r);
    if (r < 0) return r;
    const std::vector<TrayModel::Entry> entries = TrayModel::menu(tray.shown);
    sd_bus_message* reply = nullptr;
    r = sd_bus_message_new_method_return(call, &reply);
    if (r >= 0) r = sd_bus_message_append(reply, "u", tray.revision);
    if (parent == 0) {
        if (r >= 0) r = trayAppendRoot(reply, entries, depth, names);
    } else {
        auto entry = std::find_if(entries.begin(), entries.end(), [&](const auto& e) {
            return static_cast<int32_t>(e.id) == parent;
        });
        if (entry == entries.end()) {
            sd_bus_message_unref(reply);
            return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS, "no menu entry %d", parent);
        }
        if (r >= 0) r = sd_bus_message_open_container(reply, 'r', "ia{sv}av");
        if (r >= 0) r = sd_bus_message_append_basic(reply, 'i', &parent);
        if (r >= 0) r = trayAppendEntryProperties(reply, *entry, names);
        if (r >= 0) r = sd_bus_message_append(reply, "av", 0);
        if (r >= 0) r = sd_bus_message_close_container(reply);
    }
    if (r >= 0) r = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return r;
}

int trayGetGroupProperties(sd_bus_message* call, void* userdata, sd_bus_error*) {
    Impl& tray = trayOf(userdata);
    const void* ids = nullptr;
    size_t size = 0;
    int r = sd_bus_message_read_array(call, 'i', &ids, &size);
    if (r < 0) return r;
    std::vector<int32_t> wanted(static_cast<const int32_t*>(ids),
                                static_cast<const int32_t*>(ids) + size / sizeof(int32_t));
    std::vector<std::string> names = trayReadStrings(call, r);
    if (r < 0) return r;
    sd_bus_message* reply = nullptr;
    r = sd_bus_message_new_method_return(call, &reply);
    if (r >= 0) r = sd_bus_message_open_container(reply, 'a', "(ia{sv})");
    for (const TrayModel::Entry& entry : TrayModel::menu(tray.shown)) {
        const int32_t id = static_cast<int32_t>(entry.id);
        if (r < 0) break;
        if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), id) == wanted.end())
            continue;
        r = sd_bus_message_open_container(reply, 'r', "ia{sv}");
        if (r >= 0) r = sd_bus_message_append_basic(reply, 'i', &id);
        if (r >= 0) r = trayAppendEntryProperties(reply, entry, names);
        if (r >= 0) r = sd_bus_message_close_container(reply);
    }
    if (r >= 0) r = sd_bus_message_close_container(reply);
    if (r >= 0) r = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return r;
}

int trayGetProperty(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    Impl& tray = trayOf(userdata);
    int32_t id = 0;
    const char* name = nullptr;
    int r = sd_bus_message_read(call, "is", &id, &name);
    if (r < 0) return r;
    for (const TrayModel::Entry& entry : TrayModel::menu(tray.shown)) {
        if (static_cast<int32_t>(entry.id) != id) continue;
        const std::string property = name;
        if (property == "label" && !entry.separator)
            return sd_bus_reply_method_return(call, "v", "s", entry.label.c_str());
        if (property == "type" && entry.separator)
            return sd_bus_reply_method_return(call, "v", "s", "separator");
        if (property == "enabled")
            return sd_bus_reply_method_return(call, "v", "b", entry.enabled ? 1 : 0);
        if (property == "visible") return sd_bus_reply_method_return(call, "v", "b", 1);
        break;
    }
    return sd_bus_error_setf(error, SD_BUS_ERROR_INVALID_ARGS, "menu entry %d has no %s", id, name);
}

// One event; true when the entry exists. Only a click does anything.
bool trayEvent(Impl& tray, int32_t id, const std::string& kind) {
    const std::vector<TrayModel::Entry> entries = TrayModel::menu(tray.shown);
    const bool known = id == 0 || std::any_of(entries.begin(), entries.end(), [&](const auto& e) {
                           return static_cast<int32_t>(e.id) == id;
                       });
    if (kind == "clicked") tray.act(TrayModel::actionFor(id, tray.shown));
    return known;
}

int trayMenuEvent(sd_bus_message* call, void* userdata, sd_bus_error*) {
    int32_t id = 0;
    const char* kind = nullptr;
    int r = sd_bus_message_read(call, "is", &id, &kind);
    if (r < 0) return r;
    trayEvent(trayOf(userdata), id, kind);
    return sd_bus_reply_method_return(call, "");
}

int trayMenuEventGroup(sd_bus_message* call, void* userdata, sd_bus_error*) {
    std::vector<int32_t> unknown;
    int r = sd_bus_message_enter_container(call, 'a', "(isvu)");
    if (r < 0) return r;
    while ((r = sd_bus_message_enter_container(call, 'r', "isvu")) > 0) {
        int32_t id = 0;
        const char* kind = nullptr;
        if ((r = sd_bus_message_read(call, "is", &id, &kind)) < 0) return r;
        std::string event = kind;
        if ((r = sd_bus_message_skip(call, "vu")) < 0) return r;
        if ((r = sd_bus_message_exit_container(call)) < 0) return r;
        if (!trayEvent(trayOf(userdata), id, event)) unknown.push_back(id);
    }
    if (r < 0) return r;
    if ((r = sd_bus_message_exit_container(call)) < 0) return r;
    sd_bus_message* reply = nullptr;
    r = sd_bus_message_new_method_return(call, &reply);
    if (r >= 0)
        r = sd_bus_message_append_array(reply, 'i', unknown.data(),
                                        unknown.size() * sizeof(int32_t));
    if (r >= 0) r = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return r;
}

// The menu is always current when shown: nothing to update before.
int trayAboutToShow(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "b", 0);
}

int trayAboutToShowGroup(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "aiai", 0, 0);
}

int trayMenuProperty(sd_bus*, const char*, const char*, const char* property, sd_bus_message* reply,
                     void*, sd_bus_error*) {
    const std::string name = property;
    if (name == "Version") return sd_bus_message_append(reply, "u", uint32_t{3});
    if (name == "TextDirection") return sd_bus_message_append(reply, "s", "ltr");
    if (name == "Status") return sd_bus_message_append(reply, "s", "normal");
    if (name == "IconThemePath") return sd_bus_message_append(reply, "as", 0);
    return -ENOENT;
}

const sd_bus_vtable kTrayMenuVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Version", "u", trayMenuProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("TextDirection", "s", trayMenuProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Status", "s", trayMenuProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("IconThemePath", "as", trayMenuProperty, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_METHOD("GetLayout", "iias", "u(ia{sv}av)", trayGetLayout, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetGroupProperties", "aias", "a(ia{sv})", trayGetGroupProperties,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetProperty", "is", "v", trayGetProperty, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Event", "isvu", "", trayMenuEvent, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("EventGroup", "a(isvu)", "ai", trayMenuEventGroup, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("AboutToShow", "i", "b", trayAboutToShow, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("AboutToShowGroup", "ai", "aiai", trayAboutToShowGroup,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("ItemsPropertiesUpdated", "a(ia{sv})a(ias)", 0),
    SD_BUS_SIGNAL("LayoutUpdated", "ui", 0),
    SD_BUS_SIGNAL("ItemActivationRequested", "iu", 0),
    SD_BUS_VTABLE_END};

// --- the loop ---

int trayOnHeard(sd_event_source*, int fd, uint32_t, void* userdata) {
    Impl& tray = trayOf(userdata);
    uint64_t count = 0;
    if (::read(fd, &count, sizeof count) < 0) return 0;
    std::optional<DaemonState> heard;
    {
        std::lock_guard lock(tray.mutex);
        heard.swap(tray.heard);
    }
    if (heard) tray.show(*heard);
    return 0;
}

int trayOnTimer(sd_event_source* source, uint64_t, void* userdata) {
    Impl& tray = trayOf(userdata);
    tray.queue(Action{});
    const uint64_t every =
        static_cast<uint64_t>(std::chrono::microseconds(tray.options.refresh).count());
    sd_event_source_set_time_relative(source, every);
    sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
    return 0;
}

int trayOnSignal(sd_event_source* source, const struct signalfd_siginfo*, void*) {
    return sd_event_exit(sd_event_source_get_event(source), 0);
}

int trayOnOwnerChanged(sd_bus_message* message, void* userdata, sd_bus_error*) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &before, &after) < 0) return 0;
    if (std::strcmp(name, kWatcherName) == 0 && after != nullptr && after[0] != '\0')
        trayOf(userdata).registerWithWatcher();
    return 0;
}

}  // namespace

TrayItem::TrayItem(Options options, const ProcessRunner& runner, const Clock& clock)
    : impl_(std::make_unique<Impl>(std::move(options), runner, clock)) {}

TrayItem::~TrayItem() = default;

int TrayItem::run(std::ostream& err) {
    Impl& tray = *impl_;
    tray.err = &err;
    auto fail = [&](const char* what, int r) {
        tray.say(fmt::format("{}: {}", what, std::strerror(-r)));
        sd_bus_flush_close_unref(tray.bus);
        sd_event_unref(tray.event);
        tray.bus = nullptr;
        tray.event = nullptr;
        return 1;
    };
    int r = sd_event_new(&tray.event);
    if (r < 0) return fail("cannot start the event loop", r);
    for (int signal : {SIGTERM, SIGINT}) {
        r = sd_event_add_signal(tray.event, nullptr, signal, trayOnSignal, nullptr);
        if (r < 0) return fail("cannot follow signals", r);
    }
    r = sd_bus_open_user(&tray.bus);
    if (r < 0) return fail("cannot connect to the session bus", r);
    r = sd_bus_attach_event(tray.bus, tray.event, SD_EVENT_PRIORITY_NORMAL);
    if (r >= 0)
        r = sd_bus_add_object_vtable(tray.bus, nullptr, kItemPath, kItemInterface, kTrayItemVtable,
                                     &tray);
    if (r >= 0)
        r = sd_bus_add_object_vtable(tray.bus, nullptr, kMenuPath, kMenuInterface, kTrayMenuVtable,
                                     &tray);
    if (r < 0) return fail("cannot offer the icon on the session bus", r);
    // The name the protocol asks of an item: one per process.
    tray.busName = fmt::format("org.kde.StatusNotifierItem-{}-1", ::getpid());
    r = sd_bus_request_name(tray.bus, tray.busName.c_str(), 0);
    if (r < 0) return fail("cannot take the icon's name on the session bus", r);
    r = sd_bus_match_signal(tray.bus, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus", "NameOwnerChanged", trayOnOwnerChanged, &tray);
    if (r < 0) return fail("cannot follow the tray host", r);

    tray.heardSignal = Fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!tray.heardSignal.valid()) return fail("cannot make an eventfd", -errno);
    r = sd_event_add_io(tray.event, nullptr, tray.heardSignal.get(), EPOLLIN, trayOnHeard, &tray);
    if (r < 0) return fail("cannot watch the eventfd", r);
    sd_event_source* timer = nullptr;
    r = sd_event_add_time_relative(
        tray.event, &timer, CLOCK_MONOTONIC,
        static_cast<uint64_t>(std::chrono::microseconds(tray.options.refresh).count()), 0,
        trayOnTimer, &tray);
    if (r < 0) return fail("cannot start the refresh timer", r);

    tray.registerWithWatcher();
    tray.worker = std::thread([&tray] { tray.work(); });
    tray.queue(Action{});  // the first look at the daemon
    r = sd_event_loop(tray.event);

    // The icon goes at once; a command under way in the daemon is waited for, up to
    // its patience, since the worker cannot be cut off mid-answer.
    sd_bus_flush_close_unref(tray.bus);
    tray.bus = nullptr;
    {
        std::lock_guard lock(tray.mutex);
        tray.stopping = true;
    }
    tray.wake.notify_one();
    tray.worker.join();
    sd_event_source_unref(timer);
    sd_event_unref(tray.event);
    tray.event = nullptr;
    if (r < 0) {
        tray.say(fmt::format("the event loop failed: {}", std::strerror(-r)));
        return 1;
    }
    return 0;
}

}  // namespace quorvane
