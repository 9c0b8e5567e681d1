#pragma once

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "agent/AgentEnvAccess.hpp"
#include "agent/AgentService.hpp"
#include "app/ProposalNotices.hpp"
#include "app/ScanPlanner.hpp"
#include "app/Scheduler.hpp"
#include "base/EventFeed.hpp"
#include "git/FileWatcher.hpp"
#include "git/GitScanner.hpp"
#include "git/RepoDiscovery.hpp"
#include "github/RemoteSyncSummary.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/ConfigService.hpp"
#include "persistence/Store.hpp"
#include "platform/Cancellation.hpp"
#include "platform/Clock.hpp"
#include "platform/HttpTransport.hpp"
#include "platform/Licence.hpp"
#include "platform/MeteredNetwork.hpp"
#include "platform/Notifier.hpp"
#include "platform/ProcessRunner.hpp"
#include "records/DailyJournal.hpp"
#include "reports/AIProvider.hpp"
#include "reports/ReminderEngine.hpp"

namespace quorvane {

class KeychainStore;
class MCPSocketServer;

// The program's centre: the configuration in memory, the store, and the scan cycle
// that turns git's answers into snapshots, commits, sessions and day activity.
// Its state sits behind one mutex that is never held across I/O; the scan's git
// work runs on up to eight threads. Only the process holding the data folder's
// writer lock may construct one.
class AppEnvironment {
public:
    // Reminders raised by scans go to `notifier` once stored, and are closed there once
    // resolved; without one they are only stored.
    // The periodic sync asks `metered` (NetworkManager's answer by default) before
    // each round when it may only sync on unmetered links.
    AppEnvironment(std::filesystem::path dataDir, const Clock& clock, const ProcessRunner& runner,
                   Notifier* notifier = nullptr, const HttpTransport* transport = nullptr,
                   const MeteredSource* metered = nullptr);
    ~AppEnvironment();
    AppEnvironment(const AppEnvironment&) = delete;
    AppEnvironment& operator=(const AppEnvironment&) = delete;

    // Loads the configuration and the store, once. Enough for a one-shot command.
    // Throws ConfigUnreadable, having touched nothing, when config.json is there but
    // cannot be read: nothing may run on defaults in its stead.
    void load();

    // Starts the long-running service: load (which throws as it does), the accounts
    // put back from config.json, one scan, then the file watcher, the periodic scan,
    // the periodic sync and the end-of-day review, and a sync in the background when
    // syncOnStart asks for one.
    void bootstrap();

    // Which repositories a scan reads: all of them, or, in the long-running service,
    // those whose reading could have changed (ScanPlanner decides); the others keep
    // their last reading and go through the rest of the cycle as if read again.
    // Outside the service no watcher follows the repositories, so both read all.
    enum class ScanScope { everything, changed };

    // One scan cycle; returns at once, doing nothing, while another runs or once
    // shutdown has begun. True when this call scanned.
    bool scanNow(ScanScope scope = ScanScope::everything);

    // How many tracked repositories the last scan read with git, and how many kept
    // their last reading.
    struct ScanCount {
        size_t read = 0;
        size_t kept = 0;
    };
    ScanCount lastScanCount() const;

    // Asks the periodic task for a scan now rather than at the end of its interval,
    // paused or not: the person asked for it.
    void requestScan();

    // While paused the periodic scan passes its rounds and file changes are not
    // noted; an explicit scan still runs. Kept in memory only, so a new service
    // starts unpaused.
    void setPaused(bool paused) { paused_ = paused; }
    bool isPaused() const { return paused_; }

    // A scan cycle that reports the repository ids it newly enrolled, in
    // configuration order; empty when a scan was already running.
    std::vector<std::string> rescanNowOnMain(ScanScope scope = ScanScope::everything);

    // Like rescanNowOnMain, but a scan already running is waited for and then one
    // more is made, so what it reports is read after the call began. Empty once
    // shutdown has begun.
    std::vector<std::string> rescanWhenFree(ScanScope scope = ScanScope::everything);

