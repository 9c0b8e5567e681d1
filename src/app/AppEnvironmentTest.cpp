#include "app/AppEnvironment.hpp"

#include <condition_variable>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/PathHelpers.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/ConfigKeys.hpp"
#include "platform/Cancellation.hpp"
#include "platform/DesktopNotifier.hpp"
#include "platform/Shell.hpp"
#include "testing/BackgroundProcess.hpp"
#include "testing/BoundedLatch.hpp"
#include "testing/FakeClock.hpp"
#include "testing/FakeProcessRunner.hpp"
#include "testing/NotificationServer.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using testing::FakeProcessRunner;
using testing::TestRepo;
using namespace std::chrono_literals;

RepoConfig trackedAt(const std::string& path) {
    RepoConfig repo;
    repo.id = repo.localPath = path;
    repo.name = std::filesystem::path(path).filename().string();
    return repo;
}

bool isWorkTreeCheck(const ProcessRequest& request) {
    return request.arguments.size() == 2 && request.arguments[1] == "--is-inside-work-tree";
}

TEST(AppEnvironmentTest, OnlyAReadableSnapshotChangesARemoteURL) {
    testing::TempDir dir;
    SystemClock clock;
    Shell shell;
    TestRepo dropped(dir / "dropped");
    dropped.commitFile("a.txt", "a", "one");
    dropped.git({"remote", "add", "origin", "https://example.invalid/dropped.git"});
    TestRepo broken(dir / "broken");
    broken.commitFile("a.txt", "a", "one");
    broken.git({"remote", "add", "origin", "https://example.invalid/broken.git"});

    AppEnvironment env(dir / "data", clock, shell);
    env.load();
    env.applyConfigChange([&](AppConfig& config) {
        config.repositories = {trackedAt(dropped.path()), trackedAt(broken.path())};
    });
    env.scanNow();
    EXPECT_EQ(env.config().repositories[0].remoteURL, "https://example.invalid/dropped.git");
    EXPECT_EQ(env.config().repositories[1].remoteURL, "https://example.invalid/broken.git");

    dropped.git({"remote", "remove", "origin"});
    std::filesystem::remove_all(broken.path() / ".git");
    env.scanNow();
    AppConfig after = ConfigService(dir / "data" / "config.json", clock).read();
    EXPECT_FALSE(after.repositories[0].remoteURL.has_value());
    EXPECT_EQ(after.repositories[1].remoteURL, "https://example.invalid/broken.git");
    ASSERT_TRUE(env.store().snapshot(broken.path()).has_value());
    EXPECT_TRUE(env.store().snapshot(broken.path())->error.has_value());
    EXPECT_EQ(env.store().dayActivities(DateHelpers::dateKey(clock.now())).size(), 2u);
}

