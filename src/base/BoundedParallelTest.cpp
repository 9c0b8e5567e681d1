#include "base/BoundedParallel.hpp"

#include <mutex>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "testing/BoundedLatch.hpp"

namespace quorvane {
namespace {

TEST(BoundedParallelTest, RunsExactlyLimitAtOnceAndKeepsInputOrder) {
    constexpr size_t kCount = 30, kLimit = 8;
    std::atomic<int> inFlight{0}, most{0};
    // The first eight only go on once all eight have started: with fewer threads
    // their wait gives up, with more the maximum below would exceed eight.
    testing::BoundedLatch firstWave(kLimit);
    std::mutex orderMutex;
    std::vector<size_t> startOrder;
    std::vector<size_t> results = boundedParallelMap<size_t>(kCount, kLimit, [&](size_t i) {
        int now = ++inFlight;
        int seen = most.load();
        while (now > seen && !most.compare_exchange_weak(seen, now)) {}
        {
            std::lock_guard lock(orderMutex);
            startOrder.push_back(i);
        }
        if (i < kLimit) {
            EXPECT_TRUE(firstWave.arriveAndWait()) << "fewer than eight items ran at once";
        }
        --inFlight;
        return i * i;
    });
    EXPECT_EQ(most.load(), static_cast<int>(kLimit));
    ASSERT_EQ(results.size(), kCount);
    for (size_t i = 0; i < kCount; ++i) EXPECT_EQ(results[i], i * i);
    // Nothing past the first eight starts before all of the first eight have.
    for (size_t position = 0; position < kLimit; ++position)
        EXPECT_LT(startOrder[position], kLimit);
}

TEST(BoundedParallelTest, HandlesNothingToDoAndFewerItemsThanThreads) {
    EXPECT_TRUE(boundedParallelMap<int>(0, 8, [](size_t) { return 1; }).empty());
    std::vector<int> results =
        boundedParallelMap<int>(3, 8, [](size_t i) { return static_cast<int>(i) + 1; });
    EXPECT_EQ(results, (std::vector<int>{1, 2, 3}));
}

TEST(BoundedParallelTest, AnExceptionOnAPoolThreadReachesTheCaller) {
    // The caller's own thread holds its first item until a pool thread has thrown,
    // so the throw happens off the caller's thread: it used to end the process.
    const std::thread::id caller = std::this_thread::get_id();
    testing::BoundedLatch thrown(1);
    try {
        boundedParallelMap<int>(4, 2, [&](size_t) {
            if (std::this_thread::get_id() == caller) {
                EXPECT_TRUE(thrown.wait()) << "no pool thread ever ran an item";
                return 0;
            }
            thrown.countDown();
            throw std::runtime_error("failed on a pool thread");
        });
        ADD_FAILURE() << "the exception was lost";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "failed on a pool thread");
    }
}

}  // namespace
}  // namespace quorvane
