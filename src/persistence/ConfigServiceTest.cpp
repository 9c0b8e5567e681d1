#include "persistence/ConfigService.hpp"

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/FakeClock.hpp"
#include "testing/LogCapture.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kRepo = R"({"id": "/r", "name": "r", "localPath": "/r",
                                  "addedAt": "2026-11-21T10:00:00Z"})";

class ConfigServiceTest : public ::testing::Test {
protected:
    std::filesystem::path file() const { return dir_ / "config.json"; }

    AppConfig loadText(const std::string& text) {
        testing::writeFile(file(), text);
        return service_.load();
    }

    // Loads `text` and reports whether it was refused as unreadable.
    bool refused(const std::string& text) {
        try {
            loadText(text);
            return false;
        } catch (const ConfigUnreadable&) {
            return true;
        }
    }

    // The names in the folder, to see that nothing was added or moved.
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
            found.push_back(entry.path().filename().string());
        }
        return found;
    }

    testing::TempDir dir_;
    testing::FakeClock clock_{Date(std::chrono::seconds(1795000000))};
    ConfigService service_{dir_ / "config.json", clock_};
};

TEST_F(ConfigServiceTest, AMissingFileGivesDefaultsAndWritesThem) {
    AppConfig config = service_.load();
    EXPECT_EQ(config, AppConfig{});
    ASSERT_TRUE(std::filesystem::exists(file()));
    struct stat info {};
    ASSERT_EQ(::stat(file().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(ConfigService::decode(testing::readFile(file())), AppConfig{});
}

TEST_F(ConfigServiceTest, RootAndTolerantRecordsFillWhatIsAbsentOrNull) {
    EXPECT_EQ(loadText("{}"), AppConfig{});
    EXPECT_FALSE(loadText("{}").didOnboard);
    EXPECT_EQ(loadText(R"({"scanIntervalMinutes": null, "reminders": null, "agent": {}})"),
              AppConfig{});

    AppConfig config = loadText(std::string(R"({"scanIntervalMinutes": 5, "repositories": [)") +
                                kRepo + R"(], "agent": {"maxScanDepth": 2}})");
    AppConfig expected;
    expected.scanIntervalMinutes = 5;
    expected.agent.maxScanDepth = 2;
    RepoConfig repo;
    repo.id = repo.localPath = "/r";
    repo.name = "r";
    repo.addedAt = *DateHelpers::parseISO("2026-11-21T10:00:00Z");
    expected.repositories = {repo};
    EXPECT_EQ(config, expected);
}

TEST_F(ConfigServiceTest, WrongValuesAndPartPreferenceRecordsMakeTheFileUnreadable) {
    for (const char* wrong :
         {R"({"scanIntervalMinutes": "10"})", R"({"scanFolders": "~/code"})",
          R"({"theme": "blue"})", R"({"agent": {"enabled": "yes"}})",
          R"({"agent": {"permissionLevel": "everything"}})",
          R"({"repositories": [{"id": "/r", "name": "r", "localPath": "/r"}]})",
          R"({"repositories": [{"id": "/r", "name": "r", "localPath": "/r",
                                                    "addedAt": "yesterday"}]})",
          "[]", "{\"scanFolders\": [",
          // Preference records are strict even where a key could be left out.
          R"({"reminders": {"needsPush": true}})", R"({"sync": {"interval": "m30"}})",
          R"({"ai": {"provider": "anthropic"}})", R"({"mapping": {"autoMapByURL": true}})",
          R"({"accounts": [{"id": "a", "displayName": "A", "username": "a",
                                   "authType": "pat", "keychainRef": "", "syncEnabled": true}]})"}) {
        EXPECT_TRUE(refused(wrong)) << wrong;
    }
    EXPECT_FALSE(refused(R"({"scanIntervalMinutes": 10.0})"));
    Json sync = toJson(SyncPrefs{});
    sync["interval"] = "weekly";
    EXPECT_TRUE(refused(Json{{"sync", sync}}.dump()));
    EXPECT_FALSE(refused(Json{{"sync", toJson(SyncPrefs{})}}.dump()));
}

