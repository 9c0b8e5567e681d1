// quorvane config list, get and set, driven through the built program.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/TextHelpers.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/ConfigService.hpp"
#include "testing/TempDir.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;

class ConfigCommandTest : public ::testing::Test {
protected:
    std::filesystem::path dataDir() const { return dir_ / "data"; }
    std::filesystem::path configFile() const { return dataDir() / "config.json"; }
    ShellResult quorvane(std::vector<std::string> arguments) {
        return testing::runQuorvane(dataDir(), std::move(arguments));
    }
    std::string onDisk() const {
        AtomicFile::ReadResult file = AtomicFile::read(configFile());
        return file.bytes.value_or("<" + file.error + ">");
    }
    // Lines wider than a terminal's 80 columns, counted in characters. The data
    // folder option every command shares is not this command's own.
    static std::vector<std::string> wideLines(std::string_view text) {
        std::vector<std::string> wide;
        for (std::string_view line : Text::nonEmptyLines(text)) {
            if (line.find("--data-dir") != std::string_view::npos) continue;
            size_t width = 0;
            for (char c : line) width += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
            if (width > 80) wide.emplace_back(line);
        }
        return wide;
    }

    testing::TempDir dir_;
};

TEST_F(ConfigCommandTest, SetChangesOneSettingSaysWhatChangedAndGetAndListReadItBack) {
    ShellResult set = quorvane({"config", "set", "scanIntervalMinutes", "5"});
    ASSERT_EQ(set.exitCode, 0) << set.stdErr;
    EXPECT_EQ(set.stdOut, "scanIntervalMinutes: 10 → 5\n");
    EXPECT_EQ(ConfigService::decode(onDisk()).scanIntervalMinutes, 5);

    ShellResult again = quorvane({"config", "set", "scanIntervalMinutes", "5"});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(again.stdOut, "scanIntervalMinutes: 5 (unchanged)\n");

    EXPECT_EQ(quorvane({"config", "set", "dailyReviewTime", "7:45"}).stdOut,
              "dailyReviewTime: 21:30 → 07:45\n");

    EXPECT_EQ(quorvane({"config", "get", "scanIntervalMinutes"}).stdOut, "5\n");
    EXPECT_EQ(quorvane({"config", "get", "dailyReviewTime", "--json"}).stdOut, "\"07:45\"\n");

    ShellResult list = quorvane({"config", "list"});
    ASSERT_EQ(list.exitCode, 0) << list.stdErr;
    EXPECT_THAT(list.stdOut, HasSubstr("scanIntervalMinutes = 5\n"
                                       "    minutes between the daemon's scans (1 to 1440)\n"));
    EXPECT_THAT(list.stdOut, HasSubstr("sync.interval = m30\n"));
    EXPECT_THAT(wideLines(list.stdOut), ::testing::IsEmpty());
    Json listed = Json::parse(quorvane({"config", "list", "--json"}).stdOut);
    EXPECT_EQ(listed["scanIntervalMinutes"], 5);
    EXPECT_EQ(listed["agent.autoApproveConfidenceThreshold"], nullptr);
    EXPECT_FALSE(listed.contains("scanFolders"));

    ShellResult help = quorvane({"config", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.stdOut, HasSubstr("Keys and the values they take:"));
    EXPECT_THAT(help.stdOut, HasSubstr("  agent.permissionLevel  "));
    EXPECT_THAT(help.stdOut, HasSubstr("quorvane config set scanIntervalMinutes 5"));
    for (const char* command : {"list", "get", "set"}) {
        ShellResult commandHelp = quorvane({"config", command, "--help"});
        EXPECT_EQ(commandHelp.exitCode, 0);
        help.stdOut += commandHelp.stdOut;
    }
    EXPECT_THAT(wideLines(help.stdOut), ::testing::IsEmpty());
}

TEST_F(ConfigCommandTest, ARefusedSettingLeavesConfigJsonByteForByteAsItWas) {
    ASSERT_EQ(quorvane({"config", "set", "historyDays", "30"}).exitCode, 0);
    const std::string before = onDisk();

    struct Refused {
        std::vector<std::string> arguments;
        int exitCode;
        std::string says;
    };
    const std::vector<Refused> cases = {
        {{"set", "scanIntervalMinutes", "0"}, 1, "takes a whole number from 1 to 1440, not \"0\""},
        // A negative number is a value, not an option.
        {{"set", "historyDays", "-5"}, 1, "historyDays takes a whole number from 0 to 3650"},
        {{"set", "sync.interval", "M30"}, 1, "manual, m15, m30 or h1"},
        {{"set", "scanInterval", "5"}, 1, "did you mean scanIntervalMinutes?"},
        {{"get", "sync.intervall"}, 1, "did you mean sync.interval?"},
        {{"set", "scanFolders", "/tmp"}, 1, "'quorvane folders add'"},
        {{"set", "scanIntervalMinutes"}, 2, "VALUE is required"},
        {{"set"}, 2, "KEY is required"},
    };
    for (const Refused& refused : cases) {
        std::vector<std::string> arguments = {"config"};
        arguments.insert(arguments.end(), refused.arguments.begin(), refused.arguments.end());
        std::string typed = fmt::format("{}", fmt::join(arguments, " "));
        ShellResult result = quorvane(arguments);
        EXPECT_EQ(result.exitCode, refused.exitCode) << typed << ": " << result.stdErr;
        EXPECT_THAT(result.stdErr, HasSubstr(refused.says)) << typed;
        EXPECT_EQ(result.stdOut, "") << typed;
        EXPECT_EQ(onDisk(), before) << typed;
    }
}

TEST_F(ConfigCommandTest, AnUnreadableConfigJsonIsNeitherReplacedNorSetAside) {
    ASSERT_EQ(quorvane({"config", "set", "theme", "dark"}).exitCode, 0);
    const std::string unfinished = R"({"theme": "dark", "historyDays": )";
    testing::writeFile(configFile(), unfinished);

    ShellResult set = quorvane({"config", "set", "historyDays", "7"});
    EXPECT_EQ(set.exitCode, 1);
    EXPECT_THAT(set.stdErr, HasSubstr("config.json cannot be read"));
    EXPECT_THAT(set.stdErr, HasSubstr("nothing was changed"));
    ShellResult get = quorvane({"config", "get", "theme"});
    EXPECT_EQ(get.exitCode, 1);
    EXPECT_EQ(get.stdOut, "");  // not the default, which the file may well not hold
    EXPECT_EQ(quorvane({"config", "list"}).exitCode, 1);

    EXPECT_EQ(onDisk(), unfinished);
    for (const auto& entry : std::filesystem::directory_iterator(dataDir())) {
        EXPECT_FALSE(entry.path().filename().string().starts_with("config.json.corrupt"))
            << entry.path();
    }
}

}  // namespace
}  // namespace quorvane
