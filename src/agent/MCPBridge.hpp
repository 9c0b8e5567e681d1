#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace quorvane {

// The daemon's agent socket as the bridge sees it: one request line out, one reply
// line back. A daemon that cannot be reached is an answer too, not an exception.
class AgentLink {
public:
    virtual ~AgentLink() = default;

    struct Reply {
        std::optional<std::string> line;  // the reply without its LF
        std::string problem;              // why there is none, in words for the agent
    };
    virtual Reply exchange(const std::string& requestLine) = 0;
};

// What `quorvane-mcp` does: the Model Context Protocol (JSON-RPC 2.0, one message a
// line) on the agent's side, the agent socket's line protocol on the daemon's. The
// tools and resources it lists come from the same table the daemon dispatches on.
class MCPBridge {
public:
    // Newest first; a client asking for another version is offered the first.
    static constexpr std::array<std::string_view, 4> kProtocolVersions = {
        "2025-11-25", "2025-06-18", "2025-03-26", "2024-11-05"};
    // The longest message taken from the client, as on the agent socket.
    static constexpr size_t kMaxMessageBytes = 4 * 1024 * 1024;

    // JSON-RPC's own error codes, and the protocol's for a resource it does not have.
    static constexpr int kParseError = -32700;
    static constexpr int kInvalidRequest = -32600;
    static constexpr int kMethodNotFound = -32601;
    static constexpr int kInvalidParams = -32602;
    static constexpr int kInternalError = -32603;
    static constexpr int kResourceNotFound = -32002;

    MCPBridge(AgentLink& link, std::string version);

    // The reply to one line from the client, without its LF; nothing when the line
    // needs none (a notification, a response, a blank line).
    std::optional<std::string> handleLine(std::string_view line);

    // Reads messages from `inFd` until it closes, writing each reply to `outFd`.
    // Returns 0 at the end of input, 1 when the replies can no longer be written.
    int serve(int inFd, int outFd);

private:
    using Message = nlohmann::ordered_json;

    std::optional<Message> handleMessage(const Message& message);
    Message dispatch(const std::string& method, const Message& params, const Message& id);
    Message initialize(const Message& params, const Message& id);
    Message listTools(const Message& id) const;
    Message listResources(const Message& id) const;
    Message callTool(const Message& params, const Message& id);
    Message readResource(const Message& params, const Message& id);

    AgentLink& link_;
    std::string version_;
};

}  // namespace quorvane
