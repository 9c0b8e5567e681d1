// What git prints about a repository the person cloned, which its author chose:
// status, logs, refs, counts and configuration listings. The first byte picks a
// parser to call directly, or has the scanner read a repository with every git
// child it starts answered, in turn, by the next piece of the input.
#include <mutex>

#include "FuzzSupport.hpp"
#include "base/DateHelpers.hpp"
#include "git/GitConfigListing.hpp"
#include "git/GitParsing.hpp"
#include "git/GitScanner.hpp"
#include "git/RepoDiscovery.hpp"

namespace quorvane::fuzz {
namespace {

// Answers git's children from the input, one piece each, pieces ending at an
// ASCII record separator. An empty piece is a child that failed.
class ScriptedGit final : public ProcessRunner {
public:
    explicit ScriptedGit(Input& input) : input_(input) {}
    ShellResult run(const ProcessRequest&) const override {
        std::lock_guard lock(mutex_);
        std::string_view piece = input_.field('\x1e');
        if (piece.empty()) return {.stdOut = "", .stdErr = "fatal: scripted failure", .exitCode = 128};
        return {.stdOut = std::string(piece), .stdErr = "", .exitCode = 0};
    }
    LaunchResult startDetached(const ProcessRequest&) const override { return {}; }

private:
    Input& input_;
    mutable std::mutex mutex_;
};

void status(std::string_view output) {
    const std::optional<GitParsing::StatusV2> parsed = GitParsing::parseStatusV2(output);
    if (!parsed) return;
    for (bool quotePath : {true, false}) {
        // The scanner counts and dates changes from this listing as from git's own.
        const std::string listing = GitParsing::porcelainV1(*parsed, quotePath);
        (void)GitParsing::fileCounts(listing, false);
        (void)GitParsing::changedPaths(listing);
    }
}

void configListing(std::string_view output) {
    const std::optional<GitConfigListing> listing = GitConfigListing::parse(output);
    if (!listing) return;
    (void)listing->repositoryFilterDrivers();
    (void)listing->originURL();
    (void)listing->userEmails();
    (void)listing->quotePath();
    (void)listing->localConfigFile("/work/repo");
    (void)listing->sourceFiles("/work/repo");
    (void)listing->includesOnBranch();
    (void)listing->usesWorktreeConfig();
}

void scanner(Input& input, uint8_t which) {
    static const ScratchFolder repo;
    static const FixedClock clock(fixedNoon());
    ScriptedGit git(input);
    GitScanner scanner(git, clock);
    const std::string path = repo.path().string();
    switch (which % 6) {
        case 0: (void)scanner.read(path, false, "2026-11-01", nullptr); break;
        case 1: (void)scanner.scan(path, true); break;
        case 2: (void)scanner.localBranches(path, "main"); break;
        case 3: (void)scanner.historyCommits(path, "2026-11-01"); break;
        case 4: (void)scanner.todaysCommits(path, "2026-11-25", which & 8); break;
        default: {
            RepoDiscovery discovery(git);
            (void)discovery.makeRepo(path);
            (void)discovery.detectDefaultBranch(path, "main");
        }
    }
}

}  // namespace
}  // namespace quorvane::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quorvane;
    fuzz::Input input(data, size);
    const uint8_t mode = input.byte();
    switch (mode % 8) {
        case 0: fuzz::status(input.rest()); break;
        case 1: (void)GitParsing::commits(input.rest(), "repo", "main"); break;
        case 2: (void)GitParsing::historyCommits(input.rest(), "repo"); break;
        case 3: (void)GitParsing::aheadBehind(input.rest()); break;
        case 4: fuzz::configListing(input.rest()); break;
        case 5: {
            const std::string_view text = input.rest();
            (void)GitParsing::parseISODate(text);
            (void)GitParsing::fileCounts(text, mode & 8);
            (void)GitParsing::changedPaths(text);
            break;
        }
        default: fuzz::scanner(input, mode / 8); break;
    }
    return 0;
}
