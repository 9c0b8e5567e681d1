#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/Commands.hpp"
#include "cli/ControlProtocol.hpp"

namespace quorvane {

// What a command does with the data folder, which decides where it runs.
enum class DataUse {
    none,    // prints without one
    reads,   // reads it without the writer lock, so it answers beside a running daemon
    writes,  // changes it: sent to the daemon while one runs, and all the daemon runs
};

// How one command runs once its words are parsed.
struct CommandRow {
    DataUse use = DataUse::reads;
    std::function<int(CommandContext&)> run;
    // Runs where the command was typed, before it is sent to the daemon: what the
    // daemon cannot do for the person (read a secret from this terminal, open the
    // editor) is done here and put in the request. False, with the reason on
    // stderr, ends the command.
    std::function<bool(CommandContext&, ControlProtocol::Request&)> beforeSending{};
    // An unsafe or unreadable data folder is reported by the command, not refused.
    bool diagnoses = false;
    // A view the daemon also runs for a client on its control socket, beside the
    // commands that change the data folder: the tray reads the bar through it.
    bool daemonAnswers = false;
};

// Every command of the program, each declared once by its family with its help, its
// options and its row. The CLI11 tree it builds parses the command line and is what
// the help, the completions and the manual page are written from.
class CommandTable {
public:
    CommandTable(const std::string& about, size_t columns);

    CLI::App& app() { return app_; }
    // A command of the program, or of `parent`, that runs `row`.
    CLI::App* add(const std::string& name, const std::string& help, CommandRow row);
    CLI::App* add(CLI::App* parent, const std::string& name, const std::string& help,
                  CommandRow row);
    // A command that only holds others, one of which must follow it.
    CLI::App* group(const std::string& name, const std::string& help);

    // Storage for options, alive as long as the table, so that parsing can fill it.
    template <class T>
    T& keep(T initial = T{}) {
        auto held = std::make_shared<T>(std::move(initial));
        kept_.push_back(held);
        return *held;
    }

    CommandRow& rowOf(const CLI::App* command) { return rows_.at(command); }

    // Gives every command that uses a data folder, and every group, --data-dir.
    void finish();
    const std::string& dataDir() const { return dataDir_; }
    // The row of the deepest command the parse chose; null when it has none.
    CommandRow* chosen();

private:
    void addDataDir(CLI::App* command);

    std::vector<std::shared_ptr<void>> kept_;
    std::map<const CLI::App*, CommandRow> rows_;
    std::string dataDir_;
    CLI::App app_;
};

// Reads a secret here with `read` and sends it as the command's standard input.
using SecretReader =
    std::function<std::optional<std::string>(const CommandContext&, std::string& problem)>;
bool sendSecret(CommandContext& context, ControlProtocol::Request& request,
                const SecretReader& read);

// The date options take a local day, YYYY-MM-DD.
const CLI::Validator& localDateCheck();

// The families, in the order their commands are listed.
void declareReposCommands(CommandTable& table);
void declareScanCommands(CommandTable& table);
void declareAccountCommands(CommandTable& table);
void declareAlignmentCommands(CommandTable& table);
void declareViewCommands(CommandTable& table);
void declareReportCommands(CommandTable& table);
void declareDoctorCommand(CommandTable& table);
void declareJournalCommand(CommandTable& table);
void declareReminderCommands(CommandTable& table);
void declareProposalCommands(CommandTable& table);
void declareAgentCommands(CommandTable& table);
void declareDashboardCommands(CommandTable& table);
void declareDaemonCommand(CommandTable& table);
void declareServiceCommands(CommandTable& table);
void declareConfigCommands(CommandTable& table);
void declareReferenceCommands(CommandTable& table);

}  // namespace quorvane
