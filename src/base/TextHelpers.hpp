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

// Reads an optional sign followed by decimal digits and nothing else.
bool parseInt(std::string_view text, long long& value);

// ASCII letters in lower case, every other byte as it is: for names that compare
// without case the way git and GitHub compare them.
std::string asciiLower(std::string_view text);

// How many single-character edits turn `a` into `b`.
size_t editDistance(std::string_view a, std::string_view b);

// The name `typed` most likely meant: the first that `typed` starts, or else the
// nearest within two edits; nothing when none is close.
std::optional<std::string> nearestName(std::string_view typed,
                                       const std::vector<std::string>& names);

}  // namespace quorvane::Text
