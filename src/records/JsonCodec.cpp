#include "records/JsonCodec.hpp"

#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "base/JsonScan.hpp"
#include "base/TextHelpers.hpp"

namespace quorvane {

namespace JsonCodec {

std::string pretty(const Json& value) {
    return Text::jsonWithHiddenEscaped(value.dump(2, ' ', false, Json::error_handler_t::replace)) +
           "\n";
}

Json parse(std::string_view text) {
    try {
        return Json::parse(text);
    } catch (const Json::exception& error) {
        // Not only syntax: a number too large for a double ("1e400") is an
        // out_of_range, and it must end as a decoding error like any other.
        // The library's own tag ("[json.exception.parse_error.101] ") means nothing to
        // a person; what follows it says where and what.
        std::string_view what = error.what();
        if (what.starts_with("[json.exception.")) {
            if (size_t end = what.find("] "); end != std::string_view::npos) {
                what.remove_prefix(end + 2);
            }
        }
        throw DecodeError("not valid JSON: " + std::string(what));
    }
}

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// The end of the JSON value that starts at `pos`: the first ',' or ']' outside
// strings and nested brackets. Validity is left to the parser.
size_t valueEnd(std::string_view text, size_t pos) {
    int depth = 0;
    return scanJsonOutsideStrings(text, pos, [&](size_t, char c) {
        if (c == '[' || c == '{') {
            ++depth;
        } else if (c == ']' || c == '}') {
            if (depth == 0) return false;
            --depth;
        } else if (c == ',' && depth == 0) {
            return false;
        }
        return true;
    });
}

}  // namespace

void forEachArrayElement(std::string_view text,
                         const std::function<void(const Json&, size_t)>& visit) {
    size_t pos = 0;
    auto skipSpace = [&] {
        while (pos < text.size() && isSpace(text[pos])) ++pos;
    };
    skipSpace();
    if (pos >= text.size() || text[pos] != '[') {
        throw DecodeError("not valid JSON: expected an array");
    }
    ++pos;
    skipSpace();
    size_t index = 0;
    if (pos < text.size() && text[pos] == ']') {
        ++pos;
    } else {
        while (true) {
            size_t end = valueEnd(text, pos);
            if (end >= text.size()) throw DecodeError("not valid JSON: the array is not closed");
            std::string_view element = text.substr(pos, end - pos);
            Json value;
            try {
                value = Json::parse(element);
            } catch (const Json::exception& error) {
                throw DecodeError(
                    fmt::format("not valid JSON: element {}: {}", index, error.what()));
            }
            visit(value, index++);
            pos = end + 1;
            if (text[end] == ']') break;
            skipSpace();
        }
    }
    skipSpace();
    if (pos != text.size()) throw DecodeError("not valid JSON: text after the array");
}

std::string describe(const Json& value) {
    switch (value.type()) {
        case Json::value_t::null: return "null";
        case Json::value_t::object: return "an object";
        case Json::value_t::array: return "an array";
        case Json::value_t::string: return "a string";
        case Json::value_t::boolean: return "a boolean";
        case Json::value_t::number_integer:
        case Json::value_t::number_unsigned: return "an integer";
        case Json::value_t::number_float: return "a number";
        case Json::value_t::binary: return "binary data";
        case Json::value_t::discarded: return "nothing";
    }
    return "something else";
}

}  // namespace JsonCodec

void fromJson(const Json& json, bool& out, const std::string& path) {
    if (!json.is_boolean()) {
        throw DecodeError(path + ": expected true or false, found " + JsonCodec::describe(json));
    }
    out = json.get<bool>();
}

void fromJson(const Json& json, long long& out, const std::string& path) {
    if (json.is_number_integer()) {
        if (json.is_number_unsigned() &&
            json.get<unsigned long long>() >
                static_cast<unsigned long long>(std::numeric_limits<long long>::max())) {
            throw DecodeError(path + ": integer out of range");
        }
        out = json.get<long long>();
        return;
    }
    // A whole number written with a fraction part ("5.0") still means 5.
    if (json.is_number_float()) {
        double value = json.get<double>();
        if (std::isfinite(value) && std::floor(value) == value && std::fabs(value) < 9.0e15) {
            out = static_cast<long long>(value);
            return;
        }
    }
    throw DecodeError(path + ": expected an integer, found " + JsonCodec::describe(json));
}

void fromJson(const Json& json, int& out, const std::string& path) {
    long long wide = 0;
    fromJson(json, wide, path);
    if (wide < std::numeric_limits<int>::min() || wide > std::numeric_limits<int>::max()) {
        throw DecodeError(path + ": integer out of range");
    }
    out = static_cast<int>(wide);
}

void fromJson(const Json& json, double& out, const std::string& path) {
    if (!json.is_number()) {
        throw DecodeError(path + ": expected a number, found " + JsonCodec::describe(json));
    }
    out = json.get<double>();
}

void fromJson(const Json& json, std::string& out, const std::string& path) {
    if (!json.is_string()) {
        throw DecodeError(path + ": expected a string, found " + JsonCodec::describe(json));
    }
    out = json.get<std::string>();
}

void fromJson(const Json& json, Date& out, const std::string& path) {
    if (!json.is_string()) {
        throw DecodeError(path + ": expected a date, found " + JsonCodec::describe(json));
    }
    auto date = DateHelpers::parseISO(json.get_ref<const std::string&>());
    if (!date) {
        throw DecodeError(path + ": \"" + json.get<std::string>() + "\" is not an ISO 8601 date");
    }
    out = *date;
}

Json toJson(Date date) {
    return DateHelpers::isoString(date);
}

ObjectReader::ObjectReader(const Json& json, std::string path)
    : json_(json), path_(std::move(path)) {
    if (!json_.is_object()) {
        throw DecodeError((path_.empty() ? std::string("document") : path_) +
                          ": expected an object, found " + JsonCodec::describe(json_));
    }
}

std::string ObjectReader::childPath(const char* key) const {
    return path_.empty() ? std::string(key) : path_ + "." + key;
}

const Json* ObjectReader::find(const char* key) const {
    auto it = json_.find(key);
    return it == json_.end() ? nullptr : &*it;
}

}  // namespace quorvane
