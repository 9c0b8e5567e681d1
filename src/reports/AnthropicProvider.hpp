#pragma once

#include <string>

#include "base/QuorvaneError.hpp"
#include "reports/AIProvider.hpp"

namespace quorvane {

// Anthropic's Messages API, for one API key and model. The key goes out in its
// header only and never into an error text.
class AnthropicProvider final : public AIProvider {
public:
    static constexpr const char* kPublicAPI = "https://api.anthropic.com";
    static constexpr const char* kAPIVersion = "2023-06-01";

    // `baseURL` is the server; "/v1/messages" is added after any trailing "/".
    // `transport` must outlive the provider.
    AnthropicProvider(std::string apiKey, std::string model, const HttpTransport& transport,
                      std::string baseURL = kPublicAPI);

    std::string summarize(const std::string& system, const std::string& prompt,
                          int maxTokens) const override;

    const std::string& model() const { return model_; }

private:
    // An error whose text carries no trace of the key, whatever a server echoed.
    QuorvaneError failure(QuorvaneError::Kind kind, std::string text) const;

    std::string apiKey_;
    std::string model_;
    const HttpTransport& transport_;
    std::string baseURL_;
};

}  // namespace quorvane
