#include "github/ApiClient.hpp"

#include <set>

#include "base/TextHelpers.hpp"

namespace quorvane {

namespace {

using Kind = QuorvaneError::Kind;

// Every piece between separators, empty ones included.
std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    size_t start = 0;
    while (true) {
        size_t end = text.find(separator, start);
        pieces.push_back(text.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) return pieces;
        start = end + 1;
    }
}

std::string decodeFailure(const std::exception& error) {
    return std::string("GitHub: failed to decode response — ") + error.what();
}

// The scheme, host and port of an address: a next page elsewhere would be handed
// the token.
std::string origin(const std::string& url) {
    size_t scheme = url.find("://");
    if (scheme == std::string::npos) return {};
    size_t end = url.find_first_of("/?#", scheme + 3);
    return url.substr(0, end);
}

GitHubUser decodeUser(const Json& json) {
    ObjectReader reader(json, "");
    return GitHubUser{reader.required<std::string>("login"), reader.optional<std::string>("name"),
                      reader.optional<std::string>("avatar_url")};
}

RemoteRepository decodeRepository(const Json& json, const std::string& path,
                                  const std::string& accountID, Date now) {
    ObjectReader reader(json, path);
    RemoteRepository repo;
    repo.name = reader.required<std::string>("name");
    repo.fullName = reader.required<std::string>("full_name");
    auto ownerJson = json.find("owner");
    if (ownerJson == json.end() || ownerJson->is_null()) {
        throw DecodeError(reader.childPath("owner") + ": required key is missing");
    }
    repo.owner = ObjectReader(*ownerJson, reader.childPath("owner")).required<std::string>("login");
    repo.id = accountID + ":" + repo.owner + "/" + repo.name;
    repo.accountID = accountID;
    repo.htmlURL = reader.orDefault<std::string>("html_url", "");
    repo.sshURL = reader.orDefault<std::string>("ssh_url", "");
    repo.cloneURL = reader.orDefault<std::string>("clone_url", "");
    repo.isPrivate = reader.orDefault<bool>("private", false);
    repo.isFork = reader.orDefault<bool>("fork", false);
    repo.isArchived = reader.orDefault<bool>("archived", false);
    repo.defaultBranch = reader.orDefault<std::string>("default_branch", "main");
    repo.description = reader.optional<std::string>("description");
    repo.language = reader.optional<std::string>("language");
    repo.pushedAt = ApiClient::parseDate(reader.optional<std::string>("pushed_at"));
    repo.updatedAt = ApiClient::parseDate(reader.optional<std::string>("updated_at"));
    repo.lastSyncedAt = now;
    return repo;
}

RemoteBranch decodeBranch(const Json& json, const std::string& path) {
    ObjectReader reader(json, path);
    RemoteBranch branch;
    branch.name = reader.required<std::string>("name");
    auto commit = json.find("commit");
    if (commit != json.end() && !commit->is_null()) {
        branch.lastCommitSha =
            ObjectReader(*commit, reader.childPath("commit")).optional<std::string>("sha");
    }
    return branch;
}

}  // namespace

ApiClient::ApiClient(std::optional<std::string> token, const HttpTransport& transport,
                     const Clock& clock, std::string baseURL, const Cancellation* cancellation,
                     ListingLimits limits)
    : token_(std::move(token)),
      transport_(transport),
      clock_(clock),
      baseURL_(std::move(baseURL)),
      cancellation_(cancellation),
      limits_(limits) {
    while (!baseURL_.empty() && baseURL_.back() == '/') baseURL_.pop_back();
}

HttpRequest ApiClient::makeRequest(const std::string& url) const {
    HttpRequest request;
    request.url = url;
    request.headers = {{"Accept", "application/vnd.github+json"},
                       {"X-GitHub-Api-Version", "2022-11-28"},
                       {"User-Agent", "Quorvane/2.0 (+https://github.com)"}};
    if (token_) request.headers.emplace_back("Authorization", "Bearer " + *token_);
    request.timeoutSeconds = 60;
    request.cancellation = cancellation_;
    return request;
}

std::optional<std::string> ApiClient::address(const std::string& pathAndQuery) const {
    return parseURL(baseURL_ + pathAndQuery);
}

std::optional<QuorvaneError> ApiClient::mapHTTPError(const HttpResponse& response) {
    long status = response.status;
    if (status >= 200 && status <= 299) return std::nullopt;
    if (status == 404) return QuorvaneError(Kind::notFound, "GitHub: not found/inaccessible");
    if (status == 403) {
        std::optional<std::string> remaining = response.header("x-ratelimit-remaining");
        if (remaining && *remaining == "0") {
            return QuorvaneError(Kind::rateLimit, "GitHub rate limit exceeded");
        }
        return QuorvaneError(Kind::http, "GitHub forbidden", 403);
    }
    if (status == 401) return QuorvaneError(Kind::auth, "GitHub: token invalid/expired");
    return QuorvaneError(Kind::http, "GitHub error", static_cast<int>(status));
}

std::pair<Json, HttpResponse> ApiClient::request(const std::string& url) const {
    // Checked here rather than where an address is typed: one stored before that
    // check existed must not carry the token either.
    if (token_ && crossesTheNetworkInClear(url)) {
        throw QuorvaneError(Kind::msg,
                            "GitHub: the token is not sent over plain http:// to another machine "
                            "— use the https:// address of the API");
    }
    HttpResponse response = transport_.get(makeRequest(url));
    if (response.transportError) {
        throw QuorvaneError(Kind::network, "GitHub: network error — " + *response.transportError);
    }
    if (response.status < 100 || response.status > 599) {
        throw QuorvaneError(Kind::msg, "GitHub: invalid response");
    }
    if (std::optional<QuorvaneError> error = mapHTTPError(response)) throw *error;
    try {
        Json body = JsonCodec::parse(response.body);
        return {std::move(body), std::move(response)};
    } catch (const DecodeError& error) {
        throw QuorvaneError(Kind::msg, decodeFailure(error));
    }
}

