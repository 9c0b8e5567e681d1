#pragma once

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

private:
    explicit ControlClient(Fd socket) : socket_(std::move(socket)) {}
    Fd socket_;
};

}  // namespace quorvane
