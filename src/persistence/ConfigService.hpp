#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

#include "persistence/AppConfig.hpp"
#include "platform/Clock.hpp"

namespace quorvane {

// config.json is there but cannot be read or decoded. The text names the file, says
// where and what is wrong, and how to get out; `problem` is the reason alone.
class ConfigUnreadable : public std::runtime_error {
public:
    ConfigUnreadable(const std::filesystem::path& file, std::string problem);
    const std::string& problem() const { return problem_; }

private:
    std::string problem_;
};

// Reads and writes config.json. Calls are serialised, so two saves never
// interleave. The file may also be edited by hand while a writer runs: once
// `load` has read it, a save never writes over a file changed since.
class ConfigService {
public:
    struct SaveResult {
        enum class Outcome {
            saved,
            failed,            // the write itself failed; the file is as it was
            changedOnDisk,     // edited by someone else since it was read: not written over
            unreadableOnDisk,  // holds an edit that does not decode: kept until it is fixed
        };
        Outcome outcome = Outcome::saved;
        std::string problem;  // why, unless saved

        bool ok() const { return outcome == Outcome::saved; }
    };

    // Creates the file's folder (mode 0700) if needed; a failure shows at save time.
    ConfigService(std::filesystem::path fileURL, const Clock& clock);

    // For the data folder's writer. A missing file gives the defaults, which are
    // saved. A file that cannot be read or decoded throws ConfigUnreadable and is
    // left in place, untouched: the defaults in its stead would drop the person's
    // repositories and settings, and the next save would write over them. Saves
    // stay refused until the file is fixed.
    AppConfig load();

    // For a reader beside the writer: like `load`, but never writes the file. A
    // missing file gives the defaults; one that cannot be read throws ConfigUnreadable.
    AppConfig read() const;

    // Writes the whole configuration atomically (mode 0600, sorted keys). A failure
    // is logged; the caller's copy stays ahead of the disk until the next save.
    // After `load`, a file changed on disk since it was last read or written is
    // left alone: the caller takes it in with `reloadIfChanged` and saves again.
    SaveResult save(const AppConfig& config);

    // The file's contents when it changed on disk since it was last loaded or saved
    // and can be decoded; nothing otherwise. A changed file that cannot be decoded
    // is logged once and left alone, and saves stay refused until it is fixed.
    std::optional<AppConfig> reloadIfChanged();

    const std::filesystem::path& fileURL() const { return fileURL_; }

    // Decodes a configuration document, throwing DecodeError with the key path.
    static AppConfig decode(std::string_view text);
    static std::string encode(const AppConfig& config);

private:
    // What tells one version of the file from another without reading it.
    struct Identity {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        long long modifiedNs = 0;
        bool operator==(const Identity&) const = default;
    };
    std::optional<Identity> identityOnDisk() const;  // nothing when there is no file

    std::filesystem::path fileURL_;
    const Clock& clock_;
    mutable std::mutex mutex_;
    bool tracking_ = false;            // set by load: saves check for edits from then on
    std::optional<Identity> known_;    // the version last read or written; none: no file
    std::optional<Identity> refused_;  // a changed version that could not be decoded
    std::string refusedReason_;        // why it could not
};

}  // namespace quorvane
