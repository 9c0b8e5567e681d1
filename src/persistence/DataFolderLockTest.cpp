#include "persistence/DataFolderLock.hpp"

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;

TEST(DataFolderLockTest, OneWriterAtATimeAndTheRefusalNamesIt) {
    testing::TempDir dir;
    EXPECT_FALSE(DataFolderLock::currentHolder(dir.path()).has_value());
    {
        LockAttempt first = DataFolderLock::acquire(dir.path());
        ASSERT_TRUE(first.lock.has_value()) << first.error;
        EXPECT_EQ(DataFolderLock::currentHolder(dir.path()), ::getpid());

        // A second open of the file is refused at once, even within one process.
        LockAttempt second = DataFolderLock::acquire(dir.path());
        EXPECT_FALSE(second.lock.has_value());
        EXPECT_EQ(second.error, "");
        EXPECT_EQ(second.holder, ::getpid());
        EXPECT_THAT(DataFolderLock::refusalMessage(dir.path(), second.holder),
                    HasSubstr("(pid " + std::to_string(::getpid()) + ")"));

        DataFolderLock moved = std::move(*first.lock);
        EXPECT_EQ(DataFolderLock::currentHolder(dir.path()), ::getpid());
    }
    EXPECT_FALSE(DataFolderLock::currentHolder(dir.path()).has_value());
    EXPECT_TRUE(DataFolderLock::acquire(dir.path()).lock.has_value());

    LockAttempt nowhere = DataFolderLock::acquire(dir / "missing");
    EXPECT_FALSE(nowhere.lock.has_value());
    EXPECT_THAT(nowhere.error, HasSubstr("No such file or directory"));
}

}  // namespace
}  // namespace quorvane