TEST(AppEnvironmentTest, EnrolmentReadsRecentHistoryOnceAndInventsNoSessions) {
    testing::TempDir dir;
    SystemClock clock;
    Shell shell;
    Date now = DateHelpers::startOfDay(clock.now()) + 12h;  // midday: far from any day's edge
    TestRepo repo(dir / "repo");
    repo.commitFile("a.txt", "1", "too old", now - 24h * 100);
    repo.commitFile("a.txt", "2", "ten days ago", now - 24h * 10);
    repo.git({"checkout", "-q", "-b", "topic"});
    repo.commitFile("a.txt", "3", "three days | ago", now - 24h * 3);
    repo.commitFile("a.txt", "4", "three days, again", now - 24h * 3 + 1min);
    repo.git({"checkout", "-q", "main"});

    AppEnvironment env(dir / "data", clock, shell);
    env.load();
    std::vector<std::string> added =
        env.addDiscovered({RepoDiscovery(shell).makeRepo(repo.path())});
    ASSERT_EQ(added, std::vector<std::string>{repo.path().string()});

    EXPECT_EQ(env.store().commits(std::nullopt).size(), 3u);
    std::vector<DayActivity> threeDays =
        env.store().dayActivities(DateHelpers::dateKey(now - 24h * 3));
    ASSERT_EQ(threeDays.size(), 1u);
    EXPECT_EQ(threeDays[0].commitCount, 2);
    EXPECT_EQ(threeDays[0].branchesTouched, std::vector<std::string>{"topic"});
    EXPECT_EQ(threeDays[0].estimatedSeconds, 0);
    EXPECT_EQ(env.store().dayActivities(DateHelpers::dateKey(now - 24h * 10)).size(), 1u);
    EXPECT_TRUE(env.store().dayActivities(DateHelpers::dateKey(now - 24h * 100)).empty());

    env.scanNow();
    EXPECT_EQ(env.store().commits(std::nullopt).size(), 3u);
    EXPECT_TRUE(env.store().sessions(std::nullopt, std::nullopt).empty());
    EXPECT_EQ(env.store().dayActivities(DateHelpers::dateKey(now - 24h * 3))[0].commitCount, 2);

    // A colleague's commit brought in moves HEAD, but is no sign that the person
    // worked; their own commit is.
    repo.git({"config", "user.email", "tester@example.invalid"});
    repo.write("b.txt", "theirs");
    repo.git({"add", "-A"});
    repo.git({"commit", "-q", "--author=Ann <ann@example.invalid>", "-m", "Ann's work"});
    env.scanNow();
    EXPECT_TRUE(env.store().sessions(std::nullopt, std::nullopt).empty());
    repo.commitFile("b.txt", "mine", "my work");
    env.scanNow();
    std::optional<WorkSession> working = env.store().openSession(repo.path().string());
    ASSERT_TRUE(working.has_value());
    EXPECT_EQ(working->source, WorkSession::Source::localGit);

    // With history turned off, enrolment reads none.
    TestRepo quiet(dir / "quiet");
    quiet.commitFile("a.txt", "1", "last week", now - 24h * 7);
    env.applyConfigChange([](AppConfig& config) { config.historyDays = 0; });
    env.addDiscovered({RepoDiscovery(shell).makeRepo(quiet.path())});
    EXPECT_TRUE(env.store().commits(quiet.path().string()).empty());
}

TEST(AppEnvironmentTest, AScanDuringAScanReturnsAtOnce) {
    testing::TempDir dir;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T12:00:00Z"));
    testing::BoundedLatch started(1), release(1);
    FakeProcessRunner runner([&](const ProcessRequest& request) {
        if (isWorkTreeCheck(request)) {
            started.countDown();
            EXPECT_TRUE(release.wait()) << "the held scan was never let go on";
        }
        return ShellResult{"", "", 1};
    });
    AppEnvironment env(dir.path(), clock, runner);
    env.load();
    env.applyConfigChange(
        [](AppConfig& config) { config.repositories = {trackedAt("/fake/one")}; });

    std::jthread first([&] { env.scanNow(); });
    ASSERT_TRUE(started.wait()) << "the first scan never reached its work tree check";
    EXPECT_TRUE(env.isScanning());
    EXPECT_TRUE(env.rescanNowOnMain().empty());
    env.scanNow();  // returns without waiting for the first
    release.countDown();
    first.join();
    EXPECT_FALSE(env.isScanning());
    // The configuration, the remote (the configuration named no git folder) and
    // status; status failing, the slow way: the work tree check and today's log.
    EXPECT_EQ(runner.requests().size(), 5u);
}

