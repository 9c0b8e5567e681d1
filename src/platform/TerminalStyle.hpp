#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace quorvane {

// How plain-text output is laid out for the person reading it: with colour or
// without, and how many columns a line may take.
struct TerminalStyle {
    bool color = false;
    size_t columns = 80;

    bool operator==(const TerminalStyle&) const = default;
};

// The width assumed when nothing better is known, as on a pipe.
inline constexpr size_t kDefaultColumns = 80;

// What the decision rests on, gathered from a process's standard output and its
// environment. An unset variable is an empty view.
struct TerminalFacts {
    bool isTerminal = false;              // standard output is a terminal
    std::optional<size_t> windowColumns;  // the terminal's width, when it tells one
    std::string_view noColor;             // NO_COLOR
    std::string_view term;                // TERM
    std::string_view columns;             // COLUMNS
};

// Colour only on a terminal that can show it: never with NO_COLOR set to anything
// but the empty text, nor with TERM unset or "dumb". The width is the terminal's,
// else a sensible COLUMNS, else kDefaultColumns.
TerminalStyle decideTerminalStyle(const TerminalFacts& facts);

// The width the terminal on `fd` reports; nothing when `fd` is no terminal or it
// reports none.
std::optional<size_t> terminalColumns(int fd);

// The decision for this process's standard output and environment. Kept apart from
// the commands, which see only its result, so that whoever runs a command for
// someone else can decide it where that person's terminal is.
TerminalStyle detectTerminal();

}  // namespace quorvane
