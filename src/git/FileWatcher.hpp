#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
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
};

}  // namespace quorvane
