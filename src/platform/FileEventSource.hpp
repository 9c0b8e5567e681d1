#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quorvane {

// One changed path as the operating system named it.
struct FileChange {
    std::string path;
    // A file and a folder may share a name (a linked worktree's ".git" file, the
    // ".git" folder), and only some folders' own changes mean nothing.
    bool isFolder = false;
};

// What a source could not follow: folders left unwatched, whether `skip` left them
// out or the system refused a watch, and whether the system dropped events. A
// change there goes unreported, so whoever relies on the silence must look itself.
struct WatchGaps {
    std::vector<std::string> unwatched;
    bool lostEvents = false;
};

// Says whether a folder, and everything below it, is left unwatched.
using FolderFilter = std::function<bool(const std::string& folder)>;

// The operating system's notifications of changes under folder trees. One thread
// calls wait(); interrupt() may come from any thread. The real one is
// InotifyEventSource; tests substitute a source they feed by hand.
class FileEventSource {
public:
    virtual ~FileEventSource() = default;

    // Starts watching each root and every folder below it that `skip` does not
    // exclude, folders created later included. False when no notifications can be
    // had at all; a folder that cannot be watched is only left out.
    virtual bool open(const std::vector<std::string>& roots, FolderFilter skip) = 0;

    // Blocks until something changed, `timeout` passed (none: no limit) or
    // interrupt() was called, and returns what changed, possibly nothing.
    virtual std::vector<FileChange> wait(std::optional<std::chrono::milliseconds> timeout) = 0;

    // Makes the current wait() return at once, or the next one if none is running.
    virtual void interrupt() = 0;

    // Ends watching and releases everything open() took; open() may follow again.
    virtual void close() = 0;

    // The gaps found since the last call (open() included), then forgotten. Called
    // on the thread that calls wait(), or before it runs.
    virtual WatchGaps takeGaps() { return {}; }
};

}  // namespace quorvane
