#include "persistence/ConfigService.hpp"

#include <fmt/format.h>

#include "app/Log.hpp"
#include "app/PathHelpers.hpp"
#include "persistence/AtomicFile.hpp"

namespace quorvane {

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

AppConfig ConfigService::load() {
    std::unique_lock lock(mutex_);
    AtomicFile::removeStaleTemporaries(fileURL_);
    AtomicFile::ReadResult file = AtomicFile::read(fileURL_);
    if (file.missing) {
        AppConfig defaults;
        lock.unlock();
        save(defaults);
        return defaults;
    }
    std::string problem;
    if (file.bytes) {
        try {
            return decode(*file.bytes);
        } catch (const DecodeError& error) {
            problem = error.what();
        }
    } else {
        // A file that exists but cannot be read is kept, like an undecodable one:
        // saving defaults over it would lose what it holds.
        problem = file.error;
    }
    AtomicFile::quarantine(fileURL_, clock_.now());
    Log::app().error(
        fmt::format("config.json unreadable — quarantined, running on defaults: {}", problem));
    return AppConfig{};
}

AppConfig ConfigService::read() const {
    std::lock_guard lock(mutex_);
    AtomicFile::ReadResult file = AtomicFile::read(fileURL_);
    if (file.missing) return AppConfig{};
    try {
        if (file.bytes) return decode(*file.bytes);
        Log::app().error(
            fmt::format("config.json unreadable, running on defaults: {}", file.error));
    } catch (const DecodeError& error) {
        Log::app().error(
            fmt::format("config.json unreadable, running on defaults: {}", error.what()));
    }
    return AppConfig{};
}

void ConfigService::save(const AppConfig& config) {
    std::lock_guard lock(mutex_);
    std::string bytes = encode(config);
    if (auto error = AtomicFile::write(fileURL_, bytes)) {
        Log::app().error(fmt::format("config.json write failed: {}", *error));
    }
}

}  // namespace quorvane
