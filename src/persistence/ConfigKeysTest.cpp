#include "persistence/ConfigKeys.hpp"

#include <algorithm>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

Json accepted(std::string_view key, std::string_view text) {
    ConfigKeys::Parsed parsed = ConfigKeys::parse(key, text);
    EXPECT_EQ(parsed.error, "") << key << " " << text;
    return parsed.value;
}

std::string refusal(std::string_view key, std::string_view text) {
    ConfigKeys::Parsed parsed = ConfigKeys::parse(key, text);
    EXPECT_NE(parsed.error, "") << key << " " << text << " was taken as " << parsed.value;
    return parsed.error;
}

// A valid value for `key` other than the one `config` holds.
std::string anotherValue(const ConfigKeys::Key& key, const AppConfig& config) {
    Json current = ConfigKeys::valueOf(config, key);
    switch (key.type) {
        case ConfigKeys::ValueType::boolean: return current.get<bool>() ? "false" : "true";
        case ConfigKeys::ValueType::integer: return std::to_string(key.max);
        case ConfigKeys::ValueType::optionalInteger: return std::to_string(key.min);
        case ConfigKeys::ValueType::clockTime: return "06:15";
        case ConfigKeys::ValueType::choice:
            for (const std::string& choice : key.choices) {
                if (choice != current.get<std::string>()) return choice;
            }
            return "";
        case ConfigKeys::ValueType::name: return "another-name";
        case ConfigKeys::ValueType::folder: return "/srv/elsewhere";
        case ConfigKeys::ValueType::httpAddress: return "https://example.test:8080";
        case ConfigKeys::ValueType::secretAddress: return "https://example.test:8443";
        case ConfigKeys::ValueType::socketPath: return "/tmp/agent.sock";
        case ConfigKeys::ValueType::textList: return "me@example.test";
    }
    return "";
}

TEST(ConfigKeysTest, EachKindOfValueTakesItsOwnFormAndNothingElse) {
    EXPECT_EQ(accepted("sync.wifiOnly", "true"), Json(true));
    EXPECT_EQ(refusal("sync.wifiOnly", "yes"), "sync.wifiOnly takes true or false, not \"yes\"");
    refusal("sync.wifiOnly", "True");

    EXPECT_EQ(accepted("scanIntervalMinutes", "1"), Json(1));
    EXPECT_EQ(accepted("scanIntervalMinutes", "1440"), Json(1440));
    EXPECT_EQ(refusal("scanIntervalMinutes", "0"),
              "scanIntervalMinutes takes a whole number from 1 to 1440, not \"0\"");
    refusal("scanIntervalMinutes", "1441");
    refusal("scanIntervalMinutes", "5m");
    refusal("scanIntervalMinutes", "99999999999999999999");

    EXPECT_EQ(accepted("agent.autoApproveConfidenceThreshold", "none"), Json(nullptr));
    EXPECT_EQ(accepted("agent.autoApproveConfidenceThreshold", "80"), Json(80));
    EXPECT_THAT(refusal("agent.autoApproveConfidenceThreshold", "101"),
                HasSubstr("none or a whole number from 0 to 100"));
    refusal("agent.autoApproveConfidenceThreshold", "null");
    refusal("scanIntervalMinutes", "none");  // only an optional number may be cleared

    EXPECT_EQ(accepted("dailyReviewTime", "9:05"), Json("09:05"));
    EXPECT_EQ(accepted("dailyReviewTime", "23:59"), Json("23:59"));
    for (const char* wrong :
         {"24:00", "12:60", "12:5", "1230", "123:00", ":30", "ab:cd", "12:30 "}) {
        EXPECT_THAT(refusal("dailyReviewTime", wrong), HasSubstr("HH:MM")) << wrong;
    }

    EXPECT_EQ(accepted("sync.interval", "h1"), Json("h1"));
    EXPECT_EQ(accepted("agent.permissionLevel", "safeGit"), Json("safeGit"));
    EXPECT_EQ(refusal("sync.interval", "M30"),
              "sync.interval takes manual, m15, m30 or h1, not \"M30\"");

    EXPECT_EQ(accepted("ai.ollamaModel", "qwen2.5-coder:7b"), Json("qwen2.5-coder:7b"));
    refusal("ai.ollamaModel", "");
    refusal("ai.ollamaModel", "two words");
    EXPECT_EQ(accepted("mapping.defaultCloneFolder", "~/src"), Json("~/src"));
    refusal("mapping.defaultCloneFolder", "src");
    EXPECT_EQ(accepted("ai.ollamaBaseURL", "http://ollama.lan:11434"),
              Json("http://ollama.lan:11434"));
    refusal("ai.ollamaBaseURL", "localhost:11434");
    refusal("ai.ollamaBaseURL", "http://");
    EXPECT_EQ(accepted("ai.anthropicBaseURL", "https://llm-gateway.example.test/anthropic"),
              Json("https://llm-gateway.example.test/anthropic"));
    refusal("ai.anthropicBaseURL", "api.anthropic.com");
    // The API key goes to the Anthropic address, so plain http only to this machine.
    EXPECT_EQ(refusal("ai.anthropicBaseURL", "http://llm-gateway.example.test"),
              "ai.anthropicBaseURL takes an https:// address, or an http:// one on this machine "
              "(127.0.0.1, ::1, localhost): the API key must not cross the network in clear, "
              "not \"http://llm-gateway.example.test\"");
    EXPECT_EQ(accepted("ai.anthropicBaseURL", "http://127.0.0.1:8080"),
              Json("http://127.0.0.1:8080"));

    EXPECT_EQ(accepted("agent.socketPath", ""), Json(""));  // back to the default socket
    std::string longest = "/" + std::string(102, 's');      // 103 bytes and the NUL
    EXPECT_EQ(accepted("agent.socketPath", longest), Json(longest));
    EXPECT_THAT(refusal("agent.socketPath", longest + "s"), HasSubstr("shorter than 104 bytes"));
    refusal("agent.socketPath", "agent.sock");

    // Text goes into a UTF-8 file one value a line.
    refusal("ai.ollamaModel", "line\nbreak");
    EXPECT_THAT(refusal("ai.ollamaModel", "caf\xe9"), HasSubstr("UTF-8"));
    // A secret pasted where its name belongs is refused without being repeated.
    std::string secret = refusal("ai.keychainRef", "sk-ant-api03-abcdef");
    EXPECT_THAT(secret, HasSubstr("never holds the key itself"));
    EXPECT_THAT(secret, Not(HasSubstr("abcdef")));
    EXPECT_EQ(accepted("ai.keychainRef", "com.example.ai"), Json("com.example.ai"));
}

