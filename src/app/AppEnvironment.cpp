#include "app/AppEnvironment.hpp"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

#include "agent/MCPSocketServer.hpp"
#include "app/DailyReview.hpp"
#include "app/Enrollment.hpp"
#include "app/Queries.hpp"
#include "base/BoundedParallel.hpp"
#include "base/Log.hpp"
#include "base/PathHelpers.hpp"
#include "base/Uuid.hpp"
#include "git/Aggregator.hpp"
#include "git/WorkSessionEngine.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/KeychainStore.hpp"
#include "reports/ReminderEngine.hpp"
#include "reports/ReminderNotices.hpp"

namespace quorvane {

namespace {

std::vector<std::string> idsOf(const AppConfig& config) {
    std::vector<std::string> ids;
    for (const RepoConfig& repo : config.repositories) ids.push_back(repo.id);
    return ids;
}

// The folders the watcher follows: those of the repositories with tracking on.
std::vector<std::string> watchedPaths(const AppConfig& config) {
    std::vector<std::string> paths;
    for (const RepoConfig& repo : config.repositories) {
        if (repo.trackingEnabled) paths.push_back(repo.localPath);
    }
    return paths;
}

}  // namespace

AppEnvironment::AppEnvironment(std::filesystem::path dataDir, const Clock& clock,
                               const ProcessRunner& runner, Notifier* notifier,
                               const HttpTransport* transport, const MeteredSource* metered)
    : dataDir_(std::move(dataDir)),
      clock_(clock),
      runner_(runner),
      notifier_(notifier),
      store_(dataDir_, clock),
      configService_(dataDir_ / "config.json", clock),
      transport_(transport != nullptr ? *transport : defaultTransport_),
      metered_(metered != nullptr ? *metered : defaultMetered_),
      scanner_(runner, clock, &shutdownSignal_),
      discovery_(runner, &shutdownSignal_),
      timers_(clock),
      watcher_(clock) {
    agentAccess_ = makeAgentAccess(*this, licence_);
    agentService_ = std::make_unique<AgentService>(store_, *agentAccess_, clock_, runner_);
}

AppEnvironment::~AppEnvironment() {
    shutdown();
}

void AppEnvironment::load() {
    {
        std::lock_guard lock(mutex_);
        if (didLoad_) return;
        didLoad_ = true;
    }
    // The configuration first: when it cannot be read nothing else is touched, not
    // even a store file that would be set aside.
    AppConfig loaded;
    try {
        loaded = configService_.load();
    } catch (const ConfigUnreadable&) {
        std::lock_guard lock(mutex_);
        didLoad_ = false;
        throw;
    }
    store_.load();
    loadScanMemos();
    std::vector<ReminderEvent> open = store_.reminders(true);
    std::lock_guard lock(mutex_);
    config_ = std::move(loaded);
    unresolvedReminders_ = std::move(open);
}

void AppEnvironment::bootstrap() {
    {
        std::lock_guard lock(mutex_);
        if (didBootstrap_) return;
        didBootstrap_ = true;
    }
    load();
    reconcileAccounts();
    if (config().agent.enabled) {
        // An agent may look only where the person's repositories are, until told
        // otherwise.
        if (config().agent.allowedRoots.empty() && !config().scanFolders.empty()) {
            applyConfigChange([](AppConfig& config) {
                if (config.agent.allowedRoots.empty()) {
                    config.agent.allowedRoots = config.scanFolders;
                }
            });
        }
        startAgentServer();
    }
    {
        std::lock_guard lifecycle(agentLifecycle_);
        if (!stopping_) {
            agentFollower_ = std::jthread([this](std::stop_token stop) { agentFollowLoop(stop); });
        }
    }
    // Watching starts first, so the first scan, which reads everything, also takes
    // the watcher's first report: what changes after it is reported, and the next
    // periodic scan need not read everything again to cover the watcher's start.
    startWatcher();
    scanNow();
    startPeriodicScanning();
    startPeriodicSync();
    startDailyReviewScheduling();
    startSnoozeWatch();
    // The scan above has run, so this sync reads GitHub only. It runs beside the
    // service; shutdown ends its requests.
    if (config().sync.syncOnStart && hasSyncableAccount()) {
        std::lock_guard lifecycle(syncLifecycle_);
        if (!stopping_) {
            startupSync_ = std::jthread([this] {
                try {
                    syncNow(false);
                } catch (const std::exception& error) {
                    Log::app().error(fmt::format("sync failed: {}", error.what()));
                }
            });
        }
    }
}

AppConfig AppEnvironment::config() const {
    std::lock_guard lock(mutex_);
    return config_;
}

std::optional<Date> AppEnvironment::lastScanAt() const {
    std::lock_guard lock(mutex_);
    return lastScanAt_;
}

bool AppEnvironment::isScanning() const {
    std::lock_guard lock(mutex_);
    return isScanning_;
}

std::vector<ReminderEvent> AppEnvironment::unresolvedReminders() const {
    std::lock_guard lock(mutex_);
    return unresolvedReminders_;
}

std::vector<std::string> AppEnvironment::newlyDetectedRepoIDs() const {
    std::lock_guard lock(mutex_);
    return {newlyDetected_.begin(), newlyDetected_.end()};
}

void AppEnvironment::noteFileActivity(const std::string& path, Date at) {
    // Paused means the person's editing is not being followed at all.
    if (paused_) return;
    std::string watched = FileWatcher::standardizedPath(path);
    std::lock_guard lock(mutex_);
    // The watcher names a repository by its standardised folder; a configured path
    // may be written "~/proj/", so the two meet on the repository's id.
    for (const RepoConfig& repo : config_.repositories) {
        if (FileWatcher::standardizedPath(repo.localPath) == watched) {
            fileActivity_[repo.id] = at;
            return;
        }
    }
}

AppEnvironment::ScanCount AppEnvironment::lastScanCount() const {
    std::lock_guard lock(mutex_);
    return lastScanCount_;
}

bool AppEnvironment::scanNow(ScanScope scope) {
    {
        std::lock_guard lock(mutex_);
        if (isScanning_ || stopping_) return false;
        isScanning_ = true;
        saveProblem_.clear();
    }
    // However the scan ends, it is over: shutdown waits for this, and a scan that
    // threw must not leave it waiting for ever.
    struct ScanEnd {
        AppEnvironment& env;
        ~ScanEnd() {
            {
                std::lock_guard lock(env.mutex_);
                env.isScanning_ = false;
            }
            env.scanFinished_.notify_all();
        }
    } scanEnd{*this};
    adoptConfigEdits();
    autoEnrollNewRepos();

    Date now = clock_.now();
    Date startOfDay = DateHelpers::startOfDay(now);
    std::vector<RepoConfig> active;
    std::map<std::string, Date> activity;
    std::map<std::string, ScanMemo> memos;
    {
        std::lock_guard lock(mutex_);
        for (const RepoConfig& repo : config_.repositories) {
            if (repo.trackingEnabled) active.push_back(repo);
        }
        activity = fileActivity_;
        memos = scanMemos_;
    }

    // Which repositories to read. The watcher's report is taken, and each git state
    // summed up, before any reading starts: a change made while one runs is left
    // for the next scan to see.
    bool service;
    {
        std::lock_guard lock(mutex_);
        service = didBootstrap_;
    }
    std::vector<bool> readIt(active.size(), true);
    std::vector<ScanPlanner::Repo> planned(active.size());
    std::map<std::string, RepoScan> keptReadings;
    if (service) {
        FileWatcher::Report report = watcher_.takeReport();
        // Some thirty stats a repository, on several threads: on a quiet day this is
        // the whole of a periodic scan's work.
        const ScanMemo::StampCache shared = ScanMemo::sharedStamps();
        planned =
            boundedParallelMap<ScanPlanner::Repo>(active.size(), kMaxParallelScans, [&](size_t i) {
                ScanPlanner::Repo repo;
                repo.id = active[i].id;
                repo.path = FileWatcher::standardizedPath(active[i].localPath);
                repo.ignoreUntracked = active[i].ignoreUntracked;
                auto memo = memos.find(active[i].id);
                if (memo != memos.end()) {
                    repo.fingerprint = memo->second.quietFingerprint(active[i].localPath, &shared);
                }
                return repo;
            });
        std::lock_guard lock(mutex_);
        readIt = planner_.plan(now, scope == ScanScope::everything, report, planned);
        for (size_t i = 0; i < active.size(); ++i) {
            if (readIt[i]) continue;
            auto last = lastReadings_.find(active[i].id);
            if (last == lastReadings_.end()) {
                readIt[i] = true;
            } else {
                keptReadings.emplace(active[i].id, last->second);
            }
        }
    }

    // The git work, eight repositories at a time; nothing is applied until all are read.
    std::string since = DateHelpers::isoString(startOfDay);
    // For a repository read without a fingerprint to go on (its first reading), the
    // one its new memo gives, when nothing it covers changed during the reading.
    std::vector<std::optional<std::string>> settled(active.size());
    // A shutdown stops the children in flight and starts no others. A repository
    // whose reading it may have cut short is left out, so it keeps its previous state.
    std::vector<std::optional<RepoScan>> results(active.size());
    std::vector<size_t> toRead;
    for (size_t i = 0; i < active.size(); ++i) {
        if (readIt[i]) {
            toRead.push_back(i);
        } else if (!stopping_) {
            // As a reading now would give it: a new snapshot, taken now.
            RepoScan& reading = results[i].emplace(std::move(keptReadings.at(active[i].id)));
            reading.snapshot.id = newUUID();
            reading.snapshot.capturedAt = now;
        }
    }
    std::vector<std::optional<RepoScan>> read = boundedParallelMap<std::optional<RepoScan>>(
        toRead.size(), kMaxParallelScans, [&](size_t k) -> std::optional<RepoScan> {
            size_t i = toRead[k];
            if (stopping_) return std::nullopt;
            const ScanMemo* memo = nullptr;
            auto found = memos.find(active[i].id);
            if (found != memos.end()) memo = &found->second;
            struct timespec started {};
            ::clock_gettime(CLOCK_REALTIME, &started);
            RepoScan result =
                scanner_.read(active[i].localPath, active[i].ignoreUntracked, since, memo);
            if (stopping_) return std::nullopt;
            if (service && !planned[i].fingerprint && result.memo) {
                settled[i] = result.memo->settledFingerprint(
                    active[i].localPath,
                    static_cast<long long>(started.tv_sec) * 1'000'000'000LL + started.tv_nsec);
            }
            return result;
        });
    for (size_t k = 0; k < toRead.size(); ++k) results[toRead[k]] = std::move(read[k]);

    {
        std::lock_guard lock(mutex_);
        std::map<std::string, ScanMemo> kept;
        for (size_t i = 0; i < active.size(); ++i) {
            // A reading cut short keeps the memo it started from.
            std::optional<ScanMemo> memo = results[i] ? results[i]->memo : std::nullopt;
            if (!results[i]) {
                auto previous = memos.find(active[i].id);
                if (previous != memos.end()) memo = previous->second;
            }
            if (memo) kept.emplace(active[i].id, std::move(*memo));
        }
        if (kept != scanMemos_) {
            scanMemos_ = std::move(kept);
            scanMemosChanged_ = true;
        }
        lastScanCount_ = {};
        std::map<std::string, RepoScan> readings;
        for (size_t i = 0; i < active.size(); ++i) {
            if (results[i]) ++(readIt[i] ? lastScanCount_.read : lastScanCount_.kept);
            if (!service) continue;
            // A reading cut short leaves nothing to keep: the next scan reads it.
            if (!results[i]) {
                planner_.forget(active[i].id);
                continue;
            }
            if (readIt[i]) {
                if (results[i]->memo) {
                    if (!planned[i].fingerprint) planned[i].fingerprint = settled[i];
                    planner_.noteRead(planned[i]);
                } else {
                    planner_.forget(active[i].id);
                }
            }
            readings.emplace(active[i].id, *results[i]);
        }
        lastReadings_ = std::move(readings);
    }

    // Applied in configuration order. A repository that could not be read is still
    // stored and aggregated; only its remote URL is left alone.
    std::map<std::string, std::optional<std::string>> remoteUpdates;
    std::vector<RepoSnapshot> fresh;
    std::string dateKey = DateHelpers::dateKey(now);
    // Who the person is: the addresses this scan read count as soon as it stored them.
    std::vector<RepoSnapshot> known = store_.snapshots();
    for (const std::optional<RepoScan>& result : results) {
        if (result) known.push_back(result->snapshot);
    }
    const Identity identity = Identity::of(config(), known);
    for (size_t i = 0; i < active.size(); ++i) {
        const RepoConfig& repo = active[i];
        if (!results[i]) continue;
        const RepoScan& result = *results[i];
        if (!result.snapshot.error && result.snapshot.remoteURL != repo.remoteURL) {
            remoteUpdates[repo.id] = result.snapshot.remoteURL;
        }
        std::optional<RepoSnapshot> previous = store_.snapshot(result.snapshot.repoID);
        store_.replaceSnapshot(result.snapshot);
        fresh.push_back(result.snapshot);
        if (!result.commits.empty()) store_.upsertCommits(result.commits);
        std::optional<WorkSession> open = store_.openSession(repo.id);
        auto fileActivity = activity.find(repo.id);
        // HEAD moved to a commit that is not the person's own today (a pull, a
        // checkout): no evidence that they worked, so it is compared as unmoved.
        if (previous && previous->lastCommitSha != result.snapshot.lastCommitSha) {
            auto made = std::ranges::find_if(result.commits, [&](const CommitRecord& commit) {
                return commit.sha == result.snapshot.lastCommitSha;
            });
            if (made == result.commits.end() || !identity.isMine(*made)) {
                previous->lastCommitSha = result.snapshot.lastCommitSha;
            }
        }
        std::vector<WorkSession> sessions = WorkSessionEngine::update(
            previous, result.snapshot, open, now, kIdleTimeoutSeconds,
            fileActivity == activity.end() ? std::nullopt
                                           : std::optional<Date>(fileActivity->second));
        if (!sessions.empty()) store_.upsertSessions(sessions);
    }
    // The day's records count the person's commits, as every view does.
    for (size_t i = 0; i < active.size(); ++i) {
        if (!results[i]) continue;
        const RepoScan& result = *results[i];
        std::vector<WorkSession> today = store_.sessions(active[i].id, startOfDay);
        store_.setDayActivity(Aggregator::dayActivity(active[i].id, dateKey, result.snapshot,
                                                      result.commits, today, now, identity));
    }

    if (!remoteUpdates.empty()) {
        changeConfig([&](AppConfig& config) {
            // By id into the current list: a repository removed meanwhile is not matched.
            for (RepoConfig& repo : config.repositories) {
                auto update = remoteUpdates.find(repo.id);
                if (update != remoteUpdates.end()) repo.remoteURL = update->second;
            }
        });
    }

    // Reminders: stored first, then shown, so a notification that fails loses nothing.
    AppConfig current = config();
    ReminderEngine::Reconciliation reminders = ReminderEngine::reconcile(
        now, current.reminders, current.repositories, fresh,
        store_.sessions(std::nullopt, std::nullopt), store_.reminders(true));
    if (!reminders.resolve.empty()) store_.resolveReminders(reminders.resolve);
    closeAll(reminders.resolve);
    if (!reminders.emit.empty()) {
        store_.upsertReminders(reminders.emit);
        postAll(reminders.emit);
    }
    store_.pruneResolvedReminders(kResolvedReminderDays);

    if (!store_.flush()) noteSaveProblem(store_.flushProblem());
    saveScanMemos();
    std::vector<ReminderEvent> open = store_.reminders(true);
    {
        std::lock_guard lock(mutex_);
        unresolvedReminders_ = std::move(open);
        lastScanAt_ = now;
    }
    events_.publish("scan", Json{{"at", toJson(now)}}.dump());
    return true;
}

std::vector<std::string> AppEnvironment::rescanNowOnMain(ScanScope scope) {
    std::vector<std::string> before = idsOf(config());
    if (isScanning()) return {};
    scanNow(scope);
    std::vector<std::string> added;
    for (const std::string& id : idsOf(config())) {
        if (std::find(before.begin(), before.end(), id) == before.end()) added.push_back(id);
    }
    return added;
}

std::vector<std::string> AppEnvironment::rescanWhenFree(ScanScope scope) {
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            scanFinished_.wait(lock, [this] { return !isScanning_ || stopping_; });
            if (stopping_) return {};
        }
        std::vector<std::string> before = idsOf(config());
        // Another scan may start in between; it is waited for in turn.
        if (!scanNow(scope)) continue;
        std::vector<std::string> added;
        for (const std::string& id : idsOf(config())) {
            if (std::find(before.begin(), before.end(), id) == before.end()) added.push_back(id);
        }
        return added;
    }
}

