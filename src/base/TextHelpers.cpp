#include "base/TextHelpers.hpp"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace quorvane::Text {
namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Length of the valid UTF-8 sequence at the start of `s`, or 0 when it is invalid.
size_t validSequenceLength(std::string_view s) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
    unsigned char lead = byte(0);
    if (lead < 0x80) return 1;
    size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;   // no overlong forms
        if (lead == 0xED) high = 0x9F;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
    } else {
        return 0;
    }
    if (s.size() < length) return 0;
    if (byte(1) < low || byte(1) > high) return 0;
    for (size_t i = 2; i < length; ++i) {
        if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
    }
    return length;
}

// The code point of the valid UTF-8 sequence of `length` bytes at the start of `s`.
char32_t codePoint(std::string_view s, size_t length) {
    auto byte = [&](size_t i) { return static_cast<char32_t>(static_cast<unsigned char>(s[i])); };
    if (length == 1) return byte(0);
    char32_t value = byte(0) & (0xFFu >> (length + 1));
    for (size_t i = 1; i < length; ++i) value = (value << 6) | (byte(i) & 0x3F);
    return value;
}

// Code points that reorder or break what follows them without being seen: C1
// controls (one of them, U+009B, starts an escape sequence on some terminals), the
// bidirectional marks, embeddings, overrides and isolates, and the line and
// paragraph separators.
bool isHiddenCodePoint(char32_t c) {
    return (c >= 0x80 && c <= 0x9F) || c == 0x061C || c == 0x200E || c == 0x200F ||
           (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

// What `visible` writes for the sequence at the start of `s` (its length in
// `length`), or nothing when the sequence is shown as it is.
std::optional<std::string> shownAs(std::string_view s, Lines lines, size_t& length) {
    static constexpr char kHex[] = "0123456789abcdef";
    length = validSequenceLength(s);
    if (length == 0) {
        length = 1;
        auto byte = static_cast<unsigned char>(s.front());
        return std::string{'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]};
    }
    char32_t c = codePoint(s, length);
    if (c < 0x20 || c == 0x7F) {
        if (lines == Lines::many) {
            if (c == '\n' || c == '\t') return std::nullopt;
            if (c == '\r' && s.size() > 1 && s[1] == '\n') return std::string();
        }
        return std::string{'\\', 'x', kHex[c >> 4], kHex[c & 0xF]};
    }
    if (isHiddenCodePoint(c)) {
        return std::string{
            '\\',         'u', kHex[(c >> 12) & 0xF], kHex[(c >> 8) & 0xF], kHex[(c >> 4) & 0xF],
            kHex[c & 0xF]};
    }
    return std::nullopt;
}

// Characters a shell reads as part of a plain word.
bool isPlainWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_@%+=:,./-").find(c) != std::string_view::npos;
}

}  // namespace

std::string_view trim(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::vector<std::string_view> nonEmptyLines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (!line.empty()) lines.push_back(line);
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return lines;
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> pieces;
    size_t pos = 0;
    while (pos < text.size()) {
        while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t')) ++pos;
        size_t start = pos;
        while (pos < text.size() && text[pos] != ' ' && text[pos] != '\t') ++pos;
        if (pos > start) pieces.push_back(text.substr(start, pos - start));
    }
    return pieces;
}

bool isValidUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        size_t length = validSequenceLength(bytes);
        if (length == 0) return false;
        bytes.remove_prefix(length);
    }
    return true;
}

std::string escapeInvalidUtf8(std::string_view bytes) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    while (!bytes.empty()) {
        size_t length = validSequenceLength(bytes);
        if (length == 0) {
            unsigned char byte = static_cast<unsigned char>(bytes.front());
            out += "\\x";
            out += kHex[byte >> 4];
            out += kHex[byte & 0xF];
            bytes.remove_prefix(1);
            continue;
        }
        out.append(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
    return out;
}

std::string repairUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
        size_t length = validSequenceLength(bytes);
        if (length == 0) {
            out += "\xEF\xBF\xBD";
            bytes.remove_prefix(1);
            continue;
        }
        out.append(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
    return out;
}

std::string visible(std::string_view text, Lines lines) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        size_t length = 0;
        if (std::optional<std::string> shown = shownAs(text, lines, length)) {
            out += *shown;
        } else if (text.front() == '\\') {
            // Doubled only where it could be read as the start of a notation above.
            std::string_view next = text.substr(1);
            size_t nextLength = 0;
            bool ambiguous = !next.empty() &&
                             (next.front() == 'x' || next.front() == 'u' || next.front() == '\\' ||
                              shownAs(next, lines, nextLength).has_value());
            out += ambiguous ? "\\\\" : "\\";
        } else {
            out.append(text.substr(0, length));
        }
        text.remove_prefix(length);
    }
    return out;
}

std::string jsonWithHiddenEscaped(std::string_view json) {
    std::string out;
    out.reserve(json.size());
    while (!json.empty()) {
        size_t length = validSequenceLength(json);
        char32_t c = length == 0 ? 0 : codePoint(json, length);
        // Outside strings JSON holds only ASCII punctuation, digits and letters, so
        // every character found here stands inside a string, where "\u" is allowed.
        if (length != 0 && (c == 0x7F || isHiddenCodePoint(c))) {
            out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        } else {
            out.append(json.substr(0, std::max<size_t>(length, 1)));
        }
        json.remove_prefix(std::max<size_t>(length, 1));
    }
    return out;
}

std::string commandLine(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        if (!line.empty()) line += ' ';
        std::string shown = visible(word);
        if (!shown.empty() && std::all_of(shown.begin(), shown.end(), isPlainWordCharacter)) {
            line += shown;
            continue;
        }
        line += '\'';
        for (char c : shown) line += c == '\'' ? std::string("'\\''") : std::string(1, c);
        line += '\'';
    }
    return line;
}

bool parseInt(std::string_view text, long long& value) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty()) return false;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    return ec == std::errc() && end == text.data() + text.size();
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::optional<std::string> nearestName(std::string_view typed,
                                       const std::vector<std::string>& names) {
    std::optional<std::string> best;
    size_t bestDistance = 3;
    for (const std::string& name : names) {
        if (!typed.empty() && name.starts_with(typed)) return name;
        // Lengths that far apart are at least that many edits apart: skipping them
        // keeps a name of any length from costing its length times each name's.
        const size_t apart = typed.size() > name.size() ? typed.size() - name.size()
                                                        : name.size() - typed.size();
        if (apart >= bestDistance) continue;
        size_t distance = editDistance(typed, name);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = name;
        }
    }
    return best;
}

std::string escapeMarkup(std::string_view text) {
    std::string escaped;
    for (char c : text) {
        switch (c) {
            case '&': escaped += "&amp;"; break;
            case '<': escaped += "&lt;"; break;
            case '>': escaped += "&gt;"; break;
            default: escaped += c;
        }
    }
    return escaped;
}

}  // namespace quorvane::Text
