// Builds a corpus of repositories of varied size and state, scans it the way
// `quorvane scan` does (8 repositories at a time), and compares the wall time with
// plain `git status --porcelain` over the same repositories, 8 at a time.
//
//   quorvane_bench_scan [--repos N] [--rounds R]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "app/BoundedParallel.hpp"
#include "app/DateHelpers.hpp"
#include "bench/Corpus.hpp"
#include "git/GitCommand.hpp"
#include "git/GitScanner.hpp"
#include "platform/Shell.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace {

using namespace quorvane;
using SteadyClock = std::chrono::steady_clock;

// Counts the children started through it.
class CountingRunner final : public ProcessRunner {
public:
    ShellResult run(const ProcessRequest& request) const override {
        ++started_;
        return shell_.run(request);
    }
    long started() const { return started_.load(); }
    void reset() { started_ = 0; }

private:
    Shell shell_;
    mutable std::atomic<long> started_{0};
};

struct Measurement {
    double seconds;
    long children;
};

template <class Work>
Measurement measure(CountingRunner& runner, size_t count, Work work) {
    runner.reset();
    auto start = SteadyClock::now();
    boundedParallelMap<int>(count, 8, [&](size_t i) {
        work(i);
        return 0;
    });
    double seconds = std::chrono::duration<double>(SteadyClock::now() - start).count();
    return {seconds, runner.started()};
}

Measurement median(std::vector<Measurement> runs) {
    std::sort(runs.begin(), runs.end(),
              [](const Measurement& a, const Measurement& b) { return a.seconds < b.seconds; });
    return runs[runs.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    int repos = 100, rounds = 3;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string flag = argv[i];
        if (flag == "--repos") repos = std::atoi(argv[i + 1]);
        if (flag == "--rounds") rounds = std::atoi(argv[i + 1]);
    }
    if (repos < 1 || rounds < 1) {
        std::cerr << "usage: quorvane_bench_scan [--repos N] [--rounds R]\n";
        return 2;
    }
    bench::useBenchIdentity();

    testing::TempDir root("quorvane-bench");
    auto buildStart = SteadyClock::now();
    bench::Corpus corpus = bench::buildCorpus(root.path(), repos);
    double buildSeconds = std::chrono::duration<double>(SteadyClock::now() - buildStart).count();

    CountingRunner runner;
    SystemClock clock;
    GitScanner scanner(runner, clock);
    std::string since = GitScanner::startOfDayArgument(clock.now());
    const auto& paths = corpus.paths;
    auto status = [&](size_t i) {
        runner.run(GitCommand::request(paths[i], {"status", "--porcelain"}, 30));
    };
    auto scanOnly = [&](size_t i) { scanner.scan(paths[i], false); };
    auto scanCycle = [&](size_t i) {
        scanner.scan(paths[i], false);
        scanner.logCommits(paths[i], since, std::nullopt);
    };

    measure(runner, paths.size(), status);  // warm the page cache before timing anything
    std::vector<Measurement> statusRuns, scanRuns, cycleRuns;
    for (int r = 0; r < rounds; ++r) {
        statusRuns.push_back(measure(runner, paths.size(), status));
        scanRuns.push_back(measure(runner, paths.size(), scanOnly));
        cycleRuns.push_back(measure(runner, paths.size(), scanCycle));
    }
    Measurement plain = median(statusRuns), scan = median(scanRuns), cycle = median(cycleRuns);
    double n = static_cast<double>(paths.size());

    std::cout << fmt::format("corpus: {} repositories, {} commits, {} files, built in {:.1f} s\n",
                             paths.size(), corpus.commits, corpus.files, buildSeconds);
    std::cout << fmt::format("median of {} rounds, 8 repositories at a time:\n", rounds);
    std::cout << fmt::format(
        "  scan (GitScanner.scan)            wall {:7.3f} s  children/repo {:6.2f}\n", scan.seconds,
        scan.children / n);
    std::cout << fmt::format(
        "  scan + today's commits            wall {:7.3f} s  children/repo {:6.2f}\n",
        cycle.seconds, cycle.children / n);
    std::cout << fmt::format(
        "  git status --porcelain            wall {:7.3f} s  children/repo {:6.2f}\n",
        plain.seconds, plain.children / n);
    std::cout << fmt::format("  ratio scan / git status           {:.2f}\n",
                             scan.seconds / plain.seconds);
    std::cout << fmt::format("  ratio scan + commits / git status {:.2f}\n",
                             cycle.seconds / plain.seconds);
    return 0;
}
