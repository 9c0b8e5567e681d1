#include "reports/AnthropicProvider.hpp"

namespace quorvane {

namespace {

using Kind = QuorvaneError::Kind;

// The text at error.message of an error reply, when there is one.
std::optional<std::string> errorMessage(const Json& reply) {
    auto error = reply.find("error");
    if (error == reply.end() || !error->is_object()) return std::nullopt;
    auto message = error->find("message");
    if (message == error->end() || !message->is_string()) return std::nullopt;
    return message->get<std::string>();
}

// The "text" of every content block, in order; nothing when there is no list or
// no block carries text.
std::optional<std::string> contentText(const Json& reply) {
    auto content = reply.find("content");
    if (content == reply.end() || !content->is_array()) return std::nullopt;
    std::string text;
    bool found = false;
    for (const Json& block : *content) {
        if (!block.is_object()) continue;
        auto piece = block.find("text");
        if (piece == block.end() || !piece->is_string()) continue;
        text += piece->get_ref<const std::string&>();
        found = true;
    }
    if (!found) return std::nullopt;
    return text;
}

}  // namespace

AnthropicProvider::AnthropicProvider(std::string apiKey, std::string model,
                                     const HttpTransport& transport, std::string baseURL)
    : apiKey_(std::move(apiKey)),
      model_(std::move(model)),
      transport_(transport),
      baseURL_(std::move(baseURL)) {}

QuorvaneError AnthropicProvider::failure(Kind kind, std::string text) const {
    if (!apiKey_.empty()) {
        for (size_t at = text.find(apiKey_); at != std::string::npos; at = text.find(apiKey_, at)) {
            text.replace(at, apiKey_.size(), "[redacted]");
        }
    }
    return QuorvaneError(kind, std::move(text));
}

std::string AnthropicProvider::summarize(const std::string& system, const std::string& prompt,
                                         int maxTokens) const {
    std::optional<std::string> url = endpoint(baseURL_, "/v1/messages");
    if (!url) throw failure(Kind::msg, "Anthropic: invalid endpoint URL");
    // Checked at each request, not only by `config set`: an address already in
    // config.json from before must not be handed the key either.
    if (crossesTheNetworkInClear(*url)) {
        throw failure(Kind::msg,
                      "Anthropic: the API key is not sent over plain http:// to another machine "
                      "— set an https:// address in ai.anthropicBaseURL");
    }
    Json body = {{"model", model_},
                 {"max_tokens", maxTokens},
                 {"system", system},
                 {"messages", Json::array({Json{{"role", "user"}, {"content", prompt}}})}};
    HttpResponse response = postJSON(transport_, *url, body,
                                     {{"x-api-key", apiKey_}, {"anthropic-version", kAPIVersion}});
    if (response.transportError) {
        throw failure(Kind::network, "Anthropic: network error: " + *response.transportError);
    }
    std::optional<Json> reply = parseObject(response.body);
    if (!reply) throw failure(Kind::msg, "Anthropic: invalid response");
    if (!succeeded(response.status)) {
        std::string text = "Anthropic API " + std::to_string(response.status);
        if (std::optional<std::string> message = errorMessage(*reply)) text += ": " + *message;
        throw failure(Kind::msg, std::move(text));
    }
    std::optional<std::string> text = contentText(*reply);
    if (!text) throw failure(Kind::msg, "Anthropic: missing content in response");
    return std::move(*text);
}

}  // namespace quorvane
