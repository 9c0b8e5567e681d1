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
// A session of a few messages is what an agent sends; more lines per input would
// only repeat the same paths at a fraction of the speed (a tool list is some
// 36 KB to build and check).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quorvane;
    constexpr int kMaxLines = 8;
    fuzz::Input input(data, size);
    fuzz::Input client(input.field('\x1e'));
    fuzz::ScriptedDaemon daemon(input.rest());
    MCPBridge bridge(daemon, "0.1.0");
    for (int line = 0; line < kMaxLines && !client.empty(); ++line) {
        const std::optional<std::string> reply = bridge.handleLine(client.field());
        if (!reply) continue;
        if (reply->find('\n') != std::string::npos) std::abort();
        if (!nlohmann::json::accept(*reply)) std::abort();
    }
    return 0;
}
