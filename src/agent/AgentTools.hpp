#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "agent/AgentResult.hpp"
#include "agent/SafeGitRunner.hpp"
#include "persistence/AgentConfig.hpp"
#include "records/PendingProposal.hpp"

namespace quorvane {

class AgentService;
struct AgentToolCall;

// What runs a tool once the dispatcher's checks passed.
using AgentToolHandler = AgentResult (AgentService::*)(const AgentToolCall&);

// What a tool that acts only on the person's approval needs from the proposal.
struct ToolApproval {
    // The proposal a call without a token creates, and the kind whose approval
    // this tool accepts.
    PendingProposal::Kind kind;
    // The arguments that decide what the tool does, and so the only ones a token is
    // bound to. Others (a note, the token itself) may change between the proposal
    // and the apply without making it a different action.
    std::vector<std::string_view> boundArgs;
    // The one git command a git tool runs.
    std::optional<SafeGitAction::Command> gitCommand = std::nullopt;
};

// Whether a tool is behind the licence check.
enum class ToolLicence { free, needed };

// One tool an agent may call over the socket. The table of them is the one list
// the dispatcher, the proposal rules, `quorvane agent status` and the agent bridge
// all read, so they cannot disagree about what exists, what it takes or what runs.
struct AgentTool {
    std::string_view name;
    AgentPermissionLevel level;
    // The argument holding a folder that must lie inside the allowed roots; empty
    // when the tool takes no such path.
    std::string_view rootKey;
    // A few words for a person reading a tool list.
    std::string_view title;
    // For an agent: what the tool does and when to reach for it.
    std::string_view description;
    // The arguments the tool reads, as a JSON Schema object (JSON text).
    std::string_view inputSchema;
    AgentToolHandler handler;
    ToolLicence licence = ToolLicence::free;
    // Set for the tools that take a confirmation token.
    std::optional<ToolApproval> approval = std::nullopt;
};

// One document an agent may read through "resources/read".
struct AgentResource {
    std::string_view uri;
    // Short and machine-like, for listings.
    std::string_view name;
    std::string_view title;
    std::string_view description;
};

namespace AgentTools {

// All sixty, in the order of their levels.
const std::vector<AgentTool>& all();
const AgentTool* find(std::string_view name);
// The name of the tool `handler` runs, for the code that proposes a call to it.
std::string nameOf(AgentToolHandler handler);
// The nine documents "resources/read" serves, in the order it checks them.
const std::vector<AgentResource>& resources();

// The tools of each level: 37 read tools, 3 propose tools, 16 apply tools, 4 git tools.
const std::set<std::string>& readOnlyTools();
const std::set<std::string>& gitTools();

size_t toolCount();

}  // namespace AgentTools

}  // namespace quorvane
