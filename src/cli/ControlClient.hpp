#pragma once

#include <chrono>
#include <filesystem>
#include <iosfwd>
#include <optional>

#include "cli/ControlProtocol.hpp"
#include "platform/FileDescriptor.hpp"

namespace quorvane {

// A connection to the daemon that holds a data folder, to run one command there.
class ControlClient {
public:
    // Nothing when no daemon answers in `dataDir` (no socket, or one a stopped
    // daemon left): the caller then runs the command itself.
    static std::optional<ControlClient> connect(const std::filesystem::path& dataDir,
                                                std::ostream& err);

    // Sends the command and relays what the daemon prints, as it prints it; the
    // command's exit status.
    int run(const ControlProtocol::Request& request, std::ostream& out, std::ostream& err);

    // As run, but waits no longer than `limit` for the command to end: nothing when
    // it has not, and the caller goes on without it. The daemon still runs the
    // command to its end.
    std::optional<int> runWithin(const ControlProtocol::Request& request, std::ostream& out,
                                 std::ostream& err, std::chrono::milliseconds limit);

private:
    explicit ControlClient(Fd socket) : socket_(std::move(socket)) {}
    std::optional<int> exchange(const ControlProtocol::Request& request, std::ostream& out,
                                std::ostream& err,
                                std::optional<std::chrono::steady_clock::time_point> deadline);
    Fd socket_;
};

}  // namespace quorvane
