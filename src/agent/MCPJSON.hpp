#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

namespace quorvane {

// The JSON value of the agent socket's wire. Objects keep the order their members
// came in (a request is passed on as it was written) and print it unsorted. The
// tool layer has its own type (AgentJSON) that sorts keys for fingerprints; the two
// print backspace and form feed differently and are deliberately not one type.
class MCPJSON {
public:
    using Array = std::vector<MCPJSON>;
    using Object = std::vector<std::pair<std::string, MCPJSON>>;  // in arrival order
    // In this order: bool, int, double, string, array, object, null.
    using Value =
        std::variant<bool, std::int64_t, double, std::string, Array, Object, std::nullptr_t>;

    MCPJSON() : value_(nullptr) {}
    MCPJSON(std::nullptr_t) : value_(nullptr) {}
    MCPJSON(bool value) : value_(value) {}
    MCPJSON(std::int64_t value) : value_(value) {}
    MCPJSON(double value) : value_(value) {}
    MCPJSON(std::string value) : value_(std::move(value)) {}
    MCPJSON(const char* value) : value_(std::string(value)) {}
    MCPJSON(Array value) : value_(std::move(value)) {}
    MCPJSON(Object value) : value_(std::move(value)) {}

    const Value& value() const { return value_; }
    bool operator==(const MCPJSON&) const = default;

    bool isObject() const { return std::holds_alternative<Object>(value_); }
    // The member `key` of an object; nothing for a missing key or a non-object.
    const MCPJSON* member(std::string_view key) const;

    // Compact JSON with members in their own order. Backspace, tab, line feed, form
    // feed and carriage return have their short escapes, other control characters
    // print as \u00xx, and everything else (the slash, U+007F, non-ASCII) as it is.
    std::string jsonString() const;

    // A decoded JSON value: a boolean stays a boolean, a number that is whole and
    // below 1e15 in magnitude becomes an int, any other number a double.
    static MCPJSON from(const nlohmann::ordered_json& json);

    // Parses one JSON text of any kind (a bare number or string too). Nothing when it
    // is not valid JSON or nests deeper than kMaxJsonDepth.
    static std::optional<MCPJSON> parse(std::string_view text);

private:
    Value value_;
};

}  // namespace quorvane
