#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quorvane::testing {

// The first page of an account's repositories, as the GitHub client asks for it.
inline const std::string kGitHubRepositories =
    "/user/repos?per_page=100&affiliation=owner,collaborator,organization_member&sort=pushed";

// One repository in a listing of GitHub's; its default branch is main.
struct GitHubRepository {
    std::string owner, name;
    bool isPrivate = false, archived = false;
};

// The JSON array GitHub answers a listing of `repositories` with.
std::string gitHubRepositories(const std::vector<GitHubRepository>& repositories);

// A real HTTP/1.1 server on 127.0.0.1 at a port of its own, one connection at a
// time, each closed after its reply. It answers each path (with its query) with
// the reply a test set, else its fallback's, else 404, and records every request
// it read. A body is read by its Content-Length; a length that is malformed, given
// twice, larger than kMaxBodyBytes or beside a Transfer-Encoding is answered with
// a 400.
class LoopbackHttpServer {
public:
    static constexpr size_t kMaxBodyBytes = size_t{8} << 20;

    struct Reply {
        int status = 200;
        std::vector<std::pair<std::string, std::string>> headers;
        std::string body;
        bool silent = false;  // read the request, then answer nothing until stopped
    };

    LoopbackHttpServer();
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    // "http://127.0.0.1:<port>"
    std::string base() const;
    void set(const std::string& pathAndQuery, Reply reply);
    // Answers each target no `set` reply covers, such as pages that never end.
    void setFallback(std::function<Reply(const std::string& pathAndQuery)> answer);
    // Request heads, oldest first: request line and headers, CRLFs kept.
    std::vector<std::string> requests() const;
    // Request bodies, in the order of requests(); empty for a request without one
    // and for one refused with a 400.
    std::vector<std::string> bodies() const;

    // Answers as GitHub does for the account `login` holding the repositories of
    // `repositoriesJSON`, on one page.
    void serveGitHubAccount(const std::string& login, const std::string& repositoriesJSON = "[]");

private:
    enum class Read { more, closed, stopping };

    void serve();
    // Appends what the peer sent next to `into`, or says why nothing will come.
    Read readMore(int connection, std::string& into) const;

    int listener_ = -1;
    int stopPipe_[2] = {-1, -1};
    int port_ = 0;
    mutable std::mutex mutex_;
    std::map<std::string, Reply> replies_;
    std::function<Reply(const std::string&)> fallback_;
    std::vector<std::string> requests_;
    std::vector<std::string> bodies_;
    std::thread thread_;
};

}  // namespace quorvane::testing
