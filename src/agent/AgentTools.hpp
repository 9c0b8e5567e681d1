#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "persistence/AgentConfig.hpp"

namespace quorvane {

// One tool an agent may call over the socket. The table of them is the one list
// the dispatcher, `quorvane agent status` and the agent bridge all read, so they
// cannot disagree about what exists.
struct AgentTool {
    std::string_view name;
    AgentPermissionLevel level;
    // The argument holding a folder that must lie inside the allowed roots; empty
    // when the tool takes no such path.
    std::string_view rootKey;
    std::string_view title = {};
    std::string_view description = {};
    std::string_view inputSchema = {};
};
struct AgentResource {
    std::string_view uri;
    std::string_view name;
    std::string_view title;
    std::string_view description;
};

namespace AgentTools {

// All sixty, in the order of their levels.
const std::vector<AgentTool>& all();
const AgentTool* find(std::string_view name);
const std::vector<AgentResource>& resources();

// The four level sets: 37 read tools, 3 propose tools, 16 apply tools, 4 git tools.
const std::set<std::string>& readOnlyTools();
const std::set<std::string>& proposeTools();
const std::set<std::string>& applyTools();
const std::set<std::string>& gitTools();
// The one apply tool that needs neither the licence nor a token: turning a mapping
// proposal down changes nothing but the proposal.
const std::set<std::string>& freeApplyTools();
// Apply tools behind the licence check: applyTools without freeApplyTools.
std::set<std::string> paidApplyTools();
// The settings tools; a settingsChange or scanFolders proposal may authorise any of
// them, but its token stays bound to the one tool it names.
const std::set<std::string>& settingsFamilyTools();
// The fields a settings change proposal may name.
const std::set<std::string>& settingsFields();

// The sum of the four level sets.
size_t toolCount();

}  // namespace AgentTools

}  // namespace quorvane