    // Enrols what discovery finds under the scan folders that is neither tracked
    // nor ignored.
    void autoEnrollNewRepos();

    // Tracks the found repositories that are neither tracked nor ignored, reads their
    // recent history (eight repositories at a time), and returns the ids added. A
    // repository whose history read a shutdown cut short is not added, so the next
    // start enrols it whole.
    std::vector<std::string> addDiscovered(const std::vector<DiscoveredRepo>& found);

    // Changes the configuration and saves it. An edit made by hand to config.json
    // since it was last read is taken in first, so the change lands on top of it and
    // never reverts it; an edit that does not decode is never written over, and then
    // nothing is saved. In the running service, what depends on a changed setting
    // follows it at once: the watcher, the periodic scan, the periodic sync and the
    // end-of-day review. False when it could not be saved; `saveProblem` says why.
    bool applyConfigChange(const std::function<void(AppConfig&)>& change);

    // Takes in an edit made by hand to config.json since it was last read, when
    // there is one that can be decoded, and lets the running service follow it.
    // True when the running configuration changed.
    bool adoptConfigEdits();

    // Why the last scan, or a configuration change since, left something unsaved;
    // empty when everything was written.
    std::string saveProblem() const;

    // Replaces the periodic scan task: every scanIntervalMinutes (at least 1). A new
    // interval counts from the start of the round under way.
    void startPeriodicScanning();

    // Watches the tracked repositories' folders anew. The watcher belongs to the
    // long-running service: before bootstrap, and after shutdown, it does nothing.
    void startWatcher();
    bool isWatching() const { return watcher_.isRunning(); }

    // Replaces the end-of-day review task: at config.dailyReviewTime each day. A new
    // time is taken at once, not after the review already waited for.
    void startDailyReviewScheduling();

    // Arms the task that brings snoozed reminders back when their snooze runs out,
    // at once for those that ran out while no service was running.
    void startSnoozeWatch();

    // Raises the end-of-day reminder, replacing an open one, when it is switched on.
    void fireDayReviewIfEnabled();

    std::vector<ReminderEvent> unresolvedReminders() const;

    // Puts the open reminder `id` off for `length`: its notification is taken down,
    // the snooze is stored in the reminder so it outlasts a restart, and the
    // long-running service shows it again when the snooze runs out, if it is still
    // open. `reminder` is nothing when no open reminder has that id.
    struct Snoozed {
        std::optional<ReminderEvent> reminder;
        std::string saveProblem;  // empty when the snooze was saved
    };
    Snoozed snoozeReminder(const std::string& id, std::chrono::minutes length);

    // Shows again each open reminder whose snooze has run out, and keeps it shown.
    void bringBackSnoozed();

    // The store holds the accounts; config.json mirrors them and may be ahead after a
    // store file was set aside. Accounts only the mirror has go back into the store,
    // then the mirror is replaced by the store's list.
    void reconcileAccounts();

    // What checking an account with GitHub gave: the account as it now stands and,
    // when it is not connected, why, in GitHub's words.
    struct AccountCheck {
        GitHubAccount account;
        std::string problem;
        bool stored = true;  // false when nothing was kept
    };

