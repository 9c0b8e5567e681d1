#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "records/JsonCodec.hpp"

namespace quorvane::testing {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

// GitHub's own published replies, for tests to replay against the client: the
// examples of its API description and exchanges recorded from the real service,
// as scripts/github-material.sh picks them out of two pinned npm packages into
// build-github-material/material.json. Each piece there names its source.
class GitHubMaterial {
public:
    // The file the build names, read once. Throws std::runtime_error saying how to
    // make it when it is missing or unreadable.
    static const GitHubMaterial& shared();

    explicit GitHubMaterial(const std::filesystem::path& file);

    // The piece at a JSON pointer ("/examples/user/body"); throws naming the
    // pointer when the file has no such piece.
    const Json& at(const std::string& pointer) const;

    // The address GitHub's recorded replies point at: "https://api.github.com".
    std::string origin() const;
    // `text` with GitHub's address replaced by `base` everywhere, so a recorded
    // Link leads to the loopback server (the client rightly refuses a next page on
    // an origin other than the first request's).
    std::string onBase(std::string text, const std::string& base) const;

    // The headers GitHub sent with a recorded exchange, by name, less
    // Content-Length, Connection and Transfer-Encoding: the loopback server writes
    // its own, and a replayed one would contradict the body it sends.
    static HeaderList replayHeaders(const Json& exchange);
    // `headers` with `name` (of any case) set to `value`: replaced where it is,
    // added at the end otherwise.
    static HeaderList withHeader(HeaderList headers, std::string_view name, std::string value);
    static HeaderList withoutHeader(HeaderList headers, std::string_view name);

private:
    Json material_;
};

}  // namespace quorvane::testing
