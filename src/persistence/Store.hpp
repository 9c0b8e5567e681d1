#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "persistence/CommitFiles.hpp"
#include "persistence/DayFiles.hpp"
#include "platform/Clock.hpp"
#include "records/AuditLogEntry.hpp"
#include "records/BranchRecord.hpp"
#include "records/CommitRecord.hpp"
#include "records/DailyJournal.hpp"
#include "records/DayActivity.hpp"
#include "records/GitHubAccount.hpp"
#include "records/PendingProposal.hpp"
#include "records/ProjectHealthSnapshot.hpp"
#include "records/ProjectMetadata.hpp"
#include "records/ReminderEvent.hpp"
#include "records/RemoteRepository.hpp"
#include "records/RepoSnapshot.hpp"
#include "records/RepositoryMapping.hpp"
#include "records/SyncState.hpp"
#include "records/WorkSession.hpp"

namespace quorvane {

// The program's database: one JSON file per collection in the data folder, held
// in memory and written back by `flush`; the commits and the day records, which grow
// with the history, are kept in a file per repository and month and read as
// questions need them (CommitFiles, DayFiles). Every call is serialised on the
// store's own lock and queries return copies, so callers see each call as atomic.
class Store {
public:
    enum class Access {
        readWrite,  // the one writer of the data folder
        readOnly,   // a reader beside a running writer: never moves or writes a file
    };

    // The outcome of spending a confirmation token.
    struct ConsumeResult {
        enum class Kind { ok, notApproved, notFound, expired };
        Kind kind = Kind::notFound;
        std::optional<PendingProposal> proposal;  // with `ok`
        std::string status;                       // with `notApproved`: the proposal's status word
    };

    // Creates `dir` if needed; reads nothing until `load`.
    Store(std::filesystem::path dir, const Clock& clock, Access access = Access::readWrite);

    // Reads every file but the commit files, which are only listed (a single
    // "commits.json" of an earlier release is split into them). A missing file is an empty
    // collection; one that cannot be read or decoded is moved aside to "<name>.corrupt-<seconds>"
    // and logged (in read-only access it stays where it is, and `unreadableFiles` tells the reader)
    // and its collection starts empty. A file that could not be moved aside is
    // never written by this store. Then trims the audit log to 90 days and 5000
    // entries.
    void load();

    // A file the last load could not read or decode, and why.
    struct UnreadableFile {
        std::string name;
        std::string problem;
    };
    // A commit file counts once a question has needed its month.
    std::vector<UnreadableFile> unreadableFiles() const;

    // Writes every collection that changed since its file was last written. A
    // failed write is logged and retried at the next flush. Refused before `load`.
    // True when nothing is left unwritten; `flushProblem` then says why not.
    bool flush();
    std::string flushProblem() const;

    bool isLoaded() const;
    const std::filesystem::path& dir() const { return dir_; }

    // Snapshots, one per repository.
    std::optional<RepoSnapshot> snapshot(const std::string& repoID) const;
    std::vector<RepoSnapshot> snapshots() const;
    void replaceSnapshot(const RepoSnapshot& snapshot);

    // Commits. `commits` gives the repository's (all when no id), newest first,
    // cut to `limit`; `commitsBetween` those authored from `from` to `to`, inclusive,
    // by repository and sha. Ask for a window when a window is what is needed: only
    // its months are read.
    std::vector<CommitRecord> commits(const std::optional<std::string>& repoID,
                                      std::optional<size_t> limit = std::nullopt) const;
    std::vector<CommitRecord> commitsBetween(Date from, Date to) const;
    void upsertCommits(const std::vector<CommitRecord>& commits);

    // Work sessions, newest start first.
    std::vector<WorkSession> sessions(const std::optional<std::string>& repoID,
                                      std::optional<Date> since) const;
    std::optional<WorkSession> openSession(const std::string& repoID) const;
    void upsertSessions(const std::vector<WorkSession>& sessions);

    // Day activity, sorted by repository then day.
    std::vector<DayActivity> dayActivities(const std::string& dateKey) const;
    std::vector<DayActivity> dayActivities(const std::string& fromKey,
                                           const std::string& toKey) const;
    void setDayActivity(const DayActivity& activity);

    // The journal, one entry per day.
    std::optional<DailyJournal> journal(const std::string& dateKey) const;
    // Every day's entry, oldest day first.
    std::vector<DailyJournal> journals() const;
    void upsertJournal(const DailyJournal& entry);

    // Reminders, newest first.
    std::vector<ReminderEvent> reminders(bool unresolvedOnly) const;
    void upsertReminders(const std::vector<ReminderEvent>& events);
    void resolveReminders(const std::vector<std::string>& ids);
    // Applies `change` to the open reminder `id` in one step, so no pass that resolves
    // it meanwhile is undone; `change` says whether it changed anything. The reminder
    // as changed, or nothing when no open reminder has that id or nothing changed.
    std::optional<ReminderEvent> changeOpenReminder(
        const std::string& id, const std::function<bool(ReminderEvent&)>& change);
    void pruneResolvedReminders(int olderThanDays);

    // Accounts, sorted by display name then id.
    std::vector<GitHubAccount> accounts() const;
    void upsertAccount(const GitHubAccount& account);
    // Also drops the account's remote repositories, their branch rows and every
    // link to them.
    void removeAccount(const std::string& accountID);

