#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "records/RepoConfig.hpp"

namespace quorvane::testing {

// A tracked repository at `path`, named after its folder, with the id its path gives.
inline RepoConfig repoAt(const std::string& path,
                         std::optional<std::string> remoteURL = std::nullopt) {
    RepoConfig repo;
    repo.id = repo.localPath = path;
    repo.name = std::filesystem::path(path).filename().string();
    repo.remoteURL = std::move(remoteURL);
    return repo;
}

}  // namespace quorvane::testing
