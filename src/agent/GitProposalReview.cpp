#include "agent/GitProposalReview.hpp"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "agent/SafeGitRunner.hpp"
#include "base/PathHelpers.hpp"
#include "base/RemoteURL.hpp"
#include "base/TextHelpers.hpp"
#include "git/GitCommand.hpp"
#include "git/GitConfigListing.hpp"

namespace quorvane {

namespace {

namespace fs = std::filesystem;
using Entry = GitConfigListing::Entry;

constexpr double kReadTimeoutSeconds = 15;

// Everything of a repository's configuration that decides where a push or fetch
// connects or names a program it may run: ssh, a proxy, askpass, credential
// helpers, hooks, the fsmonitor and filters a pull's checkout runs, remote helpers
// and the programs at the other end, transports allowed, and address rewrites.
const char* const kConfigPattern =
    "^(core\\.(repositoryformatversion|sshcommand|hookspath|askpass|fsmonitor|gitproxy)|"
    "credential\\..*helper|url\\..*\\.(insteadof|pushinsteadof)|"
    "remote\\..*\\.(url|pushurl|uploadpack|receivepack|vcs|proxy)|branch\\..*\\.remote|"
    "protocol\\..*allow|filter\\..*\\.(clean|smudge|process))$";

// Our own settings for the read-only child come back with the scope "command"; they
// do not apply to the confirmed command.
bool applies(const Entry& entry) {
    return entry.scope != "command" && entry.value.has_value();
}

bool isRepositorysOwn(const Entry& entry) {
    return entry.scope == "local" || entry.scope == "worktree";
}

// The last value of a single-valued key, as git reads it.
std::optional<std::string> lastValue(const std::vector<Entry>& entries, const std::string& key) {
    std::optional<std::string> value;
    for (const Entry& entry : entries) {
        if (applies(entry) && entry.key == key) value = entry.value;
    }
    return value;
}

std::vector<std::string> allValues(const std::vector<Entry>& entries, const std::string& key) {
    std::vector<std::string> values;
    for (const Entry& entry : entries) {
        if (applies(entry) && entry.key == key) values.push_back(*entry.value);
    }
    return values;
}

// `url` with the longest matching url.<base>.<variable> prefix replaced by its base,
// or nothing when none matches.
std::optional<std::string> rewritten(const std::vector<Entry>& entries, const std::string& url,
                                     std::string_view variable) {
    constexpr std::string_view head = "url.";
    const std::string tail = "." + std::string(variable);
    std::optional<std::string> best;
    size_t longest = 0;
    for (const Entry& entry : entries) {
        if (!applies(entry) || entry.key.size() <= head.size() + tail.size() ||
            !entry.key.starts_with(head) || !entry.key.ends_with(tail)) {
            continue;
        }
        const std::string& prefix = *entry.value;
        if (!url.starts_with(prefix) || (best && prefix.size() <= longest)) continue;
        longest = prefix.size();
        best = entry.key.substr(head.size(), entry.key.size() - head.size() - tail.size()) +
               url.substr(prefix.size());
    }
    return best;
}

// Where a command connects: a push to every push URL, or to every URL with the
// push rewrites tried first; a fetch to the first URL.
std::vector<std::string> remoteURLs(const std::vector<Entry>& entries, const std::string& remote,
                                    bool pushes) {
    std::vector<std::string> urls = allValues(entries, "remote." + remote + ".url");
    std::vector<std::string> pushURLs = allValues(entries, "remote." + remote + ".pushurl");
    std::vector<std::string> shown;
    if (pushes && !pushURLs.empty()) {
        for (const std::string& url : pushURLs) {
            shown.push_back(rewritten(entries, url, "insteadof").value_or(url));
        }
    } else {
        if (!pushes && urls.size() > 1) urls.resize(1);
        for (const std::string& url : urls) {
            std::optional<std::string> forPush =
                pushes ? rewritten(entries, url, "pushinsteadof") : std::nullopt;
            shown.push_back(forPush ? *forPush
                                    : rewritten(entries, url, "insteadof").value_or(url));
        }
    }
    for (std::string& url : shown) url = RemoteURL::withoutCredentials(url);
    return shown;
}

// "key=value" without credentials: an address (in a value, or the base of a url.*
// key) loses its user part unless it is an ssh account, which is no secret and
// says who connects; anything else loses the user part of any address in it.
std::string settingShown(const Entry& entry) {
    std::string key = entry.key;
    const size_t lastDot = key.rfind('.');
    const bool addressKey = key.starts_with("url.") && lastDot > 4;
    if (addressKey) {
        key = "url." + RemoteURL::withoutCredentials(key.substr(4, lastDot - 4)) +
              key.substr(lastDot);
    }
    if (!entry.value) return key;
    const bool addressValue =
        addressKey || key.ends_with(".url") || key.ends_with(".pushurl") || key.ends_with(".proxy");
    return key + "=" +
           (addressValue ? RemoteURL::withoutCredentials(*entry.value)
                         : RemoteURL::scrubbed(*entry.value));
}

// The settings a person is shown: the repository's own, of this remote or of none.
std::vector<std::string> ownSettings(const std::vector<Entry>& entries, const std::string& remote) {
    std::vector<std::string> shown;
    for (const Entry& entry : entries) {
        if (!isRepositorysOwn(entry) || entry.key == "core.repositoryformatversion" ||
            entry.key.starts_with("branch.") || entry.key == "remote." + remote + ".url") {
            continue;
        }
        if (entry.key.starts_with("remote.") && !entry.key.starts_with("remote." + remote + ".")) {
            continue;
        }
        shown.push_back(settingShown(entry));
    }
    return shown;
}

// The hooks git would find: in core.hooksPath when any configuration sets it (a
// relative one from the top of the work tree), else in the repository's own folder.
std::vector<std::string> presentHooks(const GitConfigListing& listing, const std::string& path) {
    fs::path folder;
    if (std::optional<std::string> hooksPath = lastValue(listing.entries, "core.hookspath")) {
        folder = PathHelpers::expandTilde(*hooksPath);
        if (folder.is_relative()) folder = fs::path(path) / folder;
    } else if (std::optional<std::string> config = listing.localConfigFile(path)) {
        folder = fs::path(*config).parent_path() / "hooks";
    } else {
        folder = fs::path(path) / ".git/hooks";
    }
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& item : fs::directory_iterator(folder, ec)) {
        std::string name = item.path().filename().string();
        // git runs a hook only when it is executable; the samples it installs are not.
        if (name.ends_with(".sample") || !item.is_regular_file(ec) ||
            ::access(item.path().c_str(), X_OK) != 0) {
            continue;
        }
        names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

std::optional<GitProposalReview> GitProposalReview::of(const PendingProposal& proposal,
                                                       const AppConfig& config,
                                                       const ProcessRunner& runner) {
    if (!proposal.intendedTool) return std::nullopt;
    const Json args = Json::parse(proposal.payloadJSON, nullptr, false);
    if (!args.is_object()) return std::nullopt;
    std::optional<std::string> branch;
    if (auto found = args.find("branch"); found != args.end() && found->is_string()) {
        branch = found->get<std::string>();
    }
    std::optional<SafeGitAction> action = SafeGitAction::forTool(*proposal.intendedTool, branch);
    auto repoArg = args.find("repoId");
    if (!action || repoArg == args.end() || !repoArg->is_string()) return std::nullopt;
    const std::string repoID = repoArg->get<std::string>();
    auto repo = std::find_if(config.repositories.begin(), config.repositories.end(),
                             [&](const RepoConfig& r) { return r.id == repoID; });
    if (repo == config.repositories.end()) return std::nullopt;

    const std::string path = PathHelpers::expandTilde(repo->localPath);
    GitProposalReview review;
    review.command = {std::string(GitCommand::kGitPath)};
    for (std::string& argument : SafeGitRunner::arguments(*action, path)) {
        review.command.push_back(std::move(argument));
    }
    const bool pushes = std::holds_alternative<SafeGitAction::Push>(action->value) ||
                        std::holds_alternative<SafeGitAction::SetUpstreamPush>(action->value);

    ShellResult read =
        runner.run(GitCommand::request(path,
                                       {"config", "--show-scope", "--show-origin", "--includes",
                                        "-z", "--get-regexp", kConfigPattern},
                                       kReadTimeoutSeconds));
    GitConfigListing listing = GitConfigListing::parse(read.stdOut).value_or(GitConfigListing{});
    // A push names origin; a fetch or pull goes to the current branch's remote.
    review.remote.name = "origin";
    if (!pushes) {
        ShellResult head = runner.run(GitCommand::request(
            path, {"symbolic-ref", "-q", "--short", "HEAD"}, kReadTimeoutSeconds));
        std::string current(Text::trim(head.stdOut));
        if (!current.empty()) {
            review.remote.name =
                lastValue(listing.entries, "branch." + current + ".remote").value_or("origin");
        }
    }
    review.remote.urls = remoteURLs(listing.entries, review.remote.name, pushes);
    review.settings = ownSettings(listing.entries, review.remote.name);
    review.hooks = presentHooks(listing, path);
    return review;
}

}  // namespace quorvane