    // Adds an account for a personal access token: the token goes to the secret
    // store and nowhere else, then the account is checked with GitHub, stored and
    // mirrored into config.json. A refused token still adds it, as tokenInvalid.
    // Nothing when the secret store would not take the token: then nothing is added.
    std::optional<AccountCheck> addAccount(const std::string& displayName, const std::string& token,
                                           std::optional<std::string> apiBaseURL = std::nullopt);
    // The account of the gh tool's active login (or of GITHUB_TOKEN, GH_TOKEN or git's
    // credential helpers), refreshed when one with that login exists, new otherwise.
    // Its token is never copied: it is asked for each time. Nothing when no token is
    // found; `stored` false when GitHub would not say whose it is.
    std::optional<AccountCheck> importAccountFromGh(
        std::optional<std::string> apiBaseURL = std::nullopt);
    // The imported account, only when GitHub accepted it.
    std::optional<GitHubAccount> connectGitHubViaGh();
    // Checks the stored account with GitHub and keeps its new status; nothing when
    // there is no account with this id.
    std::optional<AccountCheck> validateAccount(const std::string& accountID);
    // Deletes the account's own token, the account, its remote repositories, their
    // branches and links, and its entry in config.json. False when there is none.
    bool removeAccount(const std::string& accountID);
    // The AI provider's API key, kept in the secret store under ai.keychainRef and
    // nowhere else. Setting it is false, with the reason noted as a save problem,
    // when the store refuses it; removing a missing key is no failure.
    bool setAIKey(const std::string& key);
    void removeAIKey();
    // Whether a key is stored, for a screen to say so without ever showing it.
    bool hasAIKey();
    // The provider ai.provider chooses, sending through `transport` (which must
    // outlive it); nothing when summaries are off or the Anthropic key is missing.
    std::unique_ptr<AIProvider> aiProvider(const HttpTransport& transport);
    // What AI providers and other outside requests are sent through.
    const HttpTransport& transport() const { return transport_; }
    // Which secret store holds the keys, for the person to know where they went.
    std::string secretStoreDescription();
    // Whether GitHub's answer names the login the account knew; an account that knew
    // none yet matches any.
    static bool loginMatches(const std::string& expected, const std::string& resolved);

    // One sync cycle: each account with sync on is read from GitHub (its token,
    // user, repositories and the branches of tracked repositories), then every
    // tracked repository is mapped to its remote. One account's failure is a line
    // in the summary, never the end of the cycle. Skipped while another runs.
    RemoteSyncSummary syncNow(bool includeLocalScan);
    // After Quorvane ran git in the repository `repoID` (a push, pull or fetch the
    // person approved): a scan, waited for, reads its new refs, and when a sync has
    // placed it against a remote, its standing, branches and health are worked out
    // again from the remote side the last sync stored, without asking GitHub.
    void refreshAfterGit(const std::string& repoID);
    bool hasSyncableAccount() const;
    bool isSyncing() const;

    // Replaces the periodic sync task: every sync.interval, none when it is manual. A
    // new interval counts from the start of the round under way.
    void startPeriodicSync();
    bool isPeriodicSyncRunning();
    // One round of the periodic sync. False when it passed: no account has sync on,
    // or the link is metered and sync.wifiOnly keeps syncs off such links.
    bool periodicSyncTick();

    // Records that the tracked repository watched at `path` (its folder as the
    // watcher reports it) saw file activity at `at`. Kept under the repository's id,
    // whatever form its configured path has.
    void noteFileActivity(const std::string& path, Date at);

    // Stops the periodic scan and the watcher, ends a running scan early (the git
    // children in flight are stopped, no new one starts, and a repository whose
    // reading was cut short keeps what was stored before) and flushes the store.
    void shutdown();

    // ---- The journal ---------------------------------------------------------------

    // A change to one day's journal: each field given replaces that field, and text
    // that is blank once trimmed clears it, so that it leaves the report too.
    struct JournalChange {
        std::string dateKey;
        std::optional<std::string> notes;
        std::optional<std::string> blockers;
        std::optional<std::string> tomorrow;
    };
    struct JournalWrite {
        DailyJournal entry;  // as it now stands
        bool changed = false;
        bool saved = false;  // false when the store could not be written
    };
    // Applies `change` to the day's entry, stamps and saves it when it changed, and
    // tells open screens. `saveProblem` says why a change was not saved.
    JournalWrite writeJournal(const JournalChange& change);

    // ---- The agent server ----------------------------------------------------------

    // Listens on the agent socket, once; the long-running service calls it when the
    // agent is enabled. Failures are logged and leave it stopped.
    void startAgentServer();
    void stopAgentServer();
    bool isAgentServerRunning() const;
    // The agent socket: agent.socketPath, or "quorvane-agent.sock" in the data folder.
    std::filesystem::path agentSocketPath() const;
    const std::filesystem::path& dataDir() const { return dataDir_; }
    static std::filesystem::path agentSocketPath(const AppConfig& config,
                                                 const std::filesystem::path& dataDir);
    // How many tools the agent server offers.
    static size_t mcpToolCount();
    // What the agent tools reach the application through.
    AgentEnvAccess& agentAccess();
    AgentService& agentService() { return *agentService_; }

