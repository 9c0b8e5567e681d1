#include "agent/MCPBridge.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/AgentTools.hpp"

namespace quorvane {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

// Answers every request line with what the test set, and keeps the lines.
class ScriptedLink final : public AgentLink {
public:
    Reply exchange(const std::string& requestLine) override {
        sent.push_back(requestLine);
        return reply;
    }

    std::vector<std::string> sent;
    Reply reply{R"({"ok":true,"result":{"answer":42}})", ""};
};

class MCPBridgeTest : public ::testing::Test {
protected:
    // The bridge's reply to one message, as JSON; null when it gave none.
    json send(const json& message) { return sendLine(message.dump()); }
    json sendLine(const std::string& line) {
        std::optional<std::string> reply = bridge_.handleLine(line);
        return reply ? json::parse(*reply) : json();
    }
    json request(const std::string& method, const json& params = json::object()) {
        return send({{"jsonrpc", "2.0"}, {"id", 7}, {"method", method}, {"params", params}});
    }
    static int errorCode(const json& reply) { return reply["error"].value("code", 0); }

    ScriptedLink link_;
    MCPBridge bridge_{link_, "1.2.3"};
};

TEST_F(MCPBridgeTest, InitializeAgreesOnAVersionBothSidesSpeak) {
    json known = request("initialize", {{"protocolVersion", "2025-03-26"}});
    EXPECT_EQ(known["id"], 7);
    EXPECT_EQ(known["result"]["protocolVersion"], "2025-03-26");
    EXPECT_EQ(known["result"]["serverInfo"]["version"], "1.2.3");
    EXPECT_TRUE(known["result"]["capabilities"].contains("tools"));
    EXPECT_TRUE(known["result"]["capabilities"].contains("resources"));
    EXPECT_THAT(known["result"].value("instructions", ""), HasSubstr("quorvane proposals approve"));

    // A version the bridge does not know, or none, is answered with its newest.
    EXPECT_EQ(
        request("initialize", {{"protocolVersion", "1999-01-01"}})["result"]["protocolVersion"],
        MCPBridge::kProtocolVersions.front());
    EXPECT_EQ(request("initialize")["result"]["protocolVersion"],
              MCPBridge::kProtocolVersions.front());
    EXPECT_EQ(request("ping")["result"], json::object());
    EXPECT_TRUE(link_.sent.empty()) << "none of these needs the daemon";
}

TEST_F(MCPBridgeTest, NotificationsAndResponsesGetNoReplyAndBadMessagesGetTheStandardCodes) {
    EXPECT_TRUE(send({{"jsonrpc", "2.0"}, {"method", "notifications/initialized"}}).is_null());
    EXPECT_TRUE(send({{"jsonrpc", "2.0"},
                      {"method", "notifications/cancelled"},
                      {"params", {{"requestId", 3}}}})
                    .is_null());
    EXPECT_TRUE(send({{"jsonrpc", "2.0"}, {"id", 1}, {"result", json::object()}}).is_null());
    EXPECT_TRUE(sendLine("").is_null());
    EXPECT_TRUE(sendLine(" \t\r").is_null());

    for (const std::string& line :
         {std::string("{not json"), std::string("{\"a\":1}\0x", 9),
          std::string(200, '[') + std::string(200, ']'), std::string("{\"s\":\"\xff\"}")}) {
        json reply = sendLine(line);
        EXPECT_EQ(errorCode(reply), MCPBridge::kParseError) << line;
        EXPECT_TRUE(reply["id"].is_null());
    }
    // Not a request: the id it had, when it is a usable one, comes back with the error.
    json noVersion = send({{"id", 5}, {"method", "ping"}});
    EXPECT_EQ(errorCode(noVersion), MCPBridge::kInvalidRequest);
    EXPECT_EQ(noVersion["id"], 5);
    json objectId = send({{"jsonrpc", "2.0"}, {"id", {{"x", 1}}}, {"method", "ping"}});
    EXPECT_EQ(errorCode(objectId), MCPBridge::kInvalidRequest);
    EXPECT_TRUE(objectId["id"].is_null());
    EXPECT_EQ(errorCode(send({{"jsonrpc", "2.0"}, {"id", 5}, {"method", 3}})),
              MCPBridge::kInvalidRequest);
    EXPECT_EQ(errorCode(sendLine("42")), MCPBridge::kInvalidRequest);

    EXPECT_EQ(errorCode(request("prompts/list")), MCPBridge::kMethodNotFound);
    EXPECT_EQ(
        errorCode(
            send({{"jsonrpc", "2.0"}, {"id", "a"}, {"method", "ping"}, {"params", json::array()}})),
        MCPBridge::kInvalidParams);
    // A CRLF line is the same message.
    EXPECT_EQ(sendLine(R"({"jsonrpc":"2.0","id":"x","method":"ping"})"
                       "\r")["id"],
              "x");
}

TEST_F(MCPBridgeTest, ABatchIsAnsweredRequestByRequest) {
    json replies = sendLine(R"([{"jsonrpc":"2.0","id":1,"method":"ping"},)"
                            R"({"jsonrpc":"2.0","method":"notifications/initialized"},)"
                            R"({"jsonrpc":"2.0","id":2,"method":"nope"}, 3])");
    ASSERT_TRUE(replies.is_array());
    ASSERT_EQ(replies.size(), 3u);
    EXPECT_EQ(replies[0]["id"], 1);
    EXPECT_EQ(errorCode(replies[1]), MCPBridge::kMethodNotFound);
    EXPECT_EQ(errorCode(replies[2]), MCPBridge::kInvalidRequest);
    EXPECT_EQ(errorCode(sendLine("[]")), MCPBridge::kInvalidRequest);
    EXPECT_TRUE(sendLine(R"([{"jsonrpc":"2.0","method":"notifications/x"}])").is_null());
}

TEST_F(MCPBridgeTest, ToolsAndResourcesAreListedFromTheDispatchersTable) {
    json tools = request("tools/list")["result"]["tools"];
    ASSERT_EQ(tools.size(), AgentTools::all().size());
    for (size_t i = 0; i < tools.size(); ++i) {
        const AgentTool& tool = AgentTools::all()[i];
        EXPECT_EQ(tools[i]["name"], tool.name);
        EXPECT_EQ(tools[i]["inputSchema"]["type"], "object") << tool.name;
        EXPECT_EQ(tools[i]["annotations"]["readOnlyHint"],
                  tool.level == AgentPermissionLevel::readOnly);
    }
    json resources = request("resources/list")["result"]["resources"];
    ASSERT_EQ(resources.size(), AgentTools::resources().size());
    for (size_t i = 0; i < resources.size(); ++i) {
        EXPECT_EQ(resources[i]["uri"], AgentTools::resources()[i].uri);
        EXPECT_EQ(resources[i]["mimeType"], "application/json");
    }
    EXPECT_EQ(request("resources/templates/list")["result"]["resourceTemplates"], json::array());
}

TEST_F(MCPBridgeTest, ACallIsOneSocketLineAndItsReplyBecomesAToolResult) {
    json done = request("tools/call", {{"name", "get_settings"}});
    ASSERT_EQ(link_.sent.size(), 1u);
    EXPECT_EQ(json::parse(link_.sent[0]),
              json({{"tool", "get_settings"}, {"args", json::object()}}));
    EXPECT_EQ(done["result"]["isError"], false);
    EXPECT_EQ(json::parse(done["result"]["content"][0]["text"].get<std::string>()),
              json({{"answer", 42}}));

    const json args = {{"path", "/srv/a b"}, {"limit", 5}, {"flags", {true, nullptr}}};
    request("tools/call", {{"name", "read_git_commits"}, {"arguments", args}});
    EXPECT_EQ(json::parse(link_.sent[1]), json({{"tool", "read_git_commits"}, {"args", args}}));

    // The daemon's refusal keeps its code; a proposal also says how the person approves it.
    link_.reply.line = json({{"ok", false},
                             {"error",
                              {{"code", "confirmation_required"},
                               {"message", "Confirm (proposal P1)"},
                               {"hint", "Confirm (proposal P1)"}}}})
                           .dump();
    json refused = request("tools/call", {{"name", "git_push"}, {"arguments", {{"path", "/a"}}}});
    EXPECT_EQ(refused["result"]["isError"], true);
    const std::string text = refused["result"]["content"][0]["text"];
    EXPECT_THAT(text, HasSubstr("confirmation_required: Confirm (proposal P1)"));
    EXPECT_THAT(text, HasSubstr("quorvane proposals approve"));

    link_.reply = {std::nullopt, "Quorvane is not running"};
    json down = request("tools/call", {{"name", "get_settings"}});
    EXPECT_EQ(down["result"]["isError"], true);
    EXPECT_EQ(down["result"]["content"][0]["text"], "Quorvane is not running");

    link_.reply = {"not json", ""};
    EXPECT_EQ(request("tools/call", {{"name", "get_settings"}})["result"]["isError"], true);
}

TEST_F(MCPBridgeTest, AMalformedCallNeverReachesTheDaemon) {
    link_.sent.clear();
    EXPECT_EQ(errorCode(request("tools/call", {{"name", "format_disk"}})),
              MCPBridge::kInvalidParams);
    EXPECT_EQ(errorCode(request("tools/call")), MCPBridge::kInvalidParams);
    EXPECT_EQ(errorCode(request("tools/call", {{"name", "get_settings"}, {"arguments", "x"}})),
              MCPBridge::kInvalidParams);
    // The socket's own reserved name is not a tool an agent may call.
    EXPECT_EQ(errorCode(request("tools/call", {{"name", "resources/read"}})),
              MCPBridge::kInvalidParams);
    EXPECT_EQ(errorCode(request("resources/read")), MCPBridge::kInvalidParams);
    EXPECT_TRUE(link_.sent.empty());
}

TEST_F(MCPBridgeTest, AResourceIsReadThroughTheSocketAndAnUnknownOneIsNotFound) {
    link_.reply.line = R"({"ok":true,"result":{"agent":{"enabled":true}}})";
    json read = request("resources/read", {{"uri", "quorvane://settings"}});
    EXPECT_EQ(json::parse(link_.sent.back()),
              json({{"tool", "resources/read"}, {"args", {{"uri", "quorvane://settings"}}}}));
    json content = read["result"]["contents"][0];
    EXPECT_EQ(content["uri"], "quorvane://settings");
    EXPECT_EQ(json::parse(content["text"].get<std::string>())["agent"]["enabled"], true);

    link_.reply.line = R"({"ok":false,"error":{"code":"not_found","message":"unknown resource"}})";
    json missing = request("resources/read", {{"uri", "quorvane://x"}});
    EXPECT_EQ(errorCode(missing), MCPBridge::kResourceNotFound);
    EXPECT_EQ(missing["error"]["data"]["uri"], "quorvane://x");
    link_.reply.line = R"({"ok":false,"error":{"code":"permission_denied","message":"off"}})";
    EXPECT_EQ(errorCode(request("resources/read", {{"uri", "quorvane://settings"}})),
              MCPBridge::kInternalError);
    link_.reply = {std::nullopt, "Quorvane is not running"};
    json down = request("resources/read", {{"uri", "quorvane://settings"}});
    EXPECT_EQ(down["error"]["message"], "Quorvane is not running");
}

// The stdio loop, over real pipes: messages split across writes, one too long to
// take, and the end of input.
TEST_F(MCPBridgeTest, ServeReadsWholeLinesAndSurvivesAMessageTooLong) {
    int input[2];
    int output[2];
    ASSERT_EQ(::pipe2(input, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(output, O_CLOEXEC), 0);
    int result = -1;
    std::thread server([&] {
        result = bridge_.serve(input[0], output[1]);
        ::close(output[1]);
    });
    std::string collected;
    std::thread reader([&] {
        char chunk[4096];
        for (ssize_t got; (got = ::read(output[0], chunk, sizeof chunk)) > 0;) {
            collected.append(chunk, static_cast<size_t>(got));
        }
    });
    auto write = [&](const std::string& bytes) {
        ASSERT_EQ(::write(input[1], bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    };
    write(R"({"jsonrpc":"2.0","id":1,)");
    write(R"("method":"ping"})"
          "\n");
    const std::string huge(MCPBridge::kMaxMessageBytes + 10, ' ');
    for (size_t at = 0; at < huge.size(); at += 1 << 20) write(huge.substr(at, 1 << 20));
    write(
        "still the long one\n"
        R"({"jsonrpc":"2.0","id":2,"method":"ping"})"
        "\n");
    ::close(input[1]);
    server.join();
    reader.join();
    ::close(input[0]);
    ::close(output[0]);

    EXPECT_EQ(result, 0);
    std::vector<json> replies;
    for (size_t start = 0, end; (end = collected.find('\n', start)) != std::string::npos;
         start = end + 1) {
        replies.push_back(json::parse(collected.substr(start, end - start)));
    }
    ASSERT_EQ(replies.size(), 3u) << collected;
    EXPECT_EQ(replies[0]["id"], 1);
    EXPECT_EQ(errorCode(replies[1]), MCPBridge::kInvalidRequest);
    EXPECT_EQ(replies[2]["id"], 2);
}

}  // namespace
}  // namespace quorvane
