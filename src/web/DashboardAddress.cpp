#include "web/DashboardAddress.hpp"

#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include <fmt/format.h>

#include "persistence/AtomicFile.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane::DashboardAddress {

namespace {

constexpr const char* kNotServed =
    "no daemon serves the dashboard of this data folder: start it with 'quorvane daemon' "
    "(or 'quorvane service install'), with dashboard.enabled true";

}  // namespace

std::string publish(const std::filesystem::path& dataDir, int port) {
    Json json{{"port", port}, {"pid", static_cast<long long>(::getpid())}};
    return AtomicFile::write(dataDir / kFileName, json.dump() + "\n", 0600).value_or("");
}

void withdraw(const std::filesystem::path& dataDir) {
    std::error_code ignored;
    std::filesystem::remove(dataDir / kFileName, ignored);
}

Found find(const std::filesystem::path& dataDir) {
    AtomicFile::ReadResult file = AtomicFile::read(dataDir / kFileName, 4096);
    if (file.missing) return {std::nullopt, kNotServed};
    if (!file.bytes)
        return {std::nullopt, fmt::format("cannot read {}: {}", kFileName, file.error)};
    Json json = Json::parse(*file.bytes, nullptr, false);
    if (!json.is_object() || !json["port"].is_number_integer() ||
        !json["pid"].is_number_integer()) {
        return {std::nullopt, fmt::format("{} in the data folder is damaged", kFileName)};
    }
    long long pid = json["pid"].get<long long>();
    int port = json["port"].get<int>();
    // A daemon that was killed leaves the file behind; it is then nobody's address.
    if (pid <= 0 || (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) || port <= 0 ||
        port > 65535) {
        return {std::nullopt, kNotServed};
    }
    return {port, ""};
}

}  // namespace quorvane::DashboardAddress
