// The daemon's periodic scan over repositories held under a scan folder, with the
// file watcher running: the git children it starts and its wall time (median of
// rounds) when nothing changed, and when one file changed in one repository.
//
//   quorvane_bench_periodic [--repos N] [--rounds R]
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "bench/Corpus.hpp"
#include "bench/CountingRunner.hpp"
#include "platform/Clock.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace {

using namespace quorvane;
using SteadyClock = std::chrono::steady_clock;

struct Round {
    double milliseconds = 0;
    long children = 0;
    AppEnvironment::ScanCount count;
};

Round periodicScan(bench::CountingRunner& runner, AppEnvironment& env) {
    runner.reset();
    auto start = SteadyClock::now();
    env.scanNow(AppEnvironment::ScanScope::changed);
    Round round;
    round.milliseconds =
        std::chrono::duration<double, std::milli>(SteadyClock::now() - start).count();
    round.children = runner.started();
    round.count = env.lastScanCount();
    return round;
}

Round median(std::vector<Round> rounds) {
    std::sort(rounds.begin(), rounds.end(),
              [](const Round& a, const Round& b) { return a.milliseconds < b.milliseconds; });
    return rounds[rounds.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    int repos = 100, rounds = 9;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string flag = argv[i];
        if (flag == "--repos") repos = std::atoi(argv[i + 1]);
        if (flag == "--rounds") rounds = std::atoi(argv[i + 1]);
    }
    if (repos < 1 || rounds < 1) {
        std::cerr << "usage: quorvane_bench_periodic [--repos N] [--rounds R]\n";
        return 2;
    }
    bench::useBenchIdentity();

    testing::TempDir root("quorvane-bench-periodic");
    bench::Corpus corpus = bench::buildCorpus(root / "code", repos);

    bench::CountingRunner runner;
    SystemClock clock;
    AppEnvironment env(root / "data", clock, runner);
    env.load();
    // The repositories are found in the scan folder and tracked as a person's are;
    // the periodic task itself is put off so that only the rounds below scan.
    env.applyConfigChange([&](AppConfig& config) {
        config.scanFolders = {(root / "code").string()};
        config.autoTrackNewRepos = true;
        config.historyDays = 0;
        config.scanIntervalMinutes = 24 * 60;
        config.sync.interval = SyncPrefs::Interval::manual;
        config.sync.syncOnStart = false;
    });
    env.bootstrap();
    if (!env.isWatching()) {
        std::cerr << "the file watcher did not start\n";
        return 1;
    }
    size_t tracked = env.config().repositories.size();
    // The first periodic scan after the watcher started reads everything, the
    // second knows each repository's git state from it.
    periodicScan(runner, env);
    periodicScan(runner, env);

    std::vector<Round> quiet, touched;
    for (int r = 0; r < rounds; ++r) {
        quiet.push_back(periodicScan(runner, env));
        const std::string& path = corpus.paths[static_cast<size_t>(r) % corpus.paths.size()];
        testing::writeFile(std::filesystem::path(path) / "touched.txt", fmt::format("{}\n", r));
        touched.push_back(periodicScan(runner, env));
    }
    env.shutdown();

    auto row = [&](std::string_view name, const Round& m) {
        std::cout << fmt::format("  {:32} children {:4}  wall {:8.2f} ms  read {} kept {}\n", name,
                                 m.children, m.milliseconds, m.count.read, m.count.kept);
    };
    std::cout << fmt::format(
        "periodic scan over {} tracked repositories under one scan folder, watcher running;\n"
        "median of {} rounds:\n",
        tracked, rounds);
    row("nothing changed", median(quiet));
    row("one file touched in one repo", median(touched));
    long most = 0;
    for (const Round& round : quiet) most = std::max(most, round.children);
    std::cout << fmt::format("  most children in a round with nothing changed: {}\n", most);
    return 0;
}
