#include "git/FileWatcher.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/PathHelpers.hpp"
#include "platform/InotifyEventSource.hpp"

namespace quorvane {
namespace {

// Folders whose writes are generated: git's own bookkeeping (a commit touches only
// .git, and the scanner sees commits itself), dependencies and build output.
constexpr std::array<std::string_view, 4> kIgnoredFragments = {"/.git/", "/node_modules/",
                                                               "/.build/", "/dist/"};

const MonotonicClock& realSteadyClock() {
    static const SteadyMonotonicClock clock;
    return clock;
}

}  // namespace

void ActivityDebouncer::note(const std::string& repo, TimePoint at) {
    deadlines_[repo] = at + interval_;
}

std::vector<std::string> ActivityDebouncer::takeDue(TimePoint now) {
    std::vector<std::pair<TimePoint, std::string>> due;
    for (auto it = deadlines_.begin(); it != deadlines_.end();) {
        if (it->second > now) {
            ++it;
            continue;
        }
        due.emplace_back(it->second, it->first);
        it = deadlines_.erase(it);
    }
    std::sort(due.begin(), due.end());
    std::vector<std::string> repos;
    repos.reserve(due.size());
    for (auto& [deadline, repo] : due) repos.push_back(std::move(repo));
    return repos;
}

std::optional<ActivityDebouncer::TimePoint> ActivityDebouncer::nextDeadline() const {
    std::optional<TimePoint> next;
    for (const auto& [repo, deadline] : deadlines_) {
        if (!next || deadline < *next) next = deadline;
    }
    return next;
}

FileWatcher::FileWatcher(const Clock& clock)
    : FileWatcher(clock, std::make_unique<InotifyEventSource>(), realSteadyClock()) {}

FileWatcher::FileWatcher(const Clock& clock, std::unique_ptr<FileEventSource> source,
                         const MonotonicClock& steady)
    : clock_(clock), steady_(steady), source_(std::move(source)) {}

FileWatcher::~FileWatcher() {
    stop();
}

bool FileWatcher::isIgnored(std::string_view path) {
    return std::any_of(
        kIgnoredFragments.begin(), kIgnoredFragments.end(),
        [&](std::string_view fragment) { return path.find(fragment) != std::string_view::npos; });
}

std::optional<std::string> FileWatcher::matchRepoID(std::string_view path,
                                                    const std::vector<std::string>& repos) {
    for (const std::string& repo : repos) {
        // The separator keeps "/a/b" from claiming its sibling "/a/bc".
        if (path == repo || path.starts_with(repo + "/")) return repo;
    }
    return std::nullopt;
}

std::string FileWatcher::standardizedPath(std::string_view path) {
    std::string expanded = PathHelpers::expandTilde(path);
    if (expanded.empty()) return expanded;
    std::string normal = std::filesystem::path(expanded).lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
    return normal;
}

std::vector<std::string> FileWatcher::watchOrder(const std::vector<std::string>& paths) {
    std::vector<std::string> sorted;
    sorted.reserve(paths.size());
    for (const std::string& path : paths) sorted.push_back(standardizedPath(path));
    std::stable_sort(sorted.begin(), sorted.end(), [](const std::string& a, const std::string& b) {
        return a.size() > b.size();
    });
    return sorted;
}

std::string_view FileWatcher::belowRepository(std::string_view path, std::string_view repo) {
    return path.size() >= repo.size() ? path.substr(repo.size()) : std::string_view();
}

bool FileWatcher::skipsFolder(const std::string& folder, const std::vector<std::string>& repos) {
    std::string standard = standardizedPath(folder);
    std::optional<std::string> repo = matchRepoID(standard, repos);
    // Only what lies below the repository counts: a repository that itself sits in a
    // folder named "dist" is watched like any other.
    std::string below(repo ? belowRepository(standard, *repo) : std::string_view(standard));
    return isIgnored(below + "/");
}

std::vector<std::string> FileWatcher::touchedRepos(const std::vector<FileChange>& changed,
                                                   const std::vector<std::string>& repos) {
    std::vector<std::string> touched;
    for (const FileChange& change : changed) {
        std::string standard = standardizedPath(change.path);
        std::optional<std::string> repo = matchRepoID(standard, repos);
        if (!repo) continue;
        // The fragments are looked for below the repository only, so one that lives
        // under ~/dist still reports its work.
        std::string below(belowRepository(standard, *repo));
        if (isIgnored(below)) continue;
        // inotify names a generated folder that appears or goes by its own path, with no
        // separator after it; that event is as meaningless as the ones inside it. A file
        // of that name, such as a linked worktree's ".git", is the user's.
        if (change.isFolder && isIgnored(below + "/")) continue;
        if (std::find(touched.begin(), touched.end(), *repo) != touched.end()) continue;
        touched.push_back(std::move(*repo));
    }
    return touched;
}

bool FileWatcher::isRunning() const {
    std::lock_guard lock(mutex_);
    return running_;
}

void FileWatcher::start(const std::vector<std::string>& paths, ActivityCallback onActivity) {
    std::lock_guard lifecycle(lifecycle_);
    if (isRunning()) return;
    std::vector<std::string> sorted = watchOrder(paths);
    // Changes in ignored folders would be dropped anyway; leaving them unwatched
    // spares the kernel's watches and this process's wake-ups.
    FolderFilter skip = [sorted](const std::string& folder) { return skipsFolder(folder, sorted); };
    if (!source_->open(sorted, std::move(skip))) return;
    {
        std::lock_guard lock(mutex_);
        running_ = true;
        stopping_ = false;
        watchedPaths_ = std::move(sorted);
        onActivity_ = std::move(onActivity);
        changed_.clear();
        unvouched_.clear();
        // Whatever changed while nothing watched is unknown.
        lostEvents_ = true;
        noteGaps(source_->takeGaps());
    }
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        // No thread means no watching; like a source that cannot open, say nothing.
        source_->close();
        std::lock_guard lock(mutex_);
        running_ = false;
        watchedPaths_.clear();
        onActivity_ = nullptr;
    }
}

