#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace quorvane {

// What a value given on the command line is, so a shell can offer the right words.
enum class ValueKind {
    none,       // a flag: it takes no value
    text,       // anything; nothing to offer
    choice,     // one of `choices`
    directory,  // a folder (or a repository, which is named by its folder)
};

// One option or positional argument of a command, as its definition declares it.
struct OptionReference {
    std::vector<std::string> names;  // "-h", "--help"; empty for a positional argument
    std::string valueName;           // "DIR", "PATH"; empty for a flag
    std::string description;
    std::vector<std::string> choices;  // the only values it takes, when it lists them
    ValueKind kind = ValueKind::none;
    bool required = false;
    bool repeats = false;  // takes any number of values, as PATH... does

    bool positional() const { return names.empty(); }
};

// One command and the commands below it: everything the shell completions and
// the manual page say about it. Hidden commands are left out.
struct CommandReference {
    std::vector<std::string> path;           // {"repos", "add"}; empty for the program itself
    std::string description;                 // the first line is its summary
    std::vector<OptionReference> options;    // named options, in definition order
    std::vector<OptionReference> arguments;  // positional arguments, in order
    std::vector<CommandReference> commands;  // visible subcommands, in definition order
    bool needsCommand = false;               // one of `commands` must follow
    std::string footer;                      // the program's examples live here

    // "quorvane repos add"; `program` alone for the program.
    std::string fullName(const std::string& program) const;
    std::string summary() const;
};

// Reads the commands, options and arguments of `app` and every visible command
// below it, with the value each option takes and what kind of value that is.
CommandReference describeCommands(const CLI::App& app);

// Every command of `root`, itself first, each before the commands below it.
std::vector<const CommandReference*> allCommands(const CommandReference& root);

}  // namespace quorvane
