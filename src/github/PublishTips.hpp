#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

// Three ways to put a local-only repository on GitHub, shown as tips to copy. Pure.
namespace quorvane::PublishTips {

// Stand-ins the user replaces when the owner or the branch is not known.
inline constexpr std::string_view kOwnerPlaceholder = "<your-github-user>";
inline constexpr std::string_view kFallbackBranch = "main";

// In this order: create the repository and push with gh; add the SSH remote by
// hand; push the branch and set its upstream. `localPath` is only wrapped in double
// quote marks, not escaped: these lines are read, not run as they stand.
std::array<std::string, 3> commands(const std::optional<std::string>& owner, std::string_view name,
                                    std::string_view localPath, std::string_view branch);

}  // namespace quorvane::PublishTips
