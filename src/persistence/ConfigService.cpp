#include "persistence/ConfigService.hpp"

#include <fmt/format.h>

#include "base/Log.hpp"
#include "base/PathHelpers.hpp"
#include "persistence/AtomicFile.hpp"

namespace quorvane {

ConfigUnreadable::ConfigUnreadable(const std::filesystem::path& file, std::string problem)
    : std::runtime_error(fmt::format(
          "{} cannot be read: {}\n"
          "It is left as it is, and nothing that changes data runs until it can be read. "
          "Fix it, or move it aside to start again from the defaults.",
          file.string(), problem)),
      problem_(std::move(problem)) {}

ConfigService::ConfigService(std::filesystem::path fileURL, const Clock& clock)
    : fileURL_(std::move(fileURL)), clock_(clock) {
    if (fileURL_.has_parent_path()) PathHelpers::ensurePrivateDirectory(fileURL_.parent_path());
}

AppConfig ConfigService::decode(std::string_view text) {
    AppConfig config;
    fromJson(JsonCodec::parse(text), config, "");
    return config;
}

std::string ConfigService::encode(const AppConfig& config) {
    return JsonCodec::pretty(toJson(config));
}

std::optional<ConfigService::Identity> ConfigService::identityOnDisk() const {
    struct stat info {};
    if (::lstat(fileURL_.c_str(), &info) != 0) return std::nullopt;
    return Identity{
        info.st_dev, info.st_ino, info.st_size,
        static_cast<long long>(info.st_mtim.tv_sec) * 1'000'000'000LL + info.st_mtim.tv_nsec};
}

AppConfig ConfigService::load() {
    std::unique_lock lock(mutex_);
    AtomicFile::removeStaleTemporaries(fileURL_);
    tracking_ = true;
    refused_.reset();
    // Taken before reading, so an edit made while it is read counts as a change.
    known_ = identityOnDisk();
    AtomicFile::ReadResult file = AtomicFile::read(fileURL_);
    if (file.missing) {
        AppConfig defaults;
        known_.reset();
        lock.unlock();
        save(defaults);
        return defaults;
    }
    std::string problem = file.error;
    if (file.bytes) {
        try {
            return decode(*file.bytes);
        } catch (const DecodeError& error) {
            problem = error.what();
        }
    }
    // No save matches this version until it changes on disk, so nothing writes over it.
    refused_ = known_;
    refusedReason_ = problem;
    throw ConfigUnreadable(fileURL_, problem);
}

AppConfig ConfigService::read() const {
    std::lock_guard lock(mutex_);
    AtomicFile::ReadResult file = AtomicFile::read(fileURL_);
    if (file.missing) return AppConfig{};
    if (!file.bytes) throw ConfigUnreadable(fileURL_, file.error);
    try {
        return decode(*file.bytes);
    } catch (const DecodeError& error) {
        throw ConfigUnreadable(fileURL_, error.what());
    }
}

ConfigService::SaveResult ConfigService::save(const AppConfig& config) {
    std::lock_guard lock(mutex_);
    if (tracking_) {
        std::optional<Identity> onDisk = identityOnDisk();
        if (refused_ && onDisk == refused_) {
            SaveResult result{SaveResult::Outcome::unreadableOnDisk,
                              fmt::format("config.json cannot be read, so it is not written over "
                                          "until it is fixed: {}",
                                          refusedReason_)};
            Log::app().error(result.problem);
            return result;
        }
        if (onDisk != known_) {
            SaveResult result{SaveResult::Outcome::changedOnDisk,
                              "config.json was changed on disk since it was read; it is not "
                              "written over"};
            Log::app().error(result.problem);
            return result;
        }
    }
    std::string bytes = encode(config);
    if (auto error = AtomicFile::write(fileURL_, bytes)) {
        SaveResult result{SaveResult::Outcome::failed,
                          fmt::format("config.json write failed: {}", *error)};
        Log::app().error(result.problem);
        return result;
    }
    known_ = identityOnDisk();
    return {};
}

std::optional<AppConfig> ConfigService::reloadIfChanged() {
    std::lock_guard lock(mutex_);
    if (!tracking_) return std::nullopt;
    std::optional<Identity> onDisk = identityOnDisk();
    if (onDisk == known_ || (refused_ && onDisk == refused_)) return std::nullopt;
    if (!onDisk) {
        // Deleted by hand: nothing newer to keep; the next save writes it again.
        known_.reset();
        return std::nullopt;
    }
    AtomicFile::ReadResult file = AtomicFile::read(fileURL_);
    try {
        if (!file.bytes) throw DecodeError(file.error);
        AppConfig config = decode(*file.bytes);
        known_ = onDisk;
        refused_.reset();
        Log::app().info("config.json was changed on disk; the running configuration follows it");
        return config;
    } catch (const DecodeError& error) {
        refused_ = onDisk;
        refusedReason_ = error.what();
        Log::app().error(
            fmt::format("config.json was changed on disk but cannot be read; the "
                        "running configuration is kept and the file is not written "
                        "over until it is fixed: {}",
                        error.what()));
        return std::nullopt;
    }
}

}  // namespace quorvane
