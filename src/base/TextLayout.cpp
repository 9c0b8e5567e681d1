#include "base/TextLayout.hpp"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <optional>

namespace quorvane::TextLayout {
namespace {

constexpr char kEscape = '\x1b';
constexpr std::string_view kReset = "\x1b[0m";

// One thing a terminal draws in one place (a character with any combining marks
// that follow it), or one escape sequence, which it draws nowhere.
struct Piece {
    size_t begin = 0;
    size_t end = 0;
    size_t width = 0;
    bool escape = false;
    bool space = false;    // a plain ASCII space: where lines may break
    bool newline = false;  // where a line must break
};

// The length of the escape sequence at the start of `s`: a control sequence
// ("ESC [" ... final byte), an operating system command ("ESC ]" ... BEL or
// "ESC \"), or ESC and one more character.
size_t escapeLength(std::string_view s) {
    if (s.size() < 2) return s.size();
    if (s[1] == '[') {
        for (size_t i = 2; i < s.size(); ++i) {
            auto c = static_cast<unsigned char>(s[i]);
            if (c >= 0x40 && c <= 0x7E) return i + 1;
        }
        return s.size();
    }
    if (s[1] == ']') {
        for (size_t i = 2; i < s.size(); ++i) {
            if (s[i] == '\a') return i + 1;
            if (s[i] == kEscape && i + 1 < s.size() && s[i + 1] == '\\') return i + 2;
        }
        return s.size();
    }
    // Never swallow the start of a multibyte character.
    return static_cast<unsigned char>(s[1]) < 0x80 ? 2 : 1;
}

bool isControl(UChar32 c) {
    return (c >= 0 && c < 0x20) || (c >= 0x7F && c < 0xA0);
}

// Marks drawn on the character before them, and characters that are not drawn.
bool joinsPrevious(UChar32 c) {
    if (c < 0 || isControl(c)) return false;
    if (c >= 0x1160 && c <= 0x11FF) return true;  // Hangul vowels and finals join their syllable
    int8_t type = u_charType(c);
    return type == U_NON_SPACING_MARK || type == U_ENCLOSING_MARK || type == U_FORMAT_CHAR;
}

size_t codePointWidth(UChar32 c) {
    if (c < 0) return 1;  // an invalid byte shows as one replacement character
    if (isControl(c) || joinsPrevious(c)) return 0;
    auto eastAsian = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
    return eastAsian == U_EA_WIDE || eastAsian == U_EA_FULLWIDTH ? 2 : 1;
}

std::vector<Piece> pieces(std::string_view text) {
    std::vector<Piece> out;
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    auto length = static_cast<int32_t>(text.size());
    int32_t i = 0;
    while (i < length) {
        auto begin = static_cast<size_t>(i);
        if (text[begin] == kEscape) {
            size_t end = begin + escapeLength(text.substr(begin));
            out.push_back({begin, end, 0, true, false, false});
            i = static_cast<int32_t>(end);
            continue;
        }
        UChar32 c = 0;
        U8_NEXT(bytes, i, length, c);
        auto end = static_cast<size_t>(i);
        if (joinsPrevious(c) && !out.empty() && !out.back().escape && !out.back().newline) {
            out.back().end = end;
            out.back().space = false;
            continue;
        }
        out.push_back({begin, end, codePointWidth(c), false, c == ' ', c == '\n'});
    }
    return out;
}

size_t widthOf(const std::vector<Piece>& list) {
    size_t width = 0;
    for (const Piece& piece : list) width += piece.width;
    return width;
}

std::string_view bytesOf(std::string_view text, const Piece& piece) {
    return text.substr(piece.begin, piece.end - piece.begin);
}

// Emits the pieces marked kept and every escape, with one ellipsis where the first
// dropped piece was.
std::string keep(std::string_view text, const std::vector<Piece>& list,
                 const std::vector<bool>& kept, bool ellipsis) {
    std::string out;
    bool marked = !ellipsis;
    for (size_t i = 0; i < list.size(); ++i) {
        if (list[i].escape || kept[i]) {
            out += bytesOf(text, list[i]);
        } else if (!marked) {
            out += kEllipsis;
            marked = true;
        }
    }
    return out;
}

bool isSelectGraphic(std::string_view sequence) {
    return sequence.size() >= 3 && sequence[1] == '[' && sequence.back() == 'm';
}

bool isReset(std::string_view sequence) {
    return sequence == "\x1b[m" || sequence == kReset;
}

// Closes a colour left open at the end of each line and opens it again on the next.
std::vector<std::string> carryColour(std::vector<std::string> lines) {
    std::string open;
    for (std::string& line : lines) {
        std::string active = open;
        std::vector<Piece> list = pieces(line);
        for (const Piece& piece : list) {
            std::string_view sequence = bytesOf(line, piece);
            if (!piece.escape || !isSelectGraphic(sequence)) continue;
            if (isReset(sequence)) {
                active.clear();
            } else {
                active += sequence;
            }
        }
        line = open + line;
        if (!active.empty()) line += kReset;
        open = active;
    }
    return lines;
}

size_t longestWord(std::string_view text) {
    size_t longest = 0, current = 0;
    for (const Piece& piece : pieces(text)) {
        if (piece.space || piece.newline) {
            current = 0;
            continue;
        }
        current += piece.width;
        longest = std::max(longest, current);
    }
    return longest;
}

}  // namespace

size_t visibleWidth(std::string_view text) {
    return widthOf(pieces(text));
}

std::string cutEnd(std::string_view text, size_t width) {
    std::vector<Piece> list = pieces(text);
    if (widthOf(list) <= width) return std::string(text);
    size_t budget = width > 0 ? width - 1 : 0;  // the ellipsis takes one column
    std::vector<bool> kept(list.size(), false);
    size_t used = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        if (list[i].escape) continue;
        if (used + list[i].width > budget) break;
        used += list[i].width;
        kept[i] = true;
    }
    return keep(text, list, kept, width > 0);
}

