#include "reports/AIProvider.hpp"

namespace quorvane {

std::optional<std::string> AIProvider::endpoint(std::string_view baseURL, std::string_view path) {
    // "http://host:11434/" as typed into the settings must not become "//api/chat".
    while (baseURL.ends_with('/')) baseURL.remove_suffix(1);
    return parseURL(std::string(baseURL) + std::string(path));
}

HttpResponse AIProvider::postJSON(const HttpTransport& transport, const std::string& url,
                                  const Json& body,
                                  std::vector<std::pair<std::string, std::string>> headers) {
    HttpRequest request;
    request.url = url;
    request.headers = {{"content-type", "application/json"}};
    for (auto& header : headers) request.headers.push_back(std::move(header));
    request.timeoutSeconds = kTimeoutSeconds;
    // Commit subjects come from repositories and need not be UTF-8; a stray byte
    // becomes U+FFFD rather than failing the whole summary.
    return transport.post(request, body.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::optional<Json> AIProvider::parseObject(const std::string& text) {
    try {
        Json value = JsonCodec::parse(text);
        if (value.is_object()) return value;
    } catch (const DecodeError&) {
        // Not JSON at all is the same failure as JSON of another shape.
    }
    return std::nullopt;
}

}  // namespace quorvane
