// The daemon's periodic scan, which reads again only the repositories whose
// reading could have changed, against full readings, over real repositories, a
// real remote and the real file watcher.
#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "app/AppEnvironment.hpp"
#include "platform/Shell.hpp"
#include "testing/FakeClock.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane {
namespace {

using testing::TestRepo;
using Scope = AppEnvironment::ScanScope;

// Counts the children started in each folder.
class CountingRunner final : public ProcessRunner {
public:
    ShellResult run(const ProcessRequest& request) const override {
        {
            std::lock_guard lock(mutex_);
            ++byFolder_[std::filesystem::path(request.cwd.value_or("")).filename().string()];
        }
        return shell_.run(request);
    }
    LaunchResult startDetached(const ProcessRequest& request) const override {
        return shell_.startDetached(request);
    }
    std::map<std::string, int> take() const {
        std::lock_guard lock(mutex_);
        return std::exchange(byFolder_, {});
    }

private:
    Shell shell_;
    mutable std::mutex mutex_;
    mutable std::map<std::string, int> byFolder_;
};

class PeriodicScanTest : public ::testing::Test {
protected:
    PeriodicScanTest() {
        app_.commitFile("a.txt", "a\n", "first");
        app_.git({"remote", "add", "origin", remote_.path().string()});
        app_.git({"push", "-q", "-u", "origin", "main"});
        // Its build output is tracked: a change there changes git status, though
        // the watcher leaves such folders unwatched.
        web_.commitFile("dist/app.js", "one\n", "built");
        quiet_.commitFile("q.txt", "q\n", "quiet");
    }

    std::unique_ptr<AppEnvironment> startService() {
        auto env = std::make_unique<AppEnvironment>(dir_ / "data", clock_, runner_);
        env->load();
        env->applyConfigChange([&](AppConfig& config) {
            config.repositories.clear();
            for (const TestRepo* repo : {&app_, &web_, &quiet_}) {
                RepoConfig tracked;
                tracked.id = tracked.localPath = repo->path().string();
                tracked.name = repo->path().filename().string();
                config.repositories.push_back(tracked);
            }
            config.scanIntervalMinutes = 24 * 60;
            config.sync.interval = SyncPrefs::Interval::manual;
        });
        env->bootstrap();
        EXPECT_TRUE(env->isWatching());
        return env;
    }

    // A periodic scan, whose snapshots and day records must be what a full read
    // gives, field by field but for the time and id of the reading. Returns the
    // children each repository cost it.
    std::map<std::string, int> expectPeriodicScanAsFull(AppEnvironment& env,
                                                        const std::string& step) {
        runner_.take();
        env.scanNow(Scope::changed);
        std::map<std::string, int> children = runner_.take();
        std::string day = DateHelpers::dateKey(clock_.now());
        std::map<std::string, std::string> periodic;
        for (const RepoSnapshot& snapshot : env.store().snapshots()) {
            periodic[snapshot.repoID] = comparable(snapshot);
        }
        std::vector<DayActivity> periodicDays = env.store().dayActivities(day);
        env.scanNow(Scope::everything);
        for (const RepoSnapshot& snapshot : env.store().snapshots()) {
            EXPECT_EQ(periodic[snapshot.repoID], comparable(snapshot)) << step;
        }
        EXPECT_EQ(toJson(periodicDays).dump(1), toJson(env.store().dayActivities(day)).dump(1))
            << step;
        return children;
    }

    static std::string comparable(RepoSnapshot snapshot) {
        snapshot.id.clear();
        snapshot.capturedAt = Date{};
        return toJson(snapshot).dump(1);
    }

    testing::TempDir dir_;
    CountingRunner runner_;
    testing::FakeClock clock_{SystemClock().now()};
    TestRepo remote_{dir_ / "remote.git", TestRepo::Kind::bare};
    TestRepo app_{dir_ / "app"};
    TestRepo web_{dir_ / "web"};
    TestRepo quiet_{dir_ / "quiet"};
};

TEST_F(PeriodicScanTest, KeepsOnlyWhatAFullReadWouldGiveAndReadsNothingUnchanged) {
    // A first reading vouches for a repository's quiet only where its files had
    // settled before it started.
    std::this_thread::sleep_for(ScanMemo::kTimestampSlack * 2);
    std::unique_ptr<AppEnvironment> env = startService();
    // The service's first scan read everything with the watcher already running, so
    // the first periodic scan reads nothing again: the tracked build output keeps its
    // repository read every time; nothing else.
    const std::map<std::string, int> unchanged = expectPeriodicScanAsFull(*env, "start");
    EXPECT_EQ(unchanged.size(), 1u);
    EXPECT_GT(unchanged.count("web"), 0u);

    // Another clone pushes, so that a fetch brings something.
    TestRepo other = TestRepo::cloneOf(remote_, dir_ / "other");
    other.commitFile("b.txt", "b\n", "from elsewhere");
    other.git({"push", "-q"});

    struct Step {
        std::string name;
        std::function<void()> change;
    };
    std::vector<Step> steps = {
        {"edit", [&] { app_.write("a.txt", "edited\n"); }},
        {"stage",
         [&] {
             app_.git({"add", "a.txt"});
         }},
        {"commit",
         [&] {
             app_.git({"commit", "-q", "-m", "edited"});
         }},
        {"fetch",
         [&] {
             app_.git({"fetch", "-q"});
         }},
        {"rebase",
         [&] {
             app_.git({"rebase", "-q", "origin/main"});
         }},
        {"push",
         [&] {
             app_.git({"push", "-q"});
         }},
        {"branch switch",
         [&] {
             app_.git({"switch", "-q", "-c", "topic"});
         }},
        {"stash",
         [&] {
             app_.write("a.txt", "stashed\n");
             app_.git({"stash", "-q"});
         }},
        {"dist", [&] { web_.write("dist/app.js", "two\n"); }},
    };
    for (const Step& step : steps) {
        step.change();
        std::map<std::string, int> children = expectPeriodicScanAsFull(*env, step.name);
        EXPECT_EQ(children.count("quiet"), 0u) << step.name;
    }

    // The person's own git configuration is every repository's: a new address there
    // has each of them read again.
    testing::writeFile(std::filesystem::path(getenv("HOME")) / ".gitconfig",
                       "[user]\n\temail = elsewhere@example.invalid\n");
    EXPECT_GT(expectPeriodicScanAsFull(*env, "identity").count("quiet"), 0u);

    // While no daemon runs nothing watches: the next one's first scan reads
    // everything, and its periodic scans go on from there.
    env->shutdown();
    env.reset();
    app_.commitFile("c.txt", "c\n", "while stopped");
    env = startService();
    EXPECT_EQ(expectPeriodicScanAsFull(*env, "restart"), unchanged);
}

}  // namespace
}  // namespace quorvane
