#include "persistence/DayFiles.hpp"

#include <algorithm>

namespace quorvane {

std::vector<DayActivity> DayFiles::between(const std::string& fromKey, const std::string& toKey) {
    if (toKey < fromKey) return {};
    // A key that names no day sorts before every month, and is asked for only by a
    // range that starts before any.
    std::string first =
        MonthFileNames::isMonth(fromKey.substr(0, 7)) ? fromKey.substr(0, 7) : "0000-00";
    std::string last = toKey.substr(0, 7);
    std::vector<const std::pair<const std::string, DayActivity>*> found;
    forEachIn(first, last, [&](const auto& entry) {
        const std::string& day = entry.second.dateKey;
        if (day >= fromKey && day <= toKey) found.push_back(&entry);
    });
    std::sort(found.begin(), found.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    std::vector<DayActivity> result;
    result.reserve(found.size());
    for (const auto* entry : found) result.push_back(entry->second);
    return result;
}

}  // namespace quorvane
