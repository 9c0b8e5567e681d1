#include "screens/StatusBarViewModel.hpp"

#include <fmt/format.h>

#include "app/Queries.hpp"
#include "base/TextHelpers.hpp"

namespace quorvane::StatusBarViewModel {

namespace {

bool hasStatus(const RepoTodayLine& line, RepoStatus status) {
    return std::find(line.statuses.begin(), line.statuses.end(), status) != line.statuses.end();
}

// "app, lib and 3 more": a tooltip stays a few lines high however many repositories.
std::string someNames(const std::vector<std::string>& names) {
    constexpr size_t kNamed = 3;
    std::string out;
    for (size_t i = 0; i < names.size() && i < kNamed; ++i) {
        if (i > 0) out += ", ";
        out += Text::visible(names[i]);
    }
    if (names.size() > kNamed) out += fmt::format(" and {} more", names.size() - kNamed);
    return out;
}

std::string repositories(int count) {
    return fmt::format("{} {}", count, count == 1 ? "repository" : "repositories");
}

}  // namespace

Bar bar(const TodaySummary& today, int proposalsWaiting) {
    Bar bar;
    for (const RepoTodayLine& line : today.lines) {
        if (hasStatus(line, RepoStatus::needsPush)) bar.pushNames.push_back(line.name);
        if (hasStatus(line, RepoStatus::behindRemote)) bar.pullNames.push_back(line.name);
        if (hasStatus(line, RepoStatus::needsCommit)) bar.uncommittedNames.push_back(line.name);
    }
    bar.toPush = static_cast<int>(bar.pushNames.size());
    bar.toPull = static_cast<int>(bar.pullNames.size());
    bar.uncommitted = static_cast<int>(bar.uncommittedNames.size());
    bar.proposals = proposalsWaiting;
    return bar;
}

std::string text(const Bar& bar) {
    std::string out;
    auto add = [&](const char* mark, int count) {
        if (count == 0) return;
        if (!out.empty()) out += ' ';
        out += fmt::format("{}{}", mark, count);
    };
    add("↑", bar.toPush);
    add("↓", bar.toPull);
    add("±", bar.uncommitted);
    add("?", bar.proposals);
    if (out.empty()) out = "✓";
    return bar.paused ? "⏸ " + out : out;
}

std::string tooltip(const Bar& bar) {
    std::vector<std::string> lines;
    if (bar.toPush > 0)
        lines.push_back(
            fmt::format("{} to push: {}", repositories(bar.toPush), someNames(bar.pushNames)));
    if (bar.toPull > 0)
        lines.push_back(
            fmt::format("{} to pull: {}", repositories(bar.toPull), someNames(bar.pullNames)));
    if (bar.uncommitted > 0)
        lines.push_back(fmt::format("{} with uncommitted work: {}", repositories(bar.uncommitted),
                                    someNames(bar.uncommittedNames)));
    if (bar.proposals > 0)
        lines.push_back(fmt::format("{} {} waiting for your review", bar.proposals,
                                    bar.proposals == 1 ? "proposal" : "proposals"));
    const std::string head = bar.paused ? "Quorvane (watching paused)" : "Quorvane";
    if (lines.empty()) return head + ": nothing waits for you";
    std::string out = head;
    for (const std::string& line : lines) out += "\n" + line;
    return out;
}

Json toJson(const Bar& bar) {
    const std::string shown = text(bar);
    const bool waits = bar.toPush + bar.toPull + bar.uncommitted + bar.proposals > 0;
    return Json{{"text", shown},
                {"tooltip", tooltip(bar)},
                {"class", waits ? "attention" : "clear"},
                {"full_text", shown},
                {"short_text", shown},
                {"toPush", bar.toPush},
                {"toPull", bar.toPull},
                {"uncommitted", bar.uncommitted},
                {"proposals", bar.proposals},
                {"paused", bar.paused}};
}

Json of(const Store& store, const AppConfig& config, Date now, bool paused) {
    const int waiting = static_cast<int>(store.proposals(PendingProposal::Status::pending).size());
    Bar shown = bar(Queries::todaySummary(store, config, now), waiting);
    shown.paused = paused;
    return toJson(shown);
}

}  // namespace quorvane::StatusBarViewModel
