// Adding, checking and removing GitHub accounts.
#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "base/EnumNames.hpp"
#include "base/Log.hpp"
#include "base/TextHelpers.hpp"
#include "base/Uuid.hpp"
#include "github/AccountSync.hpp"
#include "persistence/KeychainStore.hpp"

namespace quorvane {

namespace {

constexpr const char* kKeychainPrefix = "com.qvn.quorvane.account.";
constexpr const char* kNoToken = "no token available (Keychain / gh CLI)";

}  // namespace

bool AppEnvironment::loginMatches(const std::string& expected, const std::string& resolved) {
    // GitHub logins are case-insensitive: "Octocat" and "octocat" are one user.
    return expected.empty() || Text::asciiLower(expected) == Text::asciiLower(resolved);
}

AppEnvironment::AccountCheck AppEnvironment::validatedStamp(const GitHubAccount& account) {
    AccountCheck check{account, {}, true};
    std::optional<std::string> token = AuthResolver::token(account, keychain(), runner_);
    if (!token) {
        check.account.status = GitHubAccount::Status::tokenInvalid;
        check.problem = kNoToken;
        return check;
    }
    ApiClient client(std::move(token), transport_, clock_,
                     account.apiBaseURL.value_or(ApiClient::kPublicAPI));
    try {
        GitHubUser user = client.getAuthenticatedUser();
        if (!loginMatches(account.username, user.login)) {
            // The account's repositories and links were read as the other login; a
            // token of someone else must not quietly take them over.
            check.account.status = GitHubAccount::Status::error;
            check.problem = fmt::format(
                "the token signs in as {}, not {}; remove the account and add it again to "
                "switch",
                user.login, account.username);
            return check;
        }
        if (!user.login.empty()) check.account.username = user.login;
        if (user.avatarURL) check.account.avatarURL = user.avatarURL;
        check.account.status = GitHubAccount::Status::connected;
    } catch (const QuorvaneError& error) {
        check.account.status = error.kind() == QuorvaneError::Kind::auth
                                   ? GitHubAccount::Status::tokenInvalid
                                   : GitHubAccount::Status::error;
        check.problem = error.description();
    }
    return check;
}

void AppEnvironment::keepAccount(const GitHubAccount& account) {
    store_.upsertAccount(account);
    if (!store_.flush()) noteSaveProblem(store_.flushProblem());
    changeConfig([&](AppConfig& config) { mirrorAccountToConfig(config, account); });
    events_.publish("accounts", Json{{"id", account.id}}.dump());
}

std::optional<AppEnvironment::AccountCheck> AppEnvironment::addAccount(
    const std::string& displayName, const std::string& token,
    std::optional<std::string> apiBaseURL) {
    GitHubAccount account;
    account.id = newUUID();
    account.displayName = displayName;
    account.authType = GitHubAccount::AuthType::pat;
    account.keychainRef = kKeychainPrefix + account.id;
    account.apiBaseURL = std::move(apiBaseURL);
    if (!keychain().set(token, account.keychainRef)) {
        noteSaveProblem("the secret store (" + keychain().backendDescription() +
                        ") did not take the token");
        return std::nullopt;
    }
    AccountCheck check = validatedStamp(account);
    keepAccount(check.account);
    Log::app().info(
        fmt::format("added account {} ({})", check.account.id, enumName(check.account.status)));
    return check;
}

std::optional<AppEnvironment::AccountCheck> AppEnvironment::importAccountFromGh(
    std::optional<std::string> apiBaseURL) {
    GitHubAccount probe;
    probe.authType = GitHubAccount::AuthType::ghCLI;
    probe.apiBaseURL = std::move(apiBaseURL);
    std::optional<std::string> token = AuthResolver::token(probe, keychain(), runner_);
    if (!token) return std::nullopt;
    ApiClient client(std::move(token), transport_, clock_,
                     probe.apiBaseURL.value_or(ApiClient::kPublicAPI));
    GitHubUser user;
    try {
        user = client.getAuthenticatedUser();
    } catch (const QuorvaneError& error) {
        // Without GitHub's answer there is no telling whose login this is, so there
        // is nothing to add or refresh.
        probe.status = error.kind() == QuorvaneError::Kind::auth
                           ? GitHubAccount::Status::tokenInvalid
                           : GitHubAccount::Status::error;
        return AccountCheck{probe, error.description(), false};
    }
    GitHubAccount account;
    bool found = false;
    for (const GitHubAccount& existing : store_.accounts()) {
        if (existing.authType == GitHubAccount::AuthType::ghCLI &&
            existing.apiBaseURL == probe.apiBaseURL && !existing.username.empty() &&
            loginMatches(existing.username, user.login)) {
            account = existing;
            found = true;
            break;
        }
    }
    if (!found) {
        account.id = newUUID();
        account.displayName = user.login;
        account.username = user.login;
        account.authType = GitHubAccount::AuthType::ghCLI;
        account.apiBaseURL = probe.apiBaseURL;
    }
    AccountCheck check = validatedStamp(account);
    keepAccount(check.account);
    Log::app().info(fmt::format("{} account {} from gh ({})", found ? "refreshed" : "imported",
                                check.account.id, enumName(check.account.status)));
    return check;
}

std::optional<GitHubAccount> AppEnvironment::connectGitHubViaGh() {
    std::optional<AccountCheck> check = importAccountFromGh();
    if (!check || !check->stored || check->account.status != GitHubAccount::Status::connected) {
        return std::nullopt;
    }
    return check->account;
}

std::optional<AppEnvironment::AccountCheck> AppEnvironment::validateAccount(
    const std::string& accountID) {
    for (const GitHubAccount& account : store_.accounts()) {
        if (account.id != accountID) continue;
        AccountCheck check = validatedStamp(account);
        keepAccount(check.account);
        return check;
    }
    return std::nullopt;
}

bool AppEnvironment::removeAccount(const std::string& accountID) {
    std::optional<GitHubAccount> found;
    for (const GitHubAccount& account : store_.accounts()) {
        if (account.id == accountID) found = account;
    }
    if (!found) return false;
    // An account of the gh tool holds no token of its own: gh's stays where it is.
    if (!found->keychainRef.empty()) keychain().remove(found->keychainRef);
    store_.removeAccount(accountID);
    if (!store_.flush()) noteSaveProblem(store_.flushProblem());
    changeConfig([&](AppConfig& config) {
        std::erase_if(config.accounts, [&](const GitHubAccount& a) { return a.id == accountID; });
    });
    events_.publish("accounts", Json{{"id", accountID}}.dump());
    Log::app().info(fmt::format("removed account {}", accountID));
    return true;
}

}  // namespace quorvane
