#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/HttpTransport.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// A backend that writes the day's summary from a prompt. Only the prompt's text
// leaves the machine. Calls may come from any thread; nothing is kept between them.
class AIProvider {
public:
    virtual ~AIProvider() = default;

    // The model's answer to `prompt` under the instructions in `system`, at most
    // about `maxTokens` long where the backend takes a limit. Throws QuorvaneError
    // with a message for the user: `network` when no reply arrived, `msg` otherwise.
    virtual std::string summarize(const std::string& system, const std::string& prompt,
                                  int maxTokens) const = 0;

protected:
    static constexpr double kTimeoutSeconds = 60;

    // `baseURL` without its trailing "/"s, then `path`, in canonical form; nothing
    // when that is not an address.
    static std::optional<std::string> endpoint(std::string_view baseURL, std::string_view path);
    // A POST of `body` as JSON to `url`, with `headers` after the content type.
    static HttpResponse postJSON(const HttpTransport& transport, const std::string& url,
                                 const Json& body,
                                 std::vector<std::pair<std::string, std::string>> headers = {});
    // The reply as a JSON object; nothing when it is not one.
    static std::optional<Json> parseObject(const std::string& text);
    static bool succeeded(long status) { return status >= 200 && status <= 299; }
};

}  // namespace quorvane