TEST(AppEnvironmentTest, AShutdownStopsTheReadsInFlightStartsNoOtherAndKeepsWhatWasStored) {
    testing::TempDir dir;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T12:00:00Z"));
    std::atomic<bool> hold = false;
    std::atomic<int> cancelledInFlight = 0;
    testing::BoundedLatch eightStarted(8), release(1);
    FakeProcessRunner runner([&](const ProcessRequest& request) {
        if (hold && isWorkTreeCheck(request)) {
            eightStarted.countDown();
            EXPECT_TRUE(release.wait()) << "a held read was never let go on";
            // The real runner stops such a child at once; this one only notes it was asked to.
            if (request.cancellation != nullptr && request.cancellation->isCancelled()) {
                ++cancelledInFlight;
            }
        }
        return ShellResult{"", "", 1};
    });
    AppEnvironment env(dir.path(), clock, runner);
    env.load();
    env.applyConfigChange([](AppConfig& config) {
        for (int i = 0; i < 12; ++i)
            config.repositories.push_back(trackedAt("/fake/" + std::to_string(i)));
    });
    env.scanNow();
    std::vector<RepoSnapshot> before = env.store().snapshots();
    ASSERT_EQ(before.size(), 12u);
    size_t firstScan = runner.requests().size();

    hold = true;
    std::jthread scan([&] { env.scanNow(); });
    ASSERT_TRUE(eightStarted.wait()) << "fewer than eight reads were in flight at once";
    std::jthread stopper([&] { env.shutdown(); });
    ASSERT_TRUE(testing::eventually(10s, [&] { return env.isShuttingDown(); }));
    std::this_thread::sleep_for(100ms);
    EXPECT_TRUE(env.isScanning());
    release.countDown();
    stopper.join();
    scan.join();

    // Eight reads were in flight and told to stop; nothing started after the signal.
    // Each had asked for its configuration, its remote and its status (failing here)
    // before the work tree check it was held in.
    EXPECT_EQ(cancelledInFlight, 8);
    EXPECT_EQ(runner.requests().size(), firstScan + 8 * 4);
    // Every read was cut short, so every repository keeps what the first scan stored.
    Store saved(dir.path(), clock, Store::Access::readOnly);
    saved.load();
    std::vector<RepoSnapshot> after = saved.snapshots();
    ASSERT_EQ(after.size(), 12u);
    for (size_t i = 0; i < after.size(); ++i) EXPECT_EQ(after[i].id, before[i].id);
    env.scanNow();  // after a shutdown nothing starts
    EXPECT_EQ(runner.requests().size(), firstScan + 8 * 4);
}

// Enrolment's git children for folders that only look like repositories: the
// history read ("log --branches") goes through `historyRead`, everything else fails.
FakeProcessRunner enrolmentRunner(std::function<void()> historyRead) {
    return FakeProcessRunner([historyRead](const ProcessRequest& request) {
        if (request.arguments[0] != "log" || request.arguments[2] != "--branches") {
            return ShellResult{"", "", 1};
        }
        historyRead();
        return ShellResult{"", "", 0};
    });
}

TEST(AppEnvironmentTest, EnrolmentReadsEightAtOnceAndAShutdownCutsItShortWithoutHalfAdding) {
    testing::TempDir dir;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T12:00:00Z"));
    for (int i = 0; i < 20; ++i)
        std::filesystem::create_directories(dir / ("code/repo" + std::to_string(i)) / ".git");
    auto enrolling = [&](AppEnvironment& env) {
        env.load();
        env.applyConfigChange(
            [&](AppConfig& config) { config.scanFolders = {(dir / "code").string()}; });
    };

    // The first eight reads wait for each other: with fewer at once they give up.
    std::atomic<int> inFlight = 0, most = 0;
    testing::BoundedLatch firstEight(8);
    FakeProcessRunner allRunner = enrolmentRunner([&] {
        int now = ++inFlight;
        for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {}
        EXPECT_TRUE(firstEight.arriveAndWait()) << "fewer than eight history reads at once";
        --inFlight;
    });
    AppEnvironment env(dir / "data", clock, allRunner);
    enrolling(env);
    env.scanNow();
    EXPECT_EQ(most, 8);
    EXPECT_EQ(env.config().repositories.size(), 20u);

    testing::BoundedLatch eightStarted(8), release(1);
    FakeProcessRunner cutRunner = enrolmentRunner([&] {
        eightStarted.countDown();
        EXPECT_TRUE(release.wait()) << "a held history read was never let go on";
    });
    AppEnvironment stopped(dir / "data2", clock, cutRunner);
    enrolling(stopped);
    std::jthread scan([&] { stopped.scanNow(); });
    ASSERT_TRUE(eightStarted.wait());
    size_t before = cutRunner.requests().size();
    std::jthread stopper([&] { stopped.shutdown(); });
    ASSERT_TRUE(testing::eventually(10s, [&] { return stopped.isShuttingDown(); }));
    release.countDown();
    stopper.join();
    scan.join();
    // The eight in flight were the last children; none of the twenty is half-enrolled.
    EXPECT_EQ(cutRunner.requests().size(), before);
    EXPECT_TRUE(stopped.config().repositories.empty());
}

