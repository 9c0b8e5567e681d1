// GitHub's answers as a hostile or broken server could give them: any status, any
// Link header, any body, page after page. The client either decodes them or throws
// QuorvaneError, and never sends the token anywhere but the API's own origin.
#include <cstdlib>
#include <mutex>

#include "FuzzSupport.hpp"
#include "base/QuorvaneError.hpp"
#include "github/ApiClient.hpp"

namespace quorvane::fuzz {
namespace {

constexpr std::string_view kHome = "https://api.github.com/";

// Each request takes the next reply from the input: a byte choosing the status,
// the Link header's line, the rate-limit header's line, then the body up to an
// ASCII record separator. An exhausted input is a network failure.
class ScriptedGitHub final : public HttpTransport {
public:
    explicit ScriptedGitHub(Input& input) : input_(input) {}
    HttpResponse get(const HttpRequest& request) const override {
        // The token goes to GitHub's API and nowhere else, whatever a page links to.
        if (!request.url.starts_with(kHome)) std::abort();
        std::lock_guard lock(mutex_);
        if (input_.empty()) {
            HttpResponse reset;
            reset.transportError = "connection reset";
            return reset;
        }
        static constexpr long kStatuses[] = {200, 200, 200, 200, 201, 204, 301,
                                             304, 401, 403, 404, 422, 429, 500};
        HttpResponse response;
        response.status = kStatuses[input_.byte() % std::size(kStatuses)];
        const std::string_view link = input_.field();
        if (!link.empty()) response.headers.emplace_back("Link", std::string(link));
        const std::string_view remaining = input_.field();
        if (!remaining.empty()) {
            response.headers.emplace_back("X-RateLimit-Remaining", std::string(remaining));
        }
        response.body = std::string(input_.field('\x1e'));
        return response;
    }
    HttpResponse post(const HttpRequest& request, const std::string&) const override {
        return get(request);
    }

private:
    Input& input_;
    mutable std::mutex mutex_;
};

}  // namespace
}  // namespace quorvane::fuzz

// The first byte picks the question; the rest answers it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quorvane;
    static const fuzz::FixedClock clock(fuzz::fixedNoon());
    fuzz::Input input(data, size);
    const uint8_t question = input.byte();
    if (question % 4 == 3) {
        (void)ApiClient::nextURL(std::string(input.field()));
        (void)ApiClient::parseDate(std::string(input.rest()));
        return 0;
    }
    fuzz::ScriptedGitHub github(input);
    // Not a real token: what the client must keep to GitHub's origin.
    const ApiClient client(std::string("fuzz-token"), github, clock);
    try {
        switch (question % 4) {
            case 0: (void)client.getAuthenticatedUser(); break;
            case 1: (void)client.listRepositories("account", question & 4, question & 8); break;
            default: (void)client.listBranches("owner", "repo"); break;
        }
    } catch (const QuorvaneError&) {
    }
    return 0;
}
