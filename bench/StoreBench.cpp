// Fills a store with 200,000 commits, 20,000 sessions, 20,000 day activities and
// 5,000 audit entries, then measures, in a fresh process: load time, flush after
// one changed commit, flush after a change in every collection, file sizes and
// peak memory.
//
//   quorvane_bench_store            fill a temporary folder and measure
//   quorvane_bench_store DIR        measure an existing data folder
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
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

double peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in KiB
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

int measure(const std::filesystem::path& dir) {
    SystemClock clock;
    Store store(dir, clock);
    double load = seconds([&] { store.load(); });
    double afterLoad = peakMegabytes();

    CommitRecord changed = store.commits(std::nullopt, 1).front();
    changed.message = "edited";
    store.upsertCommits({changed});
    double oneCommit = seconds([&] { store.flush(); });

    changed.message = "edited again";
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

    std::cout << fmt::format("load                              {:8.3f} s\n", load);
    std::cout << fmt::format("flush after one changed commit    {:8.3f} s\n", oneCommit);
    std::cout << fmt::format("flush after changing everything   {:8.3f} s\n", everything);
    std::cout << fmt::format("peak memory after load            {:8.1f} MiB\n", afterLoad);
    std::cout << fmt::format("peak memory at the end            {:8.1f} MiB\n", peakMegabytes());
    std::uintmax_t total = 0;
    for (const std::string& name : Store::loadOrder()) {
        std::uintmax_t size = std::filesystem::file_size(dir / name);
        total += size;
        if (size > 4096) std::cout << fmt::format("  {:<24}{:10.1f} MiB\n", name, size / 1048576.0);
    }
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