// Which files are a sign of work is FileWatcherTest's; here, that the running service
// watches what is tracked, found through a path written as the person typed it.
TEST(AppEnvironmentTest, TheWatcherFollowsTheTrackedRepositoriesOfTheRunningService) {
    testing::TempDir dir;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T12:00:00Z"));
    Shell shell;
    std::string name = "tilde-" + dir.path().filename().string();
    TestRepo app(PathHelpers::homeDirectory() / name);
    app.commitFile("main.c", "v1", "first");
    app.write("main.c", "v2");  // already modified: later edits leave git's counts alone
    TestRepo quiet(dir / "quiet");
    quiet.commitFile("a.txt", "a", "first");
    std::string appID = std::filesystem::canonical(app.path()).string();

    AppEnvironment env(dir / "data", clock, shell);
    env.load();
    env.addDiscovered(
        {RepoDiscovery(shell).makeRepo(app.path()), RepoDiscovery(shell).makeRepo(quiet.path())});
    env.applyConfigChange([&](AppConfig& config) {
        for (RepoConfig& repo : config.repositories) {
            if (repo.id == appID) repo.localPath = "~/" + name + "/";
        }
    });
    EXPECT_FALSE(env.isWatching());  // a one-shot command never watches
    env.bootstrap();
    ASSERT_TRUE(env.isWatching());

    // While paused, editing is not followed: no session comes of it.
    env.setPaused(true);
    env.noteFileActivity(app.path().string(), clock.now());
    clock.advance(1s);
    env.scanNow();
    EXPECT_FALSE(env.store().openSession(appID).has_value());
    env.setPaused(false);

    app.write("main.c", "v3");
    EXPECT_TRUE(testing::eventually(20s, [&] {
        clock.advance(1s);
        env.scanNow();
        return env.store().openSession(appID).has_value();
    }));
    std::filesystem::remove_all(app.path());
    ASSERT_TRUE(env.store().openSession(appID).has_value());
    EXPECT_EQ(env.store().openSession(appID)->source, WorkSession::Source::fileActivity);

    env.applyConfigChange([&](AppConfig& config) {
        for (RepoConfig& repo : config.repositories) repo.trackingEnabled = repo.id != appID;
    });
    EXPECT_TRUE(env.isWatching());
    env.applyConfigChange([&](AppConfig& config) {
        for (RepoConfig& repo : config.repositories) repo.trackingEnabled = false;
    });
    EXPECT_FALSE(env.isWatching());  // nothing left to watch

    env.applyConfigChange([&](AppConfig& config) {
        for (RepoConfig& repo : config.repositories) repo.trackingEnabled = true;
    });
    EXPECT_TRUE(env.isWatching());
    env.shutdown();
    EXPECT_FALSE(env.isWatching());
    env.startWatcher();
    EXPECT_FALSE(env.isWatching());
}

