#include "web/ReportSummaryJob.hpp"

#include <poll.h>

#include <gtest/gtest.h>

#include <stdexcept>

#include "testing/BoundedLatch.hpp"
#include "testing/FakeClock.hpp"

namespace quorvane {
namespace {

// Blocks until `cancel` is cancelled, as a provider's request does on the wire.
void waitForCancel(const Cancellation& cancel) {
    pollfd wake{cancel.pollDescriptor(), POLLIN, 0};
    while (!cancel.isCancelled()) ::poll(&wake, 1, 1000);
}

TEST(ReportSummaryJobTest, RunsOneAtATimeAndEndsCancelledFailedOrDoneWithWhatThePageReads) {
    testing::FakeClock clock(Date(std::chrono::seconds(1'800'000'000)));
    int ends = 0;
    std::unique_ptr<testing::BoundedLatch> ended;
    ReportSummaryJob job(clock, [&] {
        ++ends;
        ended->countDown();
    });
    EXPECT_EQ(job.status(), Json({{"state", "idle"}}));
    EXPECT_FALSE(job.cancel()) << "nothing runs yet";

    // A request the provider never answers: the person cancels it.
    ended = std::make_unique<testing::BoundedLatch>(1);
    testing::BoundedLatch started(1);
    ASSERT_TRUE(job.start("2026-11-26", "Ollama", [&](const Cancellation& cancel) -> Json {
        started.countDown();
        waitForCancel(cancel);
        throw std::runtime_error("Ollama: network error: cancelled");
    }));
    ASSERT_TRUE(started.wait());
    clock.advance(std::chrono::seconds(7));
    Json running = job.status();
    EXPECT_EQ(running["state"], "running");
    EXPECT_EQ(running["elapsedSeconds"], 7);
    EXPECT_EQ(running["provider"], "Ollama");
    EXPECT_FALSE(job.start("2026-11-26", "Ollama", [](const Cancellation&) { return Json(); }))
        << "a second summary waits for the first";
    EXPECT_TRUE(job.cancel());
    ASSERT_TRUE(ended->wait());
    EXPECT_EQ(job.status()["state"], "cancelled") << "not failed: the person stopped it";
    EXPECT_FALSE(job.status().contains("problem"));

    // The provider's error is kept as text that cannot move a terminal's cursor.
    ended = std::make_unique<testing::BoundedLatch>(1);
    ASSERT_TRUE(job.start("2026-11-25", "Anthropic", [](const Cancellation&) -> Json {
        throw std::runtime_error("Anthropic API 401: bad key\x1b[2J");
    }));
    ASSERT_TRUE(ended->wait());
    Json failed = job.status();
    EXPECT_EQ(failed["state"], "failed");
    EXPECT_EQ(failed["dateKey"], "2026-11-25");
    EXPECT_EQ(failed["problem"].get<std::string>().find('\x1b'), std::string::npos);

    ended = std::make_unique<testing::BoundedLatch>(1);
    ASSERT_TRUE(job.start("2026-11-26", "Ollama", [&](const Cancellation&) {
        clock.advance(std::chrono::seconds(3));
        return Json{{"summary", "Shipped the login."}};
    }));
    ASSERT_TRUE(ended->wait());
    clock.advance(std::chrono::seconds(60));
    Json done = job.status();
    EXPECT_EQ(done["state"], "done");
    EXPECT_EQ(done["result"]["summary"], "Shipped the login.");
    EXPECT_EQ(done["elapsedSeconds"], 3) << "the wait stops growing once it ended";
    EXPECT_EQ(ends, 3);

    // Stopping the service ends a run under way and lets none start after it.
    ended = std::make_unique<testing::BoundedLatch>(1);
    ASSERT_TRUE(job.start("2026-11-26", "Ollama", [](const Cancellation& cancel) {
        waitForCancel(cancel);
        return Json();
    }));
    job.stop();
    EXPECT_EQ(job.status()["state"], "cancelled");
    EXPECT_FALSE(job.start("2026-11-26", "Ollama", [](const Cancellation&) { return Json(); }));
}

}  // namespace
}  // namespace quorvane
