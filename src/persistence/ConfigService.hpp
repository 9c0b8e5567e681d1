#pragma once

#include <filesystem>
#include <mutex>

#include "persistence/AppConfig.hpp"
#include "platform/Clock.hpp"

namespace quorvane {

// Reads and writes config.json. Calls are serialised, so two saves never
// interleave and the last one called wins.
class ConfigService {
public:
    // Creates the file's folder (mode 0700) if needed; a failure shows at save time.
    ConfigService(std::filesystem::path fileURL, const Clock& clock);

    // Never fails. A missing file gives the defaults, which are saved. A file that
    // cannot be decoded, or cannot be read at all, is moved aside to
    // "config.json.corrupt-<seconds>", logged, and the defaults are returned
    // without saving: the next save writes a new file.
    AppConfig load();

    // For a reader beside the writer: like `load`, but never writes or moves the
    // file. A file that cannot be decoded is logged and gives the defaults.
    AppConfig read() const;

    // Writes the whole configuration atomically (mode 0600, sorted keys). A failure
    // is logged; the caller's copy stays ahead of the disk until the next save.
    void save(const AppConfig& config);

    const std::filesystem::path& fileURL() const { return fileURL_; }

    // Decodes a configuration document, throwing DecodeError with the key path.
    static AppConfig decode(std::string_view text);
    static std::string encode(const AppConfig& config);

private:
    std::filesystem::path fileURL_;
    const Clock& clock_;
    mutable std::mutex mutex_;
};

}  // namespace quorvane
