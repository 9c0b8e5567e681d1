#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>

#include "git/FileWatcher.hpp"
#include "testing/FakeClock.hpp"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::Optional;
// The watcher's thread answers the fake source at once, so a wait that runs out
// is a fault, not a slow machine.
constexpr auto kHandOver = 5s;

class FakeMonotonicClock final : public MonotonicClock {
public:
    TimePoint now() const override { return TimePoint(std::chrono::nanoseconds(nanos_.load())); }
    std::atomic<long long> nanos_{0};
};

// An event source fed by hand. It records what the watcher asked, and knows when the
// watcher has handled everything fed so far: it is back in wait() with nothing to take.
class FakeEventSource final : public FileEventSource {
public:
    bool open(const std::vector<std::string>& roots, FolderFilter skip) override {
        opened_.push_back(roots);
        skip_ = std::move(skip);
        return true;
    }
    std::vector<FileChange> wait(std::optional<std::chrono::milliseconds> timeout) override {
        std::unique_lock lock(mutex_);
        lastTimeout_ = timeout;
        waiting_ = true;
        changed_.notify_all();
        // The watcher waits here between what the test feeds it; a watcher that is
        // never woken, not even by stop(), fails rather than hangs.
        EXPECT_TRUE(changed_.wait_for(lock, kHandOver, [&] {
            return !batches_.empty() || interrupted_;
        })) << "the watcher was neither fed nor interrupted";
        waiting_ = interrupted_ = false;
        if (batches_.empty()) return {};
        std::vector<FileChange> batch = std::move(batches_.front());
        batches_.pop_front();
        return batch;
    }
    void interrupt() override {
        std::lock_guard lock(mutex_);
        interrupted_ = true;
        changed_.notify_all();
    }
    void close() override { ++closes_; }

    // Hands over a batch of changed files (none: just a wake-up) and waits until the
    // watcher is done with it.
    void feed(std::optional<std::vector<std::string>> files) {
        if (!files) interrupt();
        std::unique_lock lock(mutex_);
        if (files) {
            std::vector<FileChange> batch;
            for (std::string& path : *files) batch.push_back(FileChange{.path = std::move(path)});
            batches_.push_back(std::move(batch));
        }
        changed_.notify_all();
        EXPECT_TRUE(changed_.wait_for(lock, kHandOver, [&] {
            return waiting_ && batches_.empty() && !interrupted_;
        })) << "the watcher did not come back for more";
    }
    std::optional<std::chrono::milliseconds> lastTimeout() {
        std::lock_guard lock(mutex_);
        return lastTimeout_;
    }

    std::vector<std::vector<std::string>> opened_;
    FolderFilter skip_;
    int closes_ = 0;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::vector<FileChange>> batches_;
    std::optional<std::chrono::milliseconds> lastTimeout_;
    bool waiting_ = false, interrupted_ = false;
};

