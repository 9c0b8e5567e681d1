#include "persistence/AtomicFile.hpp"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;

std::vector<std::string> entries(const std::filesystem::path& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(AtomicFileTest, ReplacesTheWholeFilePrivatelyAndLeavesNoTemporaryBehind) {
    testing::TempDir dir;
    auto file = dir / "data.json";
    mode_t previous = ::umask(0);  // the mode must not depend on the caller's umask
    ASSERT_FALSE(AtomicFile::write(file, "first").has_value());
    ::umask(previous);
    ASSERT_FALSE(AtomicFile::write(file, "second, longer").has_value());

    EXPECT_EQ(AtomicFile::read(file).bytes, "second, longer");
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(entries(dir.path()), std::vector<std::string>{"data.json"});
}

TEST(AtomicFileTest, AFailedWriteNamesTheCallAndChangesNothing) {
    testing::TempDir dir;
    auto error = AtomicFile::write(dir / "missing" / "data.json", "x");
    ASSERT_TRUE(error.has_value());
    EXPECT_THAT(*error, HasSubstr("open"));
    EXPECT_THAT(*error, HasSubstr("No such file or directory"));

    // A rename onto a folder fails after the temporary file was written: it is removed.
    std::filesystem::create_directories(dir / "taken" / "child");
    EXPECT_TRUE(AtomicFile::write(dir / "taken", "x").has_value());
    EXPECT_EQ(entries(dir.path()), std::vector<std::string>{"taken"});
}

TEST(AtomicFileTest, ReadTellsAMissingFileFromAnUnreadableOne) {
    testing::TempDir dir;
    AtomicFile::ReadResult missing = AtomicFile::read(dir / "nothing");
    EXPECT_TRUE(missing.missing);
    EXPECT_FALSE(missing.bytes.has_value());
    AtomicFile::ReadResult folder = AtomicFile::read(dir.path());
    EXPECT_FALSE(folder.missing);
    EXPECT_FALSE(folder.bytes.has_value());
    EXPECT_THAT(folder.error, HasSubstr("a folder, not a regular file"));
}

TEST(AtomicFileTest, ReadNeitherWaitsOnAFifoNorFollowsALinkNorReadsWithoutEnd) {
    testing::TempDir dir;
    // Opening a FIFO without a writer blocks for ever unless the open does not wait.
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    AtomicFile::ReadResult fifo = AtomicFile::read(dir / "fifo");
    EXPECT_FALSE(fifo.missing);
    EXPECT_FALSE(fifo.bytes.has_value());
    EXPECT_THAT(fifo.error, HasSubstr("a FIFO"));

    // Through a link, /dev/zero would be read until memory runs out.
    std::filesystem::create_symlink("/dev/zero", dir / "link");
    AtomicFile::ReadResult link = AtomicFile::read(dir / "link");
    EXPECT_FALSE(link.missing);
    EXPECT_FALSE(link.bytes.has_value());
    EXPECT_THAT(link.error, HasSubstr("symbolic link"));

    // A device node in the file's own place; making one needs root.
    if (::mknod((dir / "zero").c_str(), S_IFCHR | 0600, ::makedev(1, 5)) == 0) {
        AtomicFile::ReadResult device = AtomicFile::read(dir / "zero");
        EXPECT_FALSE(device.bytes.has_value());
        EXPECT_THAT(device.error, HasSubstr("a device"));
    }

    testing::writeFile(dir / "big", std::string(4096, 'x'));
    EXPECT_THAT(AtomicFile::read(dir / "big", 4095).error, HasSubstr("larger than"));
    EXPECT_EQ(AtomicFile::read(dir / "big", 4096).bytes->size(), 4096u);
}

TEST(AtomicFileTest, QuarantineTakesTheNextFreeNameRatherThanFailOrReplace) {
    testing::TempDir dir;
    Date now{std::chrono::seconds(1795000000)};
    testing::writeFile(dir / "store.json", "broken once");
    EXPECT_EQ(AtomicFile::quarantine(dir / "store.json", now),
              dir / "store.json.corrupt-1795000000");
    testing::writeFile(dir / "store.json", "broken twice");
    EXPECT_EQ(AtomicFile::quarantine(dir / "store.json", now),
              dir / "store.json.corrupt-1795000000-1");
    EXPECT_EQ(AtomicFile::read(dir / "store.json.corrupt-1795000000").bytes, "broken once");
    EXPECT_EQ(AtomicFile::read(dir / "store.json.corrupt-1795000000-1").bytes, "broken twice");
    EXPECT_TRUE(AtomicFile::read(dir / "store.json").missing);

    std::string why;
    EXPECT_FALSE(AtomicFile::quarantine(dir / "store.json", now, &why).has_value());
    EXPECT_THAT(why, HasSubstr("No such file"));
}

TEST(AtomicFileTest, StaleTemporariesOfOneFileAreRemovedAndNothingElse) {
    testing::TempDir dir;
    testing::writeFile(dir / ".data.json.tmp-123-0", "interrupted");
    testing::writeFile(dir / ".other.json.tmp-123-0", "another file's");
    testing::writeFile(dir / "data.json", "kept");
    AtomicFile::removeStaleTemporaries(dir / "data.json");
    EXPECT_EQ(entries(dir.path()),
              (std::vector<std::string>{".other.json.tmp-123-0", "data.json"}));
}

}  // namespace
}  // namespace quorvane
