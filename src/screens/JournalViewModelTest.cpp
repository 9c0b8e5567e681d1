#include "screens/JournalViewModel.hpp"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

DailyJournal entry(std::string dateKey, std::optional<std::string> notes,
                   std::optional<std::string> blockers, std::optional<std::string> tomorrow) {
    return {std::move(dateKey), std::move(notes), std::move(blockers), std::move(tomorrow), {}};
}

TEST(JournalViewModelTest, ListsTheDaysThatStillSaySomethingNewestFirstWithTheirFirstWords) {
    Json listed = JournalViewModel::daysJson(
        {
            entry("2026-11-20", "\n  Fixed the build\nand the docs", std::nullopt, "Release"),
            entry("2026-11-24", std::nullopt, std::nullopt, std::nullopt),  // every part cleared
            entry("2026-11-26", std::nullopt, "Waiting on review", "Ship it"),
            entry("2026-11-25", " \n\t", std::nullopt, std::nullopt),  // hand-edited to blanks
            entry("2025-12-31", "Year's end", std::nullopt, std::nullopt),
        },
        "2026-11-26");
    EXPECT_EQ(listed["today"], "2026-11-26");
    Json expected = Json::array({
        {{"dateKey", "2026-11-26"},
         {"parts", {"blockers", "tomorrow"}},
         {"glimpse", "Waiting on review"}},
        {{"dateKey", "2026-11-20"},
         {"parts", {"notes", "tomorrow"}},
         {"glimpse", "Fixed the build"}},
        {{"dateKey", "2025-12-31"}, {"parts", {"notes"}}, {"glimpse", "Year's end"}},
    });
    EXPECT_EQ(listed["days"], expected);
    EXPECT_EQ(JournalViewModel::daysJson({}, "2026-11-26")["days"], Json::array());
}

}  // namespace
}  // namespace quorvane
