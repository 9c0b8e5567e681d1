#pragma once

#include <string>
#include <vector>

#include "git/ActivitySummaries.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/Store.hpp"
#include "records/JsonCodec.hpp"

// What waits, in a few characters: the tray's panel and the status bars of tiling
// desktops (waybar, polybar, i3blocks) show it. One line of JSON carries what each
// of those reads: waybar's text, tooltip and class, i3blocks' full_text and
// short_text, and the counts themselves for a script.
namespace quorvane::StatusBarViewModel {

struct Bar {
    int toPush = 0;       // repositories with commits on no remote
    int toPull = 0;       // repositories behind their upstream
    int uncommitted = 0;  // repositories with changed files
    int proposals = 0;    // agents' proposals waiting for the person
    bool paused = false;  // the daemon's watching is paused
    std::vector<std::string> pushNames, pullNames, uncommittedNames;
    bool operator==(const Bar&) const = default;
};

// From today's summary (its lines are every repository with work or waiting) and
// the proposals waiting.
Bar bar(const TodaySummary& today, int proposalsWaiting);

// "↑2 ↓1 ±3 ?1", leaving out what is zero; "✓" when nothing waits; after "⏸ "
// while the daemon is paused.
std::string text(const Bar& bar);
// One line per kind that waits, naming the repositories.
std::string tooltip(const Bar& bar);

Json toJson(const Bar& bar);

// The bar as 'status --bar' prints it and the panel reads it: from today's work and
// the proposals waiting in `store`, and whether the daemon is paused.
Json of(const Store& store, const AppConfig& config, Date now, bool paused);

}  // namespace quorvane::StatusBarViewModel