std::string cutMiddle(std::string_view text, size_t width) {
    std::vector<Piece> list = pieces(text);
    if (widthOf(list) <= width) return std::string(text);
    if (width < 3) return cutEnd(text, width);
    const size_t budget = width - 1;
    std::vector<bool> kept(list.size(), false);
    size_t used = 0, head = 0;
    for (; head < list.size(); ++head) {
        if (list[head].escape) continue;
        if (used + list[head].width > budget / 2) break;
        used += list[head].width;
        kept[head] = true;
    }
    for (size_t i = list.size(); i-- > head;) {
        if (list[i].escape) continue;
        if (used + list[i].width > budget) break;
        used += list[i].width;
        kept[i] = true;
    }
    return keep(text, list, kept, true);
}

std::vector<std::string> wrap(std::string_view text, size_t width, Breaks breaks) {
    std::vector<Piece> list = pieces(text);
    bool multiline =
        std::any_of(list.begin(), list.end(), [](const Piece& p) { return p.newline; });
    if (width == 0 || (!multiline && widthOf(list) <= width)) return {std::string(text)};

    std::vector<std::string> lines;
    std::string line;
    size_t lineWidth = 0;
    bool lineUsed = false;  // something, if only an escape, is on the line
    auto endLine = [&] {
        lines.push_back(line);
        line.clear();
        lineWidth = 0;
        lineUsed = false;
    };
    auto place = [&](const std::vector<Piece>& word) {
        size_t wordWidth = widthOf(word);
        if (lineWidth > 0 && wordWidth > 0 && lineWidth + 1 + wordWidth > width) endLine();
        if (wordWidth <= width) {
            if (lineWidth > 0 && wordWidth > 0) {
                line += ' ';
                ++lineWidth;
            }
            for (const Piece& piece : word) line += bytesOf(text, piece);
            lineWidth += wordWidth;
            lineUsed = true;
            return;
        }
        // Wider than a line: broken between characters, filling each line.
        for (const Piece& piece : word) {
            if (lineWidth + piece.width > width && lineWidth > 0) endLine();
            line += bytesOf(text, piece);
            lineWidth += piece.width;
            lineUsed = true;
        }
    };

    // An item goes to the next line whole when it fits there but not here; one
    // wider than a line is placed word by word.
    std::vector<std::vector<Piece>> item;
    auto placeItem = [&] {
        size_t itemWidth = 0;
        for (const auto& word : item) itemWidth += widthOf(word) + (itemWidth > 0 ? 1 : 0);
        if (lineWidth > 0 && lineWidth + 1 + itemWidth > width && itemWidth <= width) endLine();
        for (const auto& word : item) place(word);
        item.clear();
    };
    auto endsItem = [&](const std::vector<Piece>& word) {
        if (breaks == Breaks::words) return true;
        for (auto it = word.rbegin(); it != word.rend(); ++it) {
            if (!it->escape) return bytesOf(text, *it) == ",";
        }
        return false;
    };

    std::vector<Piece> word;
    auto endWord = [&] {
        if (word.empty()) return;
        item.push_back(word);
        if (endsItem(word)) placeItem();
        word.clear();
    };
    for (const Piece& piece : list) {
        if (piece.space || piece.newline) {
            endWord();
            if (piece.newline) {
                if (!item.empty()) placeItem();
                endLine();
            }
            continue;
        }
        word.push_back(piece);
    }
    endWord();
    if (!item.empty()) placeItem();
    if (lineUsed || lines.empty()) lines.push_back(line);
    return carryColour(std::move(lines));
}

