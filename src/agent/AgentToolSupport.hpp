#pragma once

// Small pieces the agent's tool files share: reading arguments and building
// results.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "agent/AgentJSON.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane::AgentToolSupport {

// The argument `key` when it is text; nothing when absent or of another type.
inline std::optional<std::string> textArg(const Json& args, const char* key) {
    auto it = args.find(key);
    if (it == args.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

// What an argument of C++ type T must be in the call, and how a refusal names it.
template <typename T>
struct ArgType;
template <>
struct ArgType<std::string> {
    static bool fits(const Json& value) { return value.is_string(); }
    static constexpr const char* kName = "a text";
};
template <>
struct ArgType<bool> {
    static bool fits(const Json& value) { return value.is_boolean(); }
    static constexpr const char* kName = "true or false";
};
template <>
struct ArgType<double> {
    static bool fits(const Json& value) { return value.is_number(); }
    static constexpr const char* kName = "a number";
};
template <>
struct ArgType<std::vector<std::string>> {
    static bool fits(const Json& value) {
        return value.is_array() && std::all_of(value.begin(), value.end(),
                                               [](const Json& item) { return item.is_string(); });
    }
    static constexpr const char* kName = "a list of texts";
};

template <>
struct ArgType<Json::object_t> {
    static bool fits(const Json& value) { return value.is_object(); }
    static constexpr const char* kName = "an object";
};

// An argument given with another type than the tool reads it as.
struct ArgProblem {
    std::string key;
    std::string hint;
};

// An argument the call may leave out. Left out, it has no value and no problem, and
// the tool goes on with its default; given with the wrong type (null included), it
// has a problem, and the tool refuses rather than read it as left out: the agent
// asked for something, just not in a form that can be done.
template <typename T>
struct OptionalArg {
    std::optional<T> value;
    std::optional<ArgProblem> problem;
};

template <typename T>
OptionalArg<T> optionalArg(const Json& args, const char* key) {
    auto it = args.find(key);
    if (it == args.end()) return {};
    if (!ArgType<T>::fits(*it)) {
        return {std::nullopt,
                ArgProblem{key, "`" + std::string(key) + "` must be " + ArgType<T>::kName}};
    }
    return {it->template get<T>(), std::nullopt};
}

// The least confidence, in percent, a mapping candidate needs to be listed or proposed.
constexpr double kDefaultMinConfidence = 60;

inline OptionalArg<double> minConfidenceArg(const Json& args) {
    OptionalArg<double> arg = optionalArg<double>(args, "minConfidence");
    if (arg.problem) arg.problem->hint = "`minConfidence` must be a number from 0 to 100";
    return arg;
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
