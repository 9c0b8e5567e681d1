// Builds a corpus of repositories of varied size and state and times, in paired
// rounds, plain `git status --porcelain` over every repository (8 at a time)
// against the scan cycle of `quorvane scan` (the same code, in this process):
// steady (nothing changed since the previous scan), cold (a data folder that has
// never scanned them), and the literal command list the scanner reads with when it
// has nothing to go on. Then times enrolment as a person's first scan makes it (a
// fresh data folder whose scan folder holds the corpus, 90 days of history read)
// against `git log --since=90.days` in every repository, 8 at a time. Prints
// medians, children per repository and the ratios.
//
//   quorvane_bench_scan [--repos N] [--rounds R]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "base/BoundedParallel.hpp"
#include "base/DateHelpers.hpp"
#include "bench/Corpus.hpp"
#include "bench/CountingRunner.hpp"
#include "git/GitCommand.hpp"
#include "git/GitParsing.hpp"
#include "git/GitScanner.hpp"
#include "platform/Shell.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace {

using namespace quorvane;
using SteadyClock = std::chrono::steady_clock;

// How far back enrolment reads, as a fresh configuration has it.
constexpr int kEnrolDays = 90;

using bench::CountingRunner;

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

double medianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// One scan cycle of an application whose data folder tracks every repository.
Measurement scanCycle(CountingRunner& runner, AppEnvironment& env) {
    runner.reset();
    auto start = SteadyClock::now();
    env.scanNow();
    double seconds = std::chrono::duration<double>(SteadyClock::now() - start).count();
    return {seconds, runner.started()};
}

// A data folder that tracks `paths`, loaded and never scanned.
std::unique_ptr<AppEnvironment> trackingEnvironment(const std::filesystem::path& dir,
                                                    const std::vector<std::string>& paths,
                                                    const Clock& clock,
                                                    const ProcessRunner& runner) {
    auto env = std::make_unique<AppEnvironment>(dir, clock, runner);
    env->load();
    env->applyConfigChange([&](AppConfig& config) {
        config.historyDays = 0;
        for (const std::string& path : paths) {
            RepoConfig repo;
            repo.id = repo.localPath = path;
            repo.name = std::filesystem::path(path).filename().string();
            config.repositories.push_back(repo);
        }
    });
    return env;
}

