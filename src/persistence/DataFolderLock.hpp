#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

namespace quorvane {

struct LockAttempt;

// Makes one process the only writer of a data folder: an exclusive flock on
// "quorvane.lock" in it, held for as long as the object lives. The holder's pid is
// written into the file so that a refused process can say who holds it.
class DataFolderLock {
public:
    static constexpr const char* kFileName = "quorvane.lock";

    // Never waits: another holder means an immediate refusal.
    static LockAttempt acquire(const std::filesystem::path& dir);

    // The pid of the process that holds the lock now, if any; takes nothing.
    static std::optional<pid_t> currentHolder(const std::filesystem::path& dir);

    // The message a command prints when the writer lock is held by another process.
    static std::string refusalMessage(const std::filesystem::path& dir,
                                      std::optional<pid_t> holder);

    DataFolderLock(DataFolderLock&& other) noexcept;
    DataFolderLock& operator=(DataFolderLock&& other) noexcept;
    DataFolderLock(const DataFolderLock&) = delete;
    DataFolderLock& operator=(const DataFolderLock&) = delete;
    ~DataFolderLock();

private:
    explicit DataFolderLock(int fd) : fd_(fd) {}
    int fd_ = -1;
};

// The outcome of trying to become the writer of a data folder.
struct LockAttempt {
    std::optional<DataFolderLock> lock;  // present when this process is now the writer
    std::optional<pid_t> holder;         // who holds it, when another process does
    std::string error;                   // why it failed, when it did
};

}  // namespace quorvane
