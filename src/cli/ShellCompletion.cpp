#include "cli/ShellCompletion.hpp"

#include <cctype>

#include <fmt/format.h>

namespace quorvane::ShellCompletion {

namespace {

// A shell function name made from the program and the command's words.
std::string functionName(const std::string& program, const CommandReference& command) {
    std::string name = "_" + program;
    for (const std::string& word : command.path) name += "_" + word;
    for (char& c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    return name;
}

// Text in single quotes for bash and zsh, which take nothing inside them literally
// but the closing quote.
std::string shellQuoted(std::string_view text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    return out + "'";
}

// Text in single quotes for fish, where a backslash escapes a quote or itself.
std::string fishQuoted(std::string_view text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'' || c == '\\') out += '\\';
        out += c;
    }
    return out + "'";
}

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words) out += (out.empty() ? "" : " ") + word;
    return out;
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

std::vector<std::string> commandNames(const CommandReference& command) {
    std::vector<std::string> names;
    for (const CommandReference& sub : command.commands) names.push_back(sub.path.back());
    return names;
}

std::vector<std::string> optionNames(const CommandReference& command) {
    std::vector<std::string> names;
    for (const OptionReference& option : command.options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

// How the bash script completes a value: "dir", "choice WORD...", or "text".
std::string bashValue(const OptionReference& option) {
    switch (option.kind) {
        case ValueKind::none: return "";
        case ValueKind::text: return "text";
        case ValueKind::choice: return "choice " + joined(option.choices);
        case ValueKind::directory: return "dir";
    }
    return "";
}

// Text inside the brackets of a zsh option description.
std::string zshExplanation(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '[' || c == ']' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

// A part of a zsh option description between colons, or a name in a _describe list.
std::string zshField(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == ':' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

// ":MESSAGE:ACTION", what zsh offers for an option's or an argument's value.
std::string zshValue(const OptionReference& option) {
    std::string message = zshField(option.valueName.empty() ? "value" : option.valueName);
    switch (option.kind) {
        case ValueKind::none: return "";
        case ValueKind::text: return ":" + message + ": ";
        case ValueKind::directory: return ":" + message + ":_directories";
        case ValueKind::choice: {
            std::string words;
            for (const std::string& choice : option.choices) {
                if (!words.empty()) words += ' ';
                for (char c : choice) {
                    if (!std::isalnum(static_cast<unsigned char>(c))) words += '\\';
                    words += c;
                }
            }
            return ":" + message + ":(" + words + ")";
        }
    }
    return "";
}

std::string zshArguments(const CommandReference& command) {
    std::string arguments;
    auto add = [&arguments](const std::string& entry) {
        arguments += " \\\n        " + shellQuoted(entry);
    };
    for (const OptionReference& option : command.options) {
        for (const std::string& name : option.names) {
            // A long option's value may follow "=" or come as the next word.
            std::string takes = option.kind == ValueKind::none ? ""
                                : name.starts_with("--")       ? "="
                                                               : "+";
            add(name + takes + "[" + zshExplanation(firstLine(option.description)) + "]" +
                zshValue(option));
        }
    }
    for (size_t i = 0; i < command.arguments.size(); ++i) {
        const OptionReference& argument = command.arguments[i];
        std::string position = argument.repeats ? "*" : std::to_string(i + 1);
        add(position + (argument.required || argument.repeats ? "" : ":") + zshValue(argument));
    }
    if (!command.commands.empty()) {
        // Offered as the first argument even where it may be left out: an optional
        // one would lose the word to the rest-of-the-line description below.
        add(": :->command");
        add("*:: :->argument");
    }
    return arguments;
}

// What a fish `complete` line offers for a value: " -a WORDS", or nothing.
std::string fishOffer(const OptionReference& option) {
    switch (option.kind) {
        case ValueKind::none:
        case ValueKind::text: return "";
        case ValueKind::directory: return " -a '(__fish_complete_directories)'";
        case ValueKind::choice: return " -a " + fishQuoted(joined(option.choices));
    }
    return "";
}

}  // namespace

std::string bash(const CommandReference& root, const std::string& program) {
    std::vector<const CommandReference*> commands = allCommands(root);
    const std::string fn = functionName(program, root);

    std::string subcommandCases, optionCases, valueCases, argumentCases;
    for (const CommandReference* command : commands) {
        std::string key = joined(command->path);  // "repos add"; empty for the program
        if (!command->commands.empty()) {
            subcommandCases += fmt::format("        {}) echo {} ;;\n", shellQuoted(key),
                                           shellQuoted(joined(commandNames(*command))));
        }
        optionCases += fmt::format("        {}) echo {} ;;\n", shellQuoted(key),
                                   shellQuoted(joined(optionNames(*command))));
        for (const OptionReference& option : command->options) {
            if (option.kind == ValueKind::none) continue;
            for (const std::string& name : option.names) {
                valueCases += fmt::format("        {}) echo {} ;;\n", shellQuoted(key + ":" + name),
                                          shellQuoted(bashValue(option)));
            }
        }
        for (size_t i = 0; i < command->arguments.size(); ++i) {
            const OptionReference& argument = command->arguments[i];
            // Only the last argument can take many values: every later word is one.
            argumentCases += fmt::format("        {}{}) echo {} ;;\n", shellQuoted(key + ":"),
                                         argument.repeats ? "*" : std::to_string(i),
                                         shellQuoted(bashValue(argument)));
        }
    }

    return fmt::format(
        R"SCRIPT(# bash completion for {program}                            -*- shell-script -*-
# Written by '{program} completion bash' from the program's own command definitions.

# The subcommands of the command whose words are $1 ("" for {program} itself).
{fn}_commands() {{
    case $1 in
{subcommands}    esac
}}

# The options of the command whose words are $1.
{fn}_options() {{
    case $1 in
{options}    esac
}}

# How the value of option $2 of command $1 is completed: "dir", "choice WORD...",
# or "text"; nothing when the option takes no value.
{fn}_value() {{
    case $1:$2 in
{values}    esac
}}

# How argument number $2 (from 0) of command $1 is completed, as {fn}_value says.
{fn}_argument() {{
    case $1:$2 in
{arguments}    esac
}}

{fn}() {{
    local cur=${{COMP_WORDS[COMP_CWORD]}} path="" word kind="" commands i arguments=0
    # After "--option=" bash makes "=" a word of its own; the value comes after it.
    [[ $cur == "=" ]] && cur=""
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${{COMP_WORDS[i]}}
        if [[ $word == -* ]]; then
            kind=$({fn}_value "$path" "$word")
            [[ -z $kind ]] && continue
            [[ ${{COMP_WORDS[i + 1]}} == "=" ]] && ((i++))
            ((i + 1 >= COMP_CWORD)) && break
            kind=""
            ((i++))
            continue
        fi
        commands=" $({fn}_commands "$path") "
        if [[ $commands == *" $word "* ]]; then
            path=${{path:+$path }}$word
            arguments=0
        else
            ((arguments++))
        fi
    done

    if [[ -z $kind ]]; then
        if [[ $cur == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$({fn}_options "$path")" -- "$cur")
            return
        fi
        commands=$({fn}_commands "$path")
        if [[ -n $commands ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur")
            return
        fi
        kind=$({fn}_argument "$path" "$arguments")
    fi
    case $kind in
        dir)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            ;;
        choice\ *)
            mapfile -t COMPREPLY < <(compgen -W "${{kind#choice }}" -- "$cur")
            ;;
        *) COMPREPLY=() ;;
    esac
}}

complete -F {fn} {program}
)SCRIPT",
        fmt::arg("program", program), fmt::arg("fn", fn), fmt::arg("subcommands", subcommandCases),
        fmt::arg("options", optionCases), fmt::arg("values", valueCases),
        fmt::arg("arguments", argumentCases));
}

std::string zsh(const CommandReference& root, const std::string& program) {
    std::string functions;
    for (const CommandReference* command : allCommands(root)) {
        std::string fn = functionName(program, *command);
        if (command->commands.empty()) {
            functions +=
                fmt::format("{}() {{\n    _arguments -S{}\n}}\n\n", fn, zshArguments(*command));
            continue;
        }
        std::string described, dispatch;
        for (const CommandReference& sub : command->commands) {
            described += fmt::format("                {}\n",
                                     shellQuoted(zshField(sub.path.back()) + ":" + sub.summary()));
            dispatch += fmt::format("                ({}) {} ;;\n", sub.path.back(),
                                    functionName(program, sub));
        }
        functions += fmt::format(
            R"SCRIPT({fn}() {{
    local curcontext=$curcontext state state_descr line
    typeset -A opt_args
    _arguments -C -S{arguments}
    case $state in
        (command)
            local -a commands=(
{described}            )
            _describe -t commands {title} commands
            ;;
        (argument)
            curcontext=${{curcontext%:*:*}}:{name}-$words[1]:
            case $words[1] in
{dispatch}            esac
            ;;
    esac
}}

)SCRIPT",
            fmt::arg("fn", fn), fmt::arg("arguments", zshArguments(*command)),
            fmt::arg("described", described),
            fmt::arg("title", shellQuoted(command->fullName(program) + " command")),
            fmt::arg("name", fn.substr(1)), fmt::arg("dispatch", dispatch));
    }
    std::string rootFunction = functionName(program, root);
    return fmt::format(
        R"SCRIPT(#compdef {program}
# zsh completion for {program}
# Written by '{program} completion zsh' from the program's own command definitions.

{functions}# Loaded from fpath this file is the body of {fn}; sourced, it registers it.
if [[ $funcstack[1] == {fn} ]]; then
    {fn} "$@"
else
    compdef {fn} {program}
fi
)SCRIPT",
        fmt::arg("program", program), fmt::arg("functions", functions),
        fmt::arg("fn", rootFunction));
}

