#include "bench/Corpus.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <stdexcept>

#include <fmt/format.h>

#include "base/BoundedParallel.hpp"
#include "base/DateHelpers.hpp"
#include "git/GitCommand.hpp"
#include "platform/Clock.hpp"
#include "platform/Shell.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane::bench {

namespace {

// When commit `c` of the `older` ones before today's was made: one a day back from
// the day before yesterday, or spread evenly from `spanDays` days back to yesterday.
Date olderCommitDate(Date now, int c, int older, int spanDays) {
    if (spanDays <= 0) return now - std::chrono::hours(24 * (2 + older - c));
    // In minutes, so that a hundred commits in a span of days are hours apart.
    long span = static_cast<long>(spanDays - 1) * 24 * 60;
    long back = 24 * 60 + span * (older - c) / std::max(older, 1);
    return now - std::chrono::minutes(back);
}

// One repository: `commits` commits over `files` files, the newest `today` of them
// dated today, fed to git fast-import in one child.
void buildHistory(const testing::TestRepo& repo, int commits, int files, int today, int spanDays) {
    Date now = SystemClock().now();
    std::string stream;
    for (int c = 0; c < commits; ++c) {
        bool isToday = c >= commits - today;
        long when = (isToday ? now - std::chrono::minutes(commits - c)
                             : olderCommitDate(now, c, commits - today, spanDays))
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

// Where the bare repository that stands for repository `name`'s server lives: in
// a hidden folder of the corpus, which discovery passes by as a person's would.
std::filesystem::path originOf(const std::filesystem::path& root, const std::string& name) {
    return root / ".origins" / (name + ".git");
}

// The state of repository i: clean, dirty in one way or another, ahead of or
// behind a real remote it was fetched from, detached, or without commits.
void shapeState(const testing::TestRepo& repo, const std::filesystem::path& origin, int i,
                int commits) {
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
            // The server holds some commits fewer (case 3: ahead of it) or the
            // same commits while the checkout is set back (case 4: behind it).
            int distance = std::min(commits - 1, 3);
            std::string target = fmt::format("HEAD~{}", distance);
            testing::TestRepo server(origin, testing::TestRepo::Kind::bare);
            repo.git({"remote", "add", "origin", server.path().string()});
            repo.git({"push", "-q", "origin",
                      (i % 8 == 3 ? target : std::string("HEAD")) + ":refs/heads/main"});
            repo.git({"fetch", "-q", "origin"});
            repo.git({"branch", "-q", "--set-upstream-to=origin/main", "main"});
            if (i % 8 == 4) repo.git({"reset", "-q", "--hard", target});
            break;
        }
        case 5: repo.git({"checkout", "-q", "--detach", "HEAD~1"}); break;
        case 6: std::filesystem::remove(repo.path() / "src/dir2/file2.txt"); break;
        case 7: break;
    }
}

}  // namespace

Corpus buildCorpus(const std::filesystem::path& root, int count, int spanDays) {
    static constexpr int kCommits[] = {2, 10, 40, 150, 600};
    static constexpr int kFiles[] = {5, 40, 200, 1000};
    static constexpr int kLongHistory = 10'000;
    // Eight at a time: each repository is a few short git children, so the
    // machine's cores stay busy without the corpus swamping them.
    static constexpr size_t kParallelBuilds = 8;
    Corpus corpus;
    corpus.root = root;
    for (int i = 0; i < count; ++i) {
        corpus.paths.push_back((root / fmt::format("repo{:03}", i)).string());
    }
    std::mutex progressMutex;
    int built = 0;
    int every = std::max(20, count / 20);
    struct Size {
        long commits = 0;
        long files = 0;
    };
    std::vector<Size> sizes = boundedParallelMap<Size>(
        static_cast<size_t>(count), kParallelBuilds, [&](size_t index) -> Size {
            int i = static_cast<int>(index);
            testing::TestRepo repo(corpus.paths[index]);
            Size size;
            if (i % 25 != 24) {  // a few repositories without any commit
                // One in a hundred has the long history of a project years old.
                int commits = i % 100 == 42 ? kLongHistory : kCommits[i % 5];
                int files = kFiles[(i / 5) % 4];
                int today = i % 3 == 0 ? std::min(commits, 1 + i % 7) : 0;
                buildHistory(repo, commits, files, today, spanDays);
                shapeState(repo, originOf(root, repo.path().filename().string()), i, commits);
                size = {commits, files};
            }
            std::lock_guard lock(progressMutex);
            if (++built % every == 0 || built == count) {
                std::cerr << fmt::format("built {}/{} repositories\n", built, count);
            }
            return size;
        });
    for (const Size& size : sizes) {
        corpus.commits += size.commits;
        corpus.files += size.files;
    }
    return corpus;
}

void useBenchIdentity() {
    setenv("GIT_AUTHOR_NAME", "Bench", 1);
    setenv("GIT_AUTHOR_EMAIL", "bench@example.invalid", 1);
    setenv("GIT_COMMITTER_NAME", "Bench", 1);
    setenv("GIT_COMMITTER_EMAIL", "bench@example.invalid", 1);
}

}  // namespace quorvane::bench
