#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "base/DateHelpers.hpp"
#include "base/EnumNames.hpp"

namespace quorvane {

// nlohmann::json keeps object keys in a std::map, so every file is written with
// sorted keys without further work.
using Json = nlohmann::json;

// A record could not be read from JSON; the text names the key path and the problem.
class DecodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

namespace JsonCodec {

// The form of every persisted file: two-space indentation and a final line end.
std::string pretty(const Json& value);

// Parses text, turning a syntax error into a DecodeError.
Json parse(std::string_view text);

std::string describe(const Json& value);  // "a string", "null", ... for error texts

// Parses a top-level JSON array one element at a time, handing each to `visit`,
// so a large file never exists as one JSON tree in memory. Throws DecodeError when
// the text is not an array or an element is not valid JSON.
void forEachArrayElement(std::string_view text,
                         const std::function<void(const Json&, size_t)>& visit);

}  // namespace JsonCodec

// Decoders for the basic types. A record type adds `void fromJson(const Json&, R&,
// const std::string& path)` beside itself, and `Json toJson(const R&)`.
void fromJson(const Json& json, bool& out, const std::string& path);
void fromJson(const Json& json, int& out, const std::string& path);
void fromJson(const Json& json, long long& out, const std::string& path);
void fromJson(const Json& json, double& out, const std::string& path);
void fromJson(const Json& json, std::string& out, const std::string& path);
void fromJson(const Json& json, Date& out, const std::string& path);

Json toJson(Date date);
inline Json toJson(const std::string& value) {
    return value;
}
inline Json toJson(bool value) {
    return value;
}
inline Json toJson(int value) {
    return value;
}

template <NamedEnum E>
void fromJson(const Json& json, E& out, const std::string& path) {
    if (!json.is_string()) {
        throw DecodeError(path + ": expected a name, found " + JsonCodec::describe(json));
    }
    auto value = enumFromName<E>(json.get_ref<const std::string&>());
    if (!value) {
        throw DecodeError(path + ": unknown value \"" + json.get<std::string>() + "\"");
    }
    out = *value;
}

template <NamedEnum E>
Json toJson(E value) {
    return std::string(enumName(value));
}

template <class T>
void fromJson(const Json& json, std::vector<T>& out, const std::string& path) {
    if (!json.is_array()) {
        throw DecodeError(path + ": expected an array, found " + JsonCodec::describe(json));
    }
    out.clear();
    out.reserve(json.size());
    for (size_t i = 0; i < json.size(); ++i) {
        T element{};
        fromJson(json[i], element, path + "[" + std::to_string(i) + "]");
        out.push_back(std::move(element));
    }
}

template <class T>
Json toJson(const std::vector<T>& values) {
    Json array = Json::array();
    for (const auto& value : values) array.push_back(toJson(value));
    return array;
}

// Reads the keys of one JSON object, with the three presence rules records use.
class ObjectReader {
public:
    ObjectReader(const Json& json, std::string path);

    // The key must be there and not null.
    template <class T>
    T required(const char* key) const {
        const Json* value = find(key);
        if (value == nullptr || value->is_null()) {
            throw DecodeError(childPath(key) + ": required key is missing");
        }
        T out{};
        fromJson(*value, out, childPath(key));
        return out;
    }

    // Absent or null gives no value; anything else must decode.
    template <class T>
    std::optional<T> optional(const char* key) const {
        const Json* value = find(key);
        if (value == nullptr || value->is_null()) return std::nullopt;
        T out{};
        fromJson(*value, out, childPath(key));
        return out;
    }

    // Absent or null gives the fallback; anything else must decode.
    template <class T>
    T orDefault(const char* key, T fallback) const {
        auto value = optional<T>(key);
        return value ? std::move(*value) : std::move(fallback);
    }

    std::string childPath(const char* key) const;

private:
    const Json* find(const char* key) const;

    const Json& json_;
    std::string path_;
};

// Writes a value only when it is present, for records that leave empty optionals out.
template <class T>
void putIfPresent(Json& object, const char* key, const std::optional<T>& value) {
    if (value) object[key] = toJson(*value);
}

// Writes a value, or null when absent, for records that always hold every key.
template <class T>
Json orNull(const std::optional<T>& value) {
    return value ? toJson(*value) : Json(nullptr);
}

}  // namespace quorvane
