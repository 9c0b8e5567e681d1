#pragma once

#include <string>

#include "records/JsonCodec.hpp"

namespace quorvane::JsonArray {

// The data files are pretty-printed arrays, built one record at a time so a large
// collection never exists twice in memory as a JSON tree.

// One record as an element of a pretty-printed array: its lines indented by two.
template <class Record>
std::string element(const Record& record) {
    std::string text = toJson(record).dump(2, ' ', false, Json::error_handler_t::replace);
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    for (char c : text) {
        out += c;
        if (c == '\n') out += "  ";
    }
    return out;
}

// `append` adds one element's text to the output.
template <class Range, class Append>
std::string encode(const Range& records, Append append) {
    std::string out;
    bool first = true;
    for (const auto& record : records) {
        out += first ? "[\n  " : ",\n  ";
        first = false;
        append(record, out);
    }
    out += first ? "[]\n" : "\n]\n";
    return out;
}

template <class Range>
std::string encode(const Range& records) {
    return encode(records, [](const auto& record, std::string& out) { out += element(record); });
}

}  // namespace quorvane::JsonArray
