#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/DateHelpers.hpp"

namespace quorvane::DashboardKey {

// The dashboard's secret, beside the data it opens: only the person's account can
// read it (mode 0600), and whoever holds it can sign a login link.
inline constexpr std::string_view kFileName = "dashboard.key";

// 256 random bits from the kernel, as 64 lower-case hex digits.
std::string generate();

// Whether `text` is a key as `generate` writes it, a final newline allowed.
bool wellFormed(std::string_view text);

struct Loaded {
    std::string key;                                // empty when there is none to use
    std::string problem;                            // why, then
    std::optional<std::filesystem::path> setAside;  // where a damaged key went
};

// The key of the data folder, for the daemon, its one writer: read when it is
// there and well formed; a damaged one is moved aside (never overwritten) and a
// new one written in its place.
Loaded loadOrCreate(const std::filesystem::path& dataDir, Date now);

// The key for a reader such as `quorvane open`, which never writes: nothing, with
// the reason, while the daemon has not made one.
Loaded read(const std::filesystem::path& dataDir);

}  // namespace quorvane::DashboardKey
