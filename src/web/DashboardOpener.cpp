#include "web/DashboardOpener.hpp"

#include <unistd.h>

#include <cstdlib>
#include <optional>

#include <fmt/format.h>

#include "web/DashboardAddress.hpp"
#include "web/DashboardKey.hpp"
#include "web/LoginLink.hpp"

namespace quorvane::DashboardOpener {

namespace {

std::optional<std::filesystem::path> xdgOpen() {
    for (const char* path : {"/usr/bin/xdg-open", "/bin/xdg-open"}) {
        if (::access(path, X_OK) == 0) return path;
    }
    return std::nullopt;
}

}  // namespace

LoginAddress loginAddress(const std::filesystem::path& dataDir, Date now, const std::string& page) {
    DashboardAddress::Found found = DashboardAddress::find(dataDir);
    if (!found.port) return {"", found.problem};
    DashboardKey::Loaded key = DashboardKey::read(dataDir);
    if (key.key.empty()) return {"", key.problem};
    return {fmt::format("http://127.0.0.1:{}{}", *found.port, LoginLink::path(key.key, now, page)),
            ""};
}

Opened openInBrowser(const ProcessRunner& runner, const std::string& address) {
    bool desktop = std::getenv("WAYLAND_DISPLAY") || std::getenv("DISPLAY");
    std::optional<std::filesystem::path> opener = xdgOpen();
    if (!desktop || !opener) return {Outcome::noDesktop, ""};
    ProcessRequest request;
    request.executable = opener->string();
    request.arguments = {address};
    LaunchResult launched = runner.startDetached(request);
    if (!launched.error.empty()) return {Outcome::failed, launched.error};
    return {Outcome::opened, ""};
}

}  // namespace quorvane::DashboardOpener
