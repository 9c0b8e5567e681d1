// A store writer for the crash test: loads the store in the given folder, then
// changes every collection and flushes, over and over, printing "flushed N" after
// each completed flush. SIGTERM turns into SIGKILL at once, so the test can kill
// it at a moment of its choosing without giving it a chance to tidy up.
#include <signal.h>
#include <unistd.h>

#include <string>

#include <fmt/format.h>

#include "persistence/Store.hpp"
#include "platform/Clock.hpp"

namespace {

using namespace quorvane;

void say(const std::string& line) {
    std::string text = line + "\n";
    ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
    (void)written;
}

std::string mark(long generation) {
    return fmt::format("gen {}", generation);
}

// The generation the store holds now: the highest any of its files carries.
long currentGeneration(const Store& store) {
    long highest = 0;
    for (const CommitRecord& commit : store.commits(std::nullopt, 1)) {
        highest = std::max(highest, std::stol(commit.message.substr(4)));
    }
    for (const AuditLogEntry& entry : store.auditEntries()) {
        highest = std::max(highest, std::stol(entry.argsSummary.substr(4)));
    }
    for (const WorkSession& session : store.sessions(std::nullopt, std::nullopt)) {
        highest = std::max(highest, static_cast<long>(session.estimatedSeconds));
    }
    return highest;
}

void writeGeneration(Store& store, long gen, Date now) {
    int g = static_cast<int>(gen);
    std::vector<CommitRecord> commits;
    for (int i = 0; i < 1000; ++i) {
        CommitRecord commit;
        commit.repoID = fmt::format("/repos/r{}", i % 20);
        commit.sha = fmt::format("{:040}", i);
        commit.shortSha = commit.sha.substr(0, 7);
        commit.message = mark(gen);
        commit.authorName = "Writer";
        commit.authorEmail = "writer@example.invalid";
        // One fixed month, so the same files are rewritten whatever day the test runs.
        commit.committedAt = *DateHelpers::parseISO("2026-11-21T12:00:00Z");
        commits.push_back(commit);
    }
    store.upsertCommits(commits);
    for (int i = 0; i < 20; ++i) {
        RepoSnapshot snapshot;
        snapshot.id = fmt::format("S{}", i);
        snapshot.repoID = fmt::format("/repos/r{}", i);
        snapshot.capturedAt = now;
        snapshot.commitsToday = g;
        store.replaceSnapshot(snapshot);
    }
    WorkSession session;
    session.id = "W";
    session.repoID = "/repos/r0";
    session.estimatedSeconds = g;
    store.upsertSessions({session});
    DayActivity day;
    day.repoID = "/repos/r0";
    day.dateKey = "2026-11-21";
    day.commitCount = g;
    store.setDayActivity(day);
    DailyJournal journal;
    journal.dateKey = "2026-11-21";
    journal.manualNotes = mark(gen);
    store.upsertJournal(journal);
    ReminderEvent reminder;
    reminder.id = "R";
    reminder.message = mark(gen);
    store.upsertReminders({reminder});
    GitHubAccount account;
    account.id = "acc";
    account.displayName = mark(gen);
    store.upsertAccount(account);
    RemoteRepository remote;
    remote.id = "acc:me/r";
    remote.accountID = "acc";
    remote.description = mark(gen);
    store.replaceRemoteRepos("acc", {remote});
    RepositoryMapping mapping;
    mapping.id = "/repos/r0";
    mapping.accountID = mark(gen);
    store.replaceMappings({mapping});
    BranchRecord branch;
    branch.id = "/repos/r0#main#L";
    branch.repoID = "/repos/r0";
    branch.aheadCount = g;
    store.replaceBranches("/repos/r0", {branch});
    SyncState state;
    state.id = "/repos/r0";
    state.localAhead = g;
    store.replaceSyncStates({state});
    ProjectHealthSnapshot health;
    health.id = health.repoID = "/repos/r0";
    health.score = g;
    store.upsertHealth({health});
    PendingProposal proposal;
    proposal.id = "P";
    proposal.title = mark(gen);
    store.upsertProposal(proposal);
    ProjectMetadata metadata;
    metadata.repoID = "/repos/r0";
    metadata.summary = mark(gen);
    store.upsertMetadata(metadata);
    AuditLogEntry entry;
    entry.id = fmt::format("A{}", gen);
    entry.at = now;
    entry.argsSummary = mark(gen);
    store.appendAudit(entry);  // written at once, as the agent's calls are
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[2]) == "--start-only") return 0;  // for timing start-up
    if (argc != 2) return 2;
    ::signal(SIGTERM, [](int) { ::kill(::getpid(), SIGKILL); });
    SystemClock clock;
    Store store(argv[1], clock);
    store.load();
    long gen = currentGeneration(store);
    say(fmt::format("base {}", gen));
    for (int round = 0; round < 100000; ++round) {
        ++gen;
        writeGeneration(store, gen, clock.now());
        store.flush();
        say(fmt::format("flushed {}", gen));
    }
    return 0;
}