std::vector<std::string> wrapCommand(std::string_view command, size_t width) {
    if (width == 0 || visibleWidth(command) <= width) return {std::string(command)};
    // The words as the shell splits them: quotes hold their spaces.
    std::vector<std::string_view> words;
    char quote = 0;
    size_t start = std::string_view::npos;
    for (size_t i = 0; i < command.size(); ++i) {
        char c = command[i];
        if (quote != 0) {
            if (c == quote) quote = 0;
            if (c == '\\' && quote == '"') ++i;
            continue;
        }
        if (c == ' ') {
            if (start != std::string_view::npos) words.push_back(command.substr(start, i - start));
            start = std::string_view::npos;
            continue;
        }
        if (start == std::string_view::npos) start = i;
        if (c == '\'' || c == '"') quote = c;
        if (c == '\\') ++i;  // the escaped character is part of the word
    }
    if (start != std::string_view::npos) words.push_back(command.substr(start));

    constexpr std::string_view kContinued = " \\";
    std::vector<std::string> lines;
    std::string line;
    for (size_t i = 0; i < words.size(); ++i) {
        std::string_view word = words[i];
        // Room for the continuation mark, unless this is the last word.
        size_t wanted = visibleWidth(line) + 1 + visibleWidth(word) +
                        (i + 1 < words.size() ? kContinued.size() : 0);
        if (!line.empty() && wanted > width) {
            lines.push_back(line + std::string(kContinued));
            line.clear();
        }
        if (!line.empty()) line += ' ';
        line += word;
    }
    lines.push_back(line);
    return lines;
}

