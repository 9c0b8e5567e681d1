#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "persistence/AppConfig.hpp"
#include "records/JsonCodec.hpp"

// The settings of config.json a person reads and changes by name: one dotted name
// per setting ("sync.interval"), the rule a new value must meet, and reading and
// writing it in an AppConfig. Pure: no file is touched here.
namespace quorvane::ConfigKeys {

enum class ValueType {
    boolean,          // true or false
    integer,          // a whole number within [min, max]
    optionalInteger,  // "none", or a whole number within [min, max]
    clockTime,        // a local time of day, kept as "HH:MM"
    choice,           // one of `choices`, spelled as persisted
    name,             // a non-empty word without blanks
    folder,           // an absolute path or one starting with "~"
    httpAddress,      // an http:// or https:// address
    secretAddress,    // an https:// address, or http:// to this machine: a secret goes there
    socketPath,       // an absolute path a Unix socket can bind, or "" for the default
    textList,         // texts, one line each: added and removed one at a time, never set
};

struct Key {
    std::string name;  // dotted, as the JSON path: "reminders.needsPush"
    ValueType type;
    long long min = 0, max = 0;        // integer and optionalInteger, inclusive
    std::vector<std::string> choices;  // choice
    std::string meaning;               // what the setting does, in a few words

    // What a value may be, in a few words: "1 to 1440", "manual, m15, m30 or h1".
    std::string allowed() const;
};

// Every key `set` accepts, the top-level ones first, then each group in turn.
const std::vector<Key>& all();

// A key found by name, or why the name cannot be read or set: it is unknown (and
// the nearest key is suggested), it holds a list that other commands keep, or it
// names a group of keys.
struct Lookup {
    const Key* key = nullptr;
    std::string error;
};
Lookup find(std::string_view name);

// `text`, as typed, made a value of the key `name`; `error` says what was wrong
// and what is allowed. The value is what config.json will hold.
struct Parsed {
    const Key* key = nullptr;
    Json value;
    std::string error;
};
Parsed parse(std::string_view name, std::string_view text);

// `text` made one entry of the list key `name`, for `config add` and `config
// remove`: the text without surrounding blanks. A key that is no list, and text that
// is empty, not UTF-8 or holds a control character, is refused in `error`.
Parsed parseEntry(std::string_view name, std::string_view text);

// The key's value in `config`, as config.json holds it.
Json valueOf(const AppConfig& config, const Key& key);

// Gives the key the value `parse` made of what was typed.
void apply(AppConfig& config, const Key& key, const Json& value);

// A value as a person reads and types it: true, 10, m30, 21:30; "none" for no
// value and "" for empty text.
std::string display(const Json& value);

}  // namespace quorvane::ConfigKeys
