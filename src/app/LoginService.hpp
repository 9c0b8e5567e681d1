#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/Shell.hpp"

// The daemon as a systemd user service that starts at every login: the unit in
// ~/.config/systemd/user, enabled and started when the person's service manager
// answers. The command line's 'service' commands and the dashboard's first run
// both go through here, so both write the same unit.
namespace quorvane::LoginService {

inline constexpr const char* kUnitName = "quorvane.service";
inline constexpr const char* kFollowLog = "journalctl --user -u quorvane -f";

std::filesystem::path unitPath();

struct Installed {
    std::string problem;  // empty when the unit was written
    std::filesystem::path unit;
    // Whether a service manager answered; without one (no login session, a
    // container) the unit is only written, and enabling it is left to the person.
    bool managerAnswered = false;
    std::string enableProblem;  // why 'systemctl --user enable --now' failed
    bool ok() const { return problem.empty() && enableProblem.empty(); }
};

// Writes the unit running `executable`'s daemon, with `dataDir` in it when given,
// and enables it when the service manager answers: started at once too unless
// `startNow` is false (another daemon holds the data folder).
Installed install(const ProcessRunner& runner, const std::filesystem::path& executable,
                  const std::optional<std::filesystem::path>& dataDir, bool startNow = true);

// Whether the unit is written; says nothing of whether it runs.
bool isInstalled();

// The unit for the daemon started by `command`, after the comment `origin` that
// says where it came from. The unit a package installs is this one too.
std::string unitText(const std::string& command, std::string_view origin);
// One word of a unit's command line, quoted so systemd reads it literally.
std::string unitWord(const std::string& text);

// The program a unit should run: `self` when its folder is on `searchPath` (it is
// installed), else the `quorvane` that `searchPath` finds first, else `self`. A
// unit that runs a program out of a build folder breaks when that folder is
// cleaned or rebuilt, so the installed program is preferred and `note` says why
// another was chosen.
struct UnitProgram {
    std::filesystem::path path;
    std::string note;  // empty when `self` is the installed program
};
UnitProgram programForUnit(const std::filesystem::path& self, std::string_view searchPath);

ShellResult systemctl(const ProcessRunner& runner, std::vector<std::string> arguments);
bool userManagerAnswers(const ProcessRunner& runner);

}  // namespace quorvane::LoginService
