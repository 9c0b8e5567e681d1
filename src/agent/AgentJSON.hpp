#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "records/JsonCodec.hpp"

namespace quorvane {

// The JSON value of the agent's tool layer. It prints compactly with object keys in
// ascending order, so the same arguments always print the same text: a proposal's
// fingerprint is that text, and a token is checked against it. The wire has its own
// type (MCPJSON), which keeps key order and prints two escapes differently; the two
// are kept apart so a change to the wire can never change a fingerprint.
class AgentJSON {
public:
    using Array = std::vector<AgentJSON>;
    using Object = std::map<std::string, AgentJSON>;
    // In this order: bool, int, double, string, array, object, null.
    using Value =
        std::variant<bool, std::int64_t, double, std::string, Array, Object, std::nullptr_t>;

    AgentJSON() : value_(nullptr) {}
    AgentJSON(std::nullptr_t) : value_(nullptr) {}
    AgentJSON(bool value) : value_(value) {}
    AgentJSON(int value) : value_(static_cast<std::int64_t>(value)) {}
    AgentJSON(std::int64_t value) : value_(value) {}
    AgentJSON(double value) : value_(value) {}
    AgentJSON(std::string value) : value_(std::move(value)) {}
    AgentJSON(const char* value) : value_(std::string(value)) {}
    AgentJSON(Array value) : value_(std::move(value)) {}
    AgentJSON(Object value) : value_(std::move(value)) {}

    const Value& value() const { return value_; }
    bool operator==(const AgentJSON&) const = default;

    // Compact JSON, object keys in ascending byte order. A whole double below 1e15
    // in magnitude prints as an integer; other doubles print as the shortest text
    // that reads back to the same value. Text that is not valid UTF-8 has each bad
    // sequence printed as U+FFFD, so the output is always valid JSON.
    std::string serialized() const;

    // A decoded JSON value as the tool layer sees it: booleans stay booleans, a
    // number that is whole and below 1e15 in magnitude becomes an int (so 3.0 is 3),
    // any other number a double.
    static AgentJSON fromJson(const Json& json);

private:
    Value value_;
};

// Whether `json` nests arrays and objects deeper than `limit`, read without parsing
// it: the values of this layer are built and printed recursively, so a request is
// checked before it is parsed.
bool nestedDeeperThan(std::string_view json, size_t limit);

// Appends a number as both JSON types print it: a whole value below 1e15 in
// magnitude as an integer, any other as the shortest text that reads back to the
// same double; null for the infinities and NaN, which JSON cannot spell.
void appendJsonDouble(std::string& out, double value);

// How deep a request's arguments or a tool's result may nest.
inline constexpr size_t kMaxJsonDepth = 64;

}  // namespace quorvane
