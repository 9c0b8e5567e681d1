#include "persistence/PauseMarker.hpp"

#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "persistence/AtomicFile.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane::PauseMarker {

std::string publish(const std::filesystem::path& dataDir) {
    Json json{{"pid", static_cast<long long>(::getpid())}};
    return AtomicFile::write(dataDir / kFileName, json.dump() + "\n", 0600).value_or("");
}

void withdraw(const std::filesystem::path& dataDir) {
    std::error_code ignored;
    std::filesystem::remove(dataDir / kFileName, ignored);
}

bool isPaused(const std::filesystem::path& dataDir) {
    AtomicFile::ReadResult file = AtomicFile::read(dataDir / kFileName, 4096);
    if (!file.bytes) return false;
    Json json = Json::parse(*file.bytes, nullptr, false);
    if (!json.is_object() || !json["pid"].is_number_integer()) return false;
    long long pid = json["pid"].get<long long>();
    // The daemon that paused is gone when its pid is: the next one starts unpaused.
    return pid > 0 && !(::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH);
}

}  // namespace quorvane::PauseMarker
