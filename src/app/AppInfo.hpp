#pragma once

#include <string_view>

namespace quorvane::AppInfo {

// The release this binary was built from, or "dev" for a build without one.
std::string_view version();

// Where a person learns more about the program.
inline constexpr std::string_view kProductURL = "https://quorvane.dev";

}  // namespace quorvane::AppInfo
