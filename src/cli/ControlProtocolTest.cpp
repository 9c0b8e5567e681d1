#include "cli/ControlProtocol.hpp"

#include <stdexcept>

#include <gtest/gtest.h>

namespace quorvane::ControlProtocol {
namespace {

// Feeds `bytes` to a request builder in pieces of `step` bytes, as a socket may
// deliver them.
Request assemble(const std::string& bytes, size_t step) {
    FrameReader reader;
    RequestBuilder builder;
    bool complete = false;
    for (size_t at = 0; at < bytes.size(); at += step) {
        reader.append(std::string_view(bytes).substr(at, step));
        while (std::optional<Frame> frame = reader.next()) complete = builder.add(*frame);
    }
    EXPECT_TRUE(complete);
    EXPECT_EQ(reader.buffered(), 0u);
    return builder.request();
}

TEST(ControlProtocolTest, ARequestSurvivesAnySplitAndAnyBytesInItsWords) {
    Request request;
    // Paths need not be text: NULs, invalid UTF-8 and blanks are carried as they are.
    request.arguments = {"repos", "add", std::string("we\0ird", 6), "\xff\xfe/x y", ""};
    request.workingDirectory = "/home/someone/code";
    request.input = "ghp_TESTONLYprotocol\n";
    request.terminal = {true, 132, true};
    const std::string bytes = encodeRequest(request);
    for (size_t step : {size_t{1}, size_t{3}, size_t{5}, bytes.size()}) {
        Request decoded = assemble(bytes, step);
        EXPECT_EQ(decoded.arguments, request.arguments) << step;
        EXPECT_EQ(decoded.workingDirectory, request.workingDirectory);
        EXPECT_EQ(decoded.input, request.input);
        EXPECT_TRUE(decoded.terminal.color);
        EXPECT_EQ(decoded.terminal.columns, 132u);
        EXPECT_TRUE(decoded.terminal.progress);
    }
    request.input.reset();
    EXPECT_FALSE(assemble(encodeRequest(request), 7).input.has_value());
}

TEST(ControlProtocolTest, HostileFramesAreRefusedBeforeTheyCostMemory) {
    FrameReader unknown;
    unknown.append("Z");
    EXPECT_THROW(unknown.next(), std::runtime_error);

    // A header that announces 4 GiB is refused on the header alone.
    FrameReader huge;
    huge.append(std::string("A\xff\xff\xff\xff", 5));
    EXPECT_THROW(huge.next(), std::runtime_error);

    FrameReader partial;
    partial.append(std::string("A\x00\x00", 3));
    EXPECT_FALSE(partial.next().has_value());
    partial.append(std::string("\x00\x02h", 3));
    EXPECT_FALSE(partial.next().has_value());
    partial.append("i");
    std::optional<Frame> frame = partial.next();
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->payload, "hi");
}

TEST(ControlProtocolTest, ARequestMustBeWholeAndWellFormed) {
    auto refuses = [](std::vector<Frame> frames) {
        RequestBuilder builder;
        try {
            for (const Frame& frame : frames) builder.add(frame);
        } catch (const std::runtime_error&) {
            return true;
        }
        return false;
    };
    const Frame scan{FrameKind::argument, "scan"};
    const Frame here{FrameKind::workingDirectory, "/tmp"};
    const Frame run{FrameKind::run, ""};
    EXPECT_FALSE(refuses({scan, here, run}));
    EXPECT_TRUE(refuses({here, run}));  // no command
    EXPECT_TRUE(refuses({scan, run}));  // no working directory
    EXPECT_TRUE(refuses({scan, {FrameKind::workingDirectory, "relative/dir"}, run}));
    EXPECT_TRUE(refuses({scan, here, {FrameKind::standardOutput, "x"}, run}));
    EXPECT_TRUE(refuses({scan, here, run, scan}));  // nothing after the end
    for (const char* layout : {"1 80", "2 80 0", "1 5 0", "1 99999 0", "a b c", "1 80 0 "}) {
        EXPECT_TRUE(refuses({scan, here, {FrameKind::terminal, layout}, run})) << layout;
    }
    std::vector<Frame> many(kMaxArguments + 1, scan);
    EXPECT_TRUE(refuses(many));
    // Frames of allowed size that add up past the request's bound.
    std::vector<Frame> large(kMaxRequestBytes / kMaxPayload + 1,
                             Frame{FrameKind::input, std::string(kMaxPayload, 'x')});
    EXPECT_TRUE(refuses(large));
}

}  // namespace
}  // namespace quorvane::ControlProtocol