void AppEnvironment::autoEnrollNewRepos() {
    AppConfig current = config();
    if (!current.autoTrackNewRepos || current.scanFolders.empty()) return;
    std::set<std::string> known;
    for (const RepoConfig& repo : current.repositories) {
        known.insert(repo.id);
        known.insert(PathHelpers::canonicalPath(repo.localPath));
    }
    // The agent's search depth is deliberately the enrolment depth too.
    std::vector<DiscoveredRepo> found =
        discovery_.discover(current.scanFolders, current.agent.maxScanDepth, known);
    // Found during a shutdown: the next start finds them again.
    if (stopping_) return;
    // What was already tracked is the most of it on every scan but the first.
    std::erase_if(found, [&](const DiscoveredRepo& repo) { return known.contains(repo.repoID); });
    std::vector<std::string> added = addDiscovered(found);
    if (added.empty()) return;
    std::lock_guard lock(mutex_);
    newlyDetected_.insert(added.begin(), added.end());
}

std::vector<std::string> AppEnvironment::addDiscovered(const std::vector<DiscoveredRepo>& found) {
    if (found.empty()) return {};
    Date now = clock_.now();
    std::vector<RepoConfig> candidates;
    std::vector<bool> fetched;  // whether each candidate has remote-tracking branches
    int historyDays;
    {
        std::lock_guard lock(mutex_);
        // A repository is known by its id and by where its configured path leads, so
        // a hand-written "~/proj/" is not enrolled a second time as /home/me/proj.
        std::set<std::string> known(config_.ignoredRepoIDs.begin(), config_.ignoredRepoIDs.end());
        for (const RepoConfig& repo : config_.repositories) {
            known.insert(repo.id);
            known.insert(PathHelpers::canonicalPath(repo.id));
            known.insert(PathHelpers::canonicalPath(repo.localPath));
        }
        for (const DiscoveredRepo& repo : found) {
            if (!known.insert(repo.repoID).second) continue;
            candidates.push_back(enrollmentConfig(repo, now));
            fetched.push_back(repo.hasRemoteBranches);
        }
        historyDays = config_.historyDays;
    }
    if (candidates.empty()) return {};

    // The history reads are the costly part of enrolment: eight at a time, like a scan.
    std::string since = DateHelpers::isoString(DateHelpers::startOfDay(now) - kDay * historyDays);
    std::vector<std::optional<std::vector<CommitRecord>>> histories =
        boundedParallelMap<std::optional<std::vector<CommitRecord>>>(
            candidates.size(), kMaxParallelScans,
            [&](size_t i) -> std::optional<std::vector<CommitRecord>> {
                if (stopping_) return std::nullopt;
                if (historyDays <= 0) return std::vector<CommitRecord>{};
                std::vector<CommitRecord> commits =
                    scanner_.historyCommits(candidates[i].localPath, since, fetched[i]);
                if (stopping_) return std::nullopt;
                return commits;
            });

    std::vector<std::string> ids;
    std::optional<std::string> unsaved = changeConfig([&](AppConfig& config) {
        ids.clear();
        std::set<std::string> present;
        for (const RepoConfig& repo : config.repositories) present.insert(repo.id);
        for (size_t i = 0; i < candidates.size(); ++i) {
            if (!histories[i] || present.contains(candidates[i].id)) continue;
            config.repositories.push_back(candidates[i]);
            ids.push_back(candidates[i].id);
        }
    });
    if (ids.empty()) return {};
    // Not enrolled on disk: recording their history now would leave commits of
    // repositories the configuration does not list. The next scan tries again.
    if (unsaved) {
        std::lock_guard lock(mutex_);
        std::erase_if(config_.repositories, [&](const RepoConfig& repo) {
            return std::find(ids.begin(), ids.end(), repo.id) != ids.end();
        });
        return {};
    }
    startWatcher();
    // The days that have a record, read once: asked per repository and day, the
    // store walks every record each time, which grows with the square of the
    // repositories enrolled together.
    std::set<std::pair<std::string, std::string>> recorded;
    for (const DayActivity& day : store_.dayActivities("0000-01-01", "9999-12-31")) {
        recorded.emplace(day.repoID, day.dateKey);
    }
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (histories[i] && std::find(ids.begin(), ids.end(), candidates[i].id) != ids.end()) {
            storeHistory(candidates[i], *histories[i], recorded);
        }
    }
    return ids;
}

