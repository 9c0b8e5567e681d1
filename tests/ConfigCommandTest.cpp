// quorvane config list, get and set, driven through the built program.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    Json listed = Json::parse(quorvane({"config", "list", "--json"}).stdOut);
    EXPECT_EQ(listed["scanIntervalMinutes"], 5);
    EXPECT_EQ(listed["agent.autoApproveConfidenceThreshold"], nullptr);
    EXPECT_FALSE(listed.contains("scanFolders"));

    // A list grows and shrinks by entries; an address is the same in any case.
    EXPECT_EQ(quorvane({"config", "add", "identities", "Me@Work.example", "Jo Smith"}).stdOut,
              "identities: none → Me@Work.example, Jo Smith\n");
    EXPECT_EQ(quorvane({"config", "add", "identities", "me@work.example"}).stdOut,
              "identities: Me@Work.example, Jo Smith (unchanged)\n");
    ShellResult absent = quorvane({"config", "remove", "identities", "jo smith", "Jo Smith"});
    EXPECT_EQ(absent.exitCode, 1);
    EXPECT_EQ(absent.stdErr, "quorvane: identities holds no jo smith\n");
    EXPECT_EQ(ConfigService::decode(onDisk()).identities,
              std::vector<std::string>{"Me@Work.example"});

    ShellResult help = quorvane({"config", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.stdOut, HasSubstr("Keys and the values they take:"));
    EXPECT_THAT(help.stdOut, HasSubstr("  agent.permissionLevel  "));
    EXPECT_THAT(help.stdOut, HasSubstr("quorvane config set scanIntervalMinutes 5"));
}

TEST_F(ConfigCommandTest, AllowedRootsAreKeptAsTheAgentsChecksReadThem) {
    const std::filesystem::path home = dir_ / "home", code = home / "code";
    std::filesystem::create_directories(code / "app");
    std::filesystem::create_directories(home / "notes");
    std::filesystem::create_symlink(code, dir_ / "code-link");
    testing::writeFile(home / "todo.txt", "");
    // Typed in `cwd` by a person whose home is `home`.
    auto typed = [&](std::vector<std::string> words, const std::filesystem::path& cwd) {
        ProcessRequest request;
        request.executable = QUORVANE_BINARY;
        request.arguments = std::move(words);
        request.arguments.insert(request.arguments.end(), {"--data-dir", dataDir().string()});
        request.cwd = cwd.string();
        request.environment = {{"HOME", home.string()}};
        request.timeout = 120;
        return Shell().run(request);
    };
    auto roots = [&] { return ConfigService::decode(onDisk()).agent.allowedRoots; };
    const std::string codeRoot = std::filesystem::canonical(code).string();
    const std::string notesRoot = std::filesystem::canonical(home / "notes").string();
    const std::string appRoot = std::filesystem::canonical(code / "app").string();

    // "~", a relative path, a link and a trailing slash all name the folder itself;
    // one named twice is kept once.
    ShellResult added = typed({"config", "add", "agent.allowedRoots", "~/code/", "./app",
                               (dir_ / "code-link").string(), "../notes"},
                              code);
    ASSERT_EQ(added.exitCode, 0) << added.stdErr;
    EXPECT_EQ(roots(), (std::vector<std::string>{codeRoot, appRoot, notesRoot}));
    EXPECT_EQ(added.stdOut,
              fmt::format("agent.allowedRoots: none → {}, {}, {}\n", codeRoot, appRoot, notesRoot));

    // Not a folder, or no path at all: refused, and nothing changes.
    for (const char* refused : {"~/todo.txt", "~/missing", ""}) {
        ShellResult result = typed({"config", "add", "agent.allowedRoots", refused}, home);
        EXPECT_EQ(result.exitCode, 1) << refused;
        EXPECT_THAT(result.stdErr, HasSubstr("agent.allowedRoots")) << refused;
    }
    EXPECT_EQ(roots().size(), 3u);

    // Removed by any spelling of the same folder; one not there is said and exits 1.
    ShellResult removed =
        typed({"config", "remove", "agent.allowedRoots", "app/", "~/notes", "~/elsewhere"}, code);
    EXPECT_EQ(removed.exitCode, 1);
    EXPECT_EQ(removed.stdErr, "quorvane: agent.allowedRoots holds no " +
                                  (std::filesystem::canonical(home) / "elsewhere").string() + "\n");
    EXPECT_EQ(roots(), std::vector<std::string>{codeRoot});

    ShellResult help = quorvane({"config", "add", "--help"});
    EXPECT_THAT(help.stdOut, HasSubstr("quorvane config add agent.allowedRoots"));
    EXPECT_EQ(quorvane({"config", "get", "agent.allowedRoots"}).stdOut, codeRoot + "\n");
}

