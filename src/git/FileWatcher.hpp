#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/DateHelpers.hpp"
#include "platform/Clock.hpp"
#include "platform/FileEventSource.hpp"

namespace quorvane {

// The monotonic time quiet periods are measured on; tests move a fake by hand.
class MonotonicClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    virtual ~MonotonicClock() = default;
    virtual TimePoint now() const = 0;
};

// std::chrono::steady_clock.
class SteadyMonotonicClock final : public MonotonicClock {
public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
};

// A trailing debounce per repository: each event moves that repository's report to
// `interval` after it, so a burst gives one report once it has been quiet that long.
class ActivityDebouncer {
public:
    using TimePoint = MonotonicClock::TimePoint;

    explicit ActivityDebouncer(std::chrono::milliseconds interval) : interval_(interval) {}

    void note(const std::string& repo, TimePoint at);
    // Removes and returns the repositories whose quiet period has ended by `now`,
    // the longest-waiting first.
    std::vector<std::string> takeDue(TimePoint now);
    // When the next report falls due; nothing when none is pending.
    std::optional<TimePoint> nextDeadline() const;
    void clear() { deadlines_.clear(); }

private:
    std::chrono::milliseconds interval_;
    std::map<std::string, TimePoint> deadlines_;
};

// Tells the application which tracked repository just saw file activity, so that
// editing without a commit still counts as work. Changes in generated folders are
// ignored; each repository is reported at most once per quiet period of 2 seconds.
class FileWatcher {
public:
    // Receives the repository path (as standardised by start) and the delivery time.
    using ActivityCallback = std::function<void(std::string repoPath, Date when)>;

    static constexpr std::chrono::milliseconds kDebounceInterval{2000};

    // Watches through inotify, with real time.
    explicit FileWatcher(const Clock& clock);
    FileWatcher(const Clock& clock, std::unique_ptr<FileEventSource> source,
                const MonotonicClock& steady);
    ~FileWatcher();
    FileWatcher(const FileWatcher&) = delete;
    FileWatcher& operator=(const FileWatcher&) = delete;

    // Starts watching `paths` and their trees; `onActivity` runs on the watcher's own
    // thread. Does nothing while running, so a caller with new paths stops first.
    // When the event source cannot open, the watcher stays stopped, silently.
    void start(const std::vector<std::string>& paths, ActivityCallback onActivity);

    // Stops watching and drops pending reports. Once it returns no callback runs or
    // will run. Must not be called from the callback. Nothing happens when stopped.
    void stop();

    bool isRunning() const;

    // What the watcher can say about the repositories since the last report: which
    // saw a change in their work tree (at once, not after the quiet period), and
    // which it cannot vouch for. Paths as watchOrder gives them.
    struct Report {
        bool running = false;
        std::vector<std::string> watched;
        std::set<std::string> changed;
        // A folder below them is unwatched: a generated one, or one the system
        // refused a watch. Kept until the watcher starts again.
        std::set<std::string> unvouched;
        // Changes may have gone unseen anywhere: the system dropped events, or the
        // watcher (re)started, so what changed while it was stopped is unknown.
        bool lostEvents = false;
    };

    // Takes the report and starts the next one. Every change made before the call
    // is in it: the watcher thread first reads all the system has queued.
    Report takeReport();

    // Whether a changed path lies in a generated folder whose changes mean nothing:
    // a plain substring test for "/.git/", "/node_modules/", "/.build/", "/dist/".
    static bool isIgnored(std::string_view path);

    // The first of `repos` that equals `path` or holds it; `repos` ordered longest
    // first makes the innermost of nested repositories win.
    static std::optional<std::string> matchRepoID(std::string_view path,
                                                  const std::vector<std::string>& repos);

    // Tilde expanded, "." and ".." parts and repeated or trailing separators removed.
    // Symbolic links are kept, so event paths keep the form the caller gave.
    static std::string standardizedPath(std::string_view path);

    // The paths standardised and sorted longest first, as they are watched and matched.
    static std::vector<std::string> watchOrder(const std::vector<std::string>& paths);

    // The repositories that the changes touch, each once. Ignored paths are left out,
    // and so is a folder that is itself ignored, such as a new "dist" folder; a file
    // with such a name is activity.
    static std::vector<std::string> touchedRepos(const std::vector<FileChange>& changed,
                                                 const std::vector<std::string>& repos);

    // Whether a folder under one of `repos` (ordered as by watchOrder) is left
    // unwatched: a generated folder below its repository.
    static bool skipsFolder(const std::string& folder, const std::vector<std::string>& repos);

private:
    // The part of `path` below `repo`, which holds it: "" or "/...".
    static std::string_view belowRepository(std::string_view path, std::string_view repo);

    void run();
    // Notes the source's gaps against the watched repositories; under mutex_.
    void noteGaps(const WatchGaps& gaps);

    const Clock& clock_;
    const MonotonicClock& steady_;
    // Serialises start and stop with each other; the watcher thread never takes it.
    std::mutex lifecycle_;
    std::unique_ptr<FileEventSource> source_;
    std::thread thread_;

    // Shared between the watcher thread and stop.
    mutable std::mutex mutex_;
    bool running_ = false;
    bool stopping_ = false;
    std::vector<std::string> watchedPaths_;
    ActivityCallback onActivity_;
    ActivityDebouncer debouncer_{kDebounceInterval};
    std::set<std::string> changed_;
    std::set<std::string> unvouched_;
    bool lostEvents_ = false;
    // A report waits until the thread has read every event queued before it asked.
    std::condition_variable drained_;
    unsigned long long drainAsked_ = 0;
    unsigned long long drainDone_ = 0;
};

}  // namespace quorvane
