#include "cli/ManualPage.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace quorvane::ManualPage {

namespace {

std::vector<std::string_view> lines(std::string_view text) {
    std::vector<std::string_view> out;
    for (size_t start = 0; start <= text.size();) {
        size_t end = std::min(text.find('\n', start), text.size());
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

bool isBlank(std::string_view line) {
    return line.find_first_not_of(" \t") == std::string_view::npos;
}

// Decodes the UTF-8 sequence at `text[i]`, advancing `i` past it; a malformed
// one reads as the replacement character.
char32_t nextCodePoint(std::string_view text, size_t& i) {
    auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
    unsigned char lead = byte(i++);
    int length = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : -1;
    if (length < 0 || i + static_cast<size_t>(length) > text.size()) return U'\uFFFD';
    char32_t code = lead & (0x3F >> length);
    for (int k = 0; k < length; ++k, ++i) {
        if ((byte(i) & 0xC0) != 0x80) return U'\uFFFD';
        code = (code << 6) | (byte(i) & 0x3F);
    }
    return code;
}

// Text in bold or italic, as the tag of an entry.
std::string bold(std::string_view text) {
    return "\\fB" + escape(text) + "\\fR";
}
std::string italic(std::string_view text) {
    return "\\fI" + escape(text) + "\\fR";
}

// A description as roff: its lines are filled into paragraphs, a blank line
// starts a new one, and indented lines (a command to copy) are kept as they are.
// With `summaryFirst` the first line is a paragraph of its own, being a title
// rather than the start of a sentence.
std::string body(std::string_view text, bool summaryFirst) {
    std::string out;
    bool inBlock = false;
    bool paragraphDue = false;
    bool first = true;
    for (std::string_view line : lines(text)) {
        if (isBlank(line)) {
            paragraphDue = !out.empty();
            continue;
        }
        bool indented = line.front() == ' ' || line.front() == '\t';
        if (inBlock && !indented) {
            out += ".fi\n.RE\n";
            inBlock = false;
        }
        if (paragraphDue) {
            out += ".PP\n";
            paragraphDue = false;
        }
        if (indented && !inBlock) {
            out += ".RS\n.nf\n";
            inBlock = true;
        }
        out += escape(indented ? line.substr(line.find_first_not_of(" \t")) : line) + "\n";
        if (first && summaryFirst) paragraphDue = true;
        first = false;
    }
    if (inBlock) out += ".fi\n.RE\n";
    return out;
}

bool sameNames(const OptionReference& a, const OptionReference& b) {
    return a.names == b.names;
}

// The program's own options that every command takes as well (help, the data
// folder): described once, under OPTIONS, rather than under every command.
std::vector<OptionReference> sharedOptions(const CommandReference& root) {
    std::vector<const CommandReference*> commands = allCommands(root);
    std::vector<OptionReference> shared;
    for (const OptionReference& option : root.options) {
        bool everywhere = std::all_of(commands.begin(), commands.end(), [&](auto* command) {
            return std::any_of(command->options.begin(), command->options.end(),
                               [&](const OptionReference& own) { return sameNames(own, option); });
        });
        if (everywhere) shared.push_back(option);
    }
    return shared;
}

std::string optionTag(const OptionReference& option) {
    std::string tag;
    for (const std::string& name : option.names) tag += (tag.empty() ? "" : ", ") + bold(name);
    if (option.positional()) tag = italic(option.valueName);
    if (!option.positional() && option.kind != ValueKind::none)
        tag += " " + italic(option.valueName);
    if (option.repeats) tag += "...";
    return tag;
}

std::string entries(const std::vector<OptionReference>& options) {
    std::string out;
    for (const OptionReference& option : options) {
        out += ".TP\n" + optionTag(option) + "\n" + body(option.description, false);
    }
    return out;
}

// "quorvane accounts add --name NAME [OPTIONS]", with the required options and
// the arguments spelled out.
std::string synopsis(const CommandReference& command, const std::string& program) {
    std::string out = bold(command.fullName(program));
    for (const OptionReference& option : command.options) {
        if (option.required) out += " " + optionTag(option);
    }
    out += " [" + italic("OPTIONS") + "]";
    for (const OptionReference& argument : command.arguments) {
        out += " " + (argument.required ? optionTag(argument) : "[" + optionTag(argument) + "]");
    }
    if (!command.commands.empty()) {
        out += command.needsCommand ? " " + italic("COMMAND") : " [" + italic("COMMAND") + "]";
    }
    return out;
}

// The footer's "  program words   what they do" lines.
std::vector<ManualEntry> examples(const std::string& footer, const std::string& program) {
    std::vector<ManualEntry> out;
    for (std::string_view line : lines(footer)) {
        size_t start = line.find_first_not_of(' ');
        if (start == 0 || start == std::string_view::npos) continue;
        line.remove_prefix(start);
        if (!line.starts_with(program + " ")) continue;
        size_t gap = line.find("  ");
        if (gap == std::string_view::npos) continue;
        std::string_view what = line.substr(gap);
        what.remove_prefix(what.find_first_not_of(' '));
        out.push_back({std::string(line.substr(0, gap)), std::string(what)});
    }
    return out;
}

std::string upper(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

}  // namespace

std::string escape(std::string_view text) {
    std::string out;
    bool lineStart = true;
    for (size_t i = 0; i < text.size();) {
        char c = text[i];
        // A dot opening a line would be read as a request.
        if (lineStart && c == '.') out += "\\&";
        lineStart = c == '\n';
        if (static_cast<unsigned char>(c) >= 0x80) {
            out += fmt::format("\\[u{:04X}]", static_cast<uint32_t>(nextCodePoint(text, i)));
            continue;
        }
        ++i;
        switch (c) {
            case '\\': out += "\\e"; break;
            case '-': out += "\\-"; break;
            case '\'': out += "\\(aq"; break;
            case '`': out += "\\(ga"; break;
            case '"': out += "\\(dq"; break;
            case '~': out += "\\(ti"; break;
            case '^': out += "\\(ha"; break;
            default: out += c;
        }
    }
    return out;
}

std::string write(const CommandReference& root, const std::string& program,
                  const ManualText& text) {
    std::string out = fmt::format(
        ".\\\" The manual of {}, written by '{} manpage' from its command definitions.\n"
        ".TH {} 1 \"\" \"{}\" \"User Commands\"\n"
        // Paths, option names and config keys read best unbroken and unstretched.
        ".nh\n.ad l\n",
        program, program, upper(program), escape(text.source));
    out += ".SH NAME\n" + escape(program) + " \\- " + escape(text.summary) + "\n";
    out += ".SH SYNOPSIS\n" + bold(program) + " [" + italic("OPTIONS") + "] " + italic("COMMAND") +
           " [" + italic("ARGUMENTS") + "]\n";
    out += ".SH DESCRIPTION\n" + body(root.description, false);

    std::vector<OptionReference> shared = sharedOptions(root);
    out += ".SH OPTIONS\n" + entries(root.options);
    if (!shared.empty()) {
        std::string names;
        for (const OptionReference& option : shared) {
            names += (names.empty() ? "" : " and ") + bold(option.names.back());
        }
        out += ".PP\nEvery command takes " + names + " as well.\n";
    }

    out += ".SH COMMANDS\n";
    for (const CommandReference* command : allCommands(root)) {
        if (command == &root) continue;
        out += ".SS " + synopsis(*command, program) + "\n" + body(command->description, true);
        std::vector<OptionReference> own;
        std::copy_if(command->options.begin(), command->options.end(), std::back_inserter(own),
                     [&](const OptionReference& option) {
                         return std::none_of(shared.begin(), shared.end(), [&](auto& common) {
                             return sameNames(common, option);
                         });
                     });
        out += entries(command->arguments) + entries(own);
    }

    auto section = [&out](const std::string& title, const std::vector<ManualEntry>& list,
                          std::string (*tag)(std::string_view)) {
        if (list.empty()) return;
        out += ".SH " + title + "\n";
        for (const ManualEntry& entry : list) {
            out += ".TP\n" + tag(entry.term) + "\n" + body(entry.text, false);
        }
    };
    section("FILES", text.files, italic);
    section("ENVIRONMENT", text.environment, bold);
    section("EXAMPLES", examples(root.footer, program), bold);
    if (!text.seeAlso.empty()) {
        out += ".SH SEE ALSO\n";
        for (size_t i = 0; i < text.seeAlso.size(); ++i) {
            std::string_view page = text.seeAlso[i];
            size_t open = page.find('(');
            out += bold(page.substr(0, open)) + escape(page.substr(std::min(open, page.size()))) +
                   (i + 1 < text.seeAlso.size() ? ",\n" : "\n");
        }
    }
    return out;
}

}  // namespace quorvane::ManualPage
