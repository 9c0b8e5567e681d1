// quorvane service install|start|stop|status|uninstall, with no service manager to
// reach: the unit is written for the installed program, checked by systemd's own
// verifier, reported and removed; a daemon is started in the background, replaced
// when its program is installed anew, and stopped.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Shell.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ServiceCommandTest : public ::testing::Test {
protected:
    // Runs quorvane where no user service manager can answer: an empty runtime
    // folder and no session bus, so nothing on the machine is enabled or started.
    ShellResult run(std::vector<std::string> arguments,
                    const std::string& executable = QUORVANE_BINARY) {
        ProcessRequest request;
        request.executable = executable;
        request.arguments = std::move(arguments);
        request.arguments.push_back("--data-dir");
        request.arguments.push_back(data_.string());
        std::filesystem::create_directories(dir_ / "run");
        request.environment = {{"XDG_CONFIG_HOME", (dir_ / "config").string()},
                               {"XDG_RUNTIME_DIR", (dir_ / "run").string()},
                               {"PATH", (dir_ / "bin").string() + ":/usr/bin:/bin"}};
        request.unsetEnvironment = {"DBUS_SESSION_BUS_ADDRESS"};
        return Shell().run(request);
    }

    // The program installed where PATH finds it: a second name for the built one.
    std::string install() {
        std::filesystem::create_directories(dir_ / "bin");
        std::filesystem::remove(installed_);
        std::filesystem::create_hard_link(QUORVANE_BINARY, installed_);
        return installed_.string();
    }

    void TearDown() override { run({"service", "stop"}); }

    testing::TempDir dir_;
    std::filesystem::path installed_ = dir_ / "bin" / "quorvane";
    // A folder name systemd would otherwise read as a specifier, a variable and two words.
    std::filesystem::path data_ = dir_ / "my data %h $HOME";
    std::filesystem::path unit_ = dir_ / "config" / "systemd" / "user" / "quorvane.service";
};

TEST_F(ServiceCommandTest, TheUnitIsWrittenVerifiedReportedAndRemoved) {
    // Run from the build folder with nothing installed: the unit runs it, and the
    // person is told why that is fragile.
    ShellResult fromBuild = run({"service", "install"});
    ASSERT_EQ(fromBuild.exitCode, 0) << fromBuild.stdErr;
    EXPECT_THAT(fromBuild.stdErr, HasSubstr("is not in a folder on your PATH"));
    EXPECT_THAT(testing::readFile(unit_),
                HasSubstr(std::string("ExecStart=\"") + QUORVANE_BINARY + "\" daemon"));

    // Once installed, the unit runs the installed program, even when the command
    // came from the build folder.
    install();
    ShellResult installed = run({"service", "install"});
    ASSERT_EQ(installed.exitCode, 0) << installed.stdErr;
    EXPECT_THAT(installed.stdErr, HasSubstr("is not the installed one"));
    EXPECT_THAT(installed.stdOut, HasSubstr("wrote " + unit_.string()));
    EXPECT_THAT(installed.stdOut, HasSubstr("systemctl --user enable --now quorvane.service"));
    EXPECT_THAT(installed.stdOut, HasSubstr("journalctl --user -u quorvane -f"));

    std::string unit = testing::readFile(unit_);
    EXPECT_THAT(unit, HasSubstr("ExecStart=\"" + installed_.string() + "\" daemon --data-dir \"" +
                                dir_.path().string() + "/my data %%h $$HOME\"\n"));
    EXPECT_THAT(unit, HasSubstr("Restart=on-failure\n"));
    EXPECT_THAT(unit, HasSubstr("WantedBy=default.target\n"));

    // systemd's own reading of the file, its command line included.
    ProcessRequest verify;
    verify.executable = "/usr/bin/systemd-analyze";
    verify.arguments = {"verify", unit_.string()};
    ShellResult verified = Shell().run(verify);
    EXPECT_EQ(verified.exitCode, 0) << verified.stdErr;

    ShellResult status = run({"service", "status"});
    EXPECT_THAT(status.stdOut, HasSubstr("installed: " + unit_.string()));
    EXPECT_THAT(status.stdOut, HasSubstr("  program: " + installed_.string() + "\n"));
    EXPECT_THAT(status.stdOut, HasSubstr("daemon: not running"));
    EXPECT_THAT(status.stdOut, HasSubstr("no systemd user manager answered"));
    ShellResult removed = run({"service", "uninstall"});
    EXPECT_EQ(removed.exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(unit_));
    EXPECT_THAT(run({"service", "status"}).stdOut, HasSubstr("not installed"));
    EXPECT_THAT(run({"service", "uninstall"}).stdOut, HasSubstr("not installed"));
}

TEST_F(ServiceCommandTest, ADaemonStartedInTheBackgroundIsReplacedWithItsProgramAndStopped) {
    std::string program = install();
    ShellResult started = run({"service", "start"}, program);
    ASSERT_EQ(started.exitCode, 0) << started.stdErr;
    EXPECT_THAT(started.stdOut, HasSubstr("started the daemon in the background"));
    EXPECT_THAT(testing::readFile(data_ / "daemon.log"), HasSubstr("quorvane daemon: pid"));
    EXPECT_THAT(run({"service", "start"}, program).stdOut, HasSubstr("already running"));
    EXPECT_THAT(run({"service", "status"}).stdOut,
                HasSubstr(", " + program + "), started by hand"));

    // Nobody at the terminal to ask: the daemon started by hand is left running
    // and the person is told why the service does not start.
    ShellResult kept = run({"service", "install"});
    EXPECT_THAT(kept.stdErr, HasSubstr("a daemon started by hand is running"));
    EXPECT_THAT(run({"service", "status"}).stdOut, HasSubstr("started by hand"));

    // A new install replaces the program's file; the running daemon is seen to run
    // the old one, and starting it again replaces it.
    install();
    EXPECT_THAT(run({"service", "status"}).stdOut, HasSubstr("installed anew since it started"));
    ShellResult restarted = run({"service", "start"}, program);
    ASSERT_EQ(restarted.exitCode, 0) << restarted.stdErr;
    EXPECT_THAT(restarted.stdOut, HasSubstr("which ran an older program"));
    EXPECT_THAT(run({"service", "status"}).stdOut, Not(HasSubstr("installed anew")));

    ShellResult replaced = run({"service", "install", "--replace"});
    ASSERT_EQ(replaced.exitCode, 0) << replaced.stdErr;
    EXPECT_THAT(replaced.stdOut, HasSubstr("stopped the daemon (pid"));
    EXPECT_THAT(run({"service", "status"}).stdOut, HasSubstr("daemon: not running"));
    EXPECT_THAT(run({"service", "stop"}).stdOut, HasSubstr("not running"));
}

}  // namespace
}  // namespace quorvane
