#include "agent/AgentJSON.hpp"

#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include "base/JsonScan.hpp"
#include "base/TextHelpers.hpp"

namespace quorvane {

namespace {

// Quotes `text` for a fingerprint. Only tab, line feed and carriage return have
// short escapes; backspace and form feed print as \u0008 and \u000c.
void appendQuoted(std::string& out, const std::string& text) {
    const std::string valid = Text::repairUtf8(text);
    out += '"';
    for (char c : valid) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\t': out += "\\t"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            default:
                if (byte < 0x20) {
                    out += fmt::format("\\u{:04x}", byte);
                } else {
                    out += c;
                }
        }
    }
    out += '"';
}

void append(std::string& out, const AgentJSON& json) {
    std::visit(
        [&out](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, bool>) {
                out += value ? "true" : "false";
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                out += std::to_string(value);
            } else if constexpr (std::is_same_v<T, double>) {
                appendJsonDouble(out, value);
            } else if constexpr (std::is_same_v<T, std::string>) {
                appendQuoted(out, value);
            } else if constexpr (std::is_same_v<T, AgentJSON::Array>) {
                out += '[';
                for (size_t i = 0; i < value.size(); ++i) {
                    if (i > 0) out += ',';
                    append(out, value[i]);
                }
                out += ']';
            } else if constexpr (std::is_same_v<T, AgentJSON::Object>) {
                out += '{';
                bool first = true;
                for (const auto& [key, item] : value) {  // std::map: ascending keys
                    if (!first) out += ',';
                    first = false;
                    appendQuoted(out, key);
                    out += ':';
                    append(out, item);
                }
                out += '}';
            } else {
                out += "null";
            }
        },
        json.value());
}

AgentJSON fromNumber(double asDouble, const Json& json) {
    if (asDouble == std::trunc(asDouble) && std::fabs(asDouble) < 1e15) {
        if (json.is_number_integer()) return AgentJSON(json.get<std::int64_t>());
        return AgentJSON(static_cast<std::int64_t>(asDouble));
    }
    return AgentJSON(asDouble);
}

}  // namespace

std::string AgentJSON::serialized() const {
    std::string out;
    append(out, *this);
    return out;
}

AgentJSON AgentJSON::fromJson(const Json& json) {
    switch (json.type()) {
        case Json::value_t::boolean: return AgentJSON(json.get<bool>());
        case Json::value_t::number_integer:
        case Json::value_t::number_unsigned:
        case Json::value_t::number_float: return fromNumber(json.get<double>(), json);
        case Json::value_t::string: return AgentJSON(json.get<std::string>());
        case Json::value_t::array: {
            Array items;
            items.reserve(json.size());
            for (const Json& item : json) items.push_back(fromJson(item));
            return AgentJSON(std::move(items));
        }
        case Json::value_t::object: {
            Object members;
            for (const auto& [key, item] : json.items()) members.emplace(key, fromJson(item));
            return AgentJSON(std::move(members));
        }
        default: return AgentJSON(nullptr);
    }
}

void appendJsonDouble(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    if (value == std::trunc(value) && std::fabs(value) < 1e15) {
        out += std::to_string(static_cast<std::int64_t>(value));
        return;
    }
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
}

bool nestedDeeperThan(std::string_view json, size_t limit) {
    size_t depth = 0;
    bool deeper = false;
    scanJsonOutsideStrings(json, 0, [&](size_t, char c) {
        if (c == '[' || c == '{') {
            deeper = ++depth > limit;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
        return !deeper;
    });
    return deeper;
}

}  // namespace quorvane
