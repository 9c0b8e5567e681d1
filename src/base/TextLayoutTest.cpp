#include "base/TextLayout.hpp"

#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/TextHelpers.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using TextLayout::Shrink;

constexpr const char* kGreen = "\x1b[32m";
constexpr const char* kYellow = "\x1b[33m";
constexpr const char* kReset = "\x1b[0m";

std::string green(const std::string& text) {
    return kGreen + text + kReset;
}

const std::regex kEscapePattern("\x1b\\[[0-9;]*[A-Za-z]");

std::string withoutEscapes(const std::string& text) {
    return std::regex_replace(text, kEscapePattern, "");
}

size_t escapeCount(const std::string& text) {
    return static_cast<size_t>(
        std::distance(std::sregex_iterator(text.begin(), text.end(), kEscapePattern), {}));
}

std::string spaces(size_t count) {
    return std::string(count, ' ');
}

TEST(TextLayoutTest, WidthCountsWhatATerminalShows) {
    EXPECT_EQ(TextLayout::visibleWidth(""), 0u);
    EXPECT_EQ(TextLayout::visibleWidth("needs push"), 10u);
    EXPECT_EQ(TextLayout::visibleWidth(green("clean")), 5u);
    // A hyperlink: its address is inside an escape and never shows.
    EXPECT_EQ(TextLayout::visibleWidth("\x1b]8;;https://example.com\x1b\\link\x1b]8;;\a"), 4u);
    EXPECT_EQ(TextLayout::visibleWidth("caf\u00e9"), 4u);   // precomposed
    EXPECT_EQ(TextLayout::visibleWidth("cafe\u0301"), 4u);  // with a combining accent
    EXPECT_EQ(TextLayout::visibleWidth("日本語"), 6u);
    EXPECT_EQ(TextLayout::visibleWidth("\uff21\uff71"), 3u);  // full-width A, half-width ka
    EXPECT_EQ(TextLayout::visibleWidth("Everything aligned ✨"), 21u);
    // The box and arrow characters of the views are one column each.
    EXPECT_EQ(TextLayout::visibleWidth("· ░▒▓█ ↑1 ↓2 ↔ … —"), 18u);
    EXPECT_EQ(TextLayout::visibleWidth("a\xff" "b"), 3u);  // an invalid byte shows as one
}

TEST(TextLayoutTest, CuttingKeepsWholeCharactersAndEveryEscape) {
    EXPECT_EQ(TextLayout::cutEnd("feature/login", 13), "feature/login");
    EXPECT_EQ(TextLayout::cutEnd("feature/login", 8), "feature…");
    EXPECT_EQ(TextLayout::cutEnd("日本語のブランチ", 6), "日本…");
    EXPECT_EQ(TextLayout::cutEnd("e\u0301e\u0301e\u0301", 2), "e\u0301…");
    EXPECT_EQ(TextLayout::cutEnd(green("needs commit"), 6), green("needs…"));
    EXPECT_EQ(TextLayout::cutEnd("abc", 0), "");

    const std::string path = "/home/someone/code/clients/very-long-project-name/service";
    EXPECT_EQ(TextLayout::cutMiddle(path, 30), "/home/someone/…ct-name/service");
    EXPECT_EQ(TextLayout::cutMiddle(path, path.size()), path);
    EXPECT_EQ(TextLayout::cutMiddle(green("/srv/projects/alpha"), 10), green("/srv…alpha"));

    // At every width, a cut never splits a character or an escape sequence, and
    // never takes more columns than it was given.
    const std::string mixed = "x日\u00e9" + green("mo\u0301t") + "ｱ𝄞" + std::string(kYellow) +
                              "end" + kReset;
    for (size_t width = 0; width <= 14; ++width) {
        for (const std::string& cut :
             {TextLayout::cutEnd(mixed, width), TextLayout::cutMiddle(mixed, width)}) {
            SCOPED_TRACE(testing::Message() << "width " << width << ": " << cut);
            EXPECT_TRUE(Text::isValidUtf8(cut));
            EXPECT_LE(TextLayout::visibleWidth(cut), width);
            EXPECT_EQ(escapeCount(cut), 4u);
        }
    }
}

