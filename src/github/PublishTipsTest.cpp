#include <gtest/gtest.h>

#include "github/PublishTips.hpp"

namespace quorvane {
namespace {

using Tips = std::array<std::string, 3>;

TEST(PublishTips, OffersThreeWaysToPublishWithPlaceholdersForWhatIsUnknown) {
    EXPECT_EQ(PublishTips::commands("octo", "tool", "/home/dev/my tool", "dev"),
              (Tips{"gh repo create octo/tool --private --source=\"/home/dev/my tool\" "
                    "--remote=origin --push",
                    "git -C \"/home/dev/my tool\" remote add origin git@github.com:octo/tool.git",
                    "git -C \"/home/dev/my tool\" push -u origin dev"}));

    const Tips unknown{
        "gh repo create <your-github-user>/tool --private --source=\"/p\" --remote=origin --push",
        "git -C \"/p\" remote add origin git@github.com:<your-github-user>/tool.git",
        "git -C \"/p\" push -u origin main"};
    EXPECT_EQ(PublishTips::commands(std::nullopt, "tool", "/p", ""), unknown);
    EXPECT_EQ(PublishTips::commands("", "tool", "/p", ""), unknown);
}

}  // namespace
}  // namespace quorvane
