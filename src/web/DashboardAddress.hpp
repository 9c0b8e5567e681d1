#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quorvane::DashboardAddress {

// Where a running daemon serves its dashboard, for the commands that open it: the
// configured port may have been taken, and then the daemon serves on another.
inline constexpr const char* kFileName = "dashboard.json";

// Written by the daemon, the data folder's one writer, once its server listens;
// removed when it stops. Returns why it could not be written, or an empty text.
std::string publish(const std::filesystem::path& dataDir, int port);
void withdraw(const std::filesystem::path& dataDir);

struct Found {
    std::optional<int> port;
    std::string problem;  // why there is none, for the person
};

// The port of the dashboard a live daemon serves for this data folder.
Found find(const std::filesystem::path& dataDir);

}  // namespace quorvane::DashboardAddress
