#include "platform/TerminalStyle.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "base/TextHelpers.hpp"

namespace quorvane {
namespace {

// COLUMNS outside this range is a mistake rather than a screen.
constexpr long long kFewestColumns = 20;
constexpr long long kMostColumns = 1000;

std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string_view() : std::string_view(value);
}

}  // namespace

TerminalStyle decideTerminalStyle(const TerminalFacts& facts) {
    TerminalStyle style;
    style.color =
        facts.isTerminal && facts.noColor.empty() && !facts.term.empty() && facts.term != "dumb";
    long long requested = 0;
    if (facts.isTerminal && facts.windowColumns && *facts.windowColumns > 0) {
        style.columns = *facts.windowColumns;
    } else if (Text::parseInt(Text::trim(facts.columns), requested) &&
               requested >= kFewestColumns && requested <= kMostColumns) {
        style.columns = static_cast<size_t>(requested);
    } else {
        style.columns = kDefaultColumns;
    }
    return style;
}

std::optional<size_t> terminalColumns(int fd) {
    if (::isatty(fd) != 1) return std::nullopt;
    struct winsize size {};
    if (::ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
    return static_cast<size_t>(size.ws_col);
}

TerminalStyle detectTerminal() {
    TerminalFacts facts;
    facts.isTerminal = ::isatty(STDOUT_FILENO) == 1;
    facts.windowColumns = terminalColumns(STDOUT_FILENO);
    facts.noColor = environment("NO_COLOR");
    facts.term = environment("TERM");
    facts.columns = environment("COLUMNS");
    return decideTerminalStyle(facts);
}

}  // namespace quorvane
