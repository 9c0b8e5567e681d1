#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/QuorvaneError.hpp"
#include "reports/AnthropicProvider.hpp"
#include "reports/OllamaProvider.hpp"
#include "testing/LoopbackHttpServer.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Kind = QuorvaneError::Kind;

// Not a real key; still never printed, so a failing check cannot leak one.
const std::string kKey = "sk-ant-test-key";

// As the Messages API documents its replies.
constexpr const char* kAnthropicReply = R"({
  "id": "msg_01XFDUDYJgAACzvnptvVoYEL", "type": "message", "role": "assistant",
  "model": "claude-opus-4-8",
  "content": [{"type": "text", "text": "Shipped login. "},
              {"type": "text", "text": "Two commits wait to be pushed."}],
  "stop_reason": "end_turn", "stop_sequence": null,
  "usage": {"input_tokens": 12, "output_tokens": 30}})";

// As Ollama's /api/chat answers with "stream": false.
constexpr const char* kOllamaReply = R"({
  "model": "llama3.1", "created_at": "2026-11-25T10:00:00Z",
  "message": {"role": "assistant", "content": "A quiet day: docs only."},
  "done_reason": "stop", "done": true, "total_duration": 4883583458,
  "prompt_eval_count": 26, "eval_count": 282})";

class AIProvidersTest : public ::testing::Test {
protected:
    // What summarizing threw, or "no error".
    static std::pair<std::string, Kind> failure(const AIProvider& provider) {
        try {
            provider.summarize("s", "p", 1024);
        } catch (const QuorvaneError& error) {
            return {error.what(), error.kind()};
        }
        return {"no error", Kind::msg};
    }

    // The text `provider` fails with when `path` answers `status` and `reply`.
    std::string failureOn(const AIProvider& provider, const std::string& path, int status,
                          const std::string& reply) {
        server_.set(path, {status, {{"Content-Type", "application/json"}}, reply, false});
        auto [text, kind] = failure(provider);
        EXPECT_EQ(kind, Kind::msg) << text;
        return text;
    }

    // The address of a server that has stopped: nothing listens there.
    static std::string stoppedServer() {
        testing::LoopbackHttpServer gone;
        return gone.base();
    }

    // The last request's head and its body as JSON, the key in either shown as "<key>".
    std::pair<std::string, Json> lastRequest() const {
        auto masked = [](std::string text) {
            for (size_t at = text.find(kKey); at != std::string::npos; at = text.find(kKey, at)) {
                text.replace(at, kKey.size(), "<key>");
            }
            return text;
        };
        return {masked(server_.requests().back()), Json::parse(masked(server_.bodies().back()))};
    }

    testing::LoopbackHttpServer server_;
    CurlTransport transport_;
};

TEST_F(AIProvidersTest, AnthropicPostsOneMessageWithItsHeadersAndJoinsTheTextBlocks) {
    server_.set("/v1/messages", {200, {}, kAnthropicReply});
    AnthropicProvider provider(kKey, "claude-opus-4-8", transport_, server_.base() + "/");
    EXPECT_EQ(provider.summarize("Be brief.", "## api — clean\n- Add login", 1024),
              "Shipped login. Two commits wait to be pushed.");

    auto [head, body] = lastRequest();
    EXPECT_THAT(head, StartsWith("POST /v1/messages HTTP/1.1\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\ncontent-type: application/json\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\nanthropic-version: 2023-06-01\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\nx-api-key: <key>\r\n"));
    Json message = {{"role", "user"}, {"content", "## api — clean\n- Add login"}};
    EXPECT_EQ(body, (Json{{"model", "claude-opus-4-8"},
                          {"max_tokens", 1024},
                          {"system", "Be brief."},
                          {"messages", Json::array({message})}}));

    // A commit subject that is not UTF-8 still goes out, as valid JSON.
    provider.summarize("s", "- fix \xff", 7);
    EXPECT_EQ(lastRequest().second["messages"][0]["content"], "- fix \xef\xbf\xbd");
}