void AppEnvironment::storeHistory(const RepoConfig& repo, const std::vector<CommitRecord>& commits,
                                  const std::set<std::pair<std::string, std::string>>& recorded) {
    if (commits.empty()) return;
    store_.upsertCommits(commits);

    // One day record per day with commits: their count and branches. Time, file
    // counts and labels are not known for the past, and no session is invented.
    std::map<std::string, DayActivity> byDay;
    for (const CommitRecord& commit : commits) {
        std::string key = DateHelpers::dateKey(commit.committedAt);
        DayActivity& day = byDay[key];
        day.repoID = repo.id;
        day.dateKey = key;
        ++day.commitCount;
        if (!commit.branch.empty() &&
            std::find(day.branchesTouched.begin(), day.branchesTouched.end(), commit.branch) ==
                day.branchesTouched.end()) {
            day.branchesTouched.push_back(commit.branch);
        }
    }
    for (auto& [key, day] : byDay) {
        // A day the scans saw themselves is worth more.
        if (recorded.contains({repo.id, key})) continue;
        std::sort(day.branchesTouched.begin(), day.branchesTouched.end());
        store_.setDayActivity(day);
    }
}

std::optional<std::string> AppEnvironment::changeConfig(
    const std::function<void(AppConfig&)>& change) {
    ConfigService::SaveResult result;
    // Each round takes in what was edited by hand first; a file edited again
    // between the reload and the save costs one more round.
    for (int round = 0; round < 3; ++round) {
        adoptConfigEdits();
        AppConfig updated;
        {
            std::lock_guard lock(mutex_);
            change(config_);
            updated = config_;
        }
        result = configService_.save(updated);
        if (result.outcome != ConfigService::SaveResult::Outcome::changedOnDisk) break;
    }
    if (result.ok()) return std::nullopt;
    noteSaveProblem(result.problem);
    return result.problem;
}

