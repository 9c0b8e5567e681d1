#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace quorvane {

// Runs `work(i)` for every i below `count` on at most `limit` threads, each taking
// the next index as soon as it is free, so item limit+1 starts only when one of
// the first `limit` has finished. Results land at their own index: the caller
// reads them in input order whatever order they finished in. Returns when all are
// done. An exception thrown by `work` stops the items not yet started and is
// rethrown here once every thread has finished, the first one if several threw.
template <class Result>
std::vector<Result> boundedParallelMap(size_t count, size_t limit,
                                       const std::function<Result(size_t)>& work) {
    std::vector<Result> results(count);
    if (count == 0) return results;
    std::atomic<size_t> next{0};
    std::mutex failureMutex;
    std::exception_ptr failure;
    auto worker = [&] {
        try {
            for (size_t i = next.fetch_add(1); i < count; i = next.fetch_add(1)) {
                results[i] = work(i);
            }
        } catch (...) {
            // Escaping a thread would end the process; the caller decides instead.
            next = count;
            std::lock_guard lock(failureMutex);
            if (!failure) failure = std::current_exception();
        }
    };
    size_t threads = std::clamp<size_t>(limit, 1, count);
    std::vector<std::jthread> pool;
    pool.reserve(threads - 1);
    for (size_t t = 1; t < threads; ++t) pool.emplace_back(worker);
    worker();
    pool.clear();  // joins every thread before the results are handed out
    if (failure) std::rethrow_exception(failure);
    return results;
}

}  // namespace quorvane
