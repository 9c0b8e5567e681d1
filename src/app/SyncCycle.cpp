// The remote side of the application: accounts and the sync cycle.
#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "base/Log.hpp"
#include "github/AccountSync.hpp"
#include "github/BranchIntelligence.hpp"
#include "github/HealthScorer.hpp"
#include "github/RepoMapper.hpp"
#include "github/SyncStateEngine.hpp"
#include "persistence/KeychainStore.hpp"
#include "reports/RemindersV2.hpp"

namespace quorvane {

namespace {

std::string_view statusWord(GitHubAccount::Status status) {
    return status == GitHubAccount::Status::tokenInvalid ? "tokenInvalid" : "error";
}

// Minutes between periodic syncs; 0 for none.
int intervalMinutes(SyncPrefs::Interval interval) {
    switch (interval) {
        case SyncPrefs::Interval::manual: return 0;
        case SyncPrefs::Interval::m15: return 15;
        case SyncPrefs::Interval::m30: return 30;
        case SyncPrefs::Interval::h1: return 60;
    }
    return 0;
}

}  // namespace

KeychainStore& AppEnvironment::keychain() {
    std::call_once(keychainChosen_, [this] {
        keychain_ = std::make_unique<KeychainStore>(KeychainStore::kService,
                                                    KeychainStore::chooseBackend(dataDir_, clock_));
    });
    return *keychain_;
}

void AppEnvironment::mirrorAccountToConfig(AppConfig& config, const GitHubAccount& account) {
    for (GitHubAccount& entry : config.accounts) {
        if (entry.id == account.id) {
            entry = account;
            return;
        }
    }
    config.accounts.push_back(account);
}

void AppEnvironment::reconcileAccounts() {
    std::set<std::string> stored;
    for (const GitHubAccount& account : store_.accounts()) stored.insert(account.id);
    std::vector<GitHubAccount> missing;
    for (const GitHubAccount& account : config().accounts) {
        if (!stored.contains(account.id)) missing.push_back(account);
    }
    for (const GitHubAccount& account : missing) store_.upsertAccount(account);
    std::vector<GitHubAccount> accounts = store_.accounts();
    if (missing.empty()) {
        std::lock_guard lock(mutex_);
        config_.accounts = std::move(accounts);
        return;
    }
    Log::app().info(
        fmt::format("reconcileAccounts: re-seeded {} account(s) into the Store from config.json",
                    missing.size()));
    if (!store_.flush()) noteSaveProblem(store_.flushProblem());
    changeConfig([&](AppConfig& config) { config.accounts = accounts; });
}

bool AppEnvironment::hasSyncableAccount() const {
    std::vector<GitHubAccount> accounts = store_.accounts();
    return std::any_of(accounts.begin(), accounts.end(),
                       [](const GitHubAccount& account) { return account.syncEnabled; });
}

bool AppEnvironment::isSyncing() const {
    std::lock_guard lock(mutex_);
    return isSyncing_;
}

RemoteSyncSummary AppEnvironment::syncNow(bool includeLocalScan) {
    RemoteSyncSummary summary;
    {
        std::lock_guard lock(mutex_);
        if (isSyncing_ || stopping_) {
            summary.skipped = true;
            summary.skippedReason = isSyncing_ ? "a sync is already running" : "shutting down";
            return summary;
        }
        isSyncing_ = true;
        saveProblem_.clear();
    }
    // However the cycle ends, open screens read again what it may have changed.
    struct SyncEnd {
        AppEnvironment& env;
        ~SyncEnd() {
            {
                std::lock_guard lock(env.mutex_);
                env.isSyncing_ = false;
            }
            env.events_.publish("sync", Json{{"at", toJson(env.clock_.now())}}.dump());
        }
    } syncEnd{*this};

    if (includeLocalScan) scanNow();
    adoptConfigEdits();
    Date now = clock_.now();
    std::vector<RepoSnapshot> snapshots = store_.snapshots();
    AppConfig current = config();

    // Which GitHub repositories the user tracks: their branches are the only ones read.
    std::vector<std::pair<std::string, std::string>> tracked;
    for (const RepoConfig& repo : current.repositories) {
        if (!repo.trackingEnabled) continue;
        std::optional<std::string> url = repo.remoteURL;
        for (const RepoSnapshot& snapshot : snapshots) {
            if (snapshot.repoID == repo.id && snapshot.remoteURL) {
                url = snapshot.remoteURL;
                break;
            }
        }
        if (!url) continue;
        if (auto pair = RepoMapper::ownerRepo(*url)) tracked.push_back(std::move(*pair));
    }

    std::vector<GitHubAccount> updates;
    for (const GitHubAccount& account : store_.accounts()) {
        if (!account.syncEnabled || stopping_) continue;
        GitHubAccount updated = account;
        std::optional<std::string> token = AuthResolver::token(
            account, keychain(), runner_, AuthResolver::processEnvironment, &shutdownSignal_);
        // A shutdown cut the account short: what it was cut off from says nothing
        // about its token, so its status stays.
        if (stopping_) break;
        if (!token) {
            updated.status = GitHubAccount::Status::tokenInvalid;
            updates.push_back(updated);
            ++summary.accountsFailed;
            ++summary.tokenFailures;
            summary.errors.push_back(account.displayName +
                                     ": no token available (Keychain / gh CLI)");
            continue;
        }
        ApiClient client(std::move(token), transport_, clock_,
                         account.apiBaseURL.value_or(ApiClient::kPublicAPI), &shutdownSignal_);
        AccountSyncEngine engine(client);
        AccountSyncEngine::Result result;
        try {
            result = engine.sync(account, current.sync, tracked, now);
        } catch (const QuorvaneError& error) {
            if (stopping_) break;
            updated.status = error.kind() == QuorvaneError::Kind::auth
                                 ? GitHubAccount::Status::tokenInvalid
                                 : GitHubAccount::Status::error;
            updates.push_back(updated);
            ++summary.accountsFailed;
            if (error.kind() == QuorvaneError::Kind::auth) ++summary.tokenFailures;
            if (error.kind() == QuorvaneError::Kind::rateLimit) ++summary.rateLimitFailures;
            summary.errors.push_back(fmt::format("{}: {} — {}", account.displayName,
                                                 statusWord(updated.status), error.description()));
            continue;
        }
        store_.replaceRemoteRepos(account.id, result.repos);
        std::map<std::string, std::vector<BranchRecord>> byRepository;
        for (BranchRecord& branch : result.branches) {
            byRepository[branch.repoID].push_back(std::move(branch));
        }
        for (const auto& [repoID, branches] : byRepository) {
            store_.replaceBranches(repoID, branches);
        }
        if (!result.user.login.empty()) updated.username = result.user.login;
        if (result.user.avatarURL) updated.avatarURL = result.user.avatarURL;
        updated.lastSyncAt = now;
        updated.status = GitHubAccount::Status::connected;
        updates.push_back(updated);
        ++summary.accountsSynced;
        summary.syncedAt = now;
    }
    for (const GitHubAccount& account : updates) {
        store_.upsertAccount(account);
        mirrorAccountToConfig(current, account);
    }

    // Every tracked repository against every remote one; the user's own links win.
    std::vector<RemoteRepository> remotes = store_.remoteRepos(std::nullopt);
    std::vector<RepositoryMapping> computed =
        RepoMapper::map(current.repositories, snapshots, remotes, now);
    std::vector<RepositoryMapping> confirmed;
    for (const RepositoryMapping& mapping : store_.mappings()) {
        if (mapping.confirmedByUser) confirmed.push_back(mapping);
    }
    std::vector<RepositoryMapping> mappings = RepoMapper::reconcile(computed, confirmed);
    store_.replaceMappings(mappings);
    summary.remoteRepos = static_cast<int>(remotes.size());
    summary.mappedRepos = static_cast<int>(std::count_if(
        mappings.begin(), mappings.end(),
        [](const RepositoryMapping& m) { return m.kind == RepositoryMapping::Kind::mapped; }));
    // Each tracked repository against its remote: its standing, its branches on
    // both sides, and its health.
    std::vector<SyncState> states;
    std::vector<ProjectHealthSnapshot> health;
    for (const RepoConfig& repo : current.repositories) {
        if (!repo.trackingEnabled || stopping_) continue;
        std::optional<RepoSnapshot> snapshot;
        for (const RepoSnapshot& s : snapshots) {
            if (s.repoID == repo.id) {
                snapshot = s;
                break;
            }
        }
        Alignment alignment = alignRepository(repo, snapshot, mappings, remotes, now);
        states.push_back(std::move(alignment.state));
        health.push_back(std::move(alignment.health));
    }
    store_.replaceSyncStates(states);
    if (!health.empty()) store_.upsertHealth(health);

    ReminderEngine::Reconciliation reminders = storeAlignmentReminders(current, states, now);
    if (!store_.flush()) noteSaveProblem(store_.flushProblem());
    showAlignmentReminders(reminders);
    if (!updates.empty()) {
        changeConfig([&](AppConfig& config) {
            for (const GitHubAccount& account : updates) mirrorAccountToConfig(config, account);
        });
    }
    {
        std::lock_guard lock(mutex_);
        lastScanAt_ = now;
    }
    startWatcher();
    return summary;
}

AppEnvironment::Alignment AppEnvironment::alignRepository(
    const RepoConfig& repo, const std::optional<RepoSnapshot>& snapshot,
    const std::vector<RepositoryMapping>& mappings, const std::vector<RemoteRepository>& remotes,
    Date now) {
    std::optional<RepositoryMapping> mapping;
    for (const RepositoryMapping& m : mappings) {
        if (m.localRepoID == repo.id) {
            mapping = m;
            break;
        }
    }
    std::optional<RemoteRepository> remote;
    if (mapping && mapping->remoteRepoID) {
        for (const RemoteRepository& r : remotes) {
            if (r.id == *mapping->remoteRepoID) {
                remote = r;
                break;
            }
        }
    }
    SyncState state = SyncStateEngine::compute(repo.id, snapshot, mapping, remote, now);

    std::vector<RemoteBranch> remoteBranches;
    if (remote) {
        for (const BranchRecord& branch : store_.branches(remote->id)) {
            remoteBranches.push_back({branch.name, branch.lastCommitSha, branch.lastCommitDate});
        }
    }
    store_.replaceBranches(repo.id,
                           BranchIntelligence::branches(
                               repo.id, scanner_.localBranches(repo.localPath, repo.defaultBranch),
                               remoteBranches, now));

    std::optional<Date> lastActivity;
    auto later = [&lastActivity](std::optional<Date> date) {
        if (date && (!lastActivity || *date > *lastActivity)) lastActivity = date;
    };
    if (snapshot) {
        later(snapshot->lastCommitAt);
        later(snapshot->lastWorkingTreeChangeAt);
    }
    for (const WorkSession& session : store_.sessions(repo.id, std::nullopt)) {
        later(session.endedAt);
    }
    ProjectHealthSnapshot health = HealthScorer::score(snapshot, state, lastActivity, now);
    return {std::move(state), std::move(health)};
}

ReminderEngine::Reconciliation AppEnvironment::storeAlignmentReminders(
    const AppConfig& config, const std::vector<SyncState>& states, Date now) {
    // Stored before they are shown, so a notification that fails loses nothing.
    ReminderEngine::Reconciliation reminders =
        RemindersV2::reconcile(now, config.reminders, config.repositories, states,
                               store_.snapshots(), config.accounts, store_.reminders(true));
    if (!reminders.resolve.empty()) store_.resolveReminders(reminders.resolve);
    if (!reminders.emit.empty()) store_.upsertReminders(reminders.emit);
    return reminders;
}

void AppEnvironment::showAlignmentReminders(const ReminderEngine::Reconciliation& reminders) {
    closeAll(reminders.resolve);
    postAll(reminders.emit);
    std::vector<ReminderEvent> open = store_.reminders(true);
    std::lock_guard lock(mutex_);
    unresolvedReminders_ = std::move(open);
}

void AppEnvironment::refreshAfterGit(const std::string& repoID) {
    rescanWhenFree();
    // Only a repository a sync placed against its remote has a standing to correct;
    // for any other the views work it out from the snapshot just read.
    if (stopping_ || !store_.syncState(repoID)) return;
    AppConfig current = config();
    auto repo = std::find_if(current.repositories.begin(), current.repositories.end(),
                             [&](const RepoConfig& r) { return r.id == repoID; });
    if (repo == current.repositories.end()) return;
    Date now = clock_.now();
    Alignment alignment = alignRepository(*repo, store_.snapshot(repoID), store_.mappings(),
                                          store_.remoteRepos(std::nullopt), now);
    // This one repository's record alone: a sync that stores every record meanwhile
    // loses none of the others.
    store_.upsertSyncStates({alignment.state});
    store_.upsertHealth({alignment.health});
    ReminderEngine::Reconciliation reminders =
        storeAlignmentReminders(current, store_.syncStates(), now);
    if (!store_.flush()) noteSaveProblem(store_.flushProblem());
    showAlignmentReminders(reminders);
}

void AppEnvironment::startPeriodicSync() {
    if (stopping_ || intervalMinutes(config().sync.interval) == 0) {
        timers_.disarm(Scheduler::TaskID::sync);
        return;
    }
    timers_.arm(Scheduler::TaskID::sync,
                {.name = "sync",
                 .due = [this](Date roundStart, Date) -> std::optional<Date> {
                     // Made manual while running: idle until another interval is chosen,
                     // which then counts from that moment.
                     int minutes = intervalMinutes(config().sync.interval);
                     if (minutes == 0) return std::nullopt;
                     return roundStart + std::chrono::minutes(minutes);
                 },
                 .run = [this] { periodicSyncTick(); }});
}

bool AppEnvironment::isPeriodicSyncRunning() {
    return timers_.isArmed(Scheduler::TaskID::sync);
}

bool AppEnvironment::periodicSyncTick() {
    if (!hasSyncableAccount()) return false;
    if (config().sync.wifiOnly && metered_.isMetered()) {
        Log::app().debug("periodic sync passed: the link is metered and sync.wifiOnly is on");
        return false;
    }
    syncNow(false);
    return true;
}

}  // namespace quorvane
