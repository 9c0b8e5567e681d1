#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/FileDescriptor.hpp"
#include "platform/FileEventSource.hpp"

namespace quorvane {

// The file event source on Linux. inotify watches one folder, not a tree, so the
// source adds a watch for every folder under each root, and for each folder that
// appears later. Symbolic links are never followed. When the kernel refuses more
// watches, the rest stay unwatched, one line says so, and watching goes on.
class InotifyEventSource final : public FileEventSource {
public:
    // `watchLimit` caps the watches this source adds, to bound the kernel memory it
    // spends (0: only the kernel's own limit). Reaching either limit is the same.
    explicit InotifyEventSource(size_t watchLimit = 0) : watchLimit_(watchLimit) {}

    bool open(const std::vector<std::string>& roots, FolderFilter skip) override;
    std::vector<FileChange> wait(std::optional<std::chrono::milliseconds> timeout) override;
    void interrupt() override;
    void close() override;
    WatchGaps takeGaps() override;

    // How many folders are watched now.
    size_t watchCount() const { return folders_.size(); }

private:
    void readEvents(std::vector<FileChange>& changed);
    void watchTree(const std::string& root);
    bool addWatch(const std::string& folder);
    // Drops the watches of a folder that moved away, and of everything below it.
    void forgetTree(const std::string& folder);
    void noteOutOfWatches();

    size_t watchLimit_;
    Fd inotify_;
    Fd wake_;  // an eventfd that interrupt() makes readable
    FolderFilter skip_;
    std::unordered_map<int, std::string> folders_;  // watch descriptor to folder path
    bool outOfWatchesLogged_ = false;
    WatchGaps gaps_;
};

}  // namespace quorvane
