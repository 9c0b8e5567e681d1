#pragma once

#include <filesystem>
#include <string>

#include "base/DateHelpers.hpp"
#include "platform/ProcessRunner.hpp"

// Opening the dashboard in the person's browser, logged in: for `quorvane open` and
// for the daemon when the person presses a notification's button.
namespace quorvane::DashboardOpener {

// The one-time address that logs a browser in and leads to `page`, or why there is
// none (no daemon serves the dashboard, or it has no key yet). The address is a
// credential until it is spent or expires: it goes to the person, never to a log.
struct LoginAddress {
    std::string address;  // empty when there is none
    std::string problem;
};
LoginAddress loginAddress(const std::filesystem::path& dataDir, Date now, const std::string& page);

enum class Outcome { opened, noDesktop, failed };
struct Opened {
    Outcome outcome = Outcome::failed;
    std::string problem;  // with `failed`, why xdg-open did not start
};

// Hands `address` to xdg-open, the desktop's way to a browser, started on its own so
// that the caller waits for no browser. Without a desktop session (no DISPLAY nor
// WAYLAND_DISPLAY, as over SSH) or without xdg-open, `noDesktop`.
Opened openInBrowser(const ProcessRunner& runner, const std::string& address);

}  // namespace quorvane::DashboardOpener
