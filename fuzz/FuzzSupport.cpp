#include "FuzzSupport.hpp"

#include <stdlib.h>

#include <cstdlib>
#include <system_error>

#include "base/DateHelpers.hpp"

namespace quorvane::fuzz {

uint8_t Input::byte() {
    if (rest_.empty()) return 0;
    const auto value = static_cast<uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return value;
}

std::string_view Input::field(char separator) {
    const size_t end = rest_.find(separator);
    if (end == std::string_view::npos) return rest();
    std::string_view piece = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    return piece;
}

ScratchFolder::ScratchFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/quorvane-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

const std::filesystem::path& runFolder() {
    static const ScratchFolder folder;
    return folder.path();
}

void keepHomeIn(const std::filesystem::path& folder) {
    const std::filesystem::path home = folder / "home";
    std::filesystem::create_directories(home);
    ::setenv("HOME", home.c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
    ::setenv("XDG_STATE_HOME", (home / ".local/state").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", home.c_str(), 1);
    // No bus answers there: the keyring and the notifier fail at once.
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (folder / "no-bus").string()).c_str(), 1);
}

void FixedClock::waitUntil(std::optional<Date>, Wakeup& wakeup, std::stop_token stop) const {
    // Time never moves here: only a notify or a stop ends the wait.
    wakeup.wait(stop, std::nullopt, [] { return false; });
}

Date fixedNoon() { return *DateHelpers::parseISO("2026-11-25T12:00:00Z"); }

ShellResult NoChildren::run(const ProcessRequest&) const {
    return {.stdOut = "", .stdErr = "no program is started while fuzzing", .exitCode = -1};
}

LaunchResult NoChildren::startDetached(const ProcessRequest&) const {
    return {.started = false, .error = "no program is started while fuzzing"};
}

}  // namespace quorvane::fuzz