void ApiClient::paginated(const std::string& firstURL, const std::string& what, const char* noun,
                          const std::function<void(const Json&, size_t)>& take) const {
    auto stopped = [&what](const std::string& why) {
        return QuorvaneError(Kind::msg, "GitHub: reading " + what + " stopped — " + why);
    };
    const Date start = clock_.now();
    const std::string home = origin(firstURL);
    // Addresses in parseURL's canonical form, as nextURL gives them.
    std::set<std::string> read;
    size_t elements = 0, bytes = 0;
    std::string url = firstURL;
    while (true) {
        read.insert(url);
        auto [page, response] = request(url);
        bytes += response.body.size();
        if (bytes > limits_.maxBytes) {
            throw stopped("more than " + std::to_string(limits_.maxBytes >> 20) + " MB of replies");
        }
        if (!page.is_array()) {
            throw QuorvaneError(Kind::msg,
                                "GitHub: failed to decode response — expected an "
                                "array, found " +
                                    JsonCodec::describe(page));
        }
        if (page.size() > limits_.maxElements - elements) {
            throw stopped("more than " + std::to_string(limits_.maxElements) + " " + noun);
        }
        for (const Json& element : page) take(element, elements++);
        std::optional<std::string> next = nextURL(response.header("Link"));
        // A next page on another host would be sent the token: the walk ends there.
        if (!next || origin(*next) != home) return;
        if (read.contains(*next)) throw stopped("its pages lead back to one already read");
        if (read.size() >= limits_.maxPages) {
            throw stopped("more than " + std::to_string(limits_.maxPages) + " pages");
        }
        if (clock_.now() - start >= limits_.deadline) {
            throw stopped("not done after " + std::to_string(limits_.deadline.count()) +
                          " seconds");
        }
        url = std::move(*next);
    }
}

GitHubUser ApiClient::getAuthenticatedUser() const {
    std::optional<std::string> url = address("/user");
    if (!url) throw QuorvaneError(Kind::msg, "GitHub: invalid URL /user");
    Json body = request(*url).first;
    try {
        return decodeUser(body);
    } catch (const DecodeError& error) {
        throw QuorvaneError(Kind::msg, decodeFailure(error));
    }
}

std::vector<RemoteRepository> ApiClient::listRepositories(const std::string& accountID,
                                                          bool includePrivate,
                                                          bool includeArchived) const {
    std::optional<std::string> url = address(
        "/user/repos?per_page=100&affiliation=owner,collaborator,organization_member&sort=pushed");
    if (!url) throw QuorvaneError(Kind::msg, "GitHub: invalid URL /user/repos");
    Date now = clock_.now();
    std::vector<RemoteRepository> repos;
    try {
        paginated(*url, "the repository list", "repositories", [&](const Json& element, size_t i) {
            RemoteRepository repo =
                decodeRepository(element, "[" + std::to_string(i) + "]", accountID, now);
            if (!includePrivate && repo.isPrivate) return;
            if (!includeArchived && repo.isArchived) return;
            repos.push_back(std::move(repo));
        });
    } catch (const DecodeError& error) {
        throw QuorvaneError(Kind::msg, decodeFailure(error));
    }
    return repos;
}

std::vector<RemoteBranch> ApiClient::listBranches(const std::string& owner,
                                                  const std::string& repo) const {
    std::string path = "/repos/" + owner + "/" + repo + "/branches";
    std::optional<std::string> url = address(path + "?per_page=100");
    if (!url) throw QuorvaneError(Kind::msg, "GitHub: invalid URL " + path);
    std::vector<RemoteBranch> branches;
    try {
        paginated(*url, "the branches of " + owner + "/" + repo, "branches",
                  [&](const Json& element, size_t i) {
                      branches.push_back(decodeBranch(element, "[" + std::to_string(i) + "]"));
                  });
    } catch (const DecodeError& error) {
        throw QuorvaneError(Kind::msg, decodeFailure(error));
    }
    return branches;
}

std::optional<std::string> ApiClient::nextURL(const std::optional<std::string>& link) {
    if (!link) return std::nullopt;
    // Each link is "<address>" and its parameters up to the next "<". Commas cannot
    // separate them: an address may hold its own ("affiliation=owner,collaborator"),
    // where splitting would lose the next page and end the listing early.
    std::string_view rest = *link;
    while (true) {
        size_t open = rest.find('<');
        if (open == std::string_view::npos) return std::nullopt;
        size_t close = rest.find('>', open + 1);
        if (close == std::string_view::npos) return std::nullopt;
        std::string_view target = rest.substr(open + 1, close - open - 1);
        rest.remove_prefix(close + 1);
        std::string_view parameters = rest.substr(0, rest.find('<'));
        for (std::string_view parameter : split(parameters, ';')) {
            if (parameter.find("rel=\"next\"") != std::string_view::npos) return parseURL(target);
        }
    }
}

std::optional<Date> ApiClient::parseDate(const std::optional<std::string>& text) {
    if (!text || text->empty()) return std::nullopt;
    return DateHelpers::parseISO(*text);
}

}  // namespace quorvane
