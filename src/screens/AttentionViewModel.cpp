#include "screens/AttentionViewModel.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "base/EnumNames.hpp"
#include "git/Aggregator.hpp"
#include "github/ActionAssistant.hpp"

namespace quorvane::AttentionViewModel {

namespace {

std::string_view attentionKindName(Kind kind) {
    switch (kind) {
        case Kind::staleWork: return "staleWork";
        case Kind::uncommitted: return "uncommitted";
        case Kind::unpushed: return "unpushed";
        case Kind::behind: return "behind";
        case Kind::account: return "account";
        case Kind::accountMissing: return "accountMissing";
        case Kind::proposals: return "proposals";
    }
    return "uncommitted";
}

std::string countedNoun(int count, std::string_view one, std::string_view many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

// Looking comes before committing or stashing: the person decides what goes in.
ActionSuggestion lookAtChanges(const std::string& cwd) {
    return {"Commit or stash the changes", "git status", {"git status"}, cwd};
}

// A quorvane command: it runs anywhere, so it names no folder.
ActionSuggestion quorvaneCommand(std::string title, std::string command) {
    return {std::move(title), command, {command}, ""};
}

// The git command that brings the branch and its upstream together, as the
// alignment view gives it; from the scan's own counts, which no sync has to have
// run for.
std::optional<ActionSuggestion> alignBranch(const RepoSnapshot& snapshot, const RepoConfig& repo) {
    if (snapshot.isDetachedHead)
        return ActionAssistant::switchToBranch(repo.defaultBranch, repo.localPath);
    SyncState state;
    state.id = repo.id;
    if (!snapshot.hasUpstream) {
        state.status = SyncState::Status::noUpstream;
    } else if (snapshot.ahead > 0 && snapshot.behind > 0) {
        state.status = SyncState::Status::diverged;
    } else if (snapshot.ahead > 0) {
        state.status = SyncState::Status::needsPush;
    } else {
        state.status = SyncState::Status::needsPull;
    }
    return ActionAssistant::suggestion(state, snapshot.branch, repo.defaultBranch, repo.localPath);
}

const RepoSnapshot* latestSnapshotOf(const std::vector<RepoSnapshot>& snapshots,
                                     const std::string& id) {
    auto found = std::find_if(snapshots.begin(), snapshots.end(),
                              [&](const RepoSnapshot& s) { return s.repoID == id; });
    return found == snapshots.end() ? nullptr : &*found;
}

std::string onBranch(const RepoSnapshot& snapshot) {
    return snapshot.branch.empty() ? "with HEAD detached" : "on " + snapshot.branch;
}

}  // namespace

std::vector<Item> items(const Source& source) {
    std::vector<Item> out;
    // Today's standings carry the same labels `today` shows, "stale" among them.
    for (const RepoTodayLine& line :
         Aggregator::standings(source.config.repositories, source.snapshots, source.now)) {
        const RepoConfig* repo = nullptr;
        for (const RepoConfig& each : source.config.repositories) {
            if (each.id == line.repoID) repo = &each;
        }
        const RepoSnapshot* snapshot = latestSnapshotOf(source.snapshots, line.repoID);
        if (repo == nullptr || snapshot == nullptr) continue;
        const int files = snapshot->files.total();
        if (files > 0) {
            const bool stale = std::find(line.statuses.begin(), line.statuses.end(),
                                         RepoStatus::stale) != line.statuses.end();
            std::string title =
                stale ? fmt::format("{} left uncommitted {} for days",
                                    countedNoun(files, "changed file", "changed files"),
                                    onBranch(*snapshot))
                      : fmt::format("{} not committed {}",
                                    countedNoun(files, "changed file", "changed files"),
                                    onBranch(*snapshot));
            out.push_back({stale ? Kind::staleWork : Kind::uncommitted, repo->id, line.name,
                           std::move(title), files, lookAtChanges(repo->localPath), std::nullopt});
        }
        if (snapshot->ahead > 0) {
            out.push_back(
                {Kind::unpushed, repo->id, line.name,
                 fmt::format("{} {} not pushed", countedNoun(snapshot->ahead, "commit", "commits"),
                             onBranch(*snapshot)),
                 snapshot->ahead, alignBranch(*snapshot, *repo), std::nullopt});
        }
        if (snapshot->behind > 0) {
            out.push_back({Kind::behind, repo->id, line.name,
                           fmt::format("{} behind its upstream {}",
                                       countedNoun(snapshot->behind, "commit", "commits"),
                                       onBranch(*snapshot)),
                           snapshot->behind, alignBranch(*snapshot, *repo), std::nullopt});
        }
    }
    for (const GitHubAccount& account : source.accounts) {
        if (account.status == GitHubAccount::Status::connected) continue;
        std::string title;
        switch (account.status) {
            case GitHubAccount::Status::tokenInvalid:
                title = "GitHub refused this account's token: store a new one, then check it";
                break;
            case GitHubAccount::Status::unchecked:
                title = "This account's token has not been checked with GitHub yet";
                break;
            case GitHubAccount::Status::error:
                title = "The last check of this account failed: check it again";
                break;
            case GitHubAccount::Status::connected: break;
        }
        out.push_back(
            {Kind::account, "",
             account.displayName.empty() ? account.username : account.displayName, std::move(title),
             0, quorvaneCommand("Check the account", "quorvane accounts check " + account.id),
             std::nullopt});
    }
    for (const RepoConfig& repo : source.config.repositories) {
        if (!repo.trackingEnabled) continue;
        auto state = std::find_if(source.syncStates.begin(), source.syncStates.end(),
                                  [&](const SyncState& s) { return s.id == repo.id; });
        if (state == source.syncStates.end() || state->status != SyncState::Status::accountMissing)
            continue;
        out.push_back({Kind::accountMissing, repo.id, displayNameOf(repo),
                       "No connected account reaches its GitHub repository: connect the account "
                       "that owns it",
                       0, quorvaneCommand("See the connected accounts", "quorvane accounts list"),
                       std::nullopt});
    }
    const auto pending = static_cast<int>(
        std::count_if(source.proposals.begin(), source.proposals.end(),
                      [](const auto& p) { return p.status == PendingProposal::Status::pending; }));
    if (pending > 0) {
        out.push_back({Kind::proposals, "", "",
                       fmt::format("{} from a coding agent {} for your review",
                                   countedNoun(pending, "proposal", "proposals"),
                                   pending == 1 ? "waits" : "wait"),
                       pending, quorvaneCommand("List the proposals", "quorvane proposals"),
                       std::string("/review")});
    }
    std::stable_sort(out.begin(), out.end(),
                     [](const Item& a, const Item& b) { return a.kind < b.kind; });
    return out;
}

std::vector<Item> fromStore(const Store& store, const AppConfig& config, Date now) {
    const std::vector<RepoSnapshot> snapshots = store.snapshots();
    const std::vector<SyncState> states = store.syncStates();
    const std::vector<GitHubAccount> accounts = store.accounts();
    const std::vector<PendingProposal> proposals =
        store.proposals(PendingProposal::Status::pending);
    return items({config, snapshots, states, accounts, proposals, now});
}

Json toJson(const std::vector<Item>& items) {
    Json list = Json::array();
    int committing = 0, pushing = 0, behind = 0, accounts = 0, proposals = 0;
    for (const Item& item : items) {
        Json json = {{"kind", attentionKindName(item.kind)},
                     {"repoID", item.repoID},
                     {"name", item.name},
                     {"title", item.title},
                     {"count", item.count}};
        if (item.suggestion) json["suggestion"] = quorvane::toJson(*item.suggestion);
        if (item.link) json["link"] = *item.link;
        list.push_back(std::move(json));
        switch (item.kind) {
            case Kind::staleWork:
            case Kind::uncommitted: ++committing; break;
            case Kind::unpushed: ++pushing; break;
            case Kind::behind: ++behind; break;
            case Kind::account:
            case Kind::accountMissing: ++accounts; break;
            case Kind::proposals: proposals += item.count; break;
        }
    }
    return {{"items", std::move(list)},        {"needsCommitCount", committing},
            {"needsPushCount", pushing},       {"behindCount", behind},
            {"accountProblemCount", accounts}, {"pendingProposalCount", proposals}};
}

}  // namespace quorvane::AttentionViewModel
