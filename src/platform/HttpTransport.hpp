#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorvane {

class Cancellation;

// One request, as the GitHub and AI clients need it; the body of a POST is given
// beside it.
struct HttpRequest {
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;  // sent in this order
    double timeoutSeconds = 60;
    // When given and cancelled, the request ends within about a second, as a
    // transport error, rather than at its timeout.
    const Cancellation* cancellation = nullptr;
};

// What came back, or why nothing did.
struct HttpResponse {
    long status = 0;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;  // as received
    std::optional<std::string> transportError;                 // set when no HTTP reply arrived

    // The first header of that name, compared without regard to case.
    std::optional<std::string> header(std::string_view name) const;
};

// The door to the network. Calls may come from any thread.
class HttpTransport {
public:
    virtual ~HttpTransport() = default;
    virtual HttpResponse get(const HttpRequest& request) const = 0;
    // Sends `body` as it is; its type goes in the request's headers.
    virtual HttpResponse post(const HttpRequest& request, const std::string& body) const = 0;
};

// Over libcurl: http and https only, no redirect followed, the reply body capped
// (a larger one is a transport error rather than memory spent on it). A POST
// goes out whole at once, without waiting for a 100 Continue.
class CurlTransport final : public HttpTransport {
public:
    static constexpr size_t kMaxBodyBytes = size_t{64} << 20;
    HttpResponse get(const HttpRequest& request) const override;
    HttpResponse post(const HttpRequest& request, const std::string& body) const override;
};

// Whether `url` is an address a strict parser accepts (no blank, a scheme, a
// host); the canonical form of it when it is.
std::optional<std::string> parseURL(std::string_view url);

// Whether what is sent to `url` could be read on the way: plain http to a host
// other than this machine's loopback (127.0.0.0/8, ::1, localhost). An address
// that does not parse counts as such. A token or an API key goes to no such address.
bool crossesTheNetworkInClear(std::string_view url);

}  // namespace quorvane
