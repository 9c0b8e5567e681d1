#include "platform/InotifyEventSource.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <utility>

#include "base/Log.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

// Everything that says a file or folder was written, made, removed, renamed or had
// its metadata changed. IN_CLOSE_WRITE adds nothing a write's IN_MODIFY has not said.
constexpr uint32_t kChangeMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_ATTRIB | IN_MOVED_FROM |
                                 IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr uint32_t kWatchMask = kChangeMask | IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK;

std::string childPath(const std::string& folder, const char* name) {
    if (folder == "/") return folder + name;
    return folder + "/" + name;
}

bool isInside(const std::string& path, const std::string& folder) {
    return path == folder ||
           (path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/');
}

}  // namespace

bool InotifyEventSource::open(const std::vector<std::string>& roots, FolderFilter skip) {
    close();
    inotify_ = Fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    wake_ = Fd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!inotify_.valid() || !wake_.valid()) {
        close();
        return false;
    }
    skip_ = std::move(skip);
    outOfWatchesLogged_ = false;
    gaps_ = {};
    for (const std::string& root : roots) watchTree(root);
    return true;
}

void InotifyEventSource::close() {
    inotify_.reset();
    wake_.reset();
    folders_.clear();
    skip_ = nullptr;
}

WatchGaps InotifyEventSource::takeGaps() {
    return std::exchange(gaps_, {});
}

void InotifyEventSource::interrupt() {
    if (!wake_.valid()) return;
    uint64_t one = 1;
    // Only fails when the counter is full, which already makes the descriptor readable.
    [[maybe_unused]] ssize_t written = ::write(wake_.get(), &one, sizeof one);
}

std::vector<FileChange> InotifyEventSource::wait(std::optional<std::chrono::milliseconds> timeout) {
    std::vector<FileChange> changed;
    if (!inotify_.valid()) return changed;
    int milliseconds = -1;
    if (timeout) {
        milliseconds = static_cast<int>(
            std::clamp<std::chrono::milliseconds::rep>(timeout->count(), 0, INT_MAX));
    }
    pollfd fds[2] = {{inotify_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    // A timeout or a signal both just return nothing; the caller decides what is next.
    if (::poll(fds, 2, milliseconds) <= 0) return changed;
    if (fds[1].revents != 0) {
        uint64_t count = 0;
        [[maybe_unused]] ssize_t drained = ::read(wake_.get(), &count, sizeof count);
    }
    if (fds[0].revents != 0) readEvents(changed);
    return changed;
}

void InotifyEventSource::readEvents(std::vector<FileChange>& changed) {
    alignas(inotify_event) char buffer[64 * 1024];
    while (true) {
        ssize_t length = ::read(inotify_.get(), buffer, sizeof buffer);
        if (length < 0 && errno == EINTR) continue;
        if (length <= 0) return;
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            // After an overflow the kernel no longer knows which paths changed, so
            // there is nothing to name; the next change will be seen again.
            if ((event->mask & IN_Q_OVERFLOW) != 0) {
                gaps_.lostEvents = true;
                continue;
            }
            auto folder = folders_.find(event->wd);
            if (folder == folders_.end()) continue;
            if ((event->mask & IN_IGNORED) != 0) {
                folders_.erase(folder);
                continue;
            }
            std::string path =
                event->len > 0 ? childPath(folder->second, event->name) : folder->second;
            if ((event->mask & IN_ISDIR) != 0) {
                if ((event->mask & (IN_CREATE | IN_MOVED_TO)) != 0) watchTree(path);
                if ((event->mask & IN_MOVED_FROM) != 0) forgetTree(path);
            }
            // Every watch is on a folder, so an event with no name is about that folder.
            bool isFolder = (event->mask & IN_ISDIR) != 0 || event->len == 0;
            changed.push_back(FileChange{.path = std::move(path), .isFolder = isFolder});
        }
    }
}

void InotifyEventSource::watchTree(const std::string& root) {
    std::vector<std::string> pending{root};
    while (!pending.empty()) {
        std::string folder = std::move(pending.back());
        pending.pop_back();
        // The watch comes before the listing, so a sub-folder made meanwhile is
        // either listed here or reported by the new watch.
        if ((skip_ && skip_(folder)) || !addWatch(folder)) {
            // A root that is gone is no gap: there is nothing to miss in it.
            std::error_code ec;
            if (fs::is_directory(folder, ec)) gaps_.unwatched.push_back(folder);
            continue;
        }
        std::error_code ec;
        for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
            std::error_code typeError;
            if (it->is_symlink(typeError) || !it->is_directory(typeError)) continue;
            pending.push_back(it->path().string());
        }
    }
}

bool InotifyEventSource::addWatch(const std::string& folder) {
    if (watchLimit_ != 0 && folders_.size() >= watchLimit_) {
        noteOutOfWatches();
        return false;
    }
    int wd = ::inotify_add_watch(inotify_.get(), folder.c_str(), kWatchMask);
    if (wd < 0) {
        // Other failures (the folder vanished, no permission) just leave it out.
        if (errno == ENOSPC) noteOutOfWatches();
        return false;
    }
    // The kernel hands back the same descriptor for a folder watched already (a
    // nested root, a folder moved back in); its newest path is the one to report.
    folders_[wd] = folder;
    return true;
}

void InotifyEventSource::forgetTree(const std::string& folder) {
    for (auto it = folders_.begin(); it != folders_.end();) {
        if (!isInside(it->second, folder)) {
            ++it;
            continue;
        }
        ::inotify_rm_watch(inotify_.get(), it->first);
        it = folders_.erase(it);
    }
}

void InotifyEventSource::noteOutOfWatches() {
    if (outOfWatchesLogged_) return;
    outOfWatchesLogged_ = true;
    Log::app().error(
        "file watcher: out of inotify watches, some folders are not watched "
        "(the limit is fs.inotify.max_user_watches)");
}

}  // namespace quorvane
