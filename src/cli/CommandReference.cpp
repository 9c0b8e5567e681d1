#include "cli/CommandReference.hpp"

#include <CLI/CLI.hpp>

namespace quorvane {

namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (size_t start = 0;;) {
        size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end - start));
        if (end == std::string_view::npos) return parts;
        start = end + 1;
    }
}

// Names of values that are folders on disk. A repository is named by its folder
// as well as by its id or name, so offering folders for it is what helps.
bool namesFolder(std::string_view valueName) {
    for (std::string_view word : split(valueName, '|')) {
        if (word == "PATH" || word == "DIR" || word == "REPO") return true;
    }
    return false;
}

// CLI11 appends each validator's description to the type name, after a colon; a
// list of allowed values reads "{a,b,c}".
void readTypeName(const std::string& typeName, OptionReference& option) {
    std::vector<std::string_view> parts = split(typeName, ':');
    if (option.valueName.empty() && !parts.empty()) option.valueName = std::string(parts[0]);
    for (size_t i = 1; i < parts.size(); ++i) {
        std::string_view part = parts[i];
        if (part.size() < 2 || part.front() != '{' || part.back() != '}') continue;
        for (std::string_view choice : split(part.substr(1, part.size() - 2), ',')) {
            option.choices.emplace_back(choice);
        }
    }
}

OptionReference describeOption(const CLI::Option& definition) {
    OptionReference option;
    for (const std::string& name : definition.get_snames()) option.names.push_back("-" + name);
    for (const std::string& name : definition.get_lnames()) option.names.push_back("--" + name);
    option.description = definition.get_description();
    option.required = definition.get_required();
    option.repeats = definition.get_items_expected_max() > 1;
    if (definition.get_items_expected_max() == 0) return option;  // a flag
    if (option.positional()) option.valueName = definition.get_name(true);
    readTypeName(definition.get_type_name(), option);
    option.kind = !option.choices.empty()         ? ValueKind::choice
                  : namesFolder(option.valueName) ? ValueKind::directory
                                                  : ValueKind::text;
    return option;
}

CommandReference describe(const CLI::App& app, std::vector<std::string> path) {
    CommandReference command;
    command.path = std::move(path);
    command.description = app.get_description();
    command.footer = app.get_footer();
    command.needsCommand = app.get_require_subcommand_min() > 0;
    for (const CLI::Option* definition : app.get_options()) {
        if (definition->get_group().empty()) continue;  // hidden
        OptionReference option = describeOption(*definition);
        (option.positional() ? command.arguments : command.options).push_back(std::move(option));
    }
    for (const CLI::App* sub : app.get_subcommands({})) {
        // Hidden commands have no group; nameless ones are option groups, not commands.
        if (sub->get_group().empty() || sub->get_name().empty()) continue;
        std::vector<std::string> subPath = command.path;
        subPath.push_back(sub->get_name());
        command.commands.push_back(describe(*sub, std::move(subPath)));
    }
    return command;
}

void collect(const CommandReference& command, std::vector<const CommandReference*>& into) {
    into.push_back(&command);
    for (const CommandReference& sub : command.commands) collect(sub, into);
}

}  // namespace

std::string CommandReference::fullName(const std::string& program) const {
    std::string name = program;
    for (const std::string& word : path) name += " " + word;
    return name;
}

std::string CommandReference::summary() const {
    return description.substr(0, description.find('\n'));
}

CommandReference describeCommands(const CLI::App& app) {
    return describe(app, {});
}

std::vector<const CommandReference*> allCommands(const CommandReference& root) {
    std::vector<const CommandReference*> commands;
    collect(root, commands);
    return commands;
}

}  // namespace quorvane
