#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/CommandReference.hpp"

namespace quorvane {

// A term and what it means, as a FILES or ENVIRONMENT entry.
struct ManualEntry {
    std::string term;
    std::string text;
};

// What the manual page says beyond the commands themselves.
struct ManualText {
    std::string summary;  // the NAME line after the dash: what the program does
    std::string source;   // the footer's source, such as "quorvane 0.1.0"
    std::vector<ManualEntry> files;
    std::vector<ManualEntry> environment;
    std::vector<std::string> seeAlso;  // "git(1)"
};

namespace ManualPage {

// The section 1 manual page of `program` in roff (man macros): its synopsis, the
// program's description, its options, every command with its whole description,
// options and arguments, then `text`'s sections and the examples from the
// program's help footer (each "  program ...  what it does" line).
std::string write(const CommandReference& root, const std::string& program, const ManualText& text);

// `text` as roff input text: backslashes, hyphens, quotes and a dot or an
// apostrophe that would start a request are escaped, other characters beyond
// ASCII are written by their code point.
std::string escape(std::string_view text);

}  // namespace ManualPage
}  // namespace quorvane
