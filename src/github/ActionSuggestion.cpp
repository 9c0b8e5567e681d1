#include "github/ActionSuggestion.hpp"

namespace quorvane {

Json toJson(const ActionSuggestion& suggestion) {
    return Json{{"title", suggestion.title},
                {"command", suggestion.command},
                {"safeSteps", toJson(suggestion.safeSteps)},
                {"cwd", suggestion.cwd}};
}

}  // namespace quorvane
