// Fills a store with 200,000 commits, 20,000 sessions, 20,000 day activities and
// 5,000 audit entries, then measures, in a fresh process: load time, the question
// for the last day's commits, a new commit and its flush, the flush of what a scan
// that found one new commit changes, a flush after a change in every large
// collection, peak memory after load and at the end, and the file sizes.
//
//   quorvane_bench_store            fill a temporary folder and measure
//   quorvane_bench_store DIR        measure an existing data folder
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <fmt/format.h>

#include "base/Uuid.hpp"
#include "persistence/Store.hpp"
#include "platform/Shell.hpp"
#include "testing/TempDir.hpp"

namespace {

using namespace quorvane;
using SteadyClock = std::chrono::steady_clock;

template <class Work>
double seconds(Work work) {
    auto start = SteadyClock::now();
    work();
    return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

// The process's own peak resident size. Not getrusage: its ru_maxrss keeps the
// peak of the process that forked this one, the filling one here.
double peakMegabytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024.0;  // in KiB
    }
    return 0;
}

void fill(const std::filesystem::path& dir) {
    SystemClock clock;
    Store store(dir, clock);
    store.load();
    Date now = clock.now();
    std::vector<CommitRecord> commits;
    commits.reserve(200000);
    for (int i = 0; i < 200000; ++i) {
        CommitRecord commit;
        commit.repoID = fmt::format("/home/dev/code/project-{:03}", i % 100);
        commit.sha = fmt::format("{:040x}", static_cast<unsigned long long>(i) * 2654435761ULL);
        commit.shortSha = commit.sha.substr(0, 7);
        commit.message = fmt::format("Change {} of the benchmark, touching the parser | tests", i);
        commit.authorName = "Dev Eloper";
        commit.authorEmail = "dev@example.invalid";
        commit.committedAt = now - std::chrono::minutes(i);
        commits.push_back(std::move(commit));
    }
    store.upsertCommits(commits);
    std::vector<WorkSession> sessions;
    for (int i = 0; i < 20000; ++i) {
        WorkSession session;
        session.id = newUUID();
        session.repoID = fmt::format("/home/dev/code/project-{:03}", i % 100);
        session.startedAt = now - std::chrono::hours(i);
        session.endedAt = session.startedAt + std::chrono::minutes(40);
        session.estimatedSeconds = 2400;
        sessions.push_back(std::move(session));
    }
    store.upsertSessions(sessions);
    for (int i = 0; i < 20000; ++i) {
        DayActivity day;
        day.repoID = fmt::format("/home/dev/code/project-{:03}", i % 100);
        day.dateKey = DateHelpers::dateKey(now - std::chrono::hours(24 * (i / 100)));
        day.commitCount = i % 9;
        day.branchesTouched = {"main"};
        day.statuses = {"activeToday"};
        store.setDayActivity(day);
    }
    for (int i = 0; i < 5000; ++i) {
        AuditLogEntry entry;
        entry.id = newUUID();
        entry.at = now - std::chrono::minutes(5000 - i);
        entry.actor = "claude";
        entry.tool = "list_repositories";
        entry.argsSummary = "limit=20";
        entry.status = "ok";
        store.appendAudit(entry);
    }
    store.flush();
}

// A commit no scan has seen yet, authored now in the repository `repo`.
CommitRecord newCommit(const std::string& repo, int n, Date now) {
    CommitRecord commit;
    commit.repoID = repo;
    commit.sha = fmt::format("{:040x}", 0xfeed0000ULL + static_cast<unsigned long long>(n));
    commit.shortSha = commit.sha.substr(0, 7);
    commit.message = fmt::format("New change {}", n);
    commit.authorName = "Dev Eloper";
    commit.authorEmail = "dev@example.invalid";
    commit.committedAt = now;
    return commit;
}

