// quorvane-mcp between two peers it cannot trust: JSON-RPC lines from whatever
// started it, and reply lines from the agent socket. Every reply it writes is one
// line of valid JSON, whatever either side sent.
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "FuzzSupport.hpp"
#include "agent/MCPBridge.hpp"

namespace quorvane::fuzz {
namespace {

// The daemon's side: each exchange is answered by the next line of the input; an
// exhausted input is a daemon that cannot be reached.
class ScriptedDaemon final : public AgentLink {
public:
    explicit ScriptedDaemon(std::string_view replies) : replies_(replies) {}
    Reply exchange(const std::string&) override {
        if (replies_.empty()) return {.line = std::nullopt, .problem = "the daemon is not running"};
        return {.line = std::string(replies_.field()), .problem = ""};
    }

private:
    Input replies_;
};

}  // namespace
}  // namespace quorvane::fuzz

// The client's lines, then an ASCII record separator, then the daemon's replies.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quorvane;
    fuzz::Input input(data, size);
    fuzz::Input client(input.field('\x1e'));
    fuzz::ScriptedDaemon daemon(input.rest());
    MCPBridge bridge(daemon, "0.1.0");
    while (!client.empty()) {
        const std::optional<std::string> reply = bridge.handleLine(client.field());
        if (!reply) continue;
        if (reply->find('\n') != std::string::npos) std::abort();
        if (nlohmann::json::parse(*reply, nullptr, false).is_discarded()) std::abort();
    }
    return 0;
}