TEST(TextLayoutTest, WrappingBreaksAtSpacesAndCarriesColourAcrossLines) {
    EXPECT_THAT(TextLayout::wrap("needs commit, needs push, active", 80),
                ElementsAre("needs commit, needs push, active"));
    EXPECT_THAT(TextLayout::wrap("needs commit, needs push, active", 13),
                ElementsAre("needs commit,", "needs push,", "active"));
    EXPECT_THAT(TextLayout::wrap("2026-03-14 18:58", 10), ElementsAre("2026-03-14", "18:58"));
    // A list keeps each item whole where it can, and fills lines where items fit.
    EXPECT_THAT(TextLayout::wrap("1 modified, 1 staged, 1 untracked, 1 deleted", 14),
                ElementsAre("1 modified, 1", "staged, 1", "untracked, 1", "deleted"));
    EXPECT_THAT(TextLayout::wrap("1 modified, 1 staged, 1 untracked, 1 deleted", 14,
                                 TextLayout::Breaks::items),
                ElementsAre("1 modified,", "1 staged,", "1 untracked,", "1 deleted"));
    EXPECT_THAT(TextLayout::wrap("1 ahead, 2 behind, 3 more", 20, TextLayout::Breaks::items),
                ElementsAre("1 ahead, 2 behind,", "3 more"));
    EXPECT_THAT(TextLayout::wrap("needs commit, a-very-long-status-word", 10,
                                 TextLayout::Breaks::items),
                ElementsAre("needs", "commit,", "a-very-lon", "g-status-w", "ord"));
    // A word longer than a line fills lines of its own.
    EXPECT_THAT(TextLayout::wrap("at /srv/a/very/long/path now", 8),
                ElementsAre("at", "/srv/a/v", "ery/long", "/path", "now"));
    EXPECT_THAT(TextLayout::wrap("first line\nsecond", 40), ElementsAre("first line", "second"));
    // The colour stops at each line's end, so padding after it stays plain.
    EXPECT_THAT(TextLayout::wrap(std::string(kYellow) + "needs commit, needs push" + kReset, 12),
                ElementsAre(std::string(kYellow) + "needs" + kReset,
                            std::string(kYellow) + "commit," + kReset,
                            std::string(kYellow) + "needs push" + kReset));

    const std::string text = "日本語 のテキスト e\u0301tude " + green("colour") + " and more";
    for (size_t width = 1; width <= 20; ++width) {
        std::string joined;
        for (const std::string& line : TextLayout::wrap(text, width)) {
            SCOPED_TRACE(testing::Message() << "width " << width << ": " << line);
            EXPECT_TRUE(Text::isValidUtf8(line));
            // A two-column character on a one-column line cannot be helped.
            EXPECT_LE(TextLayout::visibleWidth(line), std::max<size_t>(width, 2));
            joined += withoutEscapes(line);
        }
        std::string letters = withoutEscapes(text);
        std::erase(letters, ' ');
        std::erase(joined, ' ');
        EXPECT_EQ(joined, letters) << "width " << width;  // nothing lost, nothing repeated
    }
}

TEST(TextLayoutTest, CommandsBreakBetweenShellWordsWithContinuations) {
    EXPECT_THAT(TextLayout::wrapCommand("git push origin main", 40),
                ElementsAre("git push origin main"));
    const std::string publish =
        "cd '/home/someone/my code/api' && gh repo create 'someone/api' --private --source . "
        "--remote origin --push";
    std::vector<std::string> lines = TextLayout::wrapCommand(publish, 40);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "cd '/home/someone/my code/api' && gh \\");
    std::string rejoined;
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_LE(lines[i].size(), 40u) << lines[i];
        if (i + 1 < lines.size()) {
            ASSERT_TRUE(lines[i].ends_with(" \\")) << lines[i];
            rejoined += lines[i].substr(0, lines[i].size() - 1);
        } else {
            rejoined += lines[i];
        }
    }
    EXPECT_EQ(rejoined, publish);
    // A quoted word wider than a line stays whole on its own line.
    EXPECT_THAT(TextLayout::wrapCommand("cd '/a very long/quoted path' && ls", 12),
                ElementsAre("cd \\", "'/a very long/quoted path' \\", "&& ls"));
}

