// quorvane-tray on a private session bus, with a stand-in for the desktop's tray
// watcher and a real daemon: what the icon shows comes from the daemon, and its
// menu makes the daemon act.
#include <signal.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "records/JsonCodec.hpp"
#include "testing/BackgroundProcess.hpp"
#include "testing/StatusNotifierWatcher.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using Entries = std::vector<testing::StatusNotifierWatcher::MenuEntry>;

class TrayTest : public ::testing::Test {
protected:
    std::filesystem::path dataDir() const { return dir_ / "data"; }

    ShellResult quorvane(std::vector<std::string> arguments) const {
        return testing::runQuorvane(dataDir(), std::move(arguments));
    }
    Json bar() const {
        ShellResult result = quorvane({"status", "--bar"});
        EXPECT_EQ(result.exitCode, 0) << result.stdErr;
        return result.exitCode == 0 ? JsonCodec::parse(result.stdOut) : Json::object();
    }

    std::unique_ptr<testing::BackgroundProcess> startDaemon(const std::string& log) const {
        auto daemon = std::make_unique<testing::BackgroundProcess>(
            QUORVANE_BINARY, std::vector<std::string>{"daemon", "--data-dir", dataDir().string()},
            dir_ / log);
        EXPECT_TRUE(testing::eventually(60s, [&] {
            return daemon->output().find("quorvane daemon: ready") != std::string::npos;
        })) << daemon->output();
        return daemon;
    }

    // The entry with this label in the item's menu, as a panel reads it.
    std::optional<testing::StatusNotifierWatcher::MenuEntry> entry(const std::string& item,
                                                                   const std::string& label) {
        std::string problem;
        for (const auto& found : watcher_.menu(item, problem)) {
            if (found.label == label) return found;
        }
        return std::nullopt;
    }

    testing::StatusNotifierWatcher watcher_;
    testing::TempDir dir_;
};

TEST_F(TrayTest, TheIconShowsTheDaemonsCountsAndItsMenuScansAndPausesTheRealDaemon) {
    ASSERT_EQ(watcher_.problem(), "");
    testing::TestRepo app(dir_ / "code" / "app");
    app.commitFile("main.c", "v1", "first");
    app.write("main.c", "v2");

    ShellResult alone = quorvane({"pause"});
    EXPECT_EQ(alone.exitCode, 1);
    EXPECT_THAT(alone.stdErr, HasSubstr("the daemon is not running"));
    ASSERT_EQ(quorvane({"repos", "add", app.path().string()}).exitCode, 0);
    auto daemon = startDaemon("daemon.log");

    testing::BackgroundProcess tray(QUORVANE_TRAY_BINARY, {"--data-dir", dataDir().string()},
                                    dir_ / "tray.log");
    std::vector<std::string> registered = watcher_.waitFor(1, 30s);
    ASSERT_EQ(registered.size(), 1u) << tray.output();
    const std::string item = registered[0];
    EXPECT_EQ(item, fmt::format("org.kde.StatusNotifierItem-{}-1", tray.pid()));

    // The tooltip carries the counts the daemon reports, and the icon asks for attention.
    Json counts = bar();
    EXPECT_EQ(counts["uncommitted"], 1);
    const std::string tooltip =
        fmt::format("Quorvane\nto push: {}, uncommitted: 1, proposals waiting: {}",
                    counts["toPush"].get<int>(), counts["proposals"].get<int>());
    EXPECT_TRUE(
        testing::eventually(30s, [&] { return watcher_.property(item, "ToolTip") == tooltip; }))
        << watcher_.property(item, "ToolTip") << "\n"
        << tray.output();
    EXPECT_EQ(watcher_.property(item, "IconName"), "quorvane-attention");
    EXPECT_EQ(watcher_.property(item, "Status"), "NeedsAttention");
    EXPECT_EQ(watcher_.property(item, "Id"), "quorvane");

    // "Scan now" reaches the daemon: a file it has not seen yet is in its next snapshot.
    app.write("notes.txt", "new");
    std::optional<testing::StatusNotifierWatcher::MenuEntry> scan = entry(item, "Scan now");
    ASSERT_TRUE(scan);
    EXPECT_TRUE(scan->enabled);
    EXPECT_EQ(watcher_.click(item, scan->id), "");
    EXPECT_TRUE(testing::eventually(60s, [&] {
        ShellResult stored = quorvane({"status", "--json"});
        Json snapshots = stored.exitCode == 0 ? JsonCodec::parse(stored.stdOut) : Json::array();
        return snapshots.size() == 1 && snapshots[0]["files"]["untracked"] == 1;
    })) << tray.output();

    // Pausing from the menu pauses the daemon, and the menu then offers to resume.
    std::optional<testing::StatusNotifierWatcher::MenuEntry> pause = entry(item, "Pause watching");
    ASSERT_TRUE(pause);
    EXPECT_EQ(watcher_.click(item, pause->id), "");
    EXPECT_TRUE(testing::eventually(30s, [&] {
        return entry(item, "Resume watching").has_value();
    })) << tray.output();
    EXPECT_EQ(bar()["paused"], true);
    EXPECT_THAT(quorvane({"status"}).stdOut, HasSubstr("watching paused"));
    EXPECT_THAT(watcher_.property(item, "ToolTip"), HasSubstr("\nwatching paused"));

    // A panel that restarts is registered with again.
    ASSERT_EQ(watcher_.restart(), "");
    registered = watcher_.waitFor(2, 30s);
    ASSERT_EQ(registered.size(), 2u) << tray.output();
    EXPECT_EQ(registered[1], item);

    // The pause is the daemon's: a new one starts unpaused.
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->waitForExit(60s), 0) << daemon->output();
    EXPECT_EQ(bar()["paused"], false);
    daemon = startDaemon("daemon2.log");
    EXPECT_EQ(bar()["paused"], false);
    ShellResult resumed = quorvane({"resume"});
    EXPECT_EQ(resumed.exitCode, 0) << resumed.stdErr;
    EXPECT_THAT(resumed.stdOut, HasSubstr("was not paused"));

    tray.signal(SIGTERM);
    EXPECT_EQ(tray.waitForExit(60s), 0) << tray.output();
}

}  // namespace
}  // namespace quorvane
