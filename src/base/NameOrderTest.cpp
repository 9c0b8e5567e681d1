#include "base/NameOrder.hpp"

#include <algorithm>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorvane {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> sorted(std::vector<std::string> names, const NameOrder& order) {
    std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
        return order.less(a, b);
    });
    return names;
}

TEST(NameOrderTest, TheLocaleComesFromTheFirstCollationVariableSet) {
    EXPECT_EQ(NameOrder::localeFromEnvironment(nullptr, nullptr, nullptr), "");
    EXPECT_EQ(NameOrder::localeFromEnvironment(nullptr, nullptr, "de_DE.UTF-8@euro"), "de_DE");
    EXPECT_EQ(NameOrder::localeFromEnvironment("", "sv_SE.UTF-8", "en_US.UTF-8"), "sv_SE");
    EXPECT_EQ(NameOrder::localeFromEnvironment("C.UTF-8", "sv_SE.UTF-8", nullptr), "");
    EXPECT_EQ(NameOrder::localeFromEnvironment(nullptr, "POSIX", "sv_SE"), "");
}

TEST(NameOrderTest, CaseIsIgnoredAccentsCountAndTheLocaleDecides) {
    NameOrder root("");
    EXPECT_THAT(sorted({"gamma", "\u00c9mile", "ALPHA", "Beta", "Emile", "alpha", "\u00e9mile"},
                       root),
                ElementsAre("ALPHA", "alpha", "Beta", "Emile", "\u00c9mile", "\u00e9mile",
                            "gamma"));
    // Swedish puts its "ö" after "z"; most languages read it as an "o".
    EXPECT_TRUE(root.less("\u00f6rn", "zebra"));
    EXPECT_TRUE(NameOrder("sv_SE").less("zebra", "\u00f6rn"));
    // The process's own order: the tests run with LC_ALL=C, which is the root order.
    EXPECT_TRUE(nameLess("\u00c9mile", "gamma"));
    EXPECT_FALSE(nameLess("Beta", "beta"));
}

TEST(NameOrderTest, BrokenUTF8SortsLastByItsBytes) {
    NameOrder root("");
    std::string stray = "a\xff", overlong = "\xc0\xaf", cut = "\xc3";
    EXPECT_THAT(sorted({stray, "zed", overlong, cut, "Alpha"}, root),
                ElementsAre("Alpha", "zed", stray, overlong, cut));
}

TEST(NameOrderTest, ThreadsSortAtTheSameTime) {
    const std::vector<std::string> names = {"gamma", "\u00c9mile", "Beta", "alpha", "delta"};
    std::vector<std::vector<std::string>> results(4);
    std::vector<std::thread> threads;
    for (auto& result : results) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) result = sorted(names, NameOrder::user());
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const auto& result : results)
        EXPECT_THAT(result, ElementsAre("alpha", "Beta", "delta", "\u00c9mile", "gamma"));
}

}  // namespace
}  // namespace quorvane
