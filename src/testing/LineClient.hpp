#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "persistence/JsonCodec.hpp"
#include "platform/FileDescriptor.hpp"

namespace quorvane::testing {

// One connection to a line-protocol socket, as an agent's bridge holds it: writes
// raw bytes and reads replies a line at a time, each wait bounded.
class LineClient {
public:
    explicit LineClient(const std::filesystem::path& socketPath);

    bool connected() const { return fd_.get() >= 0; }
    int fd() const { return fd_.get(); }
    bool send(std::string_view bytes);
    // The next reply line without its LF; nothing when the server closed or
    // `limit` passed.
    std::optional<std::string> readLine(std::chrono::milliseconds limit = std::chrono::seconds(30));
    // Sends one request line and parses its reply; null when none came.
    Json call(const std::string& tool, const Json& args = Json::object());
    // True when the server closed the connection within `limit` with nothing more
    // to say.
    bool closedByServer(std::chrono::milliseconds limit);
    void close() { fd_.reset(); }

private:
    Fd fd_;
    std::string pending_;
};

}  // namespace quorvane::testing