TEST(AppEnvironmentTest, AScanRaisesAReminderOnceShowsItAndResolvesItAfterAPush) {
    testing::NotificationServer server;
    ASSERT_EQ(server.problem(), "");
    testing::TempDir dir;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T12:00:00Z"));
    Shell shell;
    TestRepo origin(dir / "origin.git", TestRepo::Kind::bare);
    TestRepo seed = TestRepo::cloneOf(origin, dir / "seed");
    seed.commitFile("a.txt", "a", "first");
    seed.git({"push", "-q", "origin", "main"});
    TestRepo work = TestRepo::cloneOf(origin, dir / "api");
    work.commitFile("b.txt", "b", "not pushed yet");

    DesktopNotifier notifier;
    AppEnvironment env(dir / "data", clock, shell, &notifier);
    env.load();
    env.addDiscovered({RepoDiscovery(shell).makeRepo(work.path())});
    env.scanNow();
    std::vector<testing::NotificationServer::Notification> shown =
        server.waitFor(1, std::chrono::seconds(10));
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].summary, "Quorvane — Push pending");
    EXPECT_EQ(shown[0].body, "api: 1 unpushed commit. Push them.");
    ASSERT_EQ(env.unresolvedReminders().size(), 1u);
    std::string id = env.unresolvedReminders()[0].id;

    clock.advance(60s);
    env.scanNow();  // still ahead: nothing new
    clock.advance(60s);
    work.git({"push", "-q", "origin", "main"});
    env.scanNow();
    EXPECT_EQ(server.waitFor(2, 500ms).size(), 1u);
    EXPECT_THAT(server.closed(), ElementsAre(shown[0].id))
        << "a resolved reminder's notification leaves the screen";
    EXPECT_TRUE(env.unresolvedReminders().empty());
    Store saved(dir / "data", clock, Store::Access::readOnly);
    saved.load();
    std::vector<ReminderEvent> all = saved.reminders(false);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].id, id);
    EXPECT_EQ(all[0].resolvedAt, clock.now());
}

TEST(AppEnvironmentTest, TheEndOfDayReviewCountsTodaysWorkAndKeepsOneOpen) {
    testing::TempDir dir;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T21:30:00Z"));
    FakeProcessRunner runner;
    struct Recorder final : Notifier {
        void post(const Notification& notification) override { shown.push_back(notification); }
        void close(const std::string& key) override { closed.push_back(key); }
        std::vector<Notification> shown;
        std::vector<std::string> closed;
    } notifier;
    AppEnvironment env(dir.path(), clock, runner, &notifier);
    env.load();
    env.applyConfigChange([](AppConfig& config) {
        for (const char* path : {"/a", "/b", "/c", "/d"})
            config.repositories.push_back(trackedAt(path));
    });
    auto commit = [](const std::string& repo, const std::string& sha, const char* when) {
        CommitRecord record;
        record.repoID = repo;
        record.sha = sha;
        record.committedAt = *DateHelpers::parseISO(when);
        return record;
    };
    for (const char* path : {"/a", "/b", "/c", "/d"}) {
        RepoSnapshot snapshot;
        snapshot.repoID = path;
        snapshot.capturedAt = clock.now();
        env.store().replaceSnapshot(snapshot);
    }
    // /a committed today, /b only worked, /c was idle and /d committed yesterday.
    env.store().upsertCommits({commit("/a", "a1", "2026-11-21T09:00:00Z"),
                               commit("/a", "a2", "2026-11-21T10:00:00Z"),
                               commit("/d", "d1", "2026-11-20T10:00:00Z")});
    WorkSession session;
    session.id = "s1";
    session.repoID = "/b";
    session.startedAt = *DateHelpers::parseISO("2026-11-21T14:00:00Z");
    session.endedAt = session.startedAt + 10min;
    session.estimatedSeconds = 600;
    env.store().upsertSessions({session});

    env.fireDayReviewIfEnabled();
    ASSERT_EQ(notifier.shown.size(), 1u);
    EXPECT_EQ(notifier.shown[0].title, "Quorvane \u2014 End of day");
    EXPECT_EQ(notifier.shown[0].body,
              "End of day: you worked on 2 projects. Review and note it in the journal.");
    clock.advance(24h);
    env.fireDayReviewIfEnabled();
    std::vector<ReminderEvent> open = env.unresolvedReminders();
    ASSERT_EQ(open.size(), 1u);  // the evening before was resolved, and leaves the screen
    EXPECT_THAT(notifier.closed, ElementsAre(notifier.shown[0].key));
    EXPECT_EQ(open[0].message,
              "End of day: no active project today. Want to note anything in the journal?");

    env.applyConfigChange([](AppConfig& config) { config.reminders.endDayReview = false; });
    env.fireDayReviewIfEnabled();
    EXPECT_EQ(notifier.shown.size(), 2u);
}

