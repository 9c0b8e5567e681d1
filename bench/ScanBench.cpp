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

struct Corpus {
    std::vector<std::string> paths;
    long commits = 0;
    long files = 0;
};

// One repository: `commits` commits over `files` files, the newest `today` of them
// dated today, fed to git fast-import in one child.
void buildHistory(const testing::TestRepo& repo, int commits, int files, int today) {
    Date now = SystemClock().now();
    std::string stream;
    for (int c = 0; c < commits; ++c) {
        bool isToday = c >= commits - today;
        long when = (isToday ? now - std::chrono::minutes(commits - c)
                             : now - std::chrono::hours(24 * (2 + commits - c)))
                        .time_since_epoch()
                        .count();
        std::string message = fmt::format("change {} | part of the benchmark", c);
        stream += "commit refs/heads/main\n";
        stream += fmt::format("author Bench <bench@example.invalid> {} +0000\n", when);
        stream += fmt::format("committer Bench <bench@example.invalid> {} +0000\n", when);
        stream += fmt::format("data {}\n{}\n", message.size(), message);
        // The first commit creates every file; later ones each touch a few.
        int touched = c == 0 ? files : std::min(files, 3);
        for (int f = 0; f < touched; ++f) {
            int index = c == 0 ? f : (c * 7 + f * 13) % files;
            std::string content = fmt::format("file {} at commit {}\n", index, c);
            stream += fmt::format("M 100644 inline src/dir{}/file{}.txt\ndata {}\n{}\n", index % 10,
                                  index, content.size(), content);
        }
    }
    ProcessRequest importer =
        GitCommand::request(repo.path().string(), {"fast-import", "--quiet"}, 300);
    importer.standardInput = stream;
    ShellResult imported = Shell().run(importer);
    if (!imported.succeeded()) throw std::runtime_error("fast-import: " + imported.stdErr);
    repo.git({"reset", "-q", "--hard", "main"});
}

// The state of repository i: clean, dirty in one way or another, ahead of or
// behind an upstream, detached, or without commits.
void shapeState(const testing::TestRepo& repo, int i, int commits) {
    switch (i % 8) {
        case 0: break;
        case 1:
            repo.write("src/dir1/file1.txt", "edited\n");
            repo.write("notes.txt", "untracked\n");
            break;
        case 2:
            repo.write("staged.txt", "staged\n");
            repo.git({"add", "staged.txt"});
            repo.git({"mv", "src/dir0/file0.txt", "src/dir0/moved.txt"});
            break;
        case 3:
        case 4: {
            // An upstream some commits behind (case 3) or ahead (case 4) of HEAD.
            int distance = std::min(commits - 1, 3);
            repo.git({"remote", "add", "origin", "/nonexistent/origin.git"});
            std::string target = fmt::format("HEAD~{}", distance);
            repo.git({"update-ref", "refs/remotes/origin/main", i % 8 == 3 ? target : "HEAD"});
            if (i % 8 == 4) repo.git({"reset", "-q", "--hard", target});
            repo.git({"branch", "-q", "--set-upstream-to=origin/main", "main"});
            break;
        }
        case 5: repo.git({"checkout", "-q", "--detach", "HEAD~1"}); break;
        case 6: std::filesystem::remove(repo.path() / "src/dir2/file2.txt"); break;
        case 7: break;
    }
}

Corpus buildCorpus(const std::filesystem::path& root, int count) {
    static constexpr int kCommits[] = {2, 10, 40, 150, 600};
    static constexpr int kFiles[] = {5, 40, 200, 1000};
    Corpus corpus;
    for (int i = 0; i < count; ++i) {
        testing::TestRepo repo(root / fmt::format("repo{:03}", i));
        corpus.paths.push_back(repo.path().string());
        if (i % 25 == 24) continue;  // a few repositories without any commit
        int commits = kCommits[i % 5];
        int files = kFiles[(i / 5) % 4];
        int today = i % 3 == 0 ? std::min(commits, 1 + i % 7) : 0;
        buildHistory(repo, commits, files, today);
        shapeState(repo, i, commits);
        corpus.commits += commits;
        corpus.files += files;
        if ((i + 1) % 20 == 0) std::cerr << fmt::format("built {}/{} repositories\n", i + 1, count);
    }
    return corpus;
}

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
    setenv("GIT_AUTHOR_NAME", "Bench", 1);
    setenv("GIT_AUTHOR_EMAIL", "bench@example.invalid", 1);
    setenv("GIT_COMMITTER_NAME", "Bench", 1);
    setenv("GIT_COMMITTER_EMAIL", "bench@example.invalid", 1);

    testing::TempDir root("quorvane-bench");
    auto buildStart = SteadyClock::now();
    Corpus corpus = buildCorpus(root.path(), repos);
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