TEST(TextLayoutTest, TablesShrinkTheColumnsThatMayGiveWay) {
    const std::vector<std::vector<std::string>> rows = {
        {"NAME", "STATUS", "PATH"},
        {"api", green("clean"), "/home/someone/code/clients/very-long-project-name/api"},
        {"web-frontend", "needs push", "/srv/web"}};
    // Without a limit, or when the table fits, it is laid out as it always was.
    std::vector<std::string> natural = TextLayout::layoutTable(rows);
    EXPECT_THAT(natural,
                ElementsAre("NAME" + spaces(10) + "STATUS" + spaces(6) + "PATH",
                            "api" + spaces(11) + green("clean") + spaces(7) +
                                "/home/someone/code/clients/very-long-project-name/api",
                            "web-frontend  needs push  /srv/web"));
    EXPECT_EQ(TextLayout::layoutTable(rows, {80, {Shrink::cutEnd, Shrink::never, Shrink::cutMiddle}}),
              natural);

    // Narrower: the widest column that may give way gives way first.
    std::vector<std::string> fitted =
        TextLayout::layoutTable(rows, {50, {Shrink::cutEnd, Shrink::never, Shrink::cutMiddle}});
    EXPECT_THAT(fitted, ElementsAre(natural[0],
                                    "api" + spaces(11) + green("clean") + spaces(7) +
                                        "/home/someo…ect-name/api",
                                    natural[2]));
    for (const std::string& line : fitted) EXPECT_LE(TextLayout::visibleWidth(line), 50u);

    // Narrower still: the name gives way too, but neither below its narrowest.
    std::vector<std::string> narrow =
        TextLayout::layoutTable(rows, {30, {Shrink::cutEnd, Shrink::never, Shrink::cutMiddle}});
    EXPECT_EQ(narrow[2], "web-f…  needs push  /srv/web");
    EXPECT_EQ(withoutEscapes(narrow[1]), "api     clean       /home…me/api");
    EXPECT_EQ(TextLayout::visibleWidth(narrow[1]), 32u);  // 6 + 2 + 10 + 2 + 12

    // A wrapping column takes more lines; the other cells of the row stay on its first.
    std::vector<std::string> wrapped = TextLayout::layoutTable(
        {{"REPOSITORY", "STATUS", "TIME"}, {"api", "needs commit, needs push, active", "1h 05m"}},
        {33, {Shrink::never, Shrink::wrap, Shrink::never}});
    EXPECT_THAT(wrapped, ElementsAre("REPOSITORY  STATUS" + spaces(9) + "TIME",
                                     "api" + spaces(9) + "needs commit,  1h 05m",
                                     spaces(12) + "needs push,", spaces(12) + "active"));
    // A note stays on its row when the row has room, and goes below it when not;
    // the columns are fitted as if it were not there.
    const std::vector<std::vector<std::string>> notes = {
        {"api", "clean", ""}, {"broken", "-", "error: fatal: not a git repository"}};
    EXPECT_THAT(TextLayout::layoutTable(notes, {60, {}, false, true}),
                ElementsAre("api     clean", "broken  -  error: fatal: not a git repository"));
    EXPECT_THAT(TextLayout::layoutTable(notes, {30, {}, false, true}),
                ElementsAre("api     clean", "broken  -", "  error: fatal: not a git",
                            "  repository"));
    // Columns that must not give way are kept whole, even past the limit.
    EXPECT_THAT(TextLayout::layoutTable({{"2026-03-14 18:58", "abc1234"}}, {10, {}}),
                ElementsAre("2026-03-14 18:58  abc1234"));
}

}  // namespace
}  // namespace quorvane
