#include "agent/MCPJSON.hpp"

#include <cmath>

#include <fmt/format.h>

#include "agent/AgentJSON.hpp"
#include "base/TextHelpers.hpp"

namespace quorvane {

namespace {

void encodeString(std::string& out, const std::string& text) {
    const std::string valid = Text::repairUtf8(text);
    out += '"';
    for (char c : valid) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\b': out += "\\b"; break;
            case '\t': out += "\\t"; break;
            case '\n': out += "\\n"; break;
            case '\f': out += "\\f"; break;
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

void append(std::string& out, const MCPJSON& json) {
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
                encodeString(out, value);
            } else if constexpr (std::is_same_v<T, MCPJSON::Array>) {
                out += '[';
                for (size_t i = 0; i < value.size(); ++i) {
                    if (i > 0) out += ',';
                    append(out, value[i]);
                }
                out += ']';
            } else if constexpr (std::is_same_v<T, MCPJSON::Object>) {
                out += '{';
                for (size_t i = 0; i < value.size(); ++i) {
                    if (i > 0) out += ',';
                    encodeString(out, value[i].first);
                    out += ':';
                    append(out, value[i].second);
                }
                out += '}';
            } else {
                out += "null";
            }
        },
        json.value());
}

}  // namespace

const MCPJSON* MCPJSON::member(std::string_view key) const {
    const auto* object = std::get_if<Object>(&value_);
    if (object == nullptr) return nullptr;
    for (const auto& [name, item] : *object) {
        if (name == key) return &item;
    }
    return nullptr;
}

std::string MCPJSON::jsonString() const {
    std::string out;
    append(out, *this);
    return out;
}

MCPJSON MCPJSON::from(const nlohmann::ordered_json& json) {
    using Type = nlohmann::ordered_json::value_t;
    switch (json.type()) {
        case Type::boolean: return MCPJSON(json.get<bool>());
        case Type::number_integer:
        case Type::number_unsigned:
        case Type::number_float: {
            const double asDouble = json.get<double>();
            if (asDouble == std::trunc(asDouble) && std::fabs(asDouble) < 1e15) {
                if (json.is_number_integer()) return MCPJSON(json.get<std::int64_t>());
                return MCPJSON(static_cast<std::int64_t>(asDouble));
            }
            return MCPJSON(asDouble);
        }
        case Type::string: return MCPJSON(json.get<std::string>());
        case Type::array: {
            Array items;
            items.reserve(json.size());
            for (const auto& item : json) items.push_back(from(item));
            return MCPJSON(std::move(items));
        }
        case Type::object: {
            Object members;
            members.reserve(json.size());
            for (const auto& [key, item] : json.items()) members.emplace_back(key, from(item));
            return MCPJSON(std::move(members));
        }
        default: return MCPJSON(nullptr);
    }
}

std::optional<MCPJSON> MCPJSON::parse(std::string_view text) {
    // The parser takes a NUL byte for the end of the input, so "{...}\0junk" would
    // read as the object alone. No JSON text holds a raw NUL.
    if (text.find('\0') != std::string_view::npos) return std::nullopt;
    if (nestedDeeperThan(text, kMaxJsonDepth)) return std::nullopt;
    nlohmann::ordered_json json = nlohmann::ordered_json::parse(text, nullptr, false);
    if (json.is_discarded()) return std::nullopt;
    return from(json);
}

}  // namespace quorvane
