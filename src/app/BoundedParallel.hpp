#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace quorvane {

// Runs `work(i)` for every i below `count` on at most `limit` threads, each taking
// the next index as soon as it is free, so item limit+1 starts only when one of
// the first `limit` has finished. Results land at their own index: the caller
// reads them in input order whatever order they finished in. Returns when all are done.
template <class Result>
std::vector<Result> boundedParallelMap(size_t count, size_t limit,
                                       const std::function<Result(size_t)>& work) {
    std::vector<Result> results(count);
    if (count == 0) return results;
    std::atomic<size_t> next{0};
    auto worker = [&] {
        for (size_t i = next.fetch_add(1); i < count; i = next.fetch_add(1)) {
            results[i] = work(i);
        }
    };
    size_t threads = std::clamp<size_t>(limit, 1, count);
    std::vector<std::jthread> pool;
    pool.reserve(threads - 1);
    for (size_t t = 1; t < threads; ++t) pool.emplace_back(worker);
    worker();
    pool.clear();  // joins every thread before the results are handed out
    return results;
}

}  // namespace quorvane