    // What open screens follow: scans finished, reminders raised, proposals arrived
    // and decided.
    EventFeed& events() { return events_; }

    // Proposals, newest first.
    std::vector<PendingProposal> proposals() const;
    size_t pendingProposalCount() const;

    // The person's decision on a proposal. `problem` says why nothing was done.
    struct ProposalDecision {
        std::optional<PendingProposal> proposal;  // as it now stands
        std::string token;                        // minted by an approval
        std::string problem;
    };
    // Approves a pending proposal: mints its one-time token, valid for
    // kTokenLifetimeSeconds, and records the decision. An approved one whose token
    // was lost or ran out gets a new token, and the old one is void.
    ProposalDecision approveProposal(const std::string& id);
    // Turns down a pending or approved proposal; its token, if any, is void.
    ProposalDecision rejectProposal(const std::string& id);

    static constexpr int kTokenLifetimeSeconds = 900;

    // The notifications that tell the person of proposals waiting for them.
    ProposalNotices& proposalNotices() { return proposalNotices_; }

    AppConfig config() const;
    std::optional<Date> lastScanAt() const;
    bool isScanning() const;
    bool isShuttingDown() const { return stopping_; }
    std::vector<std::string> newlyDetectedRepoIDs() const;
    Store& store() { return store_; }

    static constexpr size_t kMaxParallelScans = 8;
    static constexpr const char* kScanCacheFile = "scan_cache.json";
    static constexpr double kIdleTimeoutSeconds = 1200;
    // Resolved reminders are kept this long, then pruned by the scan.
    static constexpr int kResolvedReminderDays = 30;

private:
    // What one repository's reading yields.
    using RepoScan = RepoReading;

    // What each repository's last reading remembers, kept in "scan_cache.json" so
    // that the next scan, in this process or the next, starts fewer git children.
    // Only a cache: losing it costs one slower scan.
    void loadScanMemos();
    void saveScanMemos();

    // Records the history `commits` of a newly tracked repository: the commits and
    // one day record per day that has none yet, `recorded` holding the repository
    // and day of every record there was.
    void storeHistory(const RepoConfig& repo, const std::vector<CommitRecord>& commits,
                      const std::set<std::pair<std::string, std::string>>& recorded);
    void postAll(const std::vector<ReminderEvent>& events);
    void closeAll(const std::vector<std::string>& reminderIDs);
    // Takes the store's open reminders as the service's copy.
    void refreshOpenReminders();
    // Applies `change` to the running configuration and saves it; a hand edit made
    // meanwhile is taken in first and `change` applied to it, so it is never
    // reverted. Returns the reason it was not saved, if it was not.
    std::optional<std::string> changeConfig(const std::function<void(AppConfig&)>& change);
    void noteSaveProblem(const std::string& problem);
    // Brings the running service in line with a configuration that was `before`:
    // the watcher when the watched folders changed, and the periodic tasks, woken to
    // read their timing again. Never waits for a task, so any thread may call it.
    void followConfig(const AppConfig& before, const AppConfig& after);
    // Has the periodic tasks read their interval or time again.
    void rescheduleTasks();
    // The account with its status as GitHub now answers for its token.
    AccountCheck validatedStamp(const GitHubAccount& account);
    // Stores the account, mirrors it into config.json and saves both.
    void keepAccount(const GitHubAccount& account);
    // Replaces the entry with the account's id, or appends it.
    static void mirrorAccountToConfig(AppConfig& config, const GitHubAccount& account);
    // The secret store, chosen on first use (asking for the desktop's costs a
    // round trip on the session bus).
    KeychainStore& keychain();
    // One tracked repository against its remote side as stored: its standing and
    // health, returned for the caller to store, and its branches on both sides,
    // stored here.
    struct Alignment {
        SyncState state;
        ProjectHealthSnapshot health;
    };
    Alignment alignRepository(const RepoConfig& repo, const std::optional<RepoSnapshot>& snapshot,
                              const std::vector<RepositoryMapping>& mappings,
                              const std::vector<RemoteRepository>& remotes, Date now);
    // Stores what the reminders that follow the alignment become for `states`; the
    // caller shows the change once the store is flushed.
    ReminderEngine::Reconciliation storeAlignmentReminders(const AppConfig& config,
                                                           const std::vector<SyncState>& states,
                                                           Date now);
    // Shows what storeAlignmentReminders changed, and keeps the open reminders' copy.
    void showAlignmentReminders(const ReminderEngine::Reconciliation& reminders);