// A fresh data folder whose scan folder is `root`, enrolling new repositories with
// `historyDays` of their history.
std::unique_ptr<AppEnvironment> enrollingEnvironment(const std::filesystem::path& dir,
                                                     const std::filesystem::path& root,
                                                     int historyDays, const Clock& clock,
                                                     const ProcessRunner& runner) {
    auto env = std::make_unique<AppEnvironment>(dir, clock, runner);
    env->load();
    env->applyConfigChange([&](AppConfig& config) {
        config.scanFolders = {root.string()};
        config.autoTrackNewRepos = true;
        config.historyDays = historyDays;
    });
    return env;
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
    // History over twice the enrolment window, so enrolment reads part of it.
    bench::Corpus corpus = bench::buildCorpus(root.path(), repos, 2 * kEnrolDays);
    double buildSeconds = std::chrono::duration<double>(SteadyClock::now() - buildStart).count();

    CountingRunner runner;
    SystemClock clock;
    GitScanner scanner(runner, clock);
    std::string since = GitScanner::startOfDayArgument(clock.now());
    const auto& paths = corpus.paths;
    auto status = [&](size_t i) {
        runner.run(GitCommand::request(paths[i], {"status", "--porcelain"}, 30));
    };
    auto literal = [&](size_t i) {
        scanner.scan(paths[i], false);
        scanner.logCommits(paths[i], since, std::nullopt);
    };

    testing::TempDir data("quorvane-bench-data");
    std::unique_ptr<AppEnvironment> steadyEnv =
        trackingEnvironment(data / "steady", paths, clock, runner);
    scanCycle(runner, *steadyEnv);          // the scan that the steady ones follow
    measure(runner, paths.size(), status);  // and a warm page cache for everyone

    auto history = [&](size_t i) {
        runner.run(GitCommand::request(
            paths[i],
            {"log", "-z", fmt::format("--since={}.days", kEnrolDays), GitParsing::kHistoryFormat},
            60));
    };

    std::vector<Measurement> statusRuns, steadyRuns, coldRuns, literalRuns, logRuns, enrolRuns;
    std::vector<double> steadyRatios, coldRatios, literalRatios, enrolRatios;
    size_t enrolled = 0, enrolledCommits = 0;
    int mostForClean = 0, cleanCount = 0;
    for (int r = 0; r < rounds; ++r) {
        statusRuns.push_back(measure(runner, paths.size(), status));
        steadyRuns.push_back(scanCycle(runner, *steadyEnv));
        auto coldEnv = trackingEnvironment(data / fmt::format("cold{}", r), paths, clock, runner);
        coldRuns.push_back(scanCycle(runner, *coldEnv));
        // The most any clean repository (nothing changed, no commit today) cost.
        std::map<std::string, int> children = runner.byFolder();
        for (const RepoSnapshot& snapshot : coldEnv->store().snapshots()) {
            if (snapshot.error || snapshot.files.total() > 0 || snapshot.commitsToday > 0) continue;
            ++cleanCount;
            mostForClean = std::max(mostForClean, children[snapshot.repoID]);
        }
        literalRuns.push_back(measure(runner, paths.size(), literal));
        steadyRatios.push_back(steadyRuns.back().seconds / statusRuns.back().seconds);
        coldRatios.push_back(coldRuns.back().seconds / statusRuns.back().seconds);
        literalRatios.push_back(literalRuns.back().seconds / statusRuns.back().seconds);

        logRuns.push_back(measure(runner, paths.size(), history));
        auto enrolEnv = enrollingEnvironment(data / fmt::format("enrol{}", r), root.path(),
                                             kEnrolDays, clock, runner);
        runner.reset();
        auto enrolStart = SteadyClock::now();
        enrolEnv->autoEnrollNewRepos();
        enrolRuns.push_back({std::chrono::duration<double>(SteadyClock::now() - enrolStart).count(),
                             runner.started()});
        enrolRatios.push_back(enrolRuns.back().seconds / logRuns.back().seconds);
        enrolled = enrolEnv->config().repositories.size();
        enrolledCommits = enrolEnv->store().commits(std::nullopt).size();
        std::cerr << fmt::format("round {}/{} done\n", r + 1, rounds);
    }
    Measurement plain = median(statusRuns), steady = median(steadyRuns), cold = median(coldRuns),
                slow = median(literalRuns);
    double n = static_cast<double>(paths.size());

    std::cout << fmt::format("corpus: {} repositories, {} commits, {} files, built in {:.1f} s\n",
                             paths.size(), corpus.commits, corpus.files, buildSeconds);
    std::cout << fmt::format("median of {} paired rounds, 8 repositories at a time:\n", rounds);
    auto row = [&](std::string_view name, const Measurement& m) {
        std::cout << fmt::format("  {:34} wall {:7.3f} s  children/repo {:6.2f}\n", name, m.seconds,
                                 m.children / n);
    };
    row("quorvane scan, steady", steady);
    row("quorvane scan, cold", cold);
    row("literal command list", slow);
    row("git status --porcelain", plain);
    row(fmt::format("enrolment, {} days of history", kEnrolDays), median(enrolRuns));
    row(fmt::format("git log --since={}.days", kEnrolDays), median(logRuns));
    std::cout << fmt::format(
        "  cold scan, most children for one clean repository: {} ({} of them)\n", mostForClean,
        cleanCount / rounds);
    std::cout << fmt::format("  ratio steady / git status         {:.2f}\n",
                             medianOf(steadyRatios));
    std::cout << fmt::format("  ratio cold / git status           {:.2f}\n", medianOf(coldRatios));
    std::cout << fmt::format("  ratio literal / git status        {:.2f}\n",
                             medianOf(literalRatios));
    std::cout << fmt::format("  enrolment tracked {} repositories, stored {} commits\n", enrolled,
                             enrolledCommits);
    std::cout << fmt::format("  ratio enrolment / git log         {:.2f}\n", medianOf(enrolRatios));
    return 0;
}