TEST_F(AIProvidersTest, EachAnthropicFailureHasItsTextAndNoneCarriesTheKey) {
    AnthropicProvider provider(kKey, "m", transport_, server_.base());
    auto on = [&](int status, const std::string& reply) {
        return failureOn(provider, "/v1/messages", status, reply);
    };
    std::vector<std::string> texts = {
        on(401, R"({"type": "error", "error": {"type": "authentication_error",
                    "message": "invalid x-api-key"}})"),
        on(529, R"({"type": "error", "error": {"type": "overloaded_error",
                    "message": "Overloaded"}})"),
        on(500, R"({"type": "error", "error": {"type": "api_error"}})"),
        // Checked before the status: a proxy's page is not an API reply.
        on(502, "<html><body>Bad Gateway</body></html>"),
        on(200, R"([{"type": "text", "text": "not an object"}])"),
        on(200, R"({"id": "msg_01", "type": "message", "role": "assistant"})"),
        on(200, R"({"content": [{"type": "tool_use", "id": "t", "input": {}}]})"),
        on(400, R"({"error": {"message": "key sk-ant-test-key is malformed"}})"),
    };
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "Anthropic API 401: invalid x-api-key",
                         "Anthropic API 529: Overloaded",
                         "Anthropic API 500",
                         "Anthropic: invalid response",
                         "Anthropic: invalid response",
                         "Anthropic: missing content in response",
                         "Anthropic: missing content in response",
                         "Anthropic API 400: key [redacted] is malformed",
                     }));

    size_t sent = server_.requests().size();
    EXPECT_EQ(failure(AnthropicProvider(kKey, "m", transport_, "https://api anthropic.com")),
              (std::pair{std::string("Anthropic: invalid endpoint URL"), Kind::msg}));
    EXPECT_EQ(server_.requests().size(), sent);

    // The key never crosses the network in clear, however the address got into
    // config.json; plain http to this machine is fine.
    class Recording final : public HttpTransport {
    public:
        HttpResponse get(const HttpRequest&) const override { return {0, "", {}, "sent"}; }
        HttpResponse post(const HttpRequest& request, const std::string&) const override {
            sent.push_back(request.url);
            return {0, "", {}, "sent"};
        }
        mutable std::vector<std::string> sent;
    } recording;
    EXPECT_EQ(failure(AnthropicProvider(kKey, "m", recording, "http://llm-gateway.example.test")),
              (std::pair{std::string("Anthropic: the API key is not sent over plain http:// to "
                                     "another machine — set an https:// address in "
                                     "ai.anthropicBaseURL"),
                         Kind::msg}));
    EXPECT_TRUE(recording.sent.empty());
    failure(AnthropicProvider(kKey, "m", recording, "http://localhost:8080"));
    EXPECT_EQ(recording.sent, std::vector<std::string>{"http://localhost:8080/v1/messages"});

    auto [refused, kind] = failure(AnthropicProvider(kKey, "m", transport_, stoppedServer()));
    EXPECT_THAT(refused, StartsWith("Anthropic: network error: "));
    EXPECT_GT(refused.size(), std::string("Anthropic: network error: ").size());
    EXPECT_EQ(kind, Kind::network);
    EXPECT_TRUE(refused.find(kKey) == std::string::npos);
}

TEST_F(AIProvidersTest, OllamaPostsOneChatWithoutKeyOrLimitAndNoDoubleSlash) {
    server_.set("/api/chat", {200, {}, kOllamaReply});
    OllamaProvider provider(server_.base() + "/", "llama3.1", transport_);
    EXPECT_EQ(provider.summarize("Be brief.", "## docs — clean", 1024), "A quiet day: docs only.");

    auto [head, body] = lastRequest();
    EXPECT_THAT(head, StartsWith("POST /api/chat HTTP/1.1\r\n"));
    EXPECT_THAT(head, HasSubstr("\r\ncontent-type: application/json\r\n"));
    EXPECT_THAT(head, Not(HasSubstr("x-api-key")));
    Json system = {{"role", "system"}, {"content", "Be brief."}};
    Json user = {{"role", "user"}, {"content", "## docs — clean"}};
    EXPECT_EQ(body, (Json{{"model", "llama3.1"},
                          {"messages", Json::array({system, user})},
                          {"stream", false}}));
}

TEST_F(AIProvidersTest, EachOllamaFailureHasItsText) {
    OllamaProvider provider(server_.base(), "llama3.1", transport_);
    auto on = [&](int status, const std::string& reply) {
        return failureOn(provider, "/api/chat", status, reply);
    };
    EXPECT_EQ(on(404, R"({"error": "model \"x\" not found, try pulling it first"})"),
              "Ollama API 404");
    EXPECT_EQ(on(500, "not json"), "Ollama API 500");
    for (const char* reply :
         {R"({"model": "llama3.1", "done": true})", R"({"message": {"content": 5}})", "hello"}) {
        EXPECT_EQ(on(200, reply), "Ollama: missing message.content in response") << reply;
    }

    size_t sent = server_.requests().size();
    for (const char* address : {"", "http://my host:11434"}) {
        EXPECT_EQ(failure(OllamaProvider(address, "m", transport_)),
                  (std::pair{std::string("Ollama: invalid base URL"), Kind::msg}))
            << address;
    }
    EXPECT_EQ(server_.requests().size(), sent);

    auto [refused, kind] = failure(OllamaProvider(stoppedServer(), "m", transport_));
    EXPECT_THAT(refused, StartsWith("Ollama: network error: "));
    EXPECT_GT(refused.size(), std::string("Ollama: network error: ").size());
    EXPECT_EQ(kind, Kind::network);
}

}  // namespace
}  // namespace quorvane
