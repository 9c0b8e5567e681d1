#pragma once

#include <optional>
#include <string>
#include <utility>

namespace quorvane {

// What every agent tool answers: success with its result as JSON text, or a
// refusal with a short machine code and the text for the caller. A refusal always
// carries "{}" as its result.
struct AgentResult {
    bool ok = false;
    std::string json = "{}";
    std::optional<std::string> errorCode;
    std::optional<std::string> hint;

    static AgentResult success(std::string json) { return {true, std::move(json), {}, {}}; }
    static AgentResult failure(std::string code, std::string hint) {
        return {false, "{}", std::move(code), std::move(hint)};
    }

    bool operator==(const AgentResult&) const = default;
};

// What the agent socket hands each request to. The agent service is the one real
// dispatcher; the socket only needs this much of it.
class ToolDispatcher {
public:
    virtual ~ToolDispatcher() = default;
    // Runs one call. May be called from several connections' threads at once.
    virtual AgentResult handle(const std::string& tool, const std::string& argsJSON) = 0;
};

}  // namespace quorvane