    std::vector<RemoteRepository> remoteRepos(const std::optional<std::string>& accountID) const;
    void replaceRemoteRepos(const std::string& accountID,
                            const std::vector<RemoteRepository>& repos);

    std::vector<RepositoryMapping> mappings() const;
    void upsertMappings(const std::vector<RepositoryMapping>& mappings);
    void replaceMappings(const std::vector<RepositoryMapping>& mappings);

    std::vector<BranchRecord> branches(const std::optional<std::string>& repoID) const;
    void replaceBranches(const std::string& repoID, const std::vector<BranchRecord>& branches);

    std::vector<SyncState> syncStates() const;
    std::optional<SyncState> syncState(const std::string& repoID) const;
    void replaceSyncStates(const std::vector<SyncState>& states);
    // Replaces the states of these repositories alone, leaving the others as they are.
    void upsertSyncStates(const std::vector<SyncState>& states);

    std::vector<ProjectHealthSnapshot> health(const std::optional<std::string>& repoID) const;
    void upsertHealth(const std::vector<ProjectHealthSnapshot>& records);

    // Proposals, newest first. The status changes below write "proposals.json" at
    // once, so a crash can never make a spent token valid again.
    std::vector<PendingProposal> proposals(std::optional<PendingProposal::Status> status) const;
    std::optional<PendingProposal> proposal(const std::string& id) const;
    // Inserts or replaces the proposal and writes "proposals.json" at once: an agent
    // told a proposal's id must find it after a crash.
    void upsertProposal(const PendingProposal& proposal);
    // Changes the proposal with this id in one step, so no other change slips in
    // between reading and writing it; `change` returns false to leave it as it was.
    // Written at once when changed. The proposal as it then stands; nothing when
    // there is none with this id.
    std::optional<PendingProposal> updateProposal(
        const std::string& id, const std::function<bool(PendingProposal&)>& change);
    ConsumeResult consumeApprovedProposal(const std::string& token);
    void rejectProposal(const std::string& id);
    void markProposalApplied(const std::string& id);

    // The agent audit log, newest first. Appending writes "agent_audit.json" at once
    // and keeps the newest 5000 entries.
    std::vector<AuditLogEntry> auditEntries(std::optional<size_t> limit = std::nullopt) const;
    void appendAudit(const AuditLogEntry& entry);
    void pruneAudit(int olderThanDays);

    std::optional<ProjectMetadata> metadata(const std::string& repoID) const;
    void upsertMetadata(const ProjectMetadata& metadata);

    // Forgets everything stored about a repository: snapshot, health, commits,
    // sessions, day activity, sync state, branches and mappings.
    void purgeRepo(const std::string& repoID);

    static constexpr size_t kMaxAuditEntries = 5000;
    static constexpr int kAuditRetentionDays = 90;

    // The files in the order they are read, and in the order they are written; the
    // commit files, then the day files, are written after "repos.json".
    static const std::vector<std::string>& loadOrder();
    static const std::vector<std::string>& flushOrder();

private:
    template <class Record>
    struct Keyed {
        std::map<std::string, Record> items;
        bool dirty = false;
    };
    template <class Record>
    struct Listed {
        std::vector<Record> items;
        bool dirty = false;
    };

    // How one file is read into, and written from, its collection.
    struct Slot {
        std::function<void(std::string_view text)> decode;  // throws DecodeError
        std::function<std::string()> encode;
        std::function<void()> clear;
        bool* dirty;
        bool blocked = false;  // unreadable and still in place: never written over
    };

    template <class Record>
    Slot keyedSlot(Keyed<Record>& collection, std::function<std::string(const Record&)> key);
    template <class Record>
    Slot listedSlot(Listed<Record>& collection);

    void readFile(const std::string& name);
    bool writeFile(const std::string& name);  // logs a failure; true when written
    void trimAudit();
    // Every agent call rewrites the audit log, up to kMaxAuditEntries of it. An entry
    // never changes once appended, so its text is made once and reused while it stays.
    std::string encodeAuditLog();
    struct EncodedAuditEntry {
        AuditLogEntry entry;
        std::string text;
    };
    std::vector<EncodedAuditEntry> auditText_;  // in the order of the log

    std::filesystem::path dir_;
    const Clock& clock_;
    Access access_;
    mutable std::mutex mutex_;
    bool loaded_ = false;
    mutable std::vector<UnreadableFile> unreadable_;  // from the last load, and commit files since
    std::string lastFlushProblem_;

    Keyed<RepoSnapshot> snapshots_;
    mutable CommitFiles commits_;
    mutable DayFiles days_;
    Listed<WorkSession> sessions_;
    Keyed<DailyJournal> journals_;
    Listed<ReminderEvent> reminders_;
    Keyed<GitHubAccount> accounts_;
    Keyed<RemoteRepository> remoteRepos_;
    Keyed<RepositoryMapping> mappings_;
    Keyed<BranchRecord> branches_;
    Keyed<SyncState> syncStates_;
    Keyed<ProjectHealthSnapshot> health_;
    Keyed<PendingProposal> proposals_;
    Listed<AuditLogEntry> audit_;
    Keyed<ProjectMetadata> metadata_;

    std::map<std::string, Slot> slots_;
};

}  // namespace quorvane
