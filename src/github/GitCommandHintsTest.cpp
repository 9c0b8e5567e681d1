#include <gtest/gtest.h>

#include "github/GitCommandHints.hpp"
#include "platform/Shell.hpp"

namespace quorvane {
namespace {

TEST(GitCommandHints, PublishesFromTheFolderUnderTheOwnerWhenKnown) {
    EXPECT_EQ(GitCommandHints::publishToGitHub("/home/dev/tool", "tool", "octo"),
              "cd '/home/dev/tool' && gh repo create 'octo/tool' --private --source . "
              "--remote origin --push");
    const std::string bare =
        "cd '/p' && gh repo create 'tool' --private --source . --remote origin --push";
    EXPECT_EQ(GitCommandHints::publishToGitHub("/p", "tool", std::nullopt), bare);
    EXPECT_EQ(GitCommandHints::publishToGitHub("/p", "tool", ""), bare);
    EXPECT_EQ(GitCommandHints::shellQuoted("it's"), "'it'\\''s'");
}

// A real shell reads the line: `cd` and `gh` stand-ins print each word they get.
TEST(GitCommandHints, EveryValueReachesTheShellAsOneWord) {
    std::string line =
        GitCommandHints::publishToGitHub("/tmp/it's a $HOME `x` \"dir\"", "o'neil's tool", "me");
    ProcessRequest request;
    request.executable = "/bin/sh";
    request.arguments = {"-c",
                         "cd() { printf '[%s]' \"$@\"; }; gh() { printf '<%s>' \"$@\"; }; " + line};
    ShellResult result = Shell().run(request);
    ASSERT_EQ(result.exitCode, 0) << result.stdErr;
    EXPECT_EQ(result.stdOut,
              "[/tmp/it's a $HOME `x` \"dir\"]<repo><create><me/o'neil's tool><--private>"
              "<--source><.><--remote><origin><--push>");
}

}  // namespace
}  // namespace quorvane