    const std::filesystem::path dataDir_;
    const Clock& clock_;
    const ProcessRunner& runner_;
    Notifier* const notifier_;
    EventFeed events_;
    // Cancelled once by shutdown: stops the git children of scans, discovery and
    // history reads, and keeps new ones from starting.
    Cancellation shutdownSignal_;
    Store store_;
    ConfigService configService_;
    CurlTransport defaultTransport_;
    const HttpTransport& transport_;
    NetworkManagerMetered defaultMetered_;
    const MeteredSource& metered_;
    std::once_flag keychainChosen_;
    std::unique_ptr<KeychainStore> keychain_;
    GitScanner scanner_;
    RepoDiscovery discovery_;

    mutable std::mutex mutex_;
    std::condition_variable_any scanFinished_;
    AppConfig config_;
    bool didLoad_ = false;
    bool didBootstrap_ = false;
    bool isScanning_ = false;
    bool isSyncing_ = false;
    std::optional<Date> lastScanAt_;
    std::map<std::string, Date> fileActivity_;  // by repository id
    std::vector<ReminderEvent> unresolvedReminders_;
    std::set<std::string> newlyDetected_;
    std::string saveProblem_;
    std::map<std::string, ScanMemo> scanMemos_;  // by repository id
    // The long-running service's last reading of each repository, which a scan that
    // need not read it again keeps; and what decides that.
    std::map<std::string, RepoScan> lastReadings_;
    ScanPlanner planner_;
    ScanCount lastScanCount_;
    bool scanMemosChanged_ = false;
    bool scanCacheBlocked_ = false;  // unreadable and still in place: never written over

    // Set once by shutdown; nothing starts after it.
    std::atomic<bool> stopping_ = false;
    std::atomic<bool> paused_ = false;
    // A scan asked for by requestScan, which runs even while paused.
    std::atomic<bool> scanRequested_ = false;

    // The periodic scan, the periodic sync and the end-of-day review, on one thread.
    Scheduler timers_;

    // The one sync started with the service.
    std::mutex syncLifecycle_;
    std::jthread startupSync_;

    // The agent server follows agent.enabled and agent.socketPath on its own thread:
    // a change may come from inside an agent call, which the server's stop would
    // otherwise wait for.
    void agentFollowLoop(std::stop_token stop);
    static std::unique_ptr<AgentEnvAccess> makeAgentAccess(AppEnvironment& env,
                                                           const LicenceCheck& licence);
    void followAgentSettings();
    void recordDecision(const PendingProposal& proposal, const std::string& tool,
                        const std::string& detail);

    CommunityLicence licence_;
    // Before the agent service, which tells it of new proposals, so it outlives it.
    ProposalNotices proposalNotices_{notifier_};
    std::unique_ptr<AgentEnvAccess> agentAccess_;
    std::unique_ptr<AgentService> agentService_;
    mutable std::mutex agentLifecycle_;
    std::unique_ptr<MCPSocketServer> mcpServer_;
    std::filesystem::path mcpServerPath_;
    std::mutex agentFollowMutex_;
    std::condition_variable_any agentFollowWake_;
    bool agentFollowRequested_ = false;
    std::jthread agentFollower_;

    // Serialises stopping and restarting the watcher, which several threads may ask for.
    std::mutex watcherLifecycle_;
    FileWatcher watcher_;
};

}  // namespace quorvane