// The running service brings a snoozed reminder back when its hour is up, after a
// restart too, with its buttons; one resolved while it was down stays down.
TEST(AppEnvironmentTest, ASnoozedReminderComesBackWhenItsTimeIsUpEvenAfterARestart) {
    testing::TempDir dir;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T23:30:00Z"));
    FakeProcessRunner runner;
    struct Recorder final : Notifier {
        void post(const Notification& notification) override {
            std::lock_guard lock(mutex);
            shown.push_back(notification);
        }
        void close(const std::string& key) override {
            std::lock_guard lock(mutex);
            closed.push_back(key);
        }
        std::vector<Notification> shownSoFar() {
            std::lock_guard lock(mutex);
            return shown;
        }
        std::mutex mutex;
        std::vector<Notification> shown;
        std::vector<std::string> closed;
    };
    auto reminder = [&](const std::string& id, ReminderEvent::Kind kind) {
        return ReminderEvent{.id = id,
                             .repoID = "/code/api",
                             .kind = kind,
                             .message = id + " waits",
                             .triggeredAt = clock.now(),
                             .resolvedAt = std::nullopt,
                             .snoozedUntil = std::nullopt};
    };
    {
        Recorder first;
        AppEnvironment env(dir.path(), clock, runner, &first);
        env.load();
        // Of kinds only a sync settles, so the scans of the service leave them open.
        env.store().upsertReminders({reminder("pull", ReminderEvent::Kind::needsPull),
                                     reminder("token", ReminderEvent::Kind::tokenIssue)});
        env.bootstrap();
        EXPECT_EQ(env.snoozeReminder("pull", 60min).saveProblem, "");
        EXPECT_TRUE(env.snoozeReminder("token", 30min).reminder.has_value());
        EXPECT_FALSE(env.snoozeReminder("none", 30min).reminder.has_value());
        EXPECT_THAT(first.closed, ElementsAre("pull", "token"));
        env.store().resolveReminders({"token"});
        ASSERT_TRUE(env.store().flush());
        env.shutdown();
    }
    Recorder second;
    AppEnvironment env(dir.path(), clock, runner, &second);
    env.bootstrap();
    clock.advance(59min);  // past the resolved one's end, past midnight
    EXPECT_TRUE(env.unresolvedReminders()[0].snoozedUntil.has_value());
    clock.advance(1min);
    ASSERT_TRUE(testing::eventually(5s, [&] { return !second.shownSoFar().empty(); }));
    std::vector<Notification> shown = second.shownSoFar();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].key, "pull");
    EXPECT_EQ(shown[0].actions.size(), 2u);
    std::vector<ReminderEvent> open = env.unresolvedReminders();
    ASSERT_EQ(open.size(), 1u);
    EXPECT_FALSE(open[0].snoozedUntil.has_value()) << "back for good";
    env.shutdown();
}

// What `quorvane config set` does: one key's value checked, then applied.
std::function<void(AppConfig&)> setting(const std::string& key, const std::string& value) {
    ConfigKeys::Parsed parsed = ConfigKeys::parse(key, value);
    EXPECT_EQ(parsed.error, "");
    return [parsed](AppConfig& config) { ConfigKeys::apply(config, *parsed.key, parsed.value); };
}

TEST(AppEnvironmentTest, ASettingLandsOnTopOfAHandEditButNotOnAnUnreadableOne) {
    testing::TempDir dir;
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T12:00:00Z"));
    FakeProcessRunner runner;
    AppEnvironment env(dir.path(), clock, runner);
    env.load();
    const std::filesystem::path file = dir / "config.json";
    auto onDisk = [&] { return *AtomicFile::read(file).bytes; };

    // One key changed by hand, the way an editor does it: the text, not the record.
    Json edited = Json::parse(onDisk());
    edited["historyDays"] = 7;
    testing::writeFile(file, edited.dump(2));
    ASSERT_TRUE(env.applyConfigChange(setting("scanIntervalMinutes", "5")));
    AppConfig saved = ConfigService::decode(onDisk());
    EXPECT_EQ(saved.historyDays, 7);
    EXPECT_EQ(saved.scanIntervalMinutes, 5);
    EXPECT_EQ(env.config().historyDays, 7);
    EXPECT_EQ(env.config().scanIntervalMinutes, 5);

    // A hand edit that does not decode is the person's unfinished work: the setting
    // says why it was not saved (what is on disk stays, as ConfigServiceTest shows).
    testing::writeFile(file, R"({"historyDays": 14, "theme": )");
    EXPECT_FALSE(env.applyConfigChange(setting("theme", "dark")));
    EXPECT_THAT(env.saveProblem(), ::testing::HasSubstr("config.json cannot be read"));
}

