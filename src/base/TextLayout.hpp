#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Text laid out in terminal columns. Widths count what a terminal shows: escape
// sequences (colour) take no column, East Asian wide and full-width characters
// take two, combining marks and other zero-width characters none, and any other
// code point one. Nothing here ever splits a UTF-8 sequence or an escape sequence,
// nor separates a combining mark from the character it belongs to.
namespace quorvane::TextLayout {

// The horizontal ellipsis that marks where text was cut.
inline constexpr std::string_view kEllipsis = "…";

size_t visibleWidth(std::string_view text);

// `text` unchanged when it fits in `width` columns; otherwise its start and "…".
// Escape sequences are all kept, so colour is still switched off at the end.
std::string cutEnd(std::string_view text, size_t width);

// `text` unchanged when it fits; otherwise its start, "…" and its end, the end
// given the larger half: for paths, whose last folders say the most.
std::string cutMiddle(std::string_view text, size_t width);

// Where wrapped text prefers to break: at any space, or, for a list such as
// "2 modified, 1 staged", after a comma, so that each item stays on one line
// when it can.
enum class Breaks { words, items };

// `text` broken into lines of at most `width` columns at spaces; a word wider
// than a line is broken where it must be. A colour that runs across a break is
// switched off at the end of the line and on again at the start of the next, so
// that padding and neighbouring columns stay uncoloured.
std::vector<std::string> wrap(std::string_view text, size_t width, Breaks breaks = Breaks::words);

// A shell command broken at the spaces between its words (never inside quotes)
// into lines of at most `width` columns, each line but the last ending in a space
// and a backslash, so that the lines pasted into a shell still run as one command. A word
// wider than a line keeps its own line whole.
std::vector<std::string> wrapCommand(std::string_view command, size_t width);

// How a table column gives way when the table is wider than the screen.
enum class Shrink {
    never,      // kept whole, as for dates, counts and statuses
    cutEnd,     // names and messages: the start and "…"
    cutMiddle,  // paths: the start, "…" and the end
    wrap,       // descriptions: onto more lines within the column
    wrapItems,  // comma-separated lists: onto more lines, an item to a line if need be
};

struct TableFit {
    size_t width = 0;  // the most columns a line may take; 0 for no limit
    // Per column, left to right; a column without an entry never gives way.
    std::vector<Shrink> shrink;
    // The first row names the columns: a column that is cut keeps its name whole.
    bool header = false;
    // The last column holds notes, such as an error: a note stands at the end of
    // its row when the row has room for it, and on lines of its own below the row,
    // indented, when not. The other columns are fitted without it, and the notes
    // line up past the widest row that has one.
    bool lastColumnIsNote = false;
};

// The fewest columns a column that gives way keeps (or its whole width, if less):
// a cut name still shows its start, a cut path both ends, and a wrapped column
// its longest word up to the wrapping limit, so that words break only when long.
inline constexpr size_t kNarrowestCut = 6;
inline constexpr size_t kNarrowestMiddleCut = 12;
inline constexpr size_t kNarrowestWrapLimit = 12;

// Columns padded to their widest cell, two spaces apart, no trailing blanks. When
// that is wider than `fit.width`, the widest column that may give way loses a
// column at a time until the table fits or none can give more.
std::vector<std::string> layoutTable(const std::vector<std::vector<std::string>>& rows,
                                     const TableFit& fit = {});

}  // namespace quorvane::TextLayout
