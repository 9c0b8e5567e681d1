#include "persistence/ConfigKeys.hpp"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/TextHelpers.hpp"
#include "platform/HttpTransport.hpp"

namespace quorvane::ConfigKeys {

namespace {

// The most a Unix socket's path may hold, its final NUL included.
constexpr size_t kSocketPathLimit = 104;

template <NamedEnum E>
std::vector<std::string> namesOf() {
    std::vector<std::string> names;
    for (const auto& entry : enumCases(E{})) names.emplace_back(entry.second);
    return names;
}

Key flag(std::string name, std::string meaning) {
    return {std::move(name), ValueType::boolean, 0, 0, {}, std::move(meaning)};
}

Key number(std::string name, long long min, long long max, std::string meaning) {
    return {std::move(name), ValueType::integer, min, max, {}, std::move(meaning)};
}

Key oneOf(std::string name, std::vector<std::string> choices, std::string meaning) {
    return {std::move(name), ValueType::choice, 0, 0, std::move(choices), std::move(meaning)};
}

Key typed(std::string name, ValueType type, std::string meaning) {
    return {std::move(name), type, 0, 0, {}, std::move(meaning)};
}

std::vector<Key> makeKeys() {
    using enum ValueType;
    return {
        // A scan less often than daily would leave days without any record.
        number("scanIntervalMinutes", 1, 1440, "minutes between the daemon's scans"),
        typed("dailyReviewTime", clockTime, "local time of the end-of-day reminder"),
        number("historyDays", 0, 3650, "days of history read when a repo is added"),
        flag("autoTrackNewRepos", "track repositories found in the scan folders"),
        oneOf("theme", namesOf<AppConfig::ThemePref>(), "colour scheme of the dashboard"),
        flag("showMenuBarIcon", "show a menu-bar icon; Linux has none"),
        flag("didOnboard", "the first-run introduction was seen"),
        flag("countOnlyMyCommits", "count only your own commits; false: everyone's"),
        typed("identities", textList, "e-mails and names you also commit as"),

        flag("reminders.needsPush", "remind of commits not yet pushed"),
        flag("reminders.needsCommit", "remind of work left uncommitted"),
        flag("reminders.behindRemote", "remind of a branch behind its remote"),
        flag("reminders.staleDirty", "remind of changes left for days"),
        flag("reminders.endDayReview", "raise the end-of-day reminder"),
        // Kept for the file's sake: a push reminder rises as soon as a commit is unpushed.
        number("reminders.pushAfterMinutes", 0, 10080, "unused: push reminders rise at once"),
        number("reminders.commitAfterWorkMinutes", 0, 1440,
               "work minutes before a commit reminder"),
        number("reminders.staleDirtyAfterDays", 0, 365, "days until left changes are stale"),

        oneOf("sync.interval", namesOf<SyncPrefs::Interval>(), "how often the daemon syncs"),
        flag("sync.syncOnStart", "sync when the daemon starts"),
        flag("sync.wifiOnly", "skip periodic syncs on a metered link"),
        flag("sync.syncPrivate", "read private repositories"),
        flag("sync.syncArchived", "read archived repositories"),

        oneOf("ai.provider", namesOf<AIPrefs::Provider>(), "who writes AI summaries"),
        typed("ai.anthropicModel", name, "Anthropic model for summaries"),
        typed("ai.ollamaModel", name, "Ollama model for summaries"),
        typed("ai.ollamaBaseURL", httpAddress, "the Ollama server"),
        // The API key goes there; Ollama's server takes none, and often runs on
        // another machine of the home or office network, over plain http.
        typed("ai.anthropicBaseURL", secretAddress, "the Anthropic API server"),
        flag("ai.includeDiffStat", "send file counts with summaries"),
        typed("ai.keychainRef", name, "secret-store entry of the API key"),

        flag("mapping.autoMapByURL", "link repositories to GitHub by remote URL"),
        flag("mapping.askBeforeMapping", "ask before linking a repository"),
        typed("mapping.defaultCloneFolder", folder, "where new clones go"),
        flag("mapping.ignoreRemoteArchived", "leave archived GitHub repos out"),

        flag("agent.enabled", "serve coding agents on the agent socket"),
        oneOf("agent.permissionLevel", namesOf<AgentPermissionLevel>(), "what an agent may do"),
        // Kept as the agent's checks read a path: absolute, with links resolved.
        typed("agent.allowedRoots", textList, "folders an agent may look into"),
        // Also how deep scan folders are searched for repositories to track.
        number("agent.maxScanDepth", 0, 20, "folder depth of repository searches"),
        flag("agent.requireGuiConfirmation", "agent changes need your approval"),
        Key{"agent.autoApproveConfidenceThreshold",
            optionalInteger,
            0,
            100,
            {},
            "link confidence approved unasked"},
        typed("agent.socketPath", socketPath, "the agent socket"),

        flag("dashboard.enabled", "serve the dashboard on the loopback address"),
        // Below 1024 a port needs privileges the daemon does not have.
        number("dashboard.port", 1024, 65535, "the dashboard's port, or the next free one"),
    };
}

// Names that hold what other commands keep, and what to use instead.
struct KeptElsewhere {
    std::string_view name;
    std::string_view instead;
};
constexpr KeptElsewhere kKeptElsewhere[] = {
    {"scanFolders",
     "is a list kept by 'quorvane folders add', 'folders remove' and 'folders list'"},
    {"repositories", "is a list kept by 'quorvane repos add', 'repos remove' and 'repos list'"},
    {"ignoredRepoIDs",
     "is a list kept by 'quorvane repos remove', which adds to it, and 'quorvane repos add', "
     "which takes a repository off it"},
    {"accounts",
     "is a list kept by 'quorvane accounts add', 'accounts remove' and 'accounts list'"},
    {"startAtLogin",
     "is not set here: 'quorvane service install' starts the daemon at each login and "
     "'quorvane service uninstall' stops that"},
};

constexpr std::string_view kGroups[] = {"reminders", "sync", "ai", "mapping", "agent", "dashboard"};

std::vector<std::string> knownNames() {
    std::vector<std::string> names;
    for (const Key& key : all()) names.push_back(key.name);
    for (const KeptElsewhere& kept : kKeptElsewhere) names.emplace_back(kept.name);
    for (std::string_view group : kGroups) names.emplace_back(group);
    return names;
}

// What the person probably meant: the same name in another case, a near spelling,
// or a key named without its group ("wifiOnly" for "sync.wifiOnly").
std::optional<std::string> nearestKey(std::string_view typed) {
    std::vector<std::string> names = knownNames();
    std::string lower = Text::asciiLower(typed);
    for (const std::string& name : names) {
        if (Text::asciiLower(name) == lower) return name;
    }
    if (std::optional<std::string> near = Text::nearestName(typed, names)) return near;
    std::vector<std::string> lastParts, owners;
    for (const std::string& name : names) {
        size_t dot = name.rfind('.');
        if (dot == std::string::npos) continue;
        lastParts.push_back(Text::asciiLower(std::string_view(name).substr(dot + 1)));
        owners.push_back(name);
    }
    std::optional<std::string> part = Text::nearestName(lower, lastParts);
    if (!part) return std::nullopt;
    auto at = std::find(lastParts.begin(), lastParts.end(), *part);
    return owners[static_cast<size_t>(at - lastParts.begin())];
}

Json::json_pointer pointerOf(const Key& key) {
    std::string path = "/" + key.name;
    std::replace(path.begin(), path.end(), '.', '/');
    return Json::json_pointer(path);
}

std::string quoted(std::string_view text) {
    return Json(Text::escapeInvalidUtf8(text)).dump();
}

bool hasControlCharacters(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

bool hasBlanks(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\t'; });
}

// "9:05" or "09:05", as a time of day; the kept form is "09:05".
std::optional<std::string> clockTimeOf(std::string_view text) {
    size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon > 2 || text.size() - colon != 3) {
        return std::nullopt;
    }
    auto digits = [](std::string_view part) {
        return std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    std::string_view hours = text.substr(0, colon), minutes = text.substr(colon + 1);
    if (!digits(hours) || !digits(minutes)) return std::nullopt;
    int hour = std::stoi(std::string(hours)), minute = std::stoi(std::string(minutes));
    if (hour > 23 || minute > 59) return std::nullopt;
    return fmt::format("{:02}:{:02}", hour, minute);
}

bool isHttpAddress(std::string_view text) {
    for (std::string_view scheme : {"http://", "https://"}) {
        if (!text.starts_with(scheme)) continue;
        std::string_view rest = text.substr(scheme.size());
        return !rest.empty() && rest.front() != '/' && !hasBlanks(text);
    }
    return false;
}

// A value that is the secret itself, pasted where its name belongs, is never kept.
bool looksLikeASecret(std::string_view text) {
    for (std::string_view prefix : {"sk-", "ghp_", "gho_", "github_pat_"}) {
        if (text.starts_with(prefix)) return true;
    }
    return false;
}

// The value of `text` for `key`, or nothing when it is not allowed.
std::optional<Json> valueFor(const Key& key, std::string_view text) {
    switch (key.type) {
        case ValueType::boolean:
            if (text == "true") return Json(true);
            if (text == "false") return Json(false);
            return std::nullopt;
        case ValueType::optionalInteger:
            if (text == "none") return Json(nullptr);
            [[fallthrough]];
        case ValueType::integer: {
            long long value = 0;
            if (!Text::parseInt(text, value) || value < key.min || value > key.max) {
                return std::nullopt;
            }
            return Json(static_cast<int>(value));
        }
        case ValueType::clockTime:
            if (std::optional<std::string> time = clockTimeOf(text)) return Json(*time);
            return std::nullopt;
        case ValueType::choice:
            if (std::find(key.choices.begin(), key.choices.end(), text) == key.choices.end()) {
                return std::nullopt;
            }
            return Json(std::string(text));
        case ValueType::name:
            if (text.empty() || hasBlanks(text)) return std::nullopt;
            return Json(std::string(text));
        case ValueType::folder:
            if (!text.starts_with('/') && !text.starts_with('~')) return std::nullopt;
            return Json(std::string(text));
        case ValueType::httpAddress:
            if (!isHttpAddress(text)) return std::nullopt;
            return Json(std::string(text));
        case ValueType::secretAddress:
            if (!isHttpAddress(text) || crossesTheNetworkInClear(text)) return std::nullopt;
            return Json(std::string(text));
        case ValueType::socketPath:
            if (!text.empty() && (!text.starts_with('/') || text.size() >= kSocketPathLimit)) {
                return std::nullopt;
            }
            return Json(std::string(text));
        case ValueType::textList: return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace

std::string Key::allowed() const {
    switch (type) {
        case ValueType::boolean: return "true or false";
        case ValueType::integer: return fmt::format("{} to {}", min, max);
        case ValueType::optionalInteger: return fmt::format("none, or {} to {}", min, max);
        case ValueType::clockTime: return "HH:MM";
        case ValueType::choice: {
            std::vector<std::string> first(choices.begin(), choices.end() - 1);
            return fmt::format("{} or {}", fmt::join(first, ", "), choices.back());
        }
        case ValueType::name: return "a name";
        case ValueType::folder: return "a folder; ~ for home";
        case ValueType::httpAddress: return "an http(s) address";
        case ValueType::secretAddress: return "https, or http on this machine";
        case ValueType::socketPath: return "a path, or \"\" for the default";
        case ValueType::textList: return "a list: config add, config remove";
    }
    return {};
}

const std::vector<Key>& all() {
    static const std::vector<Key> keys = makeKeys();
    return keys;
}

Lookup find(std::string_view name) {
    for (const Key& key : all()) {
        if (key.name == name) return {&key, ""};
    }
    for (const KeptElsewhere& kept : kKeptElsewhere) {
        // "repositories.0.name" is as much the list's as "repositories" itself.
        if (name == kept.name ||
            (name.starts_with(kept.name) && name.size() > kept.name.size() &&
             (name[kept.name.size()] == '.' || name[kept.name.size()] == '['))) {
            return {nullptr, fmt::format("{} {}", kept.name, kept.instead)};
        }
    }
    for (std::string_view group : kGroups) {
        if (name != group) continue;
        std::vector<std::string> members;
        for (const Key& key : all()) {
            if (key.name.starts_with(std::string(group) + ".")) members.push_back(key.name);
        }
        return {nullptr, fmt::format("{} is a group of keys: {}", group, fmt::join(members, ", "))};
    }
    std::optional<std::string> nearest = nearestKey(name);
    return {nullptr,
            fmt::format("unknown key {}{}; 'quorvane config list' shows every key", quoted(name),
                        nearest ? fmt::format(" (did you mean {}?)", *nearest) : "")};
}

Parsed parse(std::string_view name, std::string_view text) {
    Lookup lookup = find(name);
    if (lookup.key == nullptr) return {nullptr, nullptr, lookup.error};
    const Key& key = *lookup.key;
    auto refuse = [&](std::string_view why) -> Parsed {
        return {&key, nullptr, fmt::format("{} takes {}, not {}", key.name, why, quoted(text))};
    };
    // config.json holds UTF-8 text, one line per value.
    if (!Text::isValidUtf8(text)) return {&key, nullptr, key.name + " takes UTF-8 text only"};
    if (hasControlCharacters(text)) return refuse("text without control characters");
    if (key.name == "ai.keychainRef" && looksLikeASecret(text)) {
        return {&key, nullptr,
                "ai.keychainRef names the secret-store entry that holds the API key; it never "
                "holds the key itself"};
    }
    if (key.type == ValueType::textList) {
        return {&key, nullptr,
                fmt::format("{0} is a list: 'quorvane config add {0} VALUE' adds to it and "
                            "'quorvane config remove {0} VALUE' takes from it",
                            key.name)};
    }
    std::optional<Json> value = valueFor(key, text);
    if (value) return {&key, std::move(*value), ""};
    switch (key.type) {
        case ValueType::boolean: return refuse("true or false");
        case ValueType::integer:
            return refuse(fmt::format("a whole number from {} to {}", key.min, key.max));
        case ValueType::optionalInteger:
            return refuse(fmt::format("none or a whole number from {} to {}", key.min, key.max));
        case ValueType::clockTime: return refuse("a local time of day as HH:MM, 00:00 to 23:59");
        case ValueType::choice: return refuse(key.allowed());
        case ValueType::name: return refuse("a name without blanks");
        case ValueType::folder: return refuse("an absolute folder path or one starting with ~");
        case ValueType::httpAddress:
            return refuse("an http:// or https:// address, such as http://localhost:11434");
        case ValueType::secretAddress:
            return refuse(
                "an https:// address, or an http:// one on this machine (127.0.0.1, ::1, "
                "localhost): the API key must not cross the network in clear");
        case ValueType::socketPath:
            return refuse(
                fmt::format("an absolute path shorter than {} bytes, or \"\" for the "
                            "socket in the data folder",
                            kSocketPathLimit));
        case ValueType::textList: break;
    }
    return refuse(key.allowed());
}

Parsed parseEntry(std::string_view name, std::string_view text) {
    Lookup lookup = find(name);
    if (lookup.key == nullptr) return {nullptr, nullptr, lookup.error};
    const Key& key = *lookup.key;
    if (key.type != ValueType::textList) {
        return {
            &key, nullptr,
            fmt::format("{0} is no list: set it with 'quorvane config set {0} VALUE'", key.name)};
    }
    if (!Text::isValidUtf8(text)) return {&key, nullptr, key.name + " takes UTF-8 text only"};
    if (hasControlCharacters(text)) {
        return {&key, nullptr,
                fmt::format("{} takes text without control characters, not {}", key.name,
                            quoted(text))};
    }
    std::string_view entry = Text::trim(text);
    if (entry.empty()) return {&key, nullptr, key.name + " takes no empty entry"};
    return {&key, Json(std::string(entry)), ""};
}

Json valueOf(const AppConfig& config, const Key& key) {
    return toJson(config).at(pointerOf(key));
}

void apply(AppConfig& config, const Key& key, const Json& value) {
    Json json = toJson(config);
    json[pointerOf(key)] = value;
    AppConfig updated;
    fromJson(json, updated, "");
    config = std::move(updated);
}

std::string display(const Json& value) {
    if (value.is_null()) return "none";
    if (value.is_array()) {
        if (value.empty()) return "none";
        std::vector<std::string> entries;
        for (const Json& entry : value) entries.push_back(display(entry));
        return fmt::format("{}", fmt::join(entries, ", "));
    }
    if (value.is_string()) {
        // Text can come from an agent's approved change: its controls show, not act.
        const std::string& text = value.get_ref<const std::string&>();
        return text.empty() ? "\"\"" : Text::visible(text);
    }
    return value.dump();
}

}  // namespace quorvane::ConfigKeys
