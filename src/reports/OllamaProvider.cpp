#include "reports/OllamaProvider.hpp"

#include "base/QuorvaneError.hpp"

namespace quorvane {

namespace {

using Kind = QuorvaneError::Kind;

Json message(const char* role, const std::string& content) {
    return Json{{"role", role}, {"content", content}};
}

}  // namespace

OllamaProvider::OllamaProvider(std::string baseURL, std::string model,
                               const HttpTransport& transport)
    : baseURL_(std::move(baseURL)), model_(std::move(model)), transport_(transport) {}

std::string OllamaProvider::summarize(const std::string& system, const std::string& prompt,
                                      int /*maxTokens*/) const {
    std::optional<std::string> url = endpoint(baseURL_, "/api/chat");
    if (!url) throw QuorvaneError(Kind::msg, "Ollama: invalid base URL");
    Json body = {{"model", model_},
                 {"messages", Json::array({message("system", system), message("user", prompt)})},
                 // One reply as a whole, rather than a line per token.
                 {"stream", false}};
    HttpResponse response = postJSON(transport_, *url, body);
    if (response.transportError) {
        throw QuorvaneError(Kind::network, "Ollama: network error: " + *response.transportError);
    }
    if (!succeeded(response.status)) {
        throw QuorvaneError(Kind::msg, "Ollama API " + std::to_string(response.status));
    }
    std::optional<Json> reply = parseObject(response.body);
    if (reply) {
        auto answer = reply->find("message");
        if (answer != reply->end() && answer->is_object()) {
            auto content = answer->find("content");
            if (content != answer->end() && content->is_string())
                return content->get<std::string>();
        }
    }
    throw QuorvaneError(Kind::msg, "Ollama: missing message.content in response");
}

}  // namespace quorvane