bool AppEnvironment::adoptConfigEdits() {
    std::optional<AppConfig> edited = configService_.reloadIfChanged();
    if (!edited) return false;
    AppConfig before;
    {
        std::lock_guard lock(mutex_);
        before = std::exchange(config_, *edited);
    }
    followConfig(before, *edited);
    return true;
}

void AppEnvironment::followConfig(const AppConfig& before, const AppConfig& after) {
    if (watchedPaths(before) != watchedPaths(after)) startWatcher();
    if (before.scanIntervalMinutes != after.scanIntervalMinutes ||
        before.dailyReviewTime != after.dailyReviewTime ||
        before.sync.interval != after.sync.interval) {
        rescheduleTasks();
    }
    if (before.agent.enabled != after.agent.enabled ||
        before.agent.socketPath != after.agent.socketPath) {
        followAgentSettings();
    }
}

void AppEnvironment::rescheduleTasks() {
    timers_.reschedule();
}

void AppEnvironment::loadScanMemos() {
    const std::filesystem::path file = dataDir_ / kScanCacheFile;
    AtomicFile::removeStaleTemporaries(file);
    AtomicFile::ReadResult read = AtomicFile::read(file);
    if (read.missing) return;
    std::map<std::string, ScanMemo> memos;
    try {
        if (!read.bytes) throw DecodeError(read.error);
        Json json = JsonCodec::parse(*read.bytes);
        if (!json.is_object()) throw DecodeError("expected an object of memos");
        for (const auto& [id, memo] : json.items()) fromJson(memo, memos[id], id);
    } catch (const DecodeError& error) {
        // Moved aside rather than replaced, like every other file of the folder;
        // the scans rebuild it.
        if (AtomicFile::quarantine(file, clock_.now())) {
            Log::app().error(
                fmt::format("{} unreadable — quarantined: {}", kScanCacheFile, error.what()));
        } else {
            std::lock_guard lock(mutex_);
            scanCacheBlocked_ = true;
            Log::app().error(
                fmt::format("{} unreadable and could not be set aside; scans go "
                            "on without it: {}",
                            kScanCacheFile, error.what()));
        }
        return;
    }
    std::lock_guard lock(mutex_);
    scanMemos_ = std::move(memos);
}

