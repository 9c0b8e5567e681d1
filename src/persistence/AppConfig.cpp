#include "persistence/AppConfig.hpp"

namespace quorvane {

void fromJson(const Json& json, ReminderPrefs& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.needsPush = reader.required<bool>("needsPush");
    out.needsCommit = reader.required<bool>("needsCommit");
    out.behindRemote = reader.required<bool>("behindRemote");
    out.staleDirty = reader.required<bool>("staleDirty");
    out.endDayReview = reader.required<bool>("endDayReview");
    out.pushAfterMinutes = reader.required<int>("pushAfterMinutes");
    out.commitAfterWorkMinutes = reader.required<int>("commitAfterWorkMinutes");
    out.staleDirtyAfterDays = reader.required<int>("staleDirtyAfterDays");
}

void fromJson(const Json& json, SyncPrefs& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.interval = reader.required<SyncPrefs::Interval>("interval");
    out.syncOnStart = reader.required<bool>("syncOnStart");
    out.wifiOnly = reader.required<bool>("wifiOnly");
    out.syncPrivate = reader.required<bool>("syncPrivate");
    out.syncArchived = reader.required<bool>("syncArchived");
}

void fromJson(const Json& json, AIPrefs& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.provider = reader.required<AIPrefs::Provider>("provider");
    out.anthropicModel = reader.required<std::string>("anthropicModel");
    out.ollamaModel = reader.required<std::string>("ollamaModel");
    out.ollamaBaseURL = reader.required<std::string>("ollamaBaseURL");
    out.includeDiffStat = reader.required<bool>("includeDiffStat");
    out.keychainRef = reader.required<std::string>("keychainRef");
    // Files written before the key existed still load.
    out.anthropicBaseURL = reader.orDefault("anthropicBaseURL", AIPrefs{}.anthropicBaseURL);
}

void fromJson(const Json& json, MappingPrefs& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.autoMapByURL = reader.required<bool>("autoMapByURL");
    out.askBeforeMapping = reader.required<bool>("askBeforeMapping");
    out.defaultCloneFolder = reader.required<std::string>("defaultCloneFolder");
    out.ignoreRemoteArchived = reader.required<bool>("ignoreRemoteArchived");
}

void fromJson(const Json& json, DashboardPrefs& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.enabled = reader.orDefault("enabled", DashboardPrefs{}.enabled);
    out.port = reader.orDefault("port", DashboardPrefs{}.port);
}

void fromJson(const Json& json, AppConfig& out, const std::string& path) {
    ObjectReader reader(json, path);
    AppConfig defaults;
    out.scanFolders = reader.orDefault("scanFolders", defaults.scanFolders);
    out.scanIntervalMinutes = reader.orDefault("scanIntervalMinutes", defaults.scanIntervalMinutes);
    out.dailyReviewTime = reader.orDefault("dailyReviewTime", defaults.dailyReviewTime);
    out.startAtLogin = reader.orDefault("startAtLogin", defaults.startAtLogin);
    out.showMenuBarIcon = reader.orDefault("showMenuBarIcon", defaults.showMenuBarIcon);
    out.theme = reader.orDefault("theme", defaults.theme);
    out.reminders = reader.orDefault("reminders", defaults.reminders);
    out.repositories = reader.orDefault("repositories", defaults.repositories);
    out.didOnboard = reader.orDefault("didOnboard", defaults.didOnboard);
    out.autoTrackNewRepos = reader.orDefault("autoTrackNewRepos", defaults.autoTrackNewRepos);
    out.ignoredRepoIDs = reader.orDefault("ignoredRepoIDs", defaults.ignoredRepoIDs);
    out.accounts = reader.orDefault("accounts", defaults.accounts);
    out.sync = reader.orDefault("sync", defaults.sync);
    out.ai = reader.orDefault("ai", defaults.ai);
    out.mapping = reader.orDefault("mapping", defaults.mapping);
    out.agent = reader.orDefault("agent", defaults.agent);
    out.dashboard = reader.orDefault("dashboard", defaults.dashboard);
    out.historyDays = reader.orDefault("historyDays", defaults.historyDays);
    out.identities = reader.orDefault("identities", defaults.identities);
    out.countOnlyMyCommits = reader.orDefault("countOnlyMyCommits", defaults.countOnlyMyCommits);
}

Json toJson(const ReminderPrefs& prefs) {
    return Json{{"needsPush", prefs.needsPush},
                {"needsCommit", prefs.needsCommit},
                {"behindRemote", prefs.behindRemote},
                {"staleDirty", prefs.staleDirty},
                {"endDayReview", prefs.endDayReview},
                {"pushAfterMinutes", prefs.pushAfterMinutes},
                {"commitAfterWorkMinutes", prefs.commitAfterWorkMinutes},
                {"staleDirtyAfterDays", prefs.staleDirtyAfterDays}};
}

Json toJson(const SyncPrefs& prefs) {
    return Json{{"interval", toJson(prefs.interval)},
                {"syncOnStart", prefs.syncOnStart},
                {"wifiOnly", prefs.wifiOnly},
                {"syncPrivate", prefs.syncPrivate},
                {"syncArchived", prefs.syncArchived}};
}

Json toJson(const AIPrefs& prefs) {
    return Json{
        {"provider", toJson(prefs.provider)},        {"anthropicModel", prefs.anthropicModel},
        {"ollamaModel", prefs.ollamaModel},          {"ollamaBaseURL", prefs.ollamaBaseURL},
        {"includeDiffStat", prefs.includeDiffStat},  {"keychainRef", prefs.keychainRef},
        {"anthropicBaseURL", prefs.anthropicBaseURL}};
}

Json toJson(const MappingPrefs& prefs) {
    return Json{{"autoMapByURL", prefs.autoMapByURL},
                {"askBeforeMapping", prefs.askBeforeMapping},
                {"defaultCloneFolder", prefs.defaultCloneFolder},
                {"ignoreRemoteArchived", prefs.ignoreRemoteArchived}};
}

Json toJson(const DashboardPrefs& prefs) {
    return Json{{"enabled", prefs.enabled}, {"port", prefs.port}};
}

Json toJson(const AppConfig& config) {
    return Json{{"scanFolders", toJson(config.scanFolders)},
                {"scanIntervalMinutes", config.scanIntervalMinutes},
                {"dailyReviewTime", config.dailyReviewTime},
                {"startAtLogin", config.startAtLogin},
                {"showMenuBarIcon", config.showMenuBarIcon},
                {"theme", toJson(config.theme)},
                {"reminders", toJson(config.reminders)},
                {"repositories", toJson(config.repositories)},
                {"didOnboard", config.didOnboard},
                {"autoTrackNewRepos", config.autoTrackNewRepos},
                {"ignoredRepoIDs", toJson(config.ignoredRepoIDs)},
                {"accounts", toJson(config.accounts)},
                {"sync", toJson(config.sync)},
                {"ai", toJson(config.ai)},
                {"mapping", toJson(config.mapping)},
                {"agent", toJson(config.agent)},
                {"dashboard", toJson(config.dashboard)},
                {"historyDays", config.historyDays},
                {"identities", toJson(config.identities)},
                {"countOnlyMyCommits", config.countOnlyMyCommits}};
}

}  // namespace quorvane