TEST_F(ConfigServiceTest, AnAIRecordFromBeforeTheAnthropicAddressLoadsWithItsDefault) {
    Json ai = toJson(AIPrefs{});
    ai.erase("anthropicBaseURL");
    ai["provider"] = "anthropic";
    AppConfig config = loadText(Json{{"ai", ai}}.dump());
    EXPECT_EQ(config.ai.provider, AIPrefs::Provider::anthropic);
    EXPECT_EQ(config.ai.anthropicBaseURL, "https://api.anthropic.com");

    ai["anthropicBaseURL"] = 443;
    EXPECT_TRUE(refused(Json{{"ai", ai}}.dump()));
    ai.erase("keychainRef");  // the older keys stay required
    ai["anthropicBaseURL"] = "https://gateway.example.test";
    EXPECT_TRUE(refused(Json{{"ai", ai}}.dump()));
}

TEST_F(ConfigServiceTest, AnUnreadableFileIsRefusedLeftInPlaceAndNeverWrittenOver) {
    // Why loading what is at the path now was refused.
    auto loadRefusal = [&]() -> std::string {
        try {
            service_.load();
        } catch (const ConfigUnreadable& error) {
            EXPECT_THAT(error.what(),
                        StartsWith(file().string() + " cannot be read: " + error.problem() + "\n"));
            EXPECT_THAT(error.what(), HasSubstr("move it aside"));
            return error.problem();
        }
        ADD_FAILURE() << "loaded";
        return "";
    };
    auto refusal = [&](const std::string& text) {
        testing::writeFile(file(), text);
        return loadRefusal();
    };
    EXPECT_THAT(refusal(R"({"theme": "blue"})"), HasSubstr("theme"));
    // Where a syntax error is, without the JSON library's own tag.
    EXPECT_EQ(refusal("{\n  \"historyDays\": 7,\n}"),
              "not valid JSON: parse error at line 3, column 1: syntax error while parsing "
              "object key - unexpected '}'; expected string literal");
    // A number no double can hold is a decoding error like any other.
    EXPECT_THAT(refusal(R"({"historyDays": 1e400})"), HasSubstr("1e400"));
    EXPECT_EQ(names(), std::vector<std::string>{"config.json"});
    EXPECT_EQ(testing::readFile(file()), R"({"historyDays": 1e400})");

    // The writer that met it saves nothing over it, and neither does a reader.
    ConfigService::SaveResult kept = service_.save(AppConfig{});
    EXPECT_EQ(kept.outcome, ConfigService::SaveResult::Outcome::unreadableOnDisk);
    EXPECT_THROW(service_.read(), ConfigUnreadable);
    EXPECT_EQ(testing::readFile(file()), R"({"historyDays": 1e400})");

    // A file that cannot be read at all is kept just the same.
    std::filesystem::remove(file());
    std::filesystem::create_directories(file());
    testing::writeFile(file() / "inside", "kept");
    EXPECT_THAT(loadRefusal(), HasSubstr("is a folder"));
    EXPECT_EQ(testing::readFile(file() / "inside"), "kept");
    std::filesystem::remove_all(file());

    // Missing is no error: the reader gets the defaults and writes nothing.
    EXPECT_EQ(service_.read(), AppConfig{});
    EXPECT_TRUE(names().empty());
}