void AppEnvironment::saveScanMemos() {
    Json json = Json::object();
    {
        std::lock_guard lock(mutex_);
        if (!scanMemosChanged_ || scanCacheBlocked_) return;
        for (const auto& [id, memo] : scanMemos_) json[id] = toJson(memo);
        scanMemosChanged_ = false;
    }
    if (auto error = AtomicFile::write(dataDir_ / kScanCacheFile, JsonCodec::pretty(json))) {
        Log::app().error(fmt::format("write {} failed: {}", kScanCacheFile, *error));
    }
}

void AppEnvironment::noteSaveProblem(const std::string& problem) {
    std::lock_guard lock(mutex_);
    if (saveProblem_.empty()) saveProblem_ = problem;  // the first reason is the cause
}

std::string AppEnvironment::saveProblem() const {
    std::lock_guard lock(mutex_);
    return saveProblem_;
}

bool AppEnvironment::applyConfigChange(const std::function<void(AppConfig&)>& change) {
    {
        std::lock_guard lock(mutex_);
        saveProblem_.clear();
    }
    // The save takes in a hand edit too; doing it here first makes `before` hold
    // it, so what follows answers the edit and the change alike.
    adoptConfigEdits();
    AppConfig before = config();
    bool saved = !changeConfig(change).has_value();
    AppConfig after = config();
    followConfig(before, after);
    bool running;
    {
        std::lock_guard lock(mutex_);
        running = didBootstrap_;
    }
    // The periodic sync follows a new interval itself, but none runs while syncs are
    // manual: one starts, or the idle one goes, when that changes.
    bool periodic = after.sync.interval != SyncPrefs::Interval::manual;
    if (running && periodic != isPeriodicSyncRunning()) startPeriodicSync();
    return saved;
}

