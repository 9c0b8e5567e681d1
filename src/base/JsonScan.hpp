#pragma once

#include <cstddef>
#include <string_view>

namespace quorvane {

// Walks JSON text from `pos` without parsing it, showing `visit(pos, c)` every
// character outside a string; a string's content, escaped quotes included, is
// never structure. `visit` returns false to stop there. Returns where the walk
// stopped, or the text's size. Callers use it to look at a value's brackets
// before they hand it to the parser.
template <typename Visit>
size_t scanJsonOutsideStrings(std::string_view text, size_t pos, Visit visit) {
    bool inString = false;
    for (; pos < text.size(); ++pos) {
        char c = text[pos];
        if (inString) {
            if (c == '\\') {
                ++pos;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (!visit(pos, c)) {
            return pos;
        }
    }
    return text.size();
}

}  // namespace quorvane
