#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Everything the tray icon decides: what it shows for the daemon's state, the
// entries of its menu, and what each entry does. The D-Bus side only carries it.
namespace quorvane::TrayModel {

// The daemon as the tray last heard from it.
struct DaemonState {
    bool running = false;  // false: the daemon did not answer
    bool paused = false;
    int toPush = 0;
    int uncommitted = 0;
    int proposals = 0;
    bool operator==(const DaemonState&) const = default;
};

// The line `status --bar` prints, read; nothing when it is not such a line.
std::optional<DaemonState> fromBarLine(std::string_view line);

// What the item shows: its icon, status and tooltip.
struct Look {
    std::string iconName;
    std::string attentionIconName;
    std::string status;  // "Active" or "NeedsAttention"
    std::string tooltipTitle;
    std::string tooltipText;
    bool operator==(const Look&) const = default;
};
Look look(const DaemonState& state);

// The menu's entries under its root (id 0), ids fixed for the tray's life.
enum class EntryID : int32_t {
    openDashboard = 1,
    agentReview = 2,
    scan = 3,
    sync = 4,
    pause = 5,
    separator = 6,
    quit = 7,
};
struct Entry {
    EntryID id;
    std::string label;  // empty for the separator
    bool enabled = true;
    bool separator = false;
    bool operator==(const Entry&) const = default;
};
std::vector<Entry> menu(const DaemonState& state);

// What choosing an entry (or clicking the icon) does.
struct Action {
    enum class Kind {
        none,        // a separator, an entry not enabled, an id the menu never had
        openHere,    // a command line run by the tray itself, as `quorvane open` runs
        sendDaemon,  // a command line sent to the daemon over its control socket
        quit,
    };
    Kind kind = Kind::none;
    std::vector<std::string> words;  // the command line, without the program name
    bool operator==(const Action&) const = default;
};
Action actionFor(int32_t id, const DaemonState& state);
// The icon itself: a click opens the dashboard; a middle click scans.
Action activate(const DaemonState& state);
Action secondaryActivate(const DaemonState& state);

}  // namespace quorvane::TrayModel
