#pragma once

#include <filesystem>
#include <string>
#include <vector>

// The benchmarks' shared corpus: repositories of varied size and state, built with
// git fast-import so that a hundred of them take seconds.
namespace quorvane::bench {

struct Corpus {
    std::filesystem::path root;
    std::vector<std::string> paths;
    long commits = 0;
    long files = 0;
};

// `count` repositories under `root`, built eight at a time: 2 to 600 commits over
// 5 to 1000 files, one in a hundred with 10,000 commits, some dated today, in states
// from clean to detached, and a few without any commit. A quarter are ahead of or
// behind a bare repository under `root`/.origins that they fetched from and track.
// The older commits are one a day back from the day before yesterday, or, with a
// `spanDays`, spread evenly over that many days back from yesterday. Progress goes
// to standard error.
Corpus buildCorpus(const std::filesystem::path& root, int count, int spanDays = 0);

// Sets a git identity for the commits the corpus makes.
void useBenchIdentity();

}  // namespace quorvane::bench
