#include "platform/HttpTransport.hpp"

#include <arpa/inet.h>
#include <curl/curl.h>

#include <memory>
#include <mutex>

#include "platform/Cancellation.hpp"

namespace quorvane {

namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

// libcurl's global state must be set up once, before any thread uses it.
void initialiseCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Exchange {
    HttpResponse response;
    bool tooLarge = false;
};

size_t onBody(char* data, size_t size, size_t count, void* user) {
    auto* exchange = static_cast<Exchange*>(user);
    size_t bytes = size * count;
    if (exchange->response.body.size() + bytes > CurlTransport::kMaxBodyBytes) {
        exchange->tooLarge = true;
        return 0;  // makes libcurl stop with a write error
    }
    exchange->response.body.append(data, bytes);
    return bytes;
}

size_t onHeader(char* data, size_t size, size_t count, void* user) {
    auto* exchange = static_cast<Exchange*>(user);
    std::string_view line(data, size * count);
    // A new status line (after a 100 Continue, say) starts a new set of headers.
    if (line.starts_with("HTTP/")) exchange->response.headers.clear();
    size_t colon = line.find(':');
    if (colon != std::string_view::npos) {
        auto trim = [](std::string_view text) {
            while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
                text.remove_prefix(1);
            }
            while (!text.empty() && (text.back() == '\r' || text.back() == '\n' ||
                                     text.back() == ' ' || text.back() == '\t')) {
                text.remove_suffix(1);
            }
            return std::string(text);
        };
        exchange->response.headers.emplace_back(trim(line.substr(0, colon)),
                                                trim(line.substr(colon + 1)));
    }
    return size * count;
}

// libcurl asks about once a second, waiting or not; a non-zero answer ends the request.
int onProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const auto* cancellation = static_cast<const Cancellation*>(user);
    return cancellation->isCancelled() ? 1 : 0;
}

}  // namespace

std::optional<std::string> HttpResponse::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (equalsIgnoringCase(key, name)) return value;
    }
    return std::nullopt;
}

std::optional<std::string> parseURL(std::string_view url) {
    initialiseCurl();
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> handle(curl_url(), &curl_url_cleanup);
    if (!handle) return std::nullopt;
    std::string text(url);
    // Without CURLU_ALLOW_SPACE a blank anywhere is refused, as a strict parser does;
    // no default scheme is guessed.
    if (curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) {
        return std::nullopt;
    }
    char* canonical = nullptr;
    if (curl_url_get(handle.get(), CURLUPART_URL, &canonical, 0) != CURLUE_OK) {
        return std::nullopt;
    }
    std::string result(canonical);
    curl_free(canonical);
    return result;
}

bool crossesTheNetworkInClear(std::string_view url) {
    initialiseCurl();
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> handle(curl_url(), &curl_url_cleanup);
    std::string text(url);
    if (!handle || curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) {
        return true;
    }
    auto part = [&handle](CURLUPart which) -> std::optional<std::string> {
        char* value = nullptr;
        if (curl_url_get(handle.get(), which, &value, 0) != CURLUE_OK) return std::nullopt;
        std::string result(value);
        curl_free(value);
        return result;
    };
    std::optional<std::string> scheme = part(CURLUPART_SCHEME);
    if (scheme && equalsIgnoringCase(*scheme, "https")) return false;
    std::optional<std::string> host = part(CURLUPART_HOST);
    if (!scheme || !equalsIgnoringCase(*scheme, "http") || !host) return true;
    if (equalsIgnoringCase(*host, "localhost")) return false;
    // The parser gives an IPv6 host in brackets, and an IPv4 one in dotted form
    // however it was written; a name that merely starts with "127." is no address.
    in_addr v4{};
    if (::inet_pton(AF_INET, host->c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) != 127;
    in6_addr v6{};
    if (host->size() > 2 && host->front() == '[' && host->back() == ']' &&
        ::inet_pton(AF_INET6, host->substr(1, host->size() - 2).c_str(), &v6) == 1) {
        return !IN6_IS_ADDR_LOOPBACK(&v6);
    }
    return true;
}

namespace {

// One exchange, a GET when `body` is null and a POST of it otherwise.
HttpResponse perform(const HttpRequest& request, const std::string* body) {
    initialiseCurl();
    Exchange exchange;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), &curl_easy_cleanup);
    if (!curl) {
        exchange.response.transportError = "could not start a request";
        return exchange.response;
    }
    curl_slist* headers = nullptr;
    for (const auto& [name, value] : request.headers) {
        std::string line = name + ": " + value;
        // "Name:" alone would remove the header; "Name;" sends it empty.
        if (value.empty()) line = name + ";";
        headers = curl_slist_append(headers, line.c_str());
    }
    // Left to itself libcurl asks a server for leave before sending a larger body
    // and waits a second for an answer many servers never give; what is posted
    // here is small enough to send at once.
    if (body != nullptr) headers = curl_slist_append(headers, "Expect:");
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headerList(headers,
                                                                           &curl_slist_free_all);
    CURL* c = curl.get();
    curl_easy_setopt(c, CURLOPT_URL, request.url.c_str());
    if (body == nullptr) {
        curl_easy_setopt(c, CURLOPT_HTTPGET, 1L);
    } else {
        curl_easy_setopt(c, CURLOPT_POST, 1L);
        curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
        curl_easy_setopt(c, CURLOPT_POSTFIELDS, body->data());
    }
    curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeoutSeconds * 1000));
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, &exchange);
    curl_easy_setopt(c, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(c, CURLOPT_HEADERDATA, &exchange);
    if (request.cancellation != nullptr) {
        if (request.cancellation->isCancelled()) {
            exchange.response.transportError = "cancelled";
            return exchange.response;
        }
        curl_easy_setopt(c, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(c, CURLOPT_XFERINFOFUNCTION, onProgress);
        curl_easy_setopt(c, CURLOPT_XFERINFODATA, request.cancellation);
    }
    char errorText[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, errorText);

    CURLcode code = curl_easy_perform(c);
    if (code != CURLE_OK) {
        HttpResponse failed;
        failed.transportError =
            exchange.tooLarge ? std::string("the reply is larger than 64 MiB")
            : code == CURLE_ABORTED_BY_CALLBACK
                ? std::string("cancelled")
                : std::string(errorText[0] != '\0' ? errorText : curl_easy_strerror(code));
        return failed;
    }
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &exchange.response.status);
    return exchange.response;
}

}  // namespace

HttpResponse CurlTransport::get(const HttpRequest& request) const {
    return perform(request, nullptr);
}

HttpResponse CurlTransport::post(const HttpRequest& request, const std::string& body) const {
    return perform(request, &body);
}

}  // namespace quorvane
