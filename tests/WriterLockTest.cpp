// One writer per data folder, seen from the command line.
#include <unistd.h>

#include <thread>

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

class WriterLockTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(dataDir());
        for (int i = 0; i < 40; ++i) {
            testing::TestRepo repo(dir_ / ("repo" + std::to_string(i)));
            repo.commitFile("a.txt", "a", "first");
            paths_.push_back(repo.path().string());
        }
        std::vector<std::string> add = {"repos", "add"};
        add.insert(add.end(), paths_.begin(), paths_.end());
        ASSERT_EQ(testing::runQuorvane(dataDir(), add).exitCode, 0);
    }
    std::filesystem::path dataDir() const { return dir_ / "data"; }

    testing::TempDir dir_;
    std::vector<std::string> paths_;
};

TEST_F(WriterLockTest, WritersAreRefusedByNameWhileReadersGoOn) {
    ASSERT_EQ(testing::runQuorvane(dataDir(), {"scan"}).exitCode, 0);
    LockAttempt held = DataFolderLock::acquire(dataDir());
    ASSERT_TRUE(held.lock.has_value());
    std::string pid = "(pid " + std::to_string(::getpid()) + ")";

    for (std::vector<std::string> command : {std::vector<std::string>{"scan"},
                                             {"repos", "remove", paths_[0]},
                                             {"folders", "add", dir_.path().string()}}) {
        ShellResult refused = testing::runQuorvane(dataDir(), command);
        EXPECT_EQ(refused.exitCode, 1) << command[0];
        EXPECT_THAT(refused.stdErr, HasSubstr(pid)) << command[0];
    }
    ShellResult status = testing::runQuorvane(dataDir(), {"status", "--json"});
    EXPECT_EQ(status.exitCode, 0) << status.stdErr;
    EXPECT_EQ(Json::parse(status.stdOut).size(), 40u);
    EXPECT_EQ(testing::runQuorvane(dataDir(), {"commits", "--json"}).exitCode, 0);
    EXPECT_EQ(testing::runQuorvane(dataDir(), {"repos", "list"}).exitCode, 0);
    EXPECT_THAT(testing::runQuorvane(dataDir(), {"doctor"}).stdOut, HasSubstr("held by pid"));
}

TEST_F(WriterLockTest, TwoScansAtOnceOneScansTheOtherIsRefusedAndNothingIsDamaged) {
    ShellResult first;
    std::jthread running([&] { first = testing::runQuorvane(dataDir(), {"scan"}); });
    // Start the second scan once the first holds the data folder.
    for (int i = 0; i < 20000 && !DataFolderLock::currentHolder(dataDir()); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::optional<pid_t> holder = DataFolderLock::currentHolder(dataDir());
    ASSERT_TRUE(holder.has_value()) << "the first scan never took the lock";
    ShellResult second = testing::runQuorvane(dataDir(), {"scan"});
    running.join();

    EXPECT_EQ(first.exitCode, 0) << first.stdErr;
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_THAT(second.stdErr, HasSubstr("in use by another quorvane process (pid "));

    testing::LogCapture log;
    SystemClock clock;
    Store store(dataDir(), clock, Store::Access::readOnly);
    store.load();
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(store.snapshots().size(), 40u);
    EXPECT_EQ(store.commits(std::nullopt).size(), 40u);
    for (const auto& entry : std::filesystem::directory_iterator(dataDir())) {
        EXPECT_EQ(entry.path().filename().string().find(".corrupt-"), std::string::npos);
    }
}

}  // namespace
}  // namespace quorvane