std::string fish(const CommandReference& root, const std::string& program) {
    std::vector<const CommandReference*> commands = allCommands(root);
    const std::string fn = "_" + functionName(program, root);

    std::string subcommandCases, valueCases, completions;
    for (const CommandReference* command : commands) {
        std::string key = command->fullName(program);
        std::string at = fishQuoted(fmt::format("{}_at \"{}\"", fn, key));
        if (!command->commands.empty()) {
            subcommandCases += fmt::format("        case {}\n            printf '%s\\n' {}\n",
                                           fishQuoted(key), joined(commandNames(*command)));
        }
        for (const CommandReference& sub : command->commands) {
            completions += fmt::format("complete -c {} -n {} -a {} -d {}\n", program, at,
                                       fishQuoted(sub.path.back()), fishQuoted(sub.summary()));
        }
        for (const OptionReference& option : command->options) {
            std::string names;
            for (const std::string& name : option.names) {
                bool isLong = name.starts_with("--");
                names += fmt::format(" {} {}", isLong ? "-l" : "-s", name.substr(isLong ? 2 : 1));
                if (option.kind != ValueKind::none) {
                    valueCases += fmt::format(" {}", fishQuoted(key + " " + name));
                }
            }
            // -x: the option needs a value, and no file names are offered for it.
            std::string value = option.kind == ValueKind::none ? "" : " -x" + fishOffer(option);
            completions += fmt::format("complete -c {} -n {}{}{} -d {}\n", program, at, names,
                                       value, fishQuoted(firstLine(option.description)));
        }
        for (const OptionReference& argument : command->arguments) {
            std::string offer = fishOffer(argument);
            if (offer.empty()) continue;
            completions += fmt::format("complete -c {} -n {}{} -d {}\n", program, at, offer,
                                       fishQuoted(argument.valueName));
        }
    }
    return fmt::format(
        R"SCRIPT(# fish completion for {program}
# Written by '{program} completion fish' from the program's own command definitions.

# The subcommands of the command $argv[1], such as "{program} repos".
function {fn}_commands
    switch $argv[1]
{subcommands}    end
end

# Whether "$argv[1] $argv[2]" is an option that takes a value.
function {fn}_takes_value
    switch "$argv[1] $argv[2]"
{values}    end
    return 1
end

# The command being completed, such as "{program} repos add": the command words
# typed so far, without the options and their values.
function {fn}_command
    set -l path {program}
    set -l tokens (commandline -opc)
    set -e tokens[1]
    set -l skip 0
    for token in $tokens
        if test $skip -eq 1
            set skip 0
        else if string match -q -- '-*' $token
            if not string match -q -- '*=*' $token; and {fn}_takes_value "$path" $token
                set skip 1
            end
        else if contains -- $token ({fn}_commands "$path")
            set -a path $token
        end
    end
    echo $path
end

function {fn}_at
    test ({fn}_command) = "$argv[1]"
end

complete -c {program} -f
{completions})SCRIPT",
        fmt::arg("program", program), fmt::arg("fn", fn), fmt::arg("subcommands", subcommandCases),
        fmt::arg("values", valueCases.empty()
                               ? std::string()
                               : "        case" + valueCases + "\n            return 0\n"),
        fmt::arg("completions", completions));
}

}  // namespace quorvane::ShellCompletion
