#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileDescriptor.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane::testing {

// One connection to a line-protocol socket, as an agent's bridge holds it: writes
// raw bytes and reads replies a line at a time. Every wait is bounded by a
// patience that only a server that stopped answering ever uses up.
class LineClient {
public:
    static constexpr std::chrono::seconds kPatience{60};

    explicit LineClient(const std::filesystem::path& socketPath);

    bool connected() const { return fd_.valid(); }
    int fd() const { return fd_.get(); }
    bool send(std::string_view bytes);
    bool sendLine(const std::string& line) { return send(line + "\n"); }

    // The next reply line without its LF; nothing once the server has closed the
    // connection.
    std::optional<std::string> line();
    // The next line as JSON; a test failure when none came.
    Json reply();
    // Sends a request line and reads its reply.
    Json call(const std::string& request);
    Json call(const std::string& tool, const Json& args);

    // Whether the server closed the connection without another reply.
    bool closedQuietly();
    // Waits until the server has read all this client sent, so the next write
    // reaches it as a read of its own.
    bool waitUntilRead() const;

private:
    Fd fd_;
    std::string buffered_;
    bool closed_ = false;
};

}  // namespace quorvane::testing
