#include "base/TextHelpers.hpp"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

using namespace std::string_literals;

// Reads `visible`'s notation back, the way a person would: "\\" is a backslash,
// "\xNN" a byte, "\uNNNN" a code point, and any other backslash itself.
std::string readBack(std::string_view shown) {
    std::string out;
    for (size_t i = 0; i < shown.size(); ++i) {
        if (shown[i] != '\\' || i + 1 == shown.size()) {
            out += shown[i];
        } else if (shown[i + 1] == '\\') {
            out += '\\';
            ++i;
        } else if (shown[i + 1] == 'x') {
            out += static_cast<char>(std::stoi(std::string(shown.substr(i + 2, 2)), nullptr, 16));
            i += 3;
        } else if (shown[i + 1] == 'u') {
            auto c =
                static_cast<unsigned>(std::stoi(std::string(shown.substr(i + 2, 4)), nullptr, 16));
            if (c < 0x800) {
                out += static_cast<char>(0xC0 | (c >> 6));
            } else {
                out += static_cast<char>(0xE0 | (c >> 12));
                out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            }
            out += static_cast<char>(0x80 | (c & 0x3F));
            i += 5;
        } else {
            out += '\\';
        }
    }
    return out;
}

// Whether a terminal could take anything in `text` as a control or a reordering.
bool holdsHiddenCharacter(std::string_view text) {
    for (std::string_view hidden :
         {"\x7f"s, "\xc2\x80"s, "\xc2\x9b"s, "\xc2\x9f"s, "\xd8\x9c"s, "\xe2\x80\x8e"s,
          "\xe2\x80\x8f"s, "\xe2\x80\xa8"s, "\xe2\x80\xa9"s, "\xe2\x80\xaa"s, "\xe2\x80\xae"s,
          "\xe2\x81\xa6"s, "\xe2\x81\xa9"s}) {
        if (text.find(hidden) != std::string_view::npos) return true;
    }
    for (char c : text) {
        if (static_cast<unsigned char>(c) < 0x20) return true;
    }
    return !Text::isValidUtf8(text);
}

TEST(TextHelpersTest, VisibleShowsEveryControlAndReorderingAndReadsBackOneWay) {
    using Text::visible;
    // Ordinary text, a lone backslash among it included, is shown as it is.
    for (std::string_view plain :
         {"Fix the parser",
          "naïve café, 日本語, \xc2\xa0, and a joined \xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x92\xbb",
          R"(match \d+\s*)", R"(C:\Program Files\ trailing \)",
          "beside the hidden ones: \xe2\x80\xa7 \xe2\x80\xaf \xe2\x81\xaa \xc2\xa0"}) {
        EXPECT_EQ(visible(plain), plain);
    }
    // What a hostile subject or argument carries.
    EXPECT_EQ(visible("\x1b[2K\r\x1b[1AArguments: {}"), R"(\x1b[2K\x0d\x1b[1AArguments: {})");
    EXPECT_EQ(visible("\x1b]0;title\x07"), R"(\x1b]0;title\x07)");
    EXPECT_EQ(visible("a\tb\nc\x7f"s + '\0'), R"(a\x09b\x0ac\x7f\x00)");
    EXPECT_EQ(visible("\xc2\x9b"
                      "31m \xc2\x85"),
              R"(\u009b31m \u0085)");
    EXPECT_EQ(visible("txt.\xe2\x80\xae"
                      "exe \xe2\x81\xa6x\xe2\x81\xa9 \xe2\x80\x8f\xd8\x9c"),
              R"(txt.\u202eexe \u2066x\u2069 \u200f\u061c)");
    EXPECT_EQ(visible("one\xe2\x80\xa8two\xe2\x80\xa9"), R"(one\u2028two\u2029)");
    EXPECT_EQ(visible("bad \xff\xe2\x80 end"), R"(bad \xff\xe2\x80 end)");
    // A backslash that could start a notation is doubled, and only that one.
    EXPECT_EQ(visible(R"(\x1b is not ESC, \u202e no override)"),
              R"(\\x1b is not ESC, \\u202e no override)");
    EXPECT_EQ(visible("\\\x1b \\\\ \\"), R"(\\\x1b \\\ \)");
    // Notes keep their lines and indentation, nothing else.
    EXPECT_EQ(visible("first\r\n\tsecond\rthird\x1b[2J\n", Text::Lines::many),
              "first\n\tsecond\\x0dthird\\x1b[2J\n");

    for (std::string_view hostile :
         {"\x1b[2K\r\x1b[1A"s, "\\x1b\x1b\\\\\x1b\\"s, "\\\xc2\x9b\\u\\"s, "a\\\nb"s,
          "\xe2\x80\xae\\\xe2\x80\xae"s, "\\\\x41"s, "x\0y\\\x7f"s}) {
        std::string shown = visible(hostile);
        EXPECT_FALSE(holdsHiddenCharacter(shown)) << shown;
        EXPECT_EQ(readBack(shown), hostile) << shown;
    }
}

TEST(TextHelpersTest, ACommandLineQuotesOnlyWordsThatNeedItAndShowsTheirControls) {
    EXPECT_EQ(Text::commandLine({"/usr/bin/git", "-C", "/home/me/code/api", "push", "origin",
                                 "feature/x-1.2@v=3,b+c:d%"}),
              "/usr/bin/git -C /home/me/code/api push origin feature/x-1.2@v=3,b+c:d%");
    EXPECT_EQ(Text::commandLine({"git", "-C", "/home/me/my repo", "push", "it's\x1b[1A", ""}),
              R"(git -C '/home/me/my repo' push 'it'\''s\x1b[1A' '')");
    EXPECT_EQ(Text::commandLine({"a;rm -rf ~", "$(x)", "naïve"}), R"('a;rm -rf ~' '$(x)' 'naïve')");
}

}  // namespace
}  // namespace quorvane
