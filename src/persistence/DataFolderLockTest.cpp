#include "persistence/DataFolderLock.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "persistence/AtomicFile.hpp"
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

TEST(DataFolderLockTest, ALockFileThatIsNotOursIsNeverWrittenOrWaitedOn) {
    testing::TempDir dir;
    const std::filesystem::path lock = dir / DataFolderLock::kFileName;
    // A link to a file of the user's: following it would truncate the file.
    testing::writeFile(dir / "victim", "precious");
    std::filesystem::create_symlink(dir / "victim", lock);
    LockAttempt linked = DataFolderLock::acquire(dir.path());
    EXPECT_FALSE(linked.lock.has_value());
    EXPECT_THAT(linked.error, HasSubstr("is a symbolic link"));
    EXPECT_FALSE(DataFolderLock::currentHolder(dir.path()).has_value());
    EXPECT_EQ(AtomicFile::read(dir / "victim").bytes, "precious");

    // A link to nowhere: following it would create the file it names.
    std::filesystem::remove(lock);
    std::filesystem::create_symlink(dir / "created", lock);
    EXPECT_FALSE(DataFolderLock::acquire(dir.path()).lock.has_value());
    EXPECT_FALSE(std::filesystem::exists(dir / "created"));

    // A hard link has the victim's inode, so the pid would land in it.
    std::filesystem::remove(lock);
    std::filesystem::create_hard_link(dir / "victim", lock);
    LockAttempt hard = DataFolderLock::acquire(dir.path());
    EXPECT_FALSE(hard.lock.has_value());
    EXPECT_THAT(hard.error, HasSubstr("hard link"));
    EXPECT_EQ(AtomicFile::read(dir / "victim").bytes, "precious");

    // A FIFO: a blocking open would wait for a writer that never comes.
    std::filesystem::remove(lock);
    ASSERT_EQ(::mkfifo(lock.c_str(), 0600), 0);
    LockAttempt fifo = DataFolderLock::acquire(dir.path());
    EXPECT_FALSE(fifo.lock.has_value());
    EXPECT_THAT(fifo.error, HasSubstr("is not a regular file"));
    EXPECT_FALSE(DataFolderLock::currentHolder(dir.path()).has_value());
}

}  // namespace
}  // namespace quorvane
