// quorvane completion SHELL and quorvane manpage: what the build installs beside
// the program, printed from its own command definitions.
#include <ostream>

#include <fmt/format.h>

#include "app/AppInfo.hpp"
#include "cli/CommandTable.hpp"
#include "cli/Commands.hpp"
#include "cli/ManualPage.hpp"
#include "cli/ShellCompletion.hpp"

namespace quorvane::Commands {

namespace {

constexpr const char* kProgram = "quorvane";

// What the manual says beyond the commands: where the program keeps things and
// what in the environment changes what it does.
ManualText manualText() {
    ManualText text;
    text.summary = "keep a local record of your daily Git work";
    text.source = fmt::format("quorvane {}", AppInfo::version());
    text.files = {
        {"$XDG_DATA_HOME/Quorvane",
         "The data folder, by default ~/.local/share/Quorvane, mode 0700; --data-dir names "
         "another. Every file in it is written whole with mode 0600, and a file that cannot "
         "be read is moved aside to NAME.corrupt-SECONDS rather than overwritten."},
        {"config.json",
         "The configuration, in the data folder: tracked repositories, scan folders, "
         "accounts, intervals and reminder settings. When it cannot be read it is left as it "
         "is, and commands that change data stop with the reason until it is fixed or moved "
         "aside."},
        {"quorvane.lock",
         "In the data folder: locked by the one process that changes the data folder, such "
         "as the daemon, while it runs."},
        {"quorvane.sock",
         "In the data folder, mode 0600: the daemon's control socket. While the daemon runs, "
         "commands that change the data folder are sent to it there and run by it."},
        {"secrets.json",
         "In the data folder, mode 0600: the tokens, when no Secret Service answers on the "
         "session bus."},
        {"$XDG_DOCUMENTS_DIR/QVNQuorvane/Reports",
         "Where 'quorvane report' writes JSON and CSV reports, by default "
         "~/Documents/QVNQuorvane/Reports."},
        {"$XDG_CONFIG_HOME/systemd/user/quorvane.service",
         "The unit 'quorvane service install' writes, by default under ~/.config. It takes "
         "the place of the quorvane.service a package installs for every user under "
         "lib/systemd/user, which 'systemctl --user enable --now quorvane.service' starts."},
    };
    text.environment = {
        {"XDG_DATA_HOME", "Holds the data folder; ~/.local/share when unset or not absolute."},
        {"XDG_CONFIG_HOME",
         "Holds the systemd user unit and user-dirs.dirs, which names the documents folder; "
         "~/.config when unset or not absolute."},
        {"HOME", "The home folder the defaults above start from."},
        {"VISUAL, EDITOR", "The editor 'quorvane journal --edit' opens, VISUAL first."},
        {"GITHUB_TOKEN, GH_TOKEN",
         "For an account imported with 'quorvane accounts import-gh': the token, looked for "
         "before 'gh auth token' and git's credential helpers. Never printed or stored."},
        {"DBUS_SESSION_BUS_ADDRESS",
         "The session bus, for desktop notifications and the Secret Service."},
    };
    text.seeAlso = {"git(1)", "gh(1)", "systemctl(1)", "journalctl(1)"};
    return text;
}

}  // namespace

// The shell completion script for `shell` (bash, zsh or fish) and the manual page,
// printed from the command definitions so that they cannot drift from them.
int completion(std::ostream& out, const CommandReference& commands, const std::string& shell) {
    if (shell == "zsh") {
        out << ShellCompletion::zsh(commands, kProgram);
    } else if (shell == "fish") {
        out << ShellCompletion::fish(commands, kProgram);
    } else {
        out << ShellCompletion::bash(commands, kProgram);
    }
    return 0;
}

int manualPage(std::ostream& out, const CommandReference& commands) {
    out << ManualPage::write(commands, kProgram, manualText());
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

// Hidden: what the build writes from these very definitions and installs beside the
// program, so the completions and the manual match it. They print without a data
// folder.
void declareReferenceCommands(CommandTable& table) {
    auto& shell = table.keep<std::string>();
    CLI::App* completion =
        table.add("completion", "Print the completion script for SHELL",
                  {DataUse::none, [&](CommandContext& c) {
                       return Commands::completion(c.out, describeCommands(table.app()), shell);
                   }});
    completion->group("");
    completion->add_option("SHELL", shell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
    table
        .add("manpage", "Print the manual page, in roff",
             {DataUse::none,
              [&](CommandContext& c) {
                  return Commands::manualPage(c.out, describeCommands(table.app()));
              }})
        ->group("");
}

}  // namespace quorvane
