#pragma once

#include <string>

#include "reports/AIProvider.hpp"

namespace quorvane {

// An Ollama server's chat API, one whole reply per call (no streaming). Ollama
// is given no token limit, so `maxTokens` is not sent.
class OllamaProvider final : public AIProvider {
public:
    // `baseURL` is the server; "/api/chat" is added after any trailing "/".
    // `transport` must outlive the provider.
    OllamaProvider(std::string baseURL, std::string model, const HttpTransport& transport);

    std::string summarize(const std::string& system, const std::string& prompt,
                          int maxTokens) const override;

    const std::string& model() const { return model_; }

private:
    std::string baseURL_;
    std::string model_;
    const HttpTransport& transport_;
};

}  // namespace quorvane
