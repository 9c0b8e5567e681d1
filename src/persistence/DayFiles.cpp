#include "persistence/DayFiles.hpp"

namespace quorvane {

std::vector<DayActivity> DayFiles::between(const std::string& fromKey, const std::string& toKey) {
    if (toKey < fromKey) return {};
    // A key that names no day sorts before every month, and is asked for only by a
    // range that starts before any.
    std::string first =
        MonthFileNames::isMonth(fromKey.substr(0, 7)) ? fromKey.substr(0, 7) : "0000-00";
    std::string last = toKey.substr(0, 7);
    return keptInKeyOrder(first, last, [&](const DayActivity& day) {
        return day.dateKey >= fromKey && day.dateKey <= toKey;
    });
}

}  // namespace quorvane