TEST_F(ConfigCommandTest, ARefusedSettingLeavesConfigJsonByteForByteAsItWas) {
    ASSERT_EQ(quorvane({"config", "set", "historyDays", "30"}).exitCode, 0);
    const std::string before = onDisk();

    struct Refused {
        std::vector<std::string> arguments;
        int exitCode;
        std::string says;
    };
    // A refused value and a refused command line once each; every key's and value's
    // own refusal is pinned in ConfigKeysTest.
    const std::vector<Refused> cases = {
        // A negative number is a value, not an option.
        {{"set", "historyDays", "-5"}, 1, "historyDays takes a whole number from 0 to 3650"},
        {{"set", "scanIntervalMinutes"}, 2, "VALUE is required"},
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

TEST_F(ConfigCommandTest, ATypoInConfigJsonStopsEveryChangeAndTheDaemonAndLeavesTheFileAlone) {
    ASSERT_EQ(quorvane({"config", "set", "theme", "dark"}).exitCode, 0);
    // A comma left after the last setting, as a hand edit leaves it.
    const std::string typo = "{\n  \"historyDays\": 30,\n  \"theme\": \"dark\",\n}\n";
    testing::writeFile(configFile(), typo);
    const std::string reason = configFile().string() + " cannot be read: ";
    auto untouched = [&](const std::string& typed) {
        EXPECT_EQ(onDisk(), typo) << typed;
        for (const auto& entry : std::filesystem::directory_iterator(dataDir())) {
            EXPECT_FALSE(entry.path().filename().string().starts_with("config.json."))
                << typed << " left " << entry.path();
        }
    };

    // Running on the defaults would drop the settings, and the next save would write
    // them over the person's file: every change stops, with where the typo is.
    const std::vector<std::vector<std::string>> changes = {
        {"scan"},
        {"sync"},
        {"folders", "add", dir_.path().string()},
        {"config", "set", "historyDays", "7"},
        {"journal", "--notes", "kept"},
        {"proposals", "approve", "0000"},
    };
    for (const std::vector<std::string>& change : changes) {
        std::string typed = fmt::format("{}", fmt::join(change, " "));
        ShellResult result = quorvane(change);
        EXPECT_EQ(result.exitCode, 1) << typed << ": " << result.stdErr;
        EXPECT_THAT(result.stdErr, HasSubstr(reason)) << typed;
        EXPECT_THAT(result.stdErr, HasSubstr("line 4, column 1")) << typed;
        EXPECT_THAT(result.stdErr, HasSubstr("move it aside")) << typed;
        untouched(typed);
    }

    // Views of the tracked repositories and settings have nothing true to show
    // without it; the stored commits and accounts are shown after the warning.
    const std::vector<std::pair<std::vector<std::string>, int>> views = {
        {{"status"}, 1},
        {{"today"}, 1},
        {{"week"}, 1},
        {{"repos", "list"}, 1},
        {{"config", "get", "theme"}, 1},
        {{"commits"}, 0},
        {{"accounts", "list"}, 0}};
    for (const auto& [view, exitCode] : views) {
        std::string typed = fmt::format("{}", fmt::join(view, " "));
        ShellResult result = quorvane(view);
        EXPECT_EQ(result.exitCode, exitCode) << typed << ": " << result.stdErr;
        EXPECT_THAT(result.stdErr, ::testing::StartsWith("quorvane: " + reason)) << typed;
        EXPECT_EQ(result.stdOut.empty(), exitCode == 1) << typed;
    }
    untouched("the views");

    ShellResult daemon = testing::runQuorvane(dataDir(), {"daemon"}, 60);
    EXPECT_EQ(daemon.exitCode, 1) << daemon.stdErr;
    EXPECT_THAT(daemon.stdErr, HasSubstr("the daemon could not start: " + reason));
    EXPECT_FALSE(std::filesystem::exists(dataDir() / "quorvane.sock"));
    untouched("daemon");
}

}  // namespace
}  // namespace quorvane
