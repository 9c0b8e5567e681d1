#include "github/PublishTips.hpp"

#include <fmt/format.h>

#include "github/RepoMapper.hpp"

namespace quorvane::PublishTips {

std::array<std::string, 3> commands(const std::optional<std::string>& owner, std::string_view name,
                                    std::string_view localPath, std::string_view branch) {
    std::string_view who = owner && !owner->empty() ? std::string_view(*owner) : kOwnerPlaceholder;
    std::string_view pushed = branch.empty() ? kFallbackBranch : branch;
    return {fmt::format("gh repo create {}/{} --private --source=\"{}\" --remote=origin --push",
                        who, name, localPath),
            fmt::format("git -C \"{}\" remote add origin git@{}:{}/{}.git", localPath,
                        RepoMapper::kGitHubHost, who, name),
            fmt::format("git -C \"{}\" push -u origin {}", localPath, pushed)};
}

}  // namespace quorvane::PublishTips
