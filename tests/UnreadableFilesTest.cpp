// Data files that are there but cannot be read or decoded, and a data folder that
// cannot be written, met by the real program.
#include <sys/stat.h>

#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/TempDir.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// The files of `dir` whose names start with `prefix`.
std::vector<std::string> named(const std::filesystem::path& dir, const std::string& prefix) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        std::string name = entry.path().filename().string();
        if (name.starts_with(prefix)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class UnreadableFilesTest : public ::testing::Test {
protected:
    std::filesystem::path data() const { return dir_ / "data"; }

    void SetUp() override {
        std::filesystem::create_directory(data());
        ::chmod(data().c_str(), 0700);
    }

    testing::TempDir dir_;
};

TEST_F(UnreadableFilesTest, ANumberNoDoubleHoldsCrashesNoCommand) {
    ASSERT_EQ(testing::runQuorvane(data(), {"scan"}).exitCode, 0);
    const std::string huge = R"({"historyDays": 1e400})";
    testing::writeFile(data() / "config.json", huge);
    testing::writeFile(data() / "commits.json", "[1e400]");
    testing::writeFile(data() / "journals.json", R"([{"dateKey": "2026-11-21", "x": -1e999}])");

    // Readers first: they report and move nothing.
    for (std::vector<std::string> command : {std::vector<std::string>{"status"},
                                             {"commits"},
                                             {"today", "--no-scan"},
                                             {"week"},
                                             {"journal"},
                                             {"reminders"},
                                             {"doctor"}}) {
        ShellResult result = testing::runQuorvane(data(), command);
        // 0, or 1 for doctor's finding; an abort shows as the signal's number.
        EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 1)
            << command[0] << " ended with " << result.exitCode << ": " << result.stdErr;
        EXPECT_THAT(result.stdErr, Not(HasSubstr("terminate"))) << command[0];
    }
    EXPECT_EQ(testing::readFile(data() / "config.json"), huge);

    // The writer stops at the configuration, before it sets anything aside...
    ShellResult refused = testing::runQuorvane(data(), {"scan"});
    EXPECT_EQ(refused.exitCode, 1) << refused.stdErr;
    EXPECT_THAT(refused.stdErr, HasSubstr("config.json cannot be read: "));
    EXPECT_EQ(testing::readFile(data() / "config.json"), huge);
    EXPECT_TRUE(named(data(), "commits.json.corrupt-").empty());

    // ...and once it is fixed, sets the bad store files aside (as
    // StoreTest.FilesThatExistButCannotBeReadAreSetAsideNeverReplaced shows) and goes on.
    testing::writeFile(data() / "config.json", "{}");
    ShellResult scan = testing::runQuorvane(data(), {"scan"});
    EXPECT_EQ(scan.exitCode, 0) << scan.stdErr;
    EXPECT_EQ(named(data(), "journals.json.corrupt-").size(), 1u);
}

TEST_F(UnreadableFilesTest, AFileTheUserCannotOpenIsSetAsideNotEmptied) {
    ASSERT_EQ(testing::runQuorvane(data(), {"scan"}).exitCode, 0);
    const std::string journal =
        R"([{"dateKey": "2026-11-21", "notes": "kept", "updatedAt": "2026-11-21T10:00:00Z"}])";
    testing::writeFile(data() / "journals.json", journal);
    testing::giveToUnprivilegedUser(data());
    ASSERT_EQ(::chmod((data() / "journals.json").c_str(), 0), 0);

    ShellResult scan = testing::runQuorvaneUnprivileged(data(), {"scan"});
    EXPECT_EQ(scan.exitCode, 0) << scan.stdErr;
    EXPECT_THAT(scan.stdErr, HasSubstr("journals.json unreadable — quarantined: "));
    EXPECT_THAT(scan.stdErr, HasSubstr("Permission denied"));
    std::vector<std::string> aside = named(data(), "journals.json.corrupt-");
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(testing::readFile(data() / aside[0]), journal);
}

TEST_F(UnreadableFilesTest, AReaderThatCannotReadTheDataFolderSaysWhyAndFails) {
    ASSERT_EQ(testing::runQuorvane(data(), {"scan"}).exitCode, 0);
    // Each view, shown empty, would say that nothing is tracked or recorded. Those of
    // the configuration read config.json, those of the record the store's files.
    using Views = std::vector<std::vector<std::string>>;
    const Views configViews = {{"status"}, {"today", "--no-scan"}, {"week"}, {"repos", "list"}};
    const Views storeViews = {{"status"}, {"today", "--no-scan"}, {"week"}, {"journal"}};
    Views allViews = configViews;
    allViews.push_back({"journal"});
    auto expectRefused = [](const std::string& what, const Views& views, const std::string& says,
                            auto run) {
        for (const std::vector<std::string>& view : views) {
            ShellResult result = run(view);
            EXPECT_EQ(result.exitCode, 1) << what << ", " << view[0] << ": " << result.stdErr;
            EXPECT_THAT(result.stdErr, HasSubstr(says)) << what << ", " << view[0];
            EXPECT_EQ(result.stdOut, "") << what << ", " << view[0];
        }
    };
    auto asUser = [&](const std::filesystem::path& dir) {
        return
            [dir](const std::vector<std::string>& view) { return testing::runQuorvane(dir, view); };
    };
    testing::writeFile(dir_ / "plain-file", "");
    expectRefused("a file as the data folder", allViews, "plain-file is not a folder",
                  asUser(dir_ / "plain-file"));

    const std::string config = testing::readFile(data() / "config.json");
    std::filesystem::remove(data() / "config.json");
    ASSERT_EQ(::mkfifo((data() / "config.json").c_str(), 0600), 0);
    expectRefused("a FIFO as config.json", configViews, "config.json is a FIFO, not a regular file",
                  asUser(data()));
    std::filesystem::remove(data() / "config.json");
    testing::writeFile(data() / "config.json", config);

    std::filesystem::remove(data() / "journals.json");
    std::filesystem::create_directory(data() / "journals.json");
    expectRefused("a folder as journals.json", storeViews,
                  "cannot read journals.json in the data folder: " +
                      (data() / "journals.json").string() + " is a folder",
                  asUser(data()));
    std::filesystem::remove(data() / "journals.json");

    // Root reads a folder of mode 000 all the same; the reader runs as a user who cannot.
    testing::giveToUnprivilegedUser(data());
    ASSERT_EQ(::chmod(data().c_str(), 0), 0);
    expectRefused("a data folder of mode 000", allViews, "cannot read the data folder",
                  [&](const std::vector<std::string>& view) {
                      return testing::runQuorvaneUnprivileged(data(), view);
                  });
    ::chmod(data().c_str(), 0700);
}

TEST_F(UnreadableFilesTest, AScanThatSavesNothingFailsWithTheReason) {
    // The lock file is the writer's own, made before the folder is closed to writes.
    testing::writeFile(data() / "quorvane.lock", "");
    ::chmod((data() / "quorvane.lock").c_str(), 0600);
    testing::giveToUnprivilegedUser(data());
    ASSERT_EQ(::chmod(data().c_str(), 0500), 0);

    ShellResult scan = testing::runQuorvaneUnprivileged(data(), {"scan"});
    ::chmod(data().c_str(), 0700);
    EXPECT_EQ(scan.exitCode, 1) << scan.stdErr;
    EXPECT_THAT(scan.stdErr, HasSubstr("quorvane: not everything could be saved: "));
    EXPECT_THAT(scan.stdErr, HasSubstr("Permission denied"));
}

}  // namespace
}  // namespace quorvane
