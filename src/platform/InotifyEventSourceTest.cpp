#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "platform/InotifyEventSource.hpp"
#include "testing/LogCapture.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Not;

// Collects every path reported until `wanted` is among them (or a generous bound
// has passed). inotify keeps order, so whatever earlier changes produce is in too.
std::set<std::string> collectUntil(InotifyEventSource& source, const fs::path& wanted) {
    std::set<std::string> seen;
    auto giveUp = std::chrono::steady_clock::now() + 20s;
    while (!seen.contains(wanted.string()) && std::chrono::steady_clock::now() < giveUp) {
        for (FileChange& change : source.wait(1s)) seen.insert(std::move(change.path));
    }
    return seen;
}

std::set<std::string> writeAndCollect(InotifyEventSource& source, const fs::path& file) {
    testing::writeFile(file, "x");
    return collectUntil(source, file);
}

TEST(InotifyEventSourceTest, WatchesTheTreeButNotSkippedFoldersOrLinksAndFollowsChanges) {
    testing::TempDir dir("inotify");
    fs::path root = dir / "root";
    for (const char* folder : {"root/sub/deeper", "root/.git/objects", "root/distribution", "out"})
        fs::create_directories(dir / folder);
    fs::create_directory_symlink(dir / "out", root / "link");

    InotifyEventSource source;
    ASSERT_TRUE(
        source.open({root.string()}, [](const std::string& f) { return f.ends_with("/.git"); }));
    EXPECT_EQ(source.watchCount(), 4u);  // root, sub, deeper, distribution
    testing::writeFile(root / ".git/objects/x", "x");
    testing::writeFile(dir / "out/z", "z");
    testing::writeFile(root / "sub/deeper/a.txt", "a");
    std::set<std::string> seen = writeAndCollect(source, root / "distribution/sentinel");
    EXPECT_THAT(seen, Contains((root / "sub/deeper/a.txt").string()));
    EXPECT_THAT(seen, Each(Not(HasSubstr("/.git/"))));
    EXPECT_THAT(seen, Each(Not(HasSubstr("/link/"))));

    // New folders, nested ones included, are watched as they appear; a renamed
    // one reports under its new name, and one moved out of the tree not at all.
    fs::create_directories(root / "fresh/inner");
    collectUntil(source, root / "fresh");
    EXPECT_THAT(writeAndCollect(source, root / "fresh/inner/b.txt"),
                Contains((root / "fresh/inner/b.txt").string()));
    fs::rename(root / "fresh", root / "moved");
    collectUntil(source, root / "moved");
    EXPECT_THAT(writeAndCollect(source, root / "moved/inner/c.txt"),
                Contains((root / "moved/inner/c.txt").string()));
    EXPECT_EQ(source.watchCount(), 6u);
    fs::rename(root / "moved", dir / "away");
    testing::writeFile(dir / "away/inner/d.txt", "d");
    EXPECT_THAT(writeAndCollect(source, root / "sentinel"), Each(Not(HasSubstr("d.txt"))));
    EXPECT_EQ(source.watchCount(), 4u);
}

// Generated folders are told from files of the same name by this flag alone.
TEST(InotifyEventSourceTest, SaysWhetherAChangedPathIsAFolder) {
    testing::TempDir dir("inotify");
    fs::path root = dir / "root";
    fs::create_directories(root);
    InotifyEventSource source;
    ASSERT_TRUE(
        source.open({root.string()}, [](const std::string& f) { return f.ends_with("/dist"); }));

    fs::permissions(root, fs::perms::owner_all);  // an event of the watched folder itself
    fs::create_directory(root / "dist");
    testing::writeFile(root / ".git", "gitdir: elsewhere\n");
    fs::remove(root / "dist");
    fs::remove(root / ".git");
    testing::writeFile(root / "sentinel", "x");
    // Each change as "name folder" or "name file", in the order inotify gave them.
    std::vector<std::string> seen;
    auto giveUp = std::chrono::steady_clock::now() + 20s;
    while (std::find(seen.begin(), seen.end(), "sentinel file") == seen.end() &&
           std::chrono::steady_clock::now() < giveUp) {
        for (const FileChange& change : source.wait(1s)) {
            std::string name = change.path == root.string()
                                   ? "root"
                                   : fs::path(change.path).lexically_relative(root).string();
            seen.push_back(name + (change.isFolder ? " folder" : " file"));
        }
    }
    // Made and removed: "dist" twice as a folder, ".git" at least twice as a file.
    EXPECT_THAT(seen, Contains("dist folder").Times(2));
    EXPECT_THAT(seen, Contains(".git file").Times(Ge(2)));
    EXPECT_THAT(seen, Contains("root folder"));
    EXPECT_THAT(seen, Not(Contains(AnyOf("dist file", ".git folder", "sentinel folder"))));
}

TEST(InotifyEventSourceTest, InterruptEndsAWaitAndDescriptorsCloseOnExec) {
    // Each open descriptor with what it refers to, as "3 anon_inode:inotify".
    auto descriptors = [] {
        std::set<std::string> fds;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code ec;
            fds.insert(entry.path().filename().string() + " " +
                       fs::read_symlink(entry.path(), ec).string());
        }
        return fds;
    };
    testing::TempDir dir("inotify");
    InotifyEventSource source;
    std::set<std::string> before = descriptors();
    ASSERT_TRUE(source.open({(dir / "missing").string(), dir.path().string()}, nullptr));
    EXPECT_EQ(source.watchCount(), 1u);
    int added = 0;
    for (const std::string& fd : descriptors()) {
        int flags = ::fcntl(std::stoi(fd), F_GETFD);
        if (before.contains(fd) || flags < 0) continue;  // the listing's own is closed now
        EXPECT_NE(flags & FD_CLOEXEC, 0) << fd;
        ++added;
    }
    EXPECT_EQ(added, 2);
    EXPECT_TRUE(source.wait(0ms).empty());
    // An interrupt before the wait still ends it, so a stop cannot be missed.
    source.interrupt();
    EXPECT_TRUE(source.wait(std::nullopt).empty());
    source.close();
    EXPECT_EQ(descriptors(), before);
}

TEST(InotifyEventSourceTest, RunningOutOfWatchesIsLoggedOnceAndWatchingGoesOn) {
    testing::LogCapture log;
    testing::TempDir dir("inotify");
    for (const char* name : {"a", "b", "c"}) fs::create_directories(dir / name);
    InotifyEventSource source(2);
    ASSERT_TRUE(source.open({dir.path().string()}, nullptr));
    EXPECT_EQ(source.watchCount(), 2u);
    fs::create_directories(dir / "later");  // refused a watch too
    EXPECT_THAT(writeAndCollect(source, dir / "top.txt"), Contains((dir / "top.txt").string()));

    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].category, "app");
    EXPECT_THAT(log.lines()[0].message, HasSubstr("out of inotify watches"));
}

}  // namespace
}  // namespace quorvane
