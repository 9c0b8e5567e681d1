#pragma once

// Small pieces the agent's tool files share: reading arguments and building
// results.

#include <optional>
#include <string>
#include <vector>

#include "agent/AgentJSON.hpp"
#include "persistence/JsonCodec.hpp"

namespace quorvane::AgentToolSupport {

// The argument `key` when it is text; nothing when absent or of another type.
inline std::optional<std::string> textArg(const Json& args, const char* key) {
    auto it = args.find(key);
    if (it == args.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

inline AgentJSON optionalText(const std::optional<std::string>& text) {
    return text ? AgentJSON(*text) : AgentJSON(nullptr);
}

inline AgentJSON textList(const std::vector<std::string>& items) {
    AgentJSON::Array array;
    for (const std::string& item : items) array.emplace_back(item);
    return AgentJSON(std::move(array));
}

}  // namespace quorvane::AgentToolSupport
