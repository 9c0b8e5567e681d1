#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "agent/MCPBridge.hpp"
#include "platform/FileDescriptor.hpp"

namespace quorvane {

// The bridge's connection to the daemon's agent socket. It connects on the first
// call, and again whenever the daemon has gone away since the last one, so an agent
// session outlives a restart of the daemon.
class AgentSocketLink : public AgentLink {
public:
    // The longest a tool may take: a rescan or a sync of many repositories is slow,
    // a daemon that stopped answering is not waited for beyond this.
    static constexpr std::chrono::seconds kReplyLimit{300};
    // The longest reply taken: the audit log and reports are large, never this large.
    static constexpr size_t kMaxReplyBytes = 64 * 1024 * 1024;

    // `startCommand` is what starts the daemon this link talks to, for the words
    // that tell the agent what to do while it is down.
    AgentSocketLink(std::filesystem::path socketPath, std::string startCommand,
                    std::chrono::milliseconds replyLimit = kReplyLimit);

    Reply exchange(const std::string& requestLine) override;

private:
    // Whether the open connection is still there: the daemon never speaks first, so
    // anything readable before a request is its end of the connection.
    bool connectionAlive() const;
    Reply unreachable(int error) const;
    std::string howToStart() const;

    std::filesystem::path socketPath_;
    std::string startCommand_;
    std::chrono::milliseconds replyLimit_;
    Fd fd_;
};

}  // namespace quorvane
