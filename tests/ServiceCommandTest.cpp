// quorvane service install|status|uninstall, with no service manager to reach: the
// unit is written, checked by systemd's own verifier, reported and removed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Shell.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;

class ServiceCommandTest : public ::testing::Test {
protected:
    // Runs quorvane where no user service manager can answer: an empty runtime
    // folder and no session bus, so nothing on the machine is enabled or started.
    ShellResult run(std::vector<std::string> arguments) {
        ProcessRequest request;
        request.executable = QUORVANE_BINARY;
        request.arguments = std::move(arguments);
        request.arguments.push_back("--data-dir");
        request.arguments.push_back(data_.string());
        std::filesystem::create_directories(dir_ / "run");
        request.environment = {{"XDG_CONFIG_HOME", (dir_ / "config").string()},
                               {"XDG_RUNTIME_DIR", (dir_ / "run").string()}};
        request.unsetEnvironment = {"DBUS_SESSION_BUS_ADDRESS"};
        return Shell().run(request);
    }

    testing::TempDir dir_;
    // A folder name systemd would otherwise read as a specifier, a variable and two words.
    std::filesystem::path data_ = dir_ / "my data %h $HOME";
    std::filesystem::path unit_ = dir_ / "config" / "systemd" / "user" / "quorvane.service";
};

TEST_F(ServiceCommandTest, TheUnitIsWrittenVerifiedReportedAndRemoved) {
    ShellResult installed = run({"service", "install"});
    ASSERT_EQ(installed.exitCode, 0) << installed.stdErr;
    EXPECT_THAT(installed.stdOut, HasSubstr("wrote " + unit_.string()));
    EXPECT_THAT(installed.stdOut, HasSubstr("systemctl --user enable --now quorvane.service"));
    EXPECT_THAT(installed.stdOut, HasSubstr("journalctl --user -u quorvane -f"));

    std::string unit = testing::readFile(unit_);
    EXPECT_THAT(
        unit, HasSubstr(std::string("ExecStart=\"") + QUORVANE_BINARY + "\" daemon --data-dir \"" +
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
    EXPECT_THAT(status.stdOut, HasSubstr("no systemd user manager answered"));
    ShellResult removed = run({"service", "uninstall"});
    EXPECT_EQ(removed.exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(unit_));
    EXPECT_THAT(run({"service", "status"}).stdOut, HasSubstr("not installed"));
    EXPECT_THAT(run({"service", "uninstall"}).stdOut, HasSubstr("not installed"));
}

}  // namespace
}  // namespace quorvane