TEST(ConfigKeysTest, AnUnknownKeyIsRefusedWithTheKeyItMostLikelyMeant) {
    auto suggestion = [](std::string_view name) {
        ConfigKeys::Lookup lookup = ConfigKeys::find(name);
        EXPECT_EQ(lookup.key, nullptr) << name;
        EXPECT_THAT(lookup.error, HasSubstr("'quorvane config list' shows every key"));
        return lookup.error;
    };
    EXPECT_EQ(suggestion("scanInterval"),
              "unknown key \"scanInterval\" (did you mean scanIntervalMinutes?); 'quorvane "
              "config list' shows every key");
    EXPECT_THAT(suggestion("sync.intervall"), HasSubstr("did you mean sync.interval?"));
    EXPECT_THAT(suggestion("SCANINTERVALMINUTES"), HasSubstr("did you mean scanIntervalMinutes?"));
    EXPECT_THAT(suggestion("wifiOnly"), HasSubstr("did you mean sync.wifiOnly?"));
    EXPECT_THAT(suggestion("maxscandepth"), HasSubstr("did you mean agent.maxScanDepth?"));
    EXPECT_THAT(suggestion("scanFolder"), HasSubstr("did you mean scanFolders?"));
    EXPECT_THAT(suggestion("colourScheme"), Not(HasSubstr("did you mean")));
    EXPECT_THAT(suggestion("sync.interval.x"), HasSubstr("did you mean sync.interval?"));
    // parse refuses the same way, before looking at the value.
    EXPECT_THAT(ConfigKeys::parse("scanInterval", "5").error, HasSubstr("unknown key"));
}

