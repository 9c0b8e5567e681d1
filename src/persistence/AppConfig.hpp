#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "persistence/AgentConfig.hpp"
#include "records/GitHubAccount.hpp"
#include "records/JsonCodec.hpp"
#include "records/RepoConfig.hpp"

namespace quorvane {

// Which reminders are raised, and after how long. Strict: every key is required.
struct ReminderPrefs {
    bool needsPush = true;
    bool needsCommit = true;
    bool behindRemote = true;
    bool staleDirty = true;
    bool endDayReview = true;
    int pushAfterMinutes = 120;
    int commitAfterWorkMinutes = 60;
    int staleDirtyAfterDays = 3;

    bool operator==(const ReminderPrefs&) const = default;
};

// When and what the GitHub sync reads. Strict: every key is required.
struct SyncPrefs {
    enum class Interval { manual, m15, m30, h1 };

    Interval interval = Interval::m30;
    bool syncOnStart = true;
    bool wifiOnly = false;
    bool syncPrivate = true;
    bool syncArchived = false;

    bool operator==(const SyncPrefs&) const = default;
};

// Which AI provider writes summaries. Strict: every key is required, but for
// `anthropicBaseURL`, which came later and takes its default when absent.
struct AIPrefs {
    enum class Provider { disabled, anthropic, ollama };

    Provider provider = Provider::disabled;
    std::string anthropicModel = "claude-opus-4-8";
    std::string ollamaModel = "llama3.1";
    std::string ollamaBaseURL = "http://localhost:11434";
    bool includeDiffStat = true;
    std::string keychainRef = "com.qvn.quorvane.ai.key";
    // The Messages API's server: another address serves a proxy or a gateway.
    std::string anthropicBaseURL = "https://api.anthropic.com";

    bool operator==(const AIPrefs&) const = default;
};

// How local repositories are linked to remote ones. Strict: every key is required.
struct MappingPrefs {
    bool autoMapByURL = true;
    bool askBeforeMapping = false;
    std::string defaultCloneFolder = "~/Developer";
    bool ignoreRemoteArchived = true;

    bool operator==(const MappingPrefs&) const = default;
};

// The dashboard the daemon serves on the loopback address. Each key may be
// absent: files written before the dashboard existed still load.
struct DashboardPrefs {
    bool enabled = true;
    // When it is taken, the daemon serves on the next free port and logs it.
    int port = 7717;

    bool operator==(const DashboardPrefs&) const = default;
};

// The root of config.json. Each key may be absent (or null) and then takes its
// default, so older files keep loading as the configuration grows; a key of the
// wrong type makes the whole file unreadable.
struct AppConfig {
    enum class ThemePref { system, light, dark };

    std::vector<std::string> scanFolders;
    int scanIntervalMinutes = 10;
    std::string dailyReviewTime = "21:30";
    bool startAtLogin = false;
    bool showMenuBarIcon = true;
    ThemePref theme = ThemePref::system;
    ReminderPrefs reminders;
    std::vector<RepoConfig> repositories;
    bool didOnboard = false;
    bool autoTrackNewRepos = true;
    std::vector<std::string> ignoredRepoIDs;
    std::vector<GitHubAccount> accounts;
    SyncPrefs sync;
    AIPrefs ai;
    MappingPrefs mapping;
    AgentConfig agent;
    DashboardPrefs dashboard;
    // Days of commits read into the store when a repository is enrolled, so the week
    // and heatmap views have a past from the first day; 0 reads none.
    int historyDays = 90;
    // Who the person is besides the user.email their repositories give: more e-mail
    // addresses (anything holding an "@") and author names, as their commits carry them.
    std::vector<std::string> identities;
    // Count only the person's own commits in every view; off, everyone's count.
    bool countOnlyMyCommits = true;

    bool operator==(const AppConfig&) const = default;
};

constexpr auto enumCases(AppConfig::ThemePref) {
    using enum AppConfig::ThemePref;
    return std::array{std::pair{system, std::string_view("system")},
                      std::pair{light, std::string_view("light")},
                      std::pair{dark, std::string_view("dark")}};
}

constexpr auto enumCases(SyncPrefs::Interval) {
    using enum SyncPrefs::Interval;
    return std::array{
        std::pair{manual, std::string_view("manual")}, std::pair{m15, std::string_view("m15")},
        std::pair{m30, std::string_view("m30")}, std::pair{h1, std::string_view("h1")}};
}

constexpr auto enumCases(AIPrefs::Provider) {
    using enum AIPrefs::Provider;
    return std::array{std::pair{disabled, std::string_view("disabled")},
                      std::pair{anthropic, std::string_view("anthropic")},
                      std::pair{ollama, std::string_view("ollama")}};
}

void fromJson(const Json& json, ReminderPrefs& out, const std::string& path);
void fromJson(const Json& json, SyncPrefs& out, const std::string& path);
void fromJson(const Json& json, AIPrefs& out, const std::string& path);
void fromJson(const Json& json, MappingPrefs& out, const std::string& path);
void fromJson(const Json& json, DashboardPrefs& out, const std::string& path);
void fromJson(const Json& json, AppConfig& out, const std::string& path);

Json toJson(const ReminderPrefs& prefs);
Json toJson(const SyncPrefs& prefs);
Json toJson(const AIPrefs& prefs);
Json toJson(const MappingPrefs& prefs);
Json toJson(const DashboardPrefs& prefs);
Json toJson(const AppConfig& config);

}  // namespace quorvane
