#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "agent/AgentJSON.hpp"
#include "agent/MCPJSON.hpp"

// The tool layer's and the wire's JSON types side by side: they must agree on
// everything but key order and two escapes.
namespace quorvane {
namespace {

std::string agentText(const std::string& text) {
    return AgentJSON(text).serialized();
}

std::string wireText(const std::string& text) {
    return MCPJSON(text).jsonString();
}

TEST(AgentJSON, NumbersPrintShortAndReadBackExactly) {
    for (double value :
         {3.0, -3.0, 1e15, -1e15, 999999999999999.0, 0.1, 0.1 + 0.2, 1e300, 5e-324}) {
        const std::string agent = AgentJSON(value).serialized();
        EXPECT_EQ(agent, MCPJSON(value).jsonString());
        EXPECT_EQ(std::strtod(agent.c_str(), nullptr), value) << agent;
    }
    EXPECT_EQ(AgentJSON(3.0).serialized(), "3");
    EXPECT_EQ(AgentJSON(999999999999999.0).serialized(), "999999999999999");
    EXPECT_EQ(AgentJSON(1e15).serialized(), "1e+15");  // at the limit: a float again
    EXPECT_EQ(AgentJSON(0.1).serialized(), "0.1");
    EXPECT_EQ(AgentJSON(2.5).serialized(), "2.5");
}

TEST(AgentJSON, ConversionKeepsBooleansAndMakesWholeNumbersInts) {
    const std::string text = R"([true,1,3.0,-0.5,1e15,18446744073709551615,null])";
    const MCPJSON::Value expected[] = {true, std::int64_t{1},       std::int64_t{3}, -0.5,
                                       1e15, 1.8446744073709552e19, nullptr};
    std::optional<MCPJSON> wire = MCPJSON::parse(text);
    ASSERT_TRUE(wire);
    const auto& wireItems = std::get<MCPJSON::Array>(wire->value());
    const AgentJSON agent = AgentJSON::fromJson(Json::parse(text));
    const auto& agentItems = std::get<AgentJSON::Array>(agent.value());
    ASSERT_EQ(wireItems.size(), std::size(expected));
    ASSERT_EQ(agentItems.size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(wireItems[i].value(), expected[i]) << i;
        EXPECT_EQ(agentItems[i].value().index(), expected[i].index()) << i;
    }
    EXPECT_EQ(agentItems[0].value(), AgentJSON::Value(true));
    EXPECT_EQ(agentItems[1].value(), AgentJSON::Value(std::int64_t{1}));
}

TEST(AgentJSON, ToolLayerSortsKeysAndTheWireKeepsTheirOrder) {
    const std::string text = R"({"b":1,"a":{"d":[],"c":"x"}})";
    EXPECT_EQ(AgentJSON::fromJson(Json::parse(text)).serialized(),
              R"({"a":{"c":"x","d":[]},"b":1})");
    std::optional<MCPJSON> wire = MCPJSON::parse(text);
    ASSERT_TRUE(wire);
    EXPECT_EQ(wire->jsonString(), text);
}

TEST(AgentJSON, EscapeTablesDifferOnlyOnBackspaceAndFormFeed) {
    for (int c = 0; c < 0x80; ++c) {
        const std::string text(1, static_cast<char>(c));
        const std::string agent = agentText(text);
        const std::string wire = wireText(text);
        EXPECT_EQ(nlohmann::json::parse(agent), text) << c;
        EXPECT_EQ(nlohmann::json::parse(wire), text) << c;
        if (c == '\b' || c == '\f') {
            EXPECT_NE(agent, wire) << c;
        } else {
            EXPECT_EQ(agent, wire) << c;
        }
    }
    EXPECT_EQ(agentText("\b\f"), R"("\u0008\u000c")");
    EXPECT_EQ(wireText("\b\f"), R"("\b\f")");
    EXPECT_EQ(wireText("\t\n\r\"\\"), R"("\t\n\r\"\\")");
    EXPECT_EQ(wireText(std::string("\x00\x1a\x1f", 3)), R"("\u0000\u001a\u001f")");
    EXPECT_EQ(wireText("a/b\x7f\xc3\xa9\xe2\x80\x94"), "\"a/b\x7f\xc3\xa9\xe2\x80\x94\"");
}

TEST(AgentJSON, InvalidUtf8PrintsAsReplacementAndAlwaysParsesBack) {
    const std::string replacement = "\xef\xbf\xbd";
    const std::string bad[] = {"\xff",    "a\xc3", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80",
                               "\xe2\x80"};
    for (const std::string& text : bad) {
        for (const std::string& printed :
             {agentText(text), wireText(text), AgentJSON(AgentJSON::Object{{text, 1}}).serialized(),
              MCPJSON(MCPJSON::Object{{text, MCPJSON(true)}}).jsonString()}) {
            nlohmann::json parsed = nlohmann::json::parse(printed, nullptr, false);
            ASSERT_FALSE(parsed.is_discarded()) << printed;
            EXPECT_NE(printed.find(replacement), std::string::npos) << printed;
        }
    }
    EXPECT_EQ(wireText("a\xff"
                       "b"),
              "\"a" + replacement + "b\"");
}

TEST(AgentJSON, DepthIsCountedOutsideStringsOnly) {
    EXPECT_FALSE(nestedDeeperThan(R"(["[[[[{{{{"])", 1));
    EXPECT_FALSE(nestedDeeperThan(R"(["\"[[[[{{"])", 1));           // an escaped quote ends nothing
    EXPECT_TRUE(nestedDeeperThan(R"(["\\",[[]]])", 2));             // an escaped backslash does not
    EXPECT_FALSE(nestedDeeperThan(R"([{"a":[1]},{"b":[2]}])", 3));  // siblings, not depth

    const std::string deepest = std::string(kMaxJsonDepth, '[') + std::string(kMaxJsonDepth, ']');
    const std::string tooDeep = "[" + deepest + "]";
    EXPECT_TRUE(MCPJSON::parse(deepest));
    EXPECT_FALSE(MCPJSON::parse(tooDeep));
}

TEST(AgentJSON, WireParserRefusesWhatIsNotOneJsonText) {
    for (const std::string& text :
         {std::string("{\"tool\":\"x\"}\0junk", 17), std::string("42\0", 3), std::string(1, '\0'),
          std::string("\"a\0b\"", 5), std::string("nul"), std::string("{\"tool\":\"\xff\"}"),
          std::string(""), std::string("1 2")}) {
        EXPECT_FALSE(MCPJSON::parse(text)) << ::testing::PrintToString(text);
    }
    std::optional<MCPJSON> bare = MCPJSON::parse(" \"text\" ");
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->value(), MCPJSON::Value(std::string("text")));
}

}  // namespace
}  // namespace quorvane
