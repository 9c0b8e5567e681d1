#pragma once

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "github/ApiClient.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/KeychainStore.hpp"
#include "platform/ProcessRunner.hpp"
#include "records/BranchRecord.hpp"
#include "records/GitHubAccount.hpp"

namespace quorvane {

// Where an account's token comes from, first found wins: the secret store; then,
// for an account that uses the gh tool, GITHUB_TOKEN, GH_TOKEN, `gh auth token`
// through the login shell, and git's credential helpers. Never fails: no token is
// the empty answer, which the caller reports.
namespace AuthResolver {

using Environment = std::function<std::optional<std::string>(const char* name)>;

// The process's own environment.
std::optional<std::string> processEnvironment(const char* name);

// The host an account's token belongs to, as gh and git's credential helpers name
// it: "github.com" for the public API, the API's own host (with its port) for
// GitHub Enterprise Server. Nothing when apiBaseURL holds no plain host name.
std::optional<std::string> githubHost(const GitHubAccount& account);

// A cancelled `cancellation` stops the gh and git children at once.
std::optional<std::string> token(const GitHubAccount& account, KeychainStore& keychain,
                                 const ProcessRunner& runner,
                                 const Environment& environment = processEnvironment,
                                 const Cancellation* cancellation = nullptr);

}  // namespace AuthResolver

// One account's pass over GitHub: the user, the repositories, and the branches of
// the repositories the user tracks, one request after another. Stores nothing.
class AccountSyncEngine {
public:
    struct Result {
        GitHubUser user;
        std::vector<RemoteRepository> repos;
        std::vector<BranchRecord> branches;
    };

    explicit AccountSyncEngine(const GitHubClient& client) : client_(client) {}

    // Throws the QuorvaneError of the user or repository listing; a failed branch
    // listing only leaves that repository without branches. `tracked` holds
    // (owner, repo) pairs, matched without regard to case.
    Result sync(const GitHubAccount& account, const SyncPrefs& prefs,
                const std::vector<std::pair<std::string, std::string>>& tracked, Date now) const;

private:
    const GitHubClient& client_;
};

}  // namespace quorvane