namespace {

// A table laid out row by row: each row's lines.
std::vector<std::vector<std::string>> layoutRows(const std::vector<std::vector<std::string>>& rows,
                                                 const TableFit& fit) {
    size_t count = 0;
    for (const auto& row : rows) count = std::max(count, row.size());
    std::vector<size_t> widths(count, 0);
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], visibleWidth(row[i]));
    }
    auto shrinkOf = [&](size_t column) {
        return column < fit.shrink.size() ? fit.shrink[column] : Shrink::never;
    };

    if (fit.width > 0) {
        // Columns empty to the end of the table take no room, not even their gap.
        size_t used = count;
        while (used > 0 && widths[used - 1] == 0) --used;
        size_t total = 0;
        for (size_t i = 0; i < used; ++i) total += widths[i] + (i + 1 < used ? 2 : 0);
        std::vector<size_t> longestWords(count, 0);
        for (const auto& row : rows) {
            for (size_t i = 0; i < row.size(); ++i)
                longestWords[i] = std::max(longestWords[i], longestWord(row[i]));
        }
        std::vector<size_t> floors(count);
        for (size_t i = 0; i < count; ++i) {
            size_t name =
                fit.header && !rows.empty() && i < rows[0].size() ? visibleWidth(rows[0][i]) : 0;
            switch (shrinkOf(i)) {
                case Shrink::never: floors[i] = widths[i]; break;
                case Shrink::cutEnd:
                    floors[i] = std::min(widths[i], std::max(kNarrowestCut, name));
                    break;
                case Shrink::cutMiddle:
                    floors[i] = std::min(widths[i], std::max(kNarrowestMiddleCut, name));
                    break;
                case Shrink::wrap:
                case Shrink::wrapItems:
                    floors[i] = std::min(widths[i], std::min(longestWords[i], kNarrowestWrapLimit));
                    break;
            }
        }
        // The widest column that may give way gives a column, until the table fits;
        // among equals the one further right, which tables keep for the details.
        while (total > fit.width) {
            std::optional<size_t> widest;
            for (size_t i = 0; i < count; ++i) {
                if (widths[i] > floors[i] && (!widest || widths[i] >= widths[*widest])) widest = i;
            }
            if (!widest) break;
            --widths[*widest];
            --total;
        }
    }

    std::vector<std::vector<std::string>> laid;
    for (const auto& row : rows) {
        std::vector<std::string>& lines = laid.emplace_back();
        std::vector<std::vector<std::string>> cells;
        size_t height = 1;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string& cell = row[i];
            switch (shrinkOf(i)) {
                case Shrink::never: cells.push_back({cell}); break;
                case Shrink::cutEnd: cells.push_back({cutEnd(cell, widths[i])}); break;
                case Shrink::cutMiddle: cells.push_back({cutMiddle(cell, widths[i])}); break;
                case Shrink::wrap: cells.push_back(wrap(cell, widths[i])); break;
                case Shrink::wrapItems:
                    cells.push_back(wrap(cell, widths[i], Breaks::items));
                    break;
            }
            height = std::max(height, cells.back().size());
        }
        for (size_t lineIndex = 0; lineIndex < height; ++lineIndex) {
            std::string line;
            for (size_t i = 0; i < cells.size(); ++i) {
                const std::string piece =
                    lineIndex < cells[i].size() ? cells[i][lineIndex] : std::string();
                line += piece;
                if (i + 1 < cells.size()) {
                    size_t shown = visibleWidth(piece);
                    line.append(widths[i] > shown ? widths[i] - shown + 2 : 2, ' ');
                }
            }
            while (!line.empty() && line.back() == ' ') line.pop_back();
            lines.push_back(std::move(line));
        }
    }
    return laid;
}

}  // namespace

std::vector<std::string> layoutTable(const std::vector<std::vector<std::string>>& rows,
                                     const TableFit& fit) {
    std::vector<std::string> lines;
    if (!fit.lastColumnIsNote) {
        for (const auto& row : layoutRows(rows, fit))
            lines.insert(lines.end(), row.begin(), row.end());
        return lines;
    }
    // The notes stand apart: the other columns are fitted without them.
    std::vector<std::vector<std::string>> others;
    size_t count = 0;
    for (const auto& row : rows) count = std::max(count, row.size());
    for (const auto& row : rows) {
        others.emplace_back(row.begin(), row.begin() + static_cast<std::ptrdiff_t>(
                                                           std::min(row.size(), count - 1)));
    }
    std::vector<std::vector<std::string>> laid = layoutRows(others, fit);
    auto noteOf = [&](size_t r) {
        return rows[r].size() == count && count > 0 ? rows[r].back() : std::string();
    };
    // The notes line up just past the widest row that has one; a row without a
    // note does not push them further right.
    size_t noteColumn = 0;
    for (size_t r = 0; r < rows.size(); ++r) {
        if (visibleWidth(noteOf(r)) > 0)
            noteColumn = std::max(noteColumn, visibleWidth(laid[r].front()) + 2);
    }
    for (size_t r = 0; r < rows.size(); ++r) {
        std::vector<std::string> rowLines = laid[r];
        std::string note = noteOf(r);
        size_t noteWidth = visibleWidth(note);
        if (noteWidth > 0 && (fit.width == 0 || noteColumn + noteWidth <= fit.width)) {
            std::string& first = rowLines.front();
            first.append(noteColumn - visibleWidth(first), ' ');
            first += note;
            note.clear();
        }
        lines.insert(lines.end(), rowLines.begin(), rowLines.end());
        if (note.empty()) continue;
        for (const std::string& line : wrap(note, fit.width > 2 ? fit.width - 2 : 1)) {
            lines.push_back("  " + line);
        }
    }
    return lines;
}

}  // namespace quorvane::TextLayout