// Collects what the watcher reports on its thread, tagged by the callback that got it.
class Reports {
public:
    FileWatcher::ActivityCallback callback(std::string tag = "") {
        return [this, tag](std::string repo, Date when) {
            std::lock_guard lock(mutex_);
            seen_.push_back(tag + repo + " " + DateHelpers::isoString(when));
            arrived_.notify_all();
        };
    }
    // What has arrived once there are `count` reports, or a generous wait has passed.
    std::vector<std::string> waitFor(size_t count) {
        std::unique_lock lock(mutex_);
        arrived_.wait_for(lock, kHandOver, [&] { return seen_.size() >= count; });
        return seen_;
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::string> seen_;
};

TEST(FileWatcherTest, IgnoresGeneratedFoldersAndMatchesTheInnermostRepository) {
    for (const char* path :
         {"/r/.git/index", "/r/w/node_modules/x.js", "/r/.build/a.o", "/r/dist/a"})
        EXPECT_TRUE(FileWatcher::isIgnored(path)) << path;
    EXPECT_FALSE(FileWatcher::isIgnored("/r/distribution/app.js"));
    EXPECT_FALSE(FileWatcher::isIgnored("/r/.gitignore"));

    std::string home = getenv("HOME");
    EXPECT_THAT(FileWatcher::watchOrder({"/a", "~/code", "/a/./b//c/../"}),
                ElementsAre(home + "/code", "/a/b", "/a"));
    std::vector<std::string> repos = {"/a/b", "/a"};
    EXPECT_EQ(FileWatcher::matchRepoID("/a/bc", repos), "/a");
    EXPECT_EQ(FileWatcher::matchRepoID("/a/b", repos), "/a/b");
    EXPECT_EQ(FileWatcher::matchRepoID("/abc", repos), std::nullopt);
    auto files = [](std::vector<std::string> paths) {
        std::vector<FileChange> changes;
        for (std::string& path : paths) changes.push_back(FileChange{.path = std::move(path)});
        return changes;
    };
    EXPECT_THAT(FileWatcher::touchedRepos(files({"/a/b/x", "/a/b/.git/HEAD", "/a/one", "/a//two",
                                                 "/elsewhere", "/a/b/y"}),
                                          repos),
                ElementsAre("/a/b", "/a"));
    // A generated folder's own creation is named without a separator after it; a file
    // of the same name, such as a linked worktree's ".git", is work.
    std::vector<FileChange> generatedFolders = {
        {"/a/node_modules", true}, {"/a/b/dist", true}, {"/a/b/.git", true}, {"/a/.build", true}};
    EXPECT_TRUE(FileWatcher::touchedRepos(generatedFolders, repos).empty());
    EXPECT_THAT(FileWatcher::touchedRepos(files({"/a/b/.git"}), repos), ElementsAre("/a/b"));
    EXPECT_THAT(FileWatcher::touchedRepos(files({"/a/dist"}), repos), ElementsAre("/a"));
    EXPECT_THAT(FileWatcher::touchedRepos({{"/a/distribution", true}}, repos), ElementsAre("/a"));

    // Only what lies below a repository is looked at: one kept under ~/dist or in a
    // folder named .build is watched, and its own generated folders still are not.
    std::vector<std::string> nested = {"/home/me/dist/app", "/w/.build/tool"};
    EXPECT_THAT(FileWatcher::touchedRepos(files({"/home/me/dist/app/main.c", "/w/.build/tool/x",
                                                 "/home/me/dist/app/dist/bundle.js"}),
                                          nested),
                ElementsAre("/home/me/dist/app", "/w/.build/tool"));
    EXPECT_FALSE(FileWatcher::skipsFolder("/home/me/dist/app", nested));
    EXPECT_FALSE(FileWatcher::skipsFolder("/home/me/dist/app/src", nested));
    EXPECT_TRUE(FileWatcher::skipsFolder("/home/me/dist/app/node_modules", nested));
    EXPECT_TRUE(FileWatcher::skipsFolder("/w/.build/tool/.git", nested));
}

TEST(FileWatcherTest, AReportFallsDueAQuietPeriodAfterTheLastEvent) {
    ActivityDebouncer debouncer(2000ms);
    ActivityDebouncer::TimePoint t0{};
    EXPECT_EQ(debouncer.nextDeadline(), std::nullopt);
    for (int i = 0; i < 10; ++i) debouncer.note("/a", t0 + i * 100ms);
    debouncer.note("/b", t0 + 50ms);
    EXPECT_THAT(debouncer.nextDeadline(), Optional(t0 + 2050ms));
    EXPECT_TRUE(debouncer.takeDue(t0 + 2049ms).empty());
    EXPECT_THAT(debouncer.takeDue(t0 + 5s), ElementsAre("/b", "/a"));
    EXPECT_EQ(debouncer.nextDeadline(), std::nullopt);
}

class FileWatcherThreadTest : public ::testing::Test {
protected:
    FileWatcherThreadTest() {
        auto source = std::make_unique<FakeEventSource>();
        source_ = source.get();
        watcher_ = std::make_unique<FileWatcher>(clock_, std::move(source), steady_);
    }
    // Moves time on and lets the watcher look at it.
    void advance(std::chrono::milliseconds by) {
        steady_.nanos_ += std::chrono::nanoseconds(by).count();
        source_->feed(std::nullopt);
    }

    testing::FakeClock clock_{*DateHelpers::parseISO("2026-11-21T12:00:00Z")};
    FakeMonotonicClock steady_;
    FakeEventSource* source_;
    std::unique_ptr<FileWatcher> watcher_;
    Reports reports_;
};

TEST_F(FileWatcherThreadTest, ABurstGivesOneReportPerRepositoryAfterTheQuietPeriod) {
    watcher_->start({"/w/a", "/w/b", "/w/a/inner"}, reports_.callback());
    EXPECT_THAT(source_->opened_, ElementsAre(ElementsAre("/w/a/inner", "/w/a", "/w/b")));
    EXPECT_TRUE(source_->skip_("/w/a/.git"));
    EXPECT_FALSE(source_->skip_("/w/a/distribution"));

    source_->feed({{"/w/a/x", "/w/b/y", "/w/a/.git/index", "/w/c/z"}});
    EXPECT_THAT(source_->lastTimeout(), Optional(2000ms));
    for (int i = 0; i < 10; ++i) {
        advance(100ms);
        source_->feed({{"/w/a/x"}});
    }
    // The thread sleeps exactly until the earliest report falls due.
    EXPECT_THAT(source_->lastTimeout(), Optional(1000ms));
    advance(999ms);
    EXPECT_THAT(reports_.waitFor(0), ElementsAre());
    clock_.advance(5s);
    advance(1ms);
    advance(1000ms);
    EXPECT_THAT(reports_.waitFor(0),
                ElementsAre("/w/b 2026-11-21T12:00:05Z", "/w/a 2026-11-21T12:00:05Z"));
    EXPECT_EQ(source_->lastTimeout(), std::nullopt);
}

TEST_F(FileWatcherThreadTest, StopDropsPendingReportsAndASecondStartChangesNothing) {
    watcher_->start({"/w/a"}, reports_.callback("first:"));
    watcher_->start({"/w/b"}, reports_.callback("second:"));
    source_->feed({{"/w/a/x", "/w/b/x"}});
    advance(2000ms);
    source_->feed({{"/w/a/y"}});
    watcher_->stop();
    watcher_->stop();
    EXPECT_FALSE(watcher_->isRunning());
    EXPECT_EQ(source_->closes_, 1);

    steady_.nanos_ += 10'000'000'000;
    watcher_->start({"/w/b"}, reports_.callback("again:"));
    source_->feed({{"/w/a/z", "/w/b/z"}});
    advance(2000ms);
    EXPECT_THAT(reports_.waitFor(2),
                ElementsAre("first:/w/a 2026-11-21T12:00:00Z", "again:/w/b 2026-11-21T12:00:00Z"));
    EXPECT_EQ(source_->opened_.size(), 2u);
}

}  // namespace
}  // namespace quorvane
