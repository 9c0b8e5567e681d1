#include "records/JsonCodec.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorvane {
namespace {

std::vector<Json> elements(std::string_view text) {
    std::vector<Json> result;
    JsonCodec::forEachArrayElement(text, [&](const Json& element, size_t index) {
        EXPECT_EQ(index, result.size());
        result.push_back(element);
    });
    return result;
}

TEST(JsonCodecTest, PrintedJsonEscapesWhatATerminalWouldObey) {
    // DEL, a C1 control that starts an escape sequence on some terminals, and a
    // right-to-left override, as a repository could name a branch.
    const Json value = {{"branch", "a\x7f b\xc2\x9b[2J c\u202e d\u00e9"}};
    const std::string printed = JsonCodec::pretty(value);
    EXPECT_EQ(printed, "{\n  \"branch\": \"a\\u007f b\\u009b[2J c\\u202e d\u00e9\"\n}\n");
    EXPECT_EQ(JsonCodec::parse(printed), value);
}

TEST(JsonCodecTest, ArrayElementsAreReadOneByOneWhateverTheyHold) {
    EXPECT_TRUE(elements("[]").empty());
    EXPECT_TRUE(elements(" \n[ \n ]\n").empty());
    std::vector<Json> read = elements(
        R"([{"m": "a, b ] } [ { \" \\", "n": [1, [2, {"x": "]"}]]}, 3 , "s,]" , null, {}])");
    ASSERT_EQ(read.size(), 5u);
    EXPECT_EQ(read[0]["m"], "a, b ] } [ { \" \\");
    EXPECT_EQ(read[0]["n"][1][1]["x"], "]");
    EXPECT_EQ(read[1], 3);
    EXPECT_EQ(read[2], "s,]");
    EXPECT_TRUE(read[3].is_null());
    EXPECT_EQ(read[4], Json::object());
    // What the store writes reads back the same.
    Json array = {{{"k", "v"}}, {{"k", "w, ]"}}};
    EXPECT_EQ(Json(elements(JsonCodec::pretty(array))), array);
}

TEST(JsonCodecTest, AnythingButACompleteArrayIsADecodeError) {
    for (const char* bad : {"", "{}", "[", "[1,", "[1, 2", "[1,]", "[,1]", "[1] x", "[1 2]",
                            "[{\"a\": 1}", "[\"unclosed]", "[{\"a\": }]", "[1]]"}) {
        EXPECT_THROW(elements(bad), DecodeError) << bad;
    }
}

}  // namespace
}  // namespace quorvane
