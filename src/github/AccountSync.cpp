#include "github/AccountSync.hpp"

#include <algorithm>
#include <cctype>
#include <set>

#include "base/TextHelpers.hpp"
#include "git/GitCommand.hpp"

namespace quorvane {

namespace AuthResolver {

std::optional<std::string> processEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return std::string(value);
}

std::optional<std::string> githubHost(const GitHubAccount& account) {
    if (!account.apiBaseURL) return "github.com";
    std::string_view url = *account.apiBaseURL;
    size_t start = url.find("://");
    if (start == std::string_view::npos) return std::nullopt;
    start += 3;
    std::string host(url.substr(start, url.find_first_of("/?#", start) - start));
    // The host goes into a command line and a credential request: letters, digits,
    // dots, dashes and a port, nothing a shell or git would read otherwise.
    bool plain = !host.empty() && std::all_of(host.begin(), host.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == ':';
    });
    if (!plain || host.front() == '-') return std::nullopt;
    host = Text::asciiLower(host);
    if (host == "api.github.com") return "github.com";
    return host;
}

std::optional<std::string> token(const GitHubAccount& account, KeychainStore& keychain,
                                 const ProcessRunner& runner, const Environment& environment,
                                 const Cancellation* cancellation) {
    if (!account.keychainRef.empty()) {
        std::optional<std::string> stored = keychain.string(account.keychainRef);
        if (stored && !stored->empty()) return stored;
    }
    if (account.authType != GitHubAccount::AuthType::ghCLI) return std::nullopt;
    for (const char* name : {"GITHUB_TOKEN", "GH_TOKEN"}) {
        std::optional<std::string> value = environment(name);
        if (value && !value->empty()) return value;
    }
    std::optional<std::string> host = githubHost(account);
    if (!host) return std::nullopt;
    // gh and git's helpers run in "/", a folder of no repository: this process may
    // have been started inside a checkout of anything, and that checkout's
    // configuration must not choose the program a credential request is handed to.
    // Only the person's own settings (their ~/.gitconfig, the system's) apply.
    constexpr const char* kNoRepository = "/";
    std::string ask = *host == "github.com" ? "gh auth token" : "gh auth token --hostname " + *host;
    ShellResult gh = runner.loginShell(ask, kNoRepository, 60, cancellation);
    std::string printed(Text::trim(gh.stdOut));
    if (gh.succeeded() && !printed.empty()) return printed;

    // Git as the person runs it, with their helpers, and without the variables that
    // would point it at a repository after all.
    ProcessRequest fill = GitCommand::confirmedActionRequest({"credential", "fill"}, 15);
    fill.cwd = kNoRepository;
    fill.standardInput = "protocol=https\nhost=" + *host + "\n\n";
    fill.cancellation = cancellation;
    // Only what a helper already holds: nothing may ask the user, on a terminal or
    // through an askpass window, in the middle of a background sync.
    fill.environment.emplace_back("GIT_ASKPASS", "");
    fill.unsetEnvironment.push_back("SSH_ASKPASS");
    ShellResult credential = runner.run(fill);
    if (!credential.succeeded()) return std::nullopt;
    for (std::string_view line : Text::nonEmptyLines(credential.stdOut)) {
        if (!line.starts_with("password=")) continue;
        std::string password(Text::trim(line.substr(9)));
        if (!password.empty()) return password;
    }
    return std::nullopt;
}

}  // namespace AuthResolver

AccountSyncEngine::Result AccountSyncEngine::sync(
    const GitHubAccount& account, const SyncPrefs& prefs,
    const std::vector<std::pair<std::string, std::string>>& tracked, Date now) const {
    Result result;
    result.user = client_.getAuthenticatedUser();
    result.repos = client_.listRepositories(account.id, prefs.syncPrivate, prefs.syncArchived);
    std::set<std::string> keys;
    for (const auto& [owner, repo] : tracked)
        keys.insert(Text::asciiLower(owner) + "/" + Text::asciiLower(repo));
    for (const RemoteRepository& repo : result.repos) {
        if (!keys.contains(Text::asciiLower(repo.owner) + "/" + Text::asciiLower(repo.name)))
            continue;
        std::vector<RemoteBranch> branches;
        try {
            branches = client_.listBranches(repo.owner, repo.name);
        } catch (const QuorvaneError&) {
            continue;  // one repository's branches never fail the account
        }
        std::string repoID = account.id + ":" + repo.owner + "/" + repo.name;
        for (const RemoteBranch& branch : branches) {
            BranchRecord record;
            record.repoID = repoID;
            record.name = branch.name;
            record.isRemote = true;
            record.id = record.composedID();
            record.lastCommitSha = branch.lastCommitSha;
            record.lastCommitDate = branch.lastCommitDate;
            record.lastSyncedAt = now;
            result.branches.push_back(std::move(record));
        }
    }
    return result;
}

}  // namespace quorvane