void AppEnvironment::startPeriodicScanning() {
    if (stopping_) return;
    timers_.arm(Scheduler::TaskID::scan,
                {.name = "scan",
                 .due = [this](Date roundStart, Date) -> std::optional<Date> {
                     // A year at most: longer waits overflow the clock's arithmetic.
                     int minutes = std::clamp(config().scanIntervalMinutes, 1, 366 * 24 * 60);
                     return roundStart + std::chrono::minutes(minutes);
                 },
                 .run =
                     [this] {
                         // Asked for by the person, it reads everything.
                         bool requested = scanRequested_.exchange(false);
                         if (!paused_ || requested) {
                             scanNow(requested ? ScanScope::everything : ScanScope::changed);
                         }
                     }});
}

void AppEnvironment::requestScan() {
    scanRequested_ = true;
    timers_.runSoon(Scheduler::TaskID::scan);
}

// Each reminder is shown under its own id, headed by its kind's title, so the
// reminder's later resolution takes down exactly its notification.
void AppEnvironment::postAll(const std::vector<ReminderEvent>& events) {
    if (events.empty()) return;
    events_.publish("reminder", Json{{"count", events.size()}}.dump());
    if (notifier_ == nullptr) return;
    for (const ReminderEvent& event : events) {
        notifier_->post(ReminderNotices::notice(event));
    }
}

