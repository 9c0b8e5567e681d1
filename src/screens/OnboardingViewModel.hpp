#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "persistence/AppConfig.hpp"
#include "records/JsonCodec.hpp"

// The first run: the folders that usually hold a person's repositories, offered as
// scan folders with how many repositories each holds, and the choice checked before
// anything is saved.
namespace quorvane::OnboardingViewModel {

// Looked for in the home folder, in this order.
inline constexpr std::string_view kUsualFolders[] = {"code", "src", "projects", "git", "work"};

struct Suggestion {
    std::string path;   // absolute
    std::string shown;  // "~/code"
    size_t repositories = 0;
    bool operator==(const Suggestion&) const = default;
};

struct View {
    // Nothing is tracked and no folder is scanned: the first visit goes here.
    bool needed = false;
    std::vector<Suggestion> suggestions;
    std::vector<std::string> scanFolders;
    size_t tracked = 0;
    bool startsAtLogin = false;
};

// How many repositories a folder holds, or nothing when it is no folder.
using RepositoryCount = std::function<std::optional<size_t>(const std::string& folder)>;

// The usual folders under `home` that exist, each with its repositories.
View view(const AppConfig& config, const std::string& home, const RepositoryCount& count,
          bool startsAtLogin);

struct Choice {
    std::vector<std::string> folders;  // absolute, each once, in the order typed
    std::string problem;               // why nothing may be saved; empty when all are fine
};
// The folders a person chose, typed in full or from "~": every one must be a
// folder, or nothing is taken.
Choice choose(const std::vector<std::string>& typed, const std::string& home,
              const RepositoryCount& count);

Json toJson(const View& view);

}  // namespace quorvane::OnboardingViewModel