void FileWatcher::stop() {
    std::lock_guard lifecycle(lifecycle_);
    {
        std::lock_guard lock(mutex_);
        if (!running_) return;
        stopping_ = true;
    }
    source_->interrupt();
    // Callbacks run only on this thread, so after the join none is running or due.
    thread_.join();
    source_->close();
    std::lock_guard lock(mutex_);
    running_ = false;
    stopping_ = false;
    watchedPaths_.clear();
    onActivity_ = nullptr;
    debouncer_.clear();
    drainDone_ = drainAsked_;
    drained_.notify_all();
}

void FileWatcher::noteGaps(const WatchGaps& gaps) {
    if (gaps.lostEvents) lostEvents_ = true;
    for (const std::string& folder : gaps.unwatched) {
        std::string standard = standardizedPath(folder);
        std::optional<std::string> repo = matchRepoID(standard, watchedPaths_);
        if (!repo) continue;
        // A git folder is not the work tree: what in it matters to a scan is looked
        // at by the scan itself.
        if (standard != *repo && std::filesystem::path(standard).filename() == ".git") continue;
        unvouched_.insert(*repo);
    }
}

FileWatcher::Report FileWatcher::takeReport() {
    std::unique_lock lock(mutex_);
    if (running_ && !stopping_) {
        unsigned long long ticket = ++drainAsked_;
        source_->interrupt();
        drained_.wait(lock, [&] { return drainDone_ >= ticket || !running_ || stopping_; });
    }
    Report report;
    report.running = running_ && !stopping_;
    if (!report.running) return report;
    report.watched = watchedPaths_;
    report.changed = std::exchange(changed_, {});
    report.unvouched = unvouched_;
    report.lostEvents = std::exchange(lostEvents_, false);
    return report;
}

void FileWatcher::run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        for (const std::string& repo : debouncer_.takeDue(steady_.now())) {
            ActivityCallback callback = onActivity_;
            // The callback may take the application's own lock; never call it under ours.
            lock.unlock();
            // Thrown out of this thread it would end the process; the activity is
            // only a hint, so losing one is the lesser harm.
            try {
                if (callback) callback(repo, clock_.now());
            } catch (const std::exception&) {}
            lock.lock();
            if (stopping_) return;
        }
        // A report asked for before this wait began is answered by what it reads.
        unsigned long long asked = drainAsked_;
        std::optional<std::chrono::milliseconds> timeout;
        if (std::optional<MonotonicClock::TimePoint> next = debouncer_.nextDeadline()) {
            // Rounded up, so the thread never wakes just short of a deadline and spins.
            timeout = std::chrono::ceil<std::chrono::milliseconds>(*next - steady_.now());
        }
        // Its wake-up may have been spent on the previous wait: look without waiting.
        if (asked != drainDone_) timeout = std::chrono::milliseconds(0);
        lock.unlock();
        std::vector<FileChange> changed = source_->wait(timeout);
        lock.lock();
        if (stopping_) return;
        MonotonicClock::TimePoint at = steady_.now();
        for (const std::string& repo : touchedRepos(changed, watchedPaths_)) {
            debouncer_.note(repo, at);
            changed_.insert(repo);
        }
        noteGaps(source_->takeGaps());
        drainDone_ = asked;
        drained_.notify_all();
    }
}

}  // namespace quorvane
