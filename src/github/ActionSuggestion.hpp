#pragma once

#include <string>
#include <vector>

#include "records/JsonCodec.hpp"

namespace quorvane {

// The next safe git command for a repository, for the user to copy and run; the
// program never runs it. Computed, never stored; keys are the field names.
struct ActionSuggestion {
    std::string title;                   // the action in words
    std::string command;                 // the command to copy
    std::vector<std::string> safeSteps;  // the commands in the order to run them
    std::string cwd;                     // the folder to run them in

    bool operator==(const ActionSuggestion&) const = default;
};

Json toJson(const ActionSuggestion& suggestion);

}  // namespace quorvane
