// One writer per data folder, seen from the command line.
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "persistence/DataFolderLock.hpp"
#include "persistence/Store.hpp"
#include "testing/LogCapture.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;

// Every file of the data folder with its contents, to see that a refused writer
// left it as it was.
std::map<std::string, std::string> contentsOf(const std::filesystem::path& dir) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        files[entry.path().lexically_relative(dir).string()] = text.str();
    }
    return files;
}

// The test holds the writer lock exactly as a running scan does, so a second
// scan meets a first one that is provably still inside its scan.
TEST(WriterLockTest,
     WhileOneWriterHoldsTheFolderOthersAreRefusedByNameChangeNothingAndReadersGoOn) {
    testing::TempDir dir;
    std::filesystem::path data = dir / "data";
    std::filesystem::create_directories(data);
    std::vector<std::string> add = {"repos", "add"};
    for (int i = 0; i < 3; ++i) {
        testing::TestRepo repo(dir / ("repo" + std::to_string(i)));
        repo.commitFile("a.txt", "a", "first");
        add.push_back(repo.path().string());
    }
    ASSERT_EQ(testing::runQuorvane(data, add).exitCode, 0);
    ASSERT_EQ(testing::runQuorvane(data, {"scan"}).exitCode, 0);

    {
        LockAttempt held = DataFolderLock::acquire(data);
        ASSERT_TRUE(held.lock.has_value());
        std::map<std::string, std::string> before = contentsOf(data);
        std::string byName =
            "in use by another quorvane process (pid " + std::to_string(::getpid()) + ")";
        for (std::vector<std::string> command : {std::vector<std::string>{"scan"},
                                                 {"repos", "remove", add[2]},
                                                 {"folders", "add", dir.path().string()},
                                                 {"journal", "--notes", "x"}}) {
            ShellResult refused = testing::runQuorvane(data, command);
            EXPECT_EQ(refused.exitCode, 1) << command[0];
            EXPECT_THAT(refused.stdErr, HasSubstr(byName)) << command[0];
        }
        EXPECT_TRUE(contentsOf(data) == before) << "a refused writer changed the data folder";

        ShellResult status = testing::runQuorvane(data, {"status", "--json"});
        EXPECT_EQ(status.exitCode, 0) << status.stdErr;
        EXPECT_EQ(Json::parse(status.stdOut).size(), 3u);
        EXPECT_EQ(testing::runQuorvane(data, {"commits", "--json"}).exitCode, 0);
        EXPECT_EQ(testing::runQuorvane(data, {"repos", "list"}).exitCode, 0);
        EXPECT_EQ(testing::runQuorvane(data, {"journal"}).exitCode, 0);
        EXPECT_THAT(testing::runQuorvane(data, {"doctor"}).stdOut, HasSubstr("held by pid"));
    }

    // Once the holder is gone the next scan runs, on a store nobody damaged.
    ShellResult again = testing::runQuorvane(data, {"scan"});
    EXPECT_EQ(again.exitCode, 0) << again.stdErr;
    testing::LogCapture log;
    SystemClock clock;
    Store store(data, clock, Store::Access::readOnly);
    store.load();
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(store.snapshots().size(), 3u);
    EXPECT_EQ(store.commits(std::nullopt).size(), 3u);
    for (const auto& entry : std::filesystem::directory_iterator(data)) {
        EXPECT_EQ(entry.path().filename().string().find(".corrupt-"), std::string::npos);
    }
}

}  // namespace
}  // namespace quorvane