TEST(ConfigKeysTest, ListsKeptByOtherCommandsAndGroupsAreRefusedWithWhatToUse) {
    auto refused = [](std::string_view name) {
        ConfigKeys::Lookup lookup = ConfigKeys::find(name);
        EXPECT_EQ(lookup.key, nullptr) << name;
        return lookup.error;
    };
    // Each redirect is its own table entry; that every leaf of the file has a key or
    // such an answer is checked below. A path inside a list is answered by the list.
    EXPECT_THAT(refused("scanFolders"), HasSubstr("'quorvane folders add'"));
    EXPECT_THAT(refused("repositories.0.name"), HasSubstr("repositories is a list"));
    EXPECT_EQ(refused("sync"),
              "sync is a group of keys: sync.interval, sync.syncOnStart, sync.wifiOnly, "
              "sync.syncPrivate, sync.syncArchived");
    EXPECT_THAT(ConfigKeys::parse("scanFolders", "/home/me/code").error,
                HasSubstr("'quorvane folders add'"));
}

// Every key reads and writes its own place in the file, and only that: a name that
// does not match config.json fails here, as does a setting added without a key.
TEST(ConfigKeysTest, EverySettingOfTheFileHasAKeyThatChangesItAlone) {
    const AppConfig defaults;
    std::set<std::string> names;
    for (const ConfigKeys::Key& key : ConfigKeys::all()) {
        EXPECT_TRUE(names.insert(key.name).second) << key.name << " twice";
        EXPECT_EQ(ConfigKeys::find(key.name).key, &key);

        // A list is not set whole: its entries are added one by one.
        bool list = key.type == ConfigKeys::ValueType::textList;
        ConfigKeys::Parsed parsed =
            list ? ConfigKeys::parseEntry(key.name, anotherValue(key, defaults))
                 : ConfigKeys::parse(key.name, anotherValue(key, defaults));
        ASSERT_EQ(parsed.error, "") << key.name;
        if (list) parsed.value = Json::array({parsed.value});
        ASSERT_NE(parsed.value, ConfigKeys::valueOf(defaults, key)) << key.name;
        AppConfig changed = defaults;
        ConfigKeys::apply(changed, key, parsed.value);
        EXPECT_EQ(ConfigKeys::valueOf(changed, key), parsed.value) << key.name;
        Json expected = toJson(defaults);
        std::string path = "/" + key.name;
        std::replace(path.begin(), path.end(), '.', '/');
        expected[Json::json_pointer(path)] = parsed.value;
        EXPECT_EQ(toJson(changed), expected) << key.name << " changed something else";
    }

    // Each leaf of the file is a key, or is refused with what to use instead.
    Json flat = toJson(defaults).flatten();
    for (const auto& [pointer, value] : flat.items()) {
        std::string name = pointer.substr(1);
        std::replace(name.begin(), name.end(), '/', '.');
        ConfigKeys::Lookup lookup = ConfigKeys::find(name);
        if (lookup.key != nullptr) continue;
        EXPECT_THAT(lookup.error, Not(HasSubstr("unknown key"))) << name;
    }
}

TEST(ConfigKeysTest, ValuesReadAsTheyAreTypedAndEveryDescriptionFitsALine) {
    EXPECT_EQ(ConfigKeys::display(Json(true)), "true");
    EXPECT_EQ(ConfigKeys::display(Json(10)), "10");
    EXPECT_EQ(ConfigKeys::display(Json("m30")), "m30");
    EXPECT_EQ(ConfigKeys::display(Json(nullptr)), "none");
    EXPECT_EQ(ConfigKeys::display(Json("")), "\"\"");
    // What is displayed can be typed back.
    AppConfig config;
    for (const ConfigKeys::Key& key : ConfigKeys::all()) {
        Json value = ConfigKeys::valueOf(config, key);
        if (key.type == ConfigKeys::ValueType::textList) {
            EXPECT_EQ(ConfigKeys::display(value), "none") << key.name;
            EXPECT_THAT(ConfigKeys::parse(key.name, "x").error, HasSubstr("config add"))
                << key.name;
            continue;
        }
        std::string shown = ConfigKeys::display(value);
        if (shown == "\"\"") shown.clear();
        EXPECT_EQ(ConfigKeys::parse(key.name, shown).value, value) << key.name;
        // "    meaning (allowed)" is how `config list` shows it.
        EXPECT_LE(4 + key.meaning.size() + 2 + key.allowed().size() + 1, 80u) << key.name;
    }
}

}  // namespace
}  // namespace quorvane
