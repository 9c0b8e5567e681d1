// `quorvane agent register|unregister|registrations` against a stand-in for the
// `claude` command line (Claude Code is not installed here), which records how it
// was called and answers as the real one does.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "platform/Shell.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Appends its working folder and arguments to calls.log, one call a line; refuses
// the first `mcp add` while the file "taken" exists, as claude refuses a name it
// already has.
constexpr const char* kFakeClaude = R"(#!/bin/sh
here=$(dirname "$0")
echo "$(pwd) | $*" >> "$here/calls.log"
if [ "$1 $2" = "mcp add" ] && [ -e "$here/taken" ]; then
  rm "$here/taken"
  echo "MCP server quorvane already exists in user config" >&2
  exit 1
fi
if [ "$1 $2" = "mcp list" ]; then echo "quorvane: /opt/quorvane-mcp - Connected"; fi
exit 0
)";

class AgentRegisterTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(bin());
        std::filesystem::create_directories(project());
        std::ofstream(bin() / "claude") << kFakeClaude;
        std::filesystem::permissions(bin() / "claude", std::filesystem::perms::owner_all);
    }

    std::filesystem::path bin() const { return dir_ / "bin"; }
    std::filesystem::path project() const { return dir_ / "project"; }
    std::filesystem::path dataDir() const { return dir_ / "data"; }

    ShellResult quorvane(std::vector<std::string> words, bool withClaude = true) {
        ProcessRequest request;
        request.executable = QUORVANE_BINARY;
        request.arguments = std::move(words);
        request.cwd = project().string();
        request.environment = {
            {"HOME", (dir_ / "home").string()},
            {"PATH", (withClaude ? bin().string() + ":" : "") + "/usr/bin:/bin"}};
        return Shell().run(request);
    }

    std::vector<std::string> calls() const {
        std::ifstream log(bin() / "calls.log");
        std::vector<std::string> lines;
        for (std::string line; std::getline(log, line);) lines.push_back(line);
        return lines;
    }

    testing::TempDir dir_;
};

TEST_F(AgentRegisterTest, RegisteringAddsTheBridgeWithItsDataFolderAndReplacesAnOldEntry) {
    const std::string bridge = QUORVANE_MCP_BINARY;
    const std::string data = std::filesystem::weakly_canonical(dataDir()).string();
    std::ofstream(bin() / "taken").close();

    ShellResult registered =
        quorvane({"--data-dir", dataDir().string(), "agent", "register", "--scope", "project"});
    ASSERT_EQ(registered.exitCode, 0) << registered.stdErr;
    EXPECT_THAT(registered.stdOut,
                HasSubstr("Registered with Claude Code (scope: project). Restart Claude Code to "
                          "load the tools."));
    const std::string add = project().string() + " | mcp add --scope project quorvane -- " +
                            bridge + " --data-dir " + data;
    EXPECT_THAT(
        calls(),
        ElementsAre(add, project().string() + " | mcp remove --scope project quorvane", add));

    // The entry for other clients starts the same bridge the same way.
    const std::string& out = registered.stdOut;
    nlohmann::json entry = nlohmann::json::parse(out.substr(out.find('{')));
    EXPECT_EQ(entry["mcpServers"]["quorvane"]["command"], bridge);
    EXPECT_EQ(entry["mcpServers"]["quorvane"]["args"], nlohmann::json({"--data-dir", data}));

    ShellResult removed = quorvane({"agent", "unregister"});
    EXPECT_EQ(removed.exitCode, 0) << removed.stdErr;
    EXPECT_EQ(removed.stdOut, "Removed from Claude Code (scope: user).\n");
    EXPECT_EQ(calls().back(), project().string() + " | mcp remove --scope user quorvane");
    ShellResult listed = quorvane({"agent", "registrations"});
    EXPECT_EQ(listed.stdOut, "quorvane: /opt/quorvane-mcp - Connected\n");

    EXPECT_NE(quorvane({"agent", "register", "--scope", "everywhere"}).exitCode, 0);
}

TEST_F(AgentRegisterTest, WithoutClaudeTheCommandFailsButStillPrintsTheEntry) {
    ShellResult result = quorvane({"agent", "register"}, false);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.stdErr,
                HasSubstr("Registration failed: the `claude` command was not found"));
    nlohmann::json entry = nlohmann::json::parse(result.stdOut.substr(result.stdOut.find('{')));
    EXPECT_EQ(entry["mcpServers"]["quorvane"]["command"], QUORVANE_MCP_BINARY);
    EXPECT_EQ(entry["mcpServers"]["quorvane"]["args"], nlohmann::json::array());
    EXPECT_TRUE(calls().empty());
}

}  // namespace
}  // namespace quorvane