TEST(AppEnvironmentTest, TheRunningServiceFollowsANewReviewTimeAndSyncIntervalAtOnce) {
    testing::TempDir dir;
    // The suite runs in UTC: one second before 12:01.
    testing::FakeClock clock(*DateHelpers::parseISO("2026-11-21T12:00:59Z"));
    FakeProcessRunner runner;
    struct Reviews final : Notifier {
        explicit Reviews(const Clock& source) : timeSource(source) {}
        // The review is shown as it falls due, while the test holds the clock still.
        void post(const Notification&) override {
            {
                std::lock_guard lock(mutex);
                shown.push_back(timeSource.now());
            }
            changed.notify_all();
        }
        void close(const std::string&) override {}
        // When the count-th review has been shown, once it has.
        std::optional<Date> waitFor(size_t count) {
            std::unique_lock lock(mutex);
            if (!changed.wait_for(lock, 5s, [&] { return shown.size() >= count; })) {
                return std::nullopt;
            }
            return shown[count - 1];
        }
        size_t count() {
            std::lock_guard lock(mutex);
            return shown.size();
        }
        std::mutex mutex;
        std::condition_variable changed;
        const Clock& timeSource;
        std::vector<Date> shown;
    } reviews(clock);
    auto at = [](const char* iso) { return *DateHelpers::parseISO(iso); };
    AppEnvironment env(dir.path(), clock, runner, &reviews);
    auto scannedAt = [&](const char* iso) {
        return testing::eventually(5s, [&] { return env.lastScanAt() == at(iso); });
    };
    env.load();
    env.applyConfigChange(setting("sync.interval", "manual"));
    env.bootstrap();
    EXPECT_EQ(reviews.count(), 0u);  // 21:30 is hours away

    // Set while the review waits for 21:30: it falls due a second later, not tonight,
    // and once only while the clock stands there.
    ASSERT_TRUE(env.applyConfigChange(setting("dailyReviewTime", "12:01")));
    clock.advance(1s);
    EXPECT_EQ(reviews.waitFor(1), at("2026-11-21T12:01:00Z"));

    // The periodic scan, ten minutes after the one bootstrap made; a shorter interval
    // set meanwhile counts from that scan.
    clock.advance(10min);
    EXPECT_TRUE(scannedAt("2026-11-21T12:11:00Z"));
    ASSERT_TRUE(env.applyConfigChange(setting("scanIntervalMinutes", "2")));
    clock.advance(2min);
    EXPECT_TRUE(scannedAt("2026-11-21T12:13:00Z"));
    // With nothing tracked a scan still stamps its time and saves, and runs no git.
    EXPECT_TRUE(runner.requests().empty());
    for (const std::string& name : Store::flushOrder()) {
        EXPECT_TRUE(std::filesystem::exists(dir / name)) << name;
    }

    // An edit by hand, taken in by a scan, is followed the same way.
    AppConfig byHand = env.config();
    byHand.dailyReviewTime = "12:14";
    testing::writeFile(dir / "config.json", ConfigService::encode(byHand));
    env.scanNow();
    clock.advance(1min);
    EXPECT_EQ(reviews.waitFor(2), at("2026-11-21T12:14:00Z"));
    EXPECT_EQ(reviews.count(), 2u);

    // Manual syncs have no periodic task; an interval starts one, manual ends it.
    EXPECT_FALSE(env.isPeriodicSyncRunning());
    env.applyConfigChange(setting("sync.interval", "m15"));
    EXPECT_TRUE(env.isPeriodicSyncRunning());
    env.applyConfigChange(setting("sync.interval", "manual"));
    EXPECT_FALSE(env.isPeriodicSyncRunning());
    env.shutdown();
}

}  // namespace
}  // namespace quorvane