// Resolved reminders leave the screen; the store has recorded them first.
void AppEnvironment::closeAll(const std::vector<std::string>& reminderIDs) {
    if (notifier_ == nullptr) return;
    for (const std::string& id : reminderIDs) notifier_->close(id);
}

void AppEnvironment::refreshOpenReminders() {
    std::vector<ReminderEvent> open = store_.reminders(true);
    std::lock_guard lock(mutex_);
    unresolvedReminders_ = std::move(open);
}

AppEnvironment::Snoozed AppEnvironment::snoozeReminder(const std::string& id,
                                                       std::chrono::minutes length) {
    const Date until = clock_.now() + length;
    Snoozed result;
    result.reminder = store_.changeOpenReminder(id, [&](ReminderEvent& event) {
        event.snoozedUntil = until;
        return true;
    });
    if (!result.reminder) return result;
    // Stored before it leaves the screen, so a failed save loses no reminder.
    if (!store_.flush()) result.saveProblem = store_.flushProblem();
    if (notifier_ != nullptr) notifier_->close(id);
    refreshOpenReminders();
    // The watch reads the new time at once; outside the service nothing is armed.
    timers_.runSoon(Scheduler::TaskID::snoozed);
    return result;
}

void AppEnvironment::bringBackSnoozed() {
    const Date now = clock_.now();
    std::vector<ReminderEvent> back;
    for (const std::string& id : ReminderNotices::dueBack(now, store_.reminders(true))) {
        // Checked again in the store's step: a snooze set meanwhile is kept.
        std::optional<ReminderEvent> event = store_.changeOpenReminder(id, [&](ReminderEvent& e) {
            if (ReminderNotices::isSnoozed(e, now) || !e.snoozedUntil) return false;
            e.snoozedUntil.reset();
            return true;
        });
        if (event) back.push_back(*event);
    }
    if (!back.empty() && !store_.flush()) noteSaveProblem(store_.flushProblem());
    // Always: the watch's next time is read from this copy, which must not keep one
    // that a pass resolved meanwhile.
    refreshOpenReminders();
    if (notifier_ == nullptr) return;
    for (const ReminderEvent& event : back) notifier_->post(ReminderNotices::notice(event));
}

