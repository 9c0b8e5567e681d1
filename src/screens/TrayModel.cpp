#include "screens/TrayModel.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "records/JsonCodec.hpp"

namespace quorvane::TrayModel {

namespace {

bool waits(const DaemonState& state) {
    return state.running && state.toPush + state.uncommitted + state.proposals > 0;
}

// A count from the bar: a missing or hostile value counts as nothing waiting.
int count(const Json& bar, const char* key) {
    const Json& value = bar.value(key, Json());
    if (!value.is_number_integer()) return 0;
    long long read = value.get<long long>();
    return read < 0 ? 0 : static_cast<int>(std::min<long long>(read, 1'000'000));
}

}  // namespace

std::optional<DaemonState> fromBarLine(std::string_view line) {
    Json bar = Json::parse(line, nullptr, false);
    if (!bar.is_object()) return std::nullopt;
    DaemonState state;
    state.running = true;
    const Json paused = bar.value("paused", Json(false));
    state.paused = paused.is_boolean() && paused.get<bool>();
    state.toPush = count(bar, "toPush");
    state.uncommitted = count(bar, "uncommitted");
    state.proposals = count(bar, "proposals");
    return state;
}

Look look(const DaemonState& state) {
    Look look;
    // One icon for calm, one for anything waiting. "Passive" is never used: a host
    // may hide a passive item, and its menu is the way to resume or quit.
    const bool attention = waits(state);
    look.iconName = attention ? "quorvane-attention" : "quorvane";
    look.attentionIconName = "quorvane-attention";
    look.status = attention ? "NeedsAttention" : "Active";
    look.tooltipTitle = "Quorvane";
    if (!state.running) {
        look.tooltipText = "the daemon is not running";
        return look;
    }
    look.tooltipText = fmt::format("to push: {}, uncommitted: {}, proposals waiting: {}",
                                   state.toPush, state.uncommitted, state.proposals);
    if (state.paused) look.tooltipText += "\nwatching paused";
    return look;
}

std::vector<Entry> menu(const DaemonState& state) {
    // Everything but quitting needs the daemon: it serves the dashboard and runs
    // the commands.
    const bool up = state.running;
    return {
        {EntryID::openDashboard, "Open dashboard", up},
        {EntryID::agentReview,
         state.proposals > 0 ? fmt::format("Agent Review ({})", state.proposals) : "Agent Review",
         up},
        {EntryID::scan, "Scan now", up},
        {EntryID::sync, "Sync now", up},
        {EntryID::pause, state.paused ? "Resume watching" : "Pause watching", up},
        {EntryID::separator, "", true, true},
        {EntryID::quit, "Quit tray", true},
    };
}

Action actionFor(int32_t id, const DaemonState& state) {
    for (const Entry& entry : menu(state)) {
        if (static_cast<int32_t>(entry.id) != id) continue;
        if (!entry.enabled) return {};
        switch (entry.id) {
            case EntryID::openDashboard: return {Action::Kind::openHere, {"open", "today"}};
            case EntryID::agentReview: return {Action::Kind::openHere, {"open", "review"}};
            case EntryID::scan: return {Action::Kind::sendDaemon, {"scan"}};
            case EntryID::sync: return {Action::Kind::sendDaemon, {"sync"}};
            case EntryID::pause:
                return {Action::Kind::sendDaemon, {state.paused ? "resume" : "pause"}};
            case EntryID::separator: return {};
            case EntryID::quit: return {Action::Kind::quit, {}};
        }
    }
    return {};
}

Action activate(const DaemonState& state) {
    return actionFor(static_cast<int32_t>(EntryID::openDashboard), state);
}

Action secondaryActivate(const DaemonState& state) {
    return actionFor(static_cast<int32_t>(EntryID::scan), state);
}

}  // namespace quorvane::TrayModel
