#pragma once

#include <span>
#include <string_view>

namespace quorvane::DashboardPages {

// One file of the dashboard's pages, embedded in the executable at build time.
struct Page {
    std::string_view path;  // "/assets/app.js"
    std::string_view contentType;
    std::string_view bytes;
};

std::span<const Page> all();

}  // namespace quorvane::DashboardPages
