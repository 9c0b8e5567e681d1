#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/QuorvaneError.hpp"
#include "github/RemoteBranch.hpp"
#include "platform/Clock.hpp"
#include "platform/HttpTransport.hpp"
#include "records/JsonCodec.hpp"
#include "records/RemoteRepository.hpp"

namespace quorvane {

// The authenticated user, as /user gives it.
struct GitHubUser {
    std::string login;
    std::optional<std::string> name;
    std::optional<std::string> avatarURL;
    bool operator==(const GitHubUser&) const = default;
};

// What the account sync reads from GitHub. Every call throws QuorvaneError.
class GitHubClient {
public:
    virtual ~GitHubClient() = default;
    virtual GitHubUser getAuthenticatedUser() const = 0;
    // Every repository the user reaches, most recently pushed first; private and
    // archived ones only when asked for. `accountID` names the records.
    virtual std::vector<RemoteRepository> listRepositories(const std::string& accountID,
                                                           bool includePrivate,
                                                           bool includeArchived) const = 0;
    virtual std::vector<RemoteBranch> listBranches(const std::string& owner,
                                                   const std::string& repo) const = 0;
};

// How far one listing may go before it fails. The server says where the next
// page is, so without them a server whose pages lead back to an earlier one, or
// never end, would hold the sync (and the memory of everything read) forever.
struct ListingLimits {
    // GitHub sends at most 100 entries a page (30 unless asked): 1000 pages
    // hold the largest list below even at its default page size.
    size_t maxPages = 1000;
    // Ten times the several thousand repositories a busy member of large
    // organisations reaches, and far more branches than a big repository has.
    size_t maxElements = 30000;
    // A repository entry is about 6 KB of JSON, so that many entries fit; it
    // bounds what entries with huge fields could make the records hold.
    size_t maxBytes = size_t{256} << 20;
    // For the whole walk. GitHub takes a second or two for a page of 100
    // repositories, so the 300 pages of the longest list above end well inside
    // it, while a server that drips out pages cannot hold a sync much longer.
    std::chrono::seconds deadline{900};
};

// The GitHub REST API, read only, for one token. Keeps no cache and no rate-limit
// state: a limit is reported, not waited out. Pages are read one after another and
// a failed page fails the whole listing, as does one that outgrows its limits.
class ApiClient final : public GitHubClient {
public:
    static constexpr const char* kPublicAPI = "https://api.github.com";

    // No token: no Authorization header at all. An empty one is still sent.
    // A cancelled `cancellation` ends the request in flight (a network error).
    ApiClient(std::optional<std::string> token, const HttpTransport& transport, const Clock& clock,
              std::string baseURL = kPublicAPI, const Cancellation* cancellation = nullptr,
              ListingLimits limits = {});

    GitHubUser getAuthenticatedUser() const override;
    std::vector<RemoteRepository> listRepositories(const std::string& accountID,
                                                   bool includePrivate,
                                                   bool includeArchived) const override;
    std::vector<RemoteBranch> listBranches(const std::string& owner,
                                           const std::string& repo) const override;

    // The request for `url`, with every header GitHub is sent.
    HttpRequest makeRequest(const std::string& url) const;

    // The rel="next" address of a Link header, or nothing.
    static std::optional<std::string> nextURL(const std::optional<std::string>& link);
    // Internet date-time, with or without fractional seconds; nothing otherwise.
    static std::optional<Date> parseDate(const std::optional<std::string>& text);
    // The error a status stands for, or nothing for 2xx.
    static std::optional<QuorvaneError> mapHTTPError(const HttpResponse& response);

private:
    // One request: the decoded body and the response it came in.
    std::pair<Json, HttpResponse> request(const std::string& url) const;
    // Hands `take` every element of every page from `firstURL` on, with its index
    // in the whole list, page by page, so only one page's JSON is held at a time.
    // `what` names the list and `noun` its entries in the error of a broken limit.
    void paginated(const std::string& firstURL, const std::string& what, const char* noun,
                   const std::function<void(const Json& element, size_t index)>& take) const;
    std::optional<std::string> address(const std::string& pathAndQuery) const;

    std::optional<std::string> token_;
    const HttpTransport& transport_;
    const Clock& clock_;
    std::string baseURL_;
    const Cancellation* cancellation_;
    ListingLimits limits_;
};

}  // namespace quorvane