void AppEnvironment::startSnoozeWatch() {
    if (stopping_) return;
    timers_.arm(
        Scheduler::TaskID::snoozed,
        {.name = "snoozed reminders",
         .due = [this](Date, Date) { return ReminderNotices::nextBack(unresolvedReminders()); },
         .run = [this] { bringBackSnoozed(); }});
}

void AppEnvironment::startDailyReviewScheduling() {
    if (stopping_) return;
    timers_.arm(Scheduler::TaskID::review,
                {.name = "end-of-day review",
                 .due = [this](Date roundStart, Date) -> std::optional<Date> {
                     double seconds =
                         DailyReview::secondsUntilNextReview(config().dailyReviewTime, roundStart);
                     return roundStart +
                            std::chrono::seconds(static_cast<long long>(std::ceil(seconds)));
                 },
                 .run = [this] { fireDayReviewIfEnabled(); },
                 // A new review time is counted from when it was set, so a time already passed
                 // today falls due tomorrow rather than at once.
                 .onReschedule = Scheduler::OnReschedule::restartRound});
}

void AppEnvironment::fireDayReviewIfEnabled() {
    AppConfig current = config();
    if (!current.reminders.endDayReview || stopping_) return;
    Date now = clock_.now();
    // Counted as `today` counts them, so the reminder and the view agree.
    int active = Queries::todaySummary(store_, current, now).activeProjects;
    std::vector<std::string> previous;
    for (const ReminderEvent& event : store_.reminders(true)) {
        if (event.kind == ReminderEvent::Kind::endDayReview) previous.push_back(event.id);
    }
    ReminderEvent event = ReminderEngine::endDayReview(now, active);
    // At most one end-of-day reminder is open at a time.
    if (!previous.empty()) store_.resolveReminders(previous);
    closeAll(previous);
    store_.upsertReminders({event});
    postAll({event});
    if (!store_.flush()) noteSaveProblem(store_.flushProblem());
    std::vector<ReminderEvent> open = store_.reminders(true);
    std::lock_guard lock(mutex_);
    unresolvedReminders_ = std::move(open);
}

void AppEnvironment::startWatcher() {
    std::lock_guard lifecycle(watcherLifecycle_);
    watcher_.stop();
    bool bootstrapped;
    {
        std::lock_guard lock(mutex_);
        bootstrapped = didBootstrap_;
    }
    if (!bootstrapped || stopping_) return;
    std::vector<std::string> paths = watchedPaths(config());
    if (paths.empty()) return;
    watcher_.start(paths,
                   [this](const std::string& path, Date when) { noteFileActivity(path, when); });
}

void AppEnvironment::shutdown() {
    stopping_ = true;
    shutdownSignal_.cancel();
    // The signal above ends a scan or sync under way, and with it the timers' round.
    timers_.stop();
    {
        std::lock_guard lifecycle(syncLifecycle_);
        if (startupSync_.joinable()) startupSync_.join();
    }
    {
        std::lock_guard lifecycle(watcherLifecycle_);
        watcher_.stop();
    }
    {
        std::unique_lock lifecycle(agentLifecycle_);
        std::jthread follower = std::move(agentFollower_);
        lifecycle.unlock();
        if (follower.joinable()) {
            follower.request_stop();
            follower.join();
        }
    }
    stopAgentServer();
    std::unique_lock lock(mutex_);
    scanFinished_.wait(lock, [this] { return !isScanning_; });
    bool loaded = didLoad_;
    lock.unlock();
    if (loaded) store_.flush();
}

}  // namespace quorvane