int measure(const std::filesystem::path& dir) {
    SystemClock clock;
    Date now = clock.now();
    Store store(dir, clock);
    double load = seconds([&] { store.load(); });
    double afterLoad = peakMegabytes();

    // The daemon's usual question first, so today's month is what it holds.
    size_t today = 0;
    double question =
        seconds([&] { today = store.commitsBetween(now - std::chrono::hours(24), now).size(); });

    const std::string repo = "/home/dev/code/project-000";
    double oneCommit = seconds([&] {
        store.upsertCommits({newCommit(repo, 1, now)});
        store.flush();
    });

    // What a scan that found one new commit in one repository hands the store.
    double scanSized = seconds([&] {
        store.upsertCommits({newCommit(repo, 2, now)});
        RepoSnapshot snapshot;
        snapshot.id = newUUID();
        snapshot.repoID = repo;
        snapshot.capturedAt = now;
        snapshot.commitsToday = 2;
        store.replaceSnapshot(snapshot);
        DayActivity day;
        day.repoID = repo;
        day.dateKey = DateHelpers::dateKey(now);
        day.commitCount = 2;
        day.branchesTouched = {"main"};
        store.setDayActivity(day);
        WorkSession session = store.sessions(repo, std::nullopt).front();
        session.isOpen = true;
        session.endedAt = now;
        session.estimatedSeconds += 60;
        store.upsertSessions({session});
        store.flush();
    });

    CommitRecord changed = store.commits(std::nullopt, 1).front();
    changed.message = "edited";
    store.upsertCommits({changed});
    WorkSession session = store.sessions(std::nullopt, std::nullopt).front();
    session.estimatedSeconds += 60;
    store.upsertSessions({session});
    DayActivity day = store.dayActivities("0000-00-00", "9999-99-99").front();
    day.commitCount += 1;
    store.setDayActivity(day);
    RepoSnapshot snapshot;
    snapshot.id = newUUID();
    snapshot.repoID = day.repoID;
    store.replaceSnapshot(snapshot);
    store.pruneAudit(3650);  // nothing is that old: the log is rewritten unchanged
    AuditLogEntry entry = store.auditEntries(1).front();
    entry.detail = "edited";
    double everything = seconds([&] {
        store.appendAudit(entry);
        store.flush();
    });

    std::cout << fmt::format("load                                        {:8.3f} s\n", load);
    std::cout << fmt::format("today's commits ({:5})                     {:8.3f} s\n", today,
                             question);
    std::cout << fmt::format("add one new commit and flush                {:8.3f} s\n", oneCommit);
    std::cout << fmt::format("flush what a scan with one new commit makes {:8.3f} s\n", scanSized);
    std::cout << fmt::format("flush after changing everything             {:8.3f} s\n", everything);
    std::cout << fmt::format("peak memory after load                      {:8.1f} MiB\n",
                             afterLoad);
    std::cout << fmt::format("peak memory at the end                      {:8.1f} MiB\n",
                             peakMegabytes());
    std::uintmax_t total = 0;
    for (const std::string& name : Store::loadOrder()) {
        std::uintmax_t size = std::filesystem::file_size(dir / name);
        total += size;
        if (size > 4096) std::cout << fmt::format("  {:<24}{:10.1f} MiB\n", name, size / 1048576.0);
    }
    std::uintmax_t commits = 0, largest = 0;
    size_t files = 0;
    for (const auto& file : std::filesystem::recursive_directory_iterator(dir / "commits")) {
        if (!file.is_regular_file()) continue;
        ++files;
        commits += file.file_size();
        largest = std::max(largest, file.file_size());
    }
    total += commits;
    std::cout << fmt::format("  {:<24}{:10.1f} MiB in {} files, the largest {:.1f} KiB\n",
                             "commits/", commits / 1048576.0, files, largest / 1024.0);
    std::cout << fmt::format("  {:<24}{:10.1f} MiB\n", "all files", total / 1048576.0);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2) return measure(argv[1]);
    testing::TempDir dir("quorvane-bench-store");
    double filled = seconds([&] { fill(dir.path()); });
    std::cout << fmt::format(
        "filled 200000 commits, 20000 sessions, 20000 day activities, "
        "5000 audit entries in {:.1f} s\n",
        filled);
    std::cout.flush();
    // Measured in a fresh process, so the filling does not count towards its memory.
    ProcessRequest again;
    again.executable = std::filesystem::read_symlink("/proc/self/exe").string();
    again.arguments = {dir.path().string()};
    again.timeout = 600;
    ShellResult result = Shell().run(again);
    std::cout << result.stdOut << result.stdErr;
    return result.exitCode;
}
