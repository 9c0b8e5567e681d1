#include "testing/GitHubMaterial.hpp"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "base/TextHelpers.hpp"

namespace quorvane::testing {

namespace {

bool sameName(std::string_view a, std::string_view b) {
    return Text::asciiLower(a) == Text::asciiLower(b);
}

}  // namespace

const GitHubMaterial& GitHubMaterial::shared() {
    static const GitHubMaterial material(QUORVANE_GITHUB_MATERIAL);
    return material;
}

GitHubMaterial::GitHubMaterial(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!std::filesystem::is_regular_file(file) || !in) {
        throw std::runtime_error("GitHub's published material is missing: " + file.string() +
                                 " cannot be read; run `bash scripts/github-material.sh`");
    }
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    try {
        material_ = Json::parse(text);
    } catch (const Json::exception& error) {
        throw std::runtime_error(file.string() + " is not JSON (" + error.what() +
                                 "); run `bash scripts/github-material.sh` again");
    }
}

const Json& GitHubMaterial::at(const std::string& pointer) const {
    try {
        return material_.at(Json::json_pointer(pointer));
    } catch (const Json::exception&) {
        throw std::runtime_error("the GitHub material has no " + pointer +
                                 "; run `bash scripts/github-material.sh` again");
    }
}

std::string GitHubMaterial::origin() const {
    return at("/origin").get<std::string>();
}

std::string GitHubMaterial::onBase(std::string text, const std::string& base) const {
    const std::string from = origin();
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), base);
        at += base.size();
    }
    return text;
}

HeaderList GitHubMaterial::replayHeaders(const Json& exchange) {
    HeaderList headers;
    for (const auto& [name, value] : exchange.at("headers").items()) {
        if (sameName(name, "content-length") || sameName(name, "connection") ||
            sameName(name, "transfer-encoding")) {
            continue;
        }
        // The recordings keep some values as JSON numbers (x-ratelimit-used: 1);
        // on the wire they were the same digits.
        headers.emplace_back(name, value.is_string() ? value.get<std::string>() : value.dump());
    }
    return headers;
}

HeaderList GitHubMaterial::withHeader(HeaderList headers, std::string_view name,
                                      std::string value) {
    for (auto& [key, current] : headers) {
        if (sameName(key, name)) {
            current = std::move(value);
            return headers;
        }
    }
    headers.emplace_back(std::string(name), std::move(value));
    return headers;
}

HeaderList GitHubMaterial::withoutHeader(HeaderList headers, std::string_view name) {
    std::erase_if(headers, [&](const auto& header) { return sameName(header.first, name); });
    return headers;
}

}  // namespace quorvane::testing