TEST_F(ConfigServiceTest, SaveAndLoadGiveEqualRecordsWithSortedKeys) {
    AppConfig config;
    config.scanFolders = {"/home/u/code"};
    config.theme = AppConfig::ThemePref::dark;
    config.reminders.pushAfterMinutes = 45;
    config.sync.interval = SyncPrefs::Interval::h1;
    config.ai.provider = AIPrefs::Provider::ollama;
    config.ai.anthropicBaseURL = "https://gateway.example.test";
    config.mapping.defaultCloneFolder = "~/src";
    config.agent.autoApproveConfidenceThreshold = 0;
    config.agent.permissionLevel = AgentPermissionLevel::safeGit;
    RepoConfig repo;
    repo.id = repo.localPath = "/home/u/code/app";
    repo.name = "app";
    repo.displayName = "App";
    repo.priority = RepoConfig::Priority::high;
    repo.staleDaysThreshold = 7;
    repo.aliases = {"the-app"};
    repo.addedAt = *DateHelpers::parseISO("2026-11-21T18:58:03Z");
    config.repositories.push_back(repo);
    GitHubAccount account;
    account.id = "4B1A";
    account.displayName = "Work";
    account.username = "someone";
    account.authType = GitHubAccount::AuthType::ghCLI;
    account.status = GitHubAccount::Status::tokenInvalid;
    account.lastSyncAt = repo.addedAt;
    config.accounts.push_back(account);

    service_.save(config);
    EXPECT_EQ(service_.load(), config);

    std::string text = testing::readFile(file());
    EXPECT_LT(text.find("\"accounts\""), text.find("\"agent\""));
    EXPECT_LT(text.find("\"agent\""), text.find("\"ai\""));
    EXPECT_LT(text.find("\"ai\""), text.find("\"autoTrackNewRepos\""));
    EXPECT_NE(text.find("\"addedAt\": \"2026-11-21T18:58:03Z\""), std::string::npos);
    EXPECT_NE(text.find("\"autoApproveConfidenceThreshold\": 0"), std::string::npos);
}

TEST_F(ConfigServiceTest, AFailedSaveIsLoggedAndLeavesTheOldFile) {
    service_.save(AppConfig{});
    testing::LogCapture log;
    ConfigService blocked(dir_ / "config.json" / "nested.json", clock_);
    blocked.save(AppConfig{});
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines()[0].message, StartsWith("config.json write failed: "));
    EXPECT_EQ(ConfigService::decode(testing::readFile(file())), AppConfig{});
}

TEST_F(ConfigServiceTest, AHandEditIsNeverWrittenOverByAnOlderCopy) {
    AppConfig running = loadText(R"({"historyDays": 7})");
    // The user's editor writes a new file beside the running program.
    testing::writeFile(file(), R"({"historyDays": 9, "scanFolders": ["/home/u/code"]})");

    running.theme = AppConfig::ThemePref::dark;
    ConfigService::SaveResult refused = service_.save(running);
    EXPECT_EQ(refused.outcome, ConfigService::SaveResult::Outcome::changedOnDisk);
    EXPECT_THAT(testing::readFile(file()), HasSubstr("/home/u/code"));

    std::optional<AppConfig> edited = service_.reloadIfChanged();
    ASSERT_TRUE(edited.has_value());
    EXPECT_EQ(edited->historyDays, 9);
    EXPECT_FALSE(service_.reloadIfChanged().has_value());  // nothing new since
    edited->theme = AppConfig::ThemePref::dark;
    EXPECT_TRUE(service_.save(*edited).ok());
    AppConfig onDisk = ConfigService::decode(testing::readFile(file()));
    EXPECT_EQ(onDisk.scanFolders, std::vector<std::string>{"/home/u/code"});
    EXPECT_EQ(onDisk.theme, AppConfig::ThemePref::dark);

    // A half-finished edit is neither taken in nor written over until it decodes.
    testing::LogCapture log;
    testing::writeFile(file(), R"({"historyDays": )");
    EXPECT_FALSE(service_.reloadIfChanged().has_value());
    EXPECT_FALSE(service_.reloadIfChanged().has_value());
    ASSERT_EQ(log.lines().size(), 1u);  // said once, not at every look
    EXPECT_THAT(log.lines()[0].message, HasSubstr("changed on disk but cannot be read"));
    ConfigService::SaveResult kept = service_.save(*edited);
    EXPECT_EQ(kept.outcome, ConfigService::SaveResult::Outcome::unreadableOnDisk);
    EXPECT_THAT(kept.problem, HasSubstr("config.json cannot be read, so it is not written over"));
    EXPECT_EQ(testing::readFile(file()), R"({"historyDays": )");
    testing::writeFile(file(), R"({"historyDays": 3})");
    ASSERT_TRUE(service_.reloadIfChanged().has_value());
    EXPECT_TRUE(service_.save(*edited).ok());
}

}  // namespace
}  // namespace quorvane
