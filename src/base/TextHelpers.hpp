#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::Text {

// Drops leading and trailing spaces, tabs and line ends.
std::string_view trim(std::string_view text);

// Splits on "\n" (a "\r" before it is dropped too), leaving out empty lines.
std::vector<std::string_view> nonEmptyLines(std::string_view text);

// Splits on any run of spaces and tabs, leaving out empty pieces.
std::vector<std::string_view> words(std::string_view text);

// Whether `bytes` is valid UTF-8 throughout.
bool isValidUtf8(std::string_view bytes);

// `bytes` with every byte of an invalid sequence written as "\xNN", for showing a
// name that is not UTF-8 without losing which bytes it holds.
std::string escapeInvalidUtf8(std::string_view bytes);

// Returns `bytes` as valid UTF-8: each invalid or truncated sequence becomes U+FFFD.
std::string repairUtf8(std::string_view bytes);

// Whether a text shown by `visible` is one line (a name, a subject, an argument)
// or may run over several (a journal note, a summary).
enum class Lines { one, many };

// `text`, which came from a repository, GitHub or an agent, as it may reach a
// terminal or a report: nothing in it can move the cursor, erase a line, change
// colours, retitle the window or reorder what a person reads, and every such
// character shows where it was:
// - C0 controls and DEL as "\x1b": the byte, two lower-case hex digits; so too each
//   byte that is not part of valid UTF-8;
// - C1 controls (U+0080 to U+009F), the bidirectional marks, embeddings,
//   overrides and isolates (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to
//   U+2069) and the line and paragraph separators as "\u202e": the code point,
//   four lower-case hex digits.
// With Lines::many, line feeds and tabs stay, since they only lay a note out and
// cannot write over anything, and a carriage return just before a line feed goes,
// leaving a plain line end; every other control shows.
// A backslash of the text stays single except before "x", "u", another backslash
// or a character shown as above, where it is written "\\". So ordinary text (a
// regular expression in a subject) reads unchanged, and every "\x" or "\u" that is
// not after a doubled backslash is one of these: the result reads back one way.
// Apply it once, where the text is shown: applied twice, its own backslashes double.
std::string visible(std::string_view text, Lines lines = Lines::one);

// `words` as one command line for a person to read before it runs: each word as
// `visible` shows it, and in single quote marks, with each mark inside written as
// '\'', when it holds anything but letters, digits and "_@%+=:,./-". A word that
// needs no quoting (a path without blanks, an option) reads as typed.
std::string commandLine(const std::vector<std::string>& words);

// JSON text as printed for a person or a file: DEL and the code points `visible`
// writes as "\u202e" become JSON escapes of their own, which read back to the same
// value. The JSON printer leaves them raw, and a terminal would obey them.
std::string jsonWithHiddenEscaped(std::string_view json);

// Reads an optional sign followed by decimal digits and nothing else.
bool parseInt(std::string_view text, long long& value);

// ASCII letters in lower case, every other byte as it is: for names that compare
// without case the way git and GitHub compare them.
std::string asciiLower(std::string_view text);

// The text as the content of an HTML element or a desktop notification's markup
// that shows it as written: "&", "<" and ">" as entities. Not for an attribute.
std::string escapeMarkup(std::string_view text);

// How many single-character edits turn `a` into `b`.
size_t editDistance(std::string_view a, std::string_view b);

// The name `typed` most likely meant: the first that `typed` starts, or else the
// nearest within two edits; nothing when none is close.
std::optional<std::string> nearestName(std::string_view typed,
                                       const std::vector<std::string>& names);

}  // namespace quorvane::Text
