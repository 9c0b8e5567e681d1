#include "platform/TerminalStyle.hpp"

#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/FileDescriptor.hpp"

namespace quorvane {
namespace {

TerminalFacts terminal(std::string_view term = "xterm-256color") {
    TerminalFacts facts;
    facts.isTerminal = true;
    facts.windowColumns = 120;
    facts.term = term;
    return facts;
}

TEST(TerminalStyleTest, ColourOnlyOnATerminalThatCanShowItAndIsNotToldOtherwise) {
    EXPECT_TRUE(decideTerminalStyle(terminal()).color);
    TerminalFacts piped = terminal();
    piped.isTerminal = false;
    EXPECT_FALSE(decideTerminalStyle(piped).color);
    TerminalFacts noColor = terminal();
    noColor.noColor = "1";
    EXPECT_FALSE(decideTerminalStyle(noColor).color);
    noColor.noColor = "0";  // any value at all turns it off
    EXPECT_FALSE(decideTerminalStyle(noColor).color);
    noColor.noColor = "";  // set but empty counts as unset
    EXPECT_TRUE(decideTerminalStyle(noColor).color);
    EXPECT_FALSE(decideTerminalStyle(terminal("dumb")).color);
    EXPECT_FALSE(decideTerminalStyle(terminal("")).color);
}

TEST(TerminalStyleTest, WidthIsTheTerminalsThenASensibleColumnsThenEighty) {
    TerminalFacts facts = terminal();
    facts.columns = "100";
    EXPECT_EQ(decideTerminalStyle(facts).columns, 120u);
    facts.windowColumns.reset();  // a terminal that tells no size
    EXPECT_EQ(decideTerminalStyle(facts).columns, 100u);
    facts.isTerminal = false;  // COLUMNS is the person's own request, pipe or not
    facts.windowColumns = 120;
    EXPECT_EQ(decideTerminalStyle(facts).columns, 100u);
    for (std::string_view nonsense : {"", "wide", "0", "-80", "5", "99999", "80x"}) {
        facts.columns = nonsense;
        EXPECT_EQ(decideTerminalStyle(facts).columns, kDefaultColumns) << nonsense;
    }
    EXPECT_EQ(decideTerminalStyle(TerminalFacts{}), (TerminalStyle{false, kDefaultColumns}));
}

TEST(TerminalStyleTest, TheWidthComesFromARealTerminalAndNotFromAPipe) {
    int controller = -1, device = -1;
    struct winsize size {};
    size.ws_row = 24;
    size.ws_col = 57;
    ASSERT_EQ(::openpty(&controller, &device, nullptr, nullptr, &size), 0);
    Fd ownController(controller), ownDevice(device);
    EXPECT_EQ(terminalColumns(device), 57u);
    size.ws_col = 0;  // a terminal that has not been given a size
    ASSERT_EQ(::ioctl(device, TIOCSWINSZ, &size), 0);
    EXPECT_EQ(terminalColumns(device), std::nullopt);

    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    Fd reader(pipeEnds[0]), writer(pipeEnds[1]);
    EXPECT_EQ(terminalColumns(pipeEnds[1]), std::nullopt);
}

}  // namespace
}  // namespace quorvane
