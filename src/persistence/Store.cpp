#include "persistence/Store.hpp"

#include <algorithm>
#include <memory>
#include <ranges>
#include <set>
#include <span>
#include <unordered_map>

#include <fmt/format.h>

#include "base/Log.hpp"
#include "base/PathHelpers.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/JsonArray.hpp"

namespace quorvane {

namespace {

template <class Record>
std::vector<Record> valuesOf(const std::map<std::string, Record>& items) {
    std::vector<Record> values;
    values.reserve(items.size());
    for (const auto& [key, value] : items) values.push_back(value);
    return values;
}

template <class Record, class Keep>
std::vector<Record> valuesWhere(const std::map<std::string, Record>& items, Keep keep) {
    std::vector<Record> values;
    for (const auto& [key, value] : items) {
        if (keep(value)) values.push_back(value);
    }
    return values;
}

template <class Record, class Drop>
bool eraseWhere(std::map<std::string, Record>& items, Drop drop) {
    return std::erase_if(items, [&](const auto& entry) { return drop(entry.second); }) > 0;
}

}  // namespace

const std::vector<std::string>& Store::loadOrder() {
    static const std::vector<std::string> order = {
        "repos.json",           "sessions.json",     "journals.json",  "reminders.json",
        "accounts.json",        "remote_repos.json", "mappings.json",  "branches.json",
        "sync_states.json",     "health.json",       "proposals.json", "agent_audit.json",
        "project_metadata.json"};
    return order;
}

const std::vector<std::string>& Store::flushOrder() {
    static const std::vector<std::string> order = {
        "journals.json",        "sessions.json",     "repos.json",     "reminders.json",
        "accounts.json",        "remote_repos.json", "mappings.json",  "branches.json",
        "sync_states.json",     "health.json",       "proposals.json", "agent_audit.json",
        "project_metadata.json"};
    return order;
}

// A collection's file is rewritten whole when one of its records changes, and a
// scan changes a handful of the thousands of sessions and days. Each record's text
// is kept with the record it was made from and made again only when that changed.
template <class Record>
class StoredRecordTexts {
public:
    void remember(std::string key, const Record& record) {
        texts_.insert_or_assign(std::move(key), Entry{record, JsonArray::element(record)});
    }

    template <class Range, class KeyOf>
    std::string encode(const Range& records, KeyOf keyOf) {
        std::unordered_map<std::string, Entry> next;
        next.reserve(texts_.size());
        std::string out = JsonArray::encode(records, [&](const Record& record, std::string& into) {
            std::string key = keyOf(record);
            auto it = texts_.find(key);
            Entry entry = it != texts_.end() && it->second.record == record
                              ? std::move(it->second)
                              : Entry{record, JsonArray::element(record)};
            into += entry.text;
            next.insert_or_assign(std::move(key), std::move(entry));
        });
        texts_ = std::move(next);
        return out;
    }

private:
    struct Entry {
        Record record;
        std::string text;
    };
    std::unordered_map<std::string, Entry> texts_;
};

template <class Record>
Store::Slot Store::keyedSlot(Keyed<Record>& collection,
                             std::function<std::string(const Record&)> key) {
    auto texts = std::make_shared<StoredRecordTexts<Record>>();
    return Slot{[&collection, key, texts](std::string_view text) {
                    std::map<std::string, Record> items;
                    JsonCodec::forEachArrayElement(text, [&](const Json& element, size_t index) {
                        Record record{};
                        fromJson(element, record, "[" + std::to_string(index) + "]");
                        // A later record with the same key replaces an earlier one.
                        std::string recordKey = key(record);
                        items.insert_or_assign(std::move(recordKey), std::move(record));
                    });
                    collection.items = std::move(items);
                    for (const auto& [recordKey, record] : collection.items) {
                        texts->remember(recordKey, record);
                    }
                },
                [&collection, key, texts] {
                    return texts->encode(collection.items | std::views::values, key);
                },
                [&collection] { collection.items.clear(); }, &collection.dirty, false};
}

template <class Record>
Store::Slot Store::listedSlot(Listed<Record>& collection) {
    auto texts = std::make_shared<StoredRecordTexts<Record>>();
    return Slot{[&collection, texts](std::string_view text) {
                    std::vector<Record> records;
                    JsonCodec::forEachArrayElement(text, [&](const Json& element, size_t index) {
                        Record record{};
                        fromJson(element, record, "[" + std::to_string(index) + "]");
                        records.push_back(std::move(record));
                    });
                    collection.items = std::move(records);
                    for (const Record& record : collection.items)
                        texts->remember(record.id, record);
                },
                [&collection, texts] {
                    return texts->encode(collection.items,
                                         [](const Record& record) { return record.id; });
                },
                [&collection] { collection.items.clear(); }, &collection.dirty, false};
}

Store::Store(std::filesystem::path dir, const Clock& clock, Access access)
    : dir_(std::move(dir)),
      clock_(clock),
      access_(access),
      commits_(dir_, clock, access == Access::readOnly,
               [this](const std::string& name, const std::string& problem) {
                   unreadable_.push_back({name, problem});
               }),
      days_(dir_, clock, access == Access::readOnly,
            [this](const std::string& name, const std::string& problem) {
                unreadable_.push_back({name, problem});
            }) {
    if (access_ == Access::readWrite) PathHelpers::ensurePrivateDirectory(dir_);
    slots_.emplace("repos.json", keyedSlot<RepoSnapshot>(
                                     snapshots_, [](const RepoSnapshot& s) { return s.repoID; }));
    slots_.emplace("sessions.json", listedSlot(sessions_));
    slots_.emplace("journals.json", keyedSlot<DailyJournal>(journals_, [](const DailyJournal& j) {
                       return j.dateKey;
                   }));
    slots_.emplace("reminders.json", listedSlot(reminders_));
    slots_.emplace("accounts.json", keyedSlot<GitHubAccount>(
                                        accounts_, [](const GitHubAccount& a) { return a.id; }));
    slots_.emplace(
        "remote_repos.json",
        keyedSlot<RemoteRepository>(remoteRepos_, [](const RemoteRepository& r) { return r.id; }));
    slots_.emplace(
        "mappings.json",
        keyedSlot<RepositoryMapping>(mappings_, [](const RepositoryMapping& m) { return m.id; }));
    slots_.emplace("branches.json",
                   keyedSlot<BranchRecord>(branches_, [](const BranchRecord& b) { return b.id; }));
    slots_.emplace("sync_states.json",
                   keyedSlot<SyncState>(syncStates_, [](const SyncState& s) { return s.id; }));
    slots_.emplace("health.json",
                   keyedSlot<ProjectHealthSnapshot>(
                       health_, [](const ProjectHealthSnapshot& h) { return h.repoID; }));
    slots_.emplace(
        "proposals.json",
        keyedSlot<PendingProposal>(proposals_, [](const PendingProposal& p) { return p.id; }));
    Slot audit = listedSlot(audit_);
    audit.encode = [this] { return encodeAuditLog(); };
    slots_.emplace("agent_audit.json", std::move(audit));
    slots_.emplace(
        "project_metadata.json",
        keyedSlot<ProjectMetadata>(metadata_, [](const ProjectMetadata& m) { return m.repoID; }));
}

std::string Store::flushProblem() const {
    std::lock_guard lock(mutex_);
    return lastFlushProblem_;
}

bool Store::isLoaded() const {
    std::lock_guard lock(mutex_);
    return loaded_;
}

std::vector<Store::UnreadableFile> Store::unreadableFiles() const {
    std::lock_guard lock(mutex_);
    return unreadable_;
}

void Store::load() {
    std::lock_guard lock(mutex_);
    unreadable_.clear();
    for (const std::string& name : loadOrder()) readFile(name);
    commits_.load();
    days_.load();
    trimAudit();
    loaded_ = true;
}

void Store::readFile(const std::string& name) {
    Slot& slot = slots_.at(name);
    slot.clear();
    slot.blocked = false;
    if (access_ == Access::readWrite) AtomicFile::removeStaleTemporaries(dir_ / name);
    AtomicFile::ReadResult file = AtomicFile::read(dir_ / name);
    if (file.missing) {
        // Nothing to read: the first flush creates the file.
        *slot.dirty = true;
        return;
    }
    std::string problem = file.error;
    if (file.bytes) {
        try {
            slot.decode(*file.bytes);
            *slot.dirty = false;
            return;
        } catch (const DecodeError& error) {
            problem = error.what();
        }
    }
    // A file that is there but cannot be read or decoded still holds what the user
    // recorded: it is set aside, never written over.
    slot.clear();
    *slot.dirty = true;
    unreadable_.push_back({name, problem});
    // A reader says so to the person itself.
    if (access_ == Access::readOnly) return;
    std::string why;
    if (AtomicFile::quarantine(dir_ / name, clock_.now(), &why)) {
        Log::store().error(fmt::format("{} unreadable — quarantined: {}", name, problem));
        return;
    }
    slot.blocked = true;
    Log::store().error(
        fmt::format("{} unreadable and could not be set aside ({}); it will not "
                    "be written until it is moved away: {}",
                    name, why, problem));
}

bool Store::writeFile(const std::string& name) {
    if (access_ == Access::readOnly) {
        lastFlushProblem_ = fmt::format("write {} failed: the store was opened read-only", name);
        Log::store().error(lastFlushProblem_);
        return false;
    }
    Slot& slot = slots_.at(name);
    if (slot.blocked) {
        lastFlushProblem_ = fmt::format(
            "{} was not written: it could not be read at load and could not be set aside", name);
        return false;
    }
    if (auto error = AtomicFile::write(dir_ / name, slot.encode())) {
        lastFlushProblem_ = fmt::format("write {} failed: {}", name, *error);
        Log::store().error(lastFlushProblem_);
        *slot.dirty = true;
        return false;
    }
    *slot.dirty = false;
    return true;
}

bool Store::flush() {
    std::lock_guard lock(mutex_);
    if (!loaded_) {
        lastFlushProblem_ =
            "flush() before load() — refusing to overwrite existing data with empty collections";
        Log::store().error(lastFlushProblem_);
        return false;
    }
    bool allWritten = true;
    lastFlushProblem_.clear();
    for (const std::string& name : flushOrder()) {
        if (*slots_.at(name).dirty && !writeFile(name)) allWritten = false;
        if (name == "repos.json") {
            if (!commits_.flush(lastFlushProblem_)) allWritten = false;
            if (!days_.flush(lastFlushProblem_)) allWritten = false;
        }
    }
    return allWritten;
}

void Store::trimAudit() {
    Date cutoff = clock_.now() - kDay * kAuditRetentionDays;
    bool changed =
        std::erase_if(audit_.items, [&](const AuditLogEntry& e) { return e.at < cutoff; }) > 0;
    if (audit_.items.size() > kMaxAuditEntries) {
        audit_.items.erase(audit_.items.begin(),
                           audit_.items.end() - static_cast<std::ptrdiff_t>(kMaxAuditEntries));
        changed = true;
    }
    if (changed) audit_.dirty = true;
}

// Snapshots

std::optional<RepoSnapshot> Store::snapshot(const std::string& repoID) const {
    std::lock_guard lock(mutex_);
    auto it = snapshots_.items.find(repoID);
    if (it == snapshots_.items.end()) return std::nullopt;
    return it->second;
}

std::vector<RepoSnapshot> Store::snapshots() const {
    std::lock_guard lock(mutex_);
    return valuesOf(snapshots_.items);
}

void Store::replaceSnapshot(const RepoSnapshot& snapshot) {
    std::lock_guard lock(mutex_);
    auto [at, added] = snapshots_.items.try_emplace(snapshot.repoID, snapshot);
    if (!added) {
        if (at->second == snapshot) return;
        at->second = snapshot;
    }
    snapshots_.dirty = true;
}

// Commits

std::vector<CommitRecord> Store::commits(const std::optional<std::string>& repoID,
                                         std::optional<size_t> limit) const {
    std::lock_guard lock(mutex_);
    std::vector<CommitRecord> result = commits_.newestFirst(repoID, limit);
    commits_.trim();
    return result;
}

std::vector<CommitRecord> Store::commitsBetween(Date from, Date to) const {
    std::lock_guard lock(mutex_);
    std::vector<CommitRecord> result = commits_.between(from, to);
    commits_.trim();
    return result;
}

void Store::upsertCommits(const std::vector<CommitRecord>& commits) {
    std::lock_guard lock(mutex_);
    commits_.upsert(commits);
}

// Sessions

std::vector<WorkSession> Store::sessions(const std::optional<std::string>& repoID,
                                         std::optional<Date> since) const {
    std::lock_guard lock(mutex_);
    std::vector<WorkSession> result;
    for (const WorkSession& session : sessions_.items) {
        if (repoID && session.repoID != *repoID) continue;
        if (since && session.startedAt < *since) continue;
        result.push_back(session);
    }
    std::stable_sort(result.begin(), result.end(), [](const WorkSession& a, const WorkSession& b) {
        return a.startedAt > b.startedAt;
    });
    return result;
}

std::optional<WorkSession> Store::openSession(const std::string& repoID) const {
    std::lock_guard lock(mutex_);
    for (const WorkSession& session : sessions_.items) {
        if (session.repoID == repoID && session.isOpen) return session;
    }
    return std::nullopt;
}

void Store::upsertSessions(const std::vector<WorkSession>& sessions) {
    std::lock_guard lock(mutex_);
    for (const WorkSession& session : sessions) {
        auto it = std::find_if(sessions_.items.begin(), sessions_.items.end(),
                               [&](const WorkSession& s) { return s.id == session.id; });
        if (it != sessions_.items.end()) {
            if (*it == session) continue;
            *it = session;
        } else {
            sessions_.items.push_back(session);
        }
        sessions_.dirty = true;
    }
}

// Day activity

std::vector<DayActivity> Store::dayActivities(const std::string& dateKey) const {
    return dayActivities(dateKey, dateKey);
}

std::vector<DayActivity> Store::dayActivities(const std::string& fromKey,
                                              const std::string& toKey) const {
    std::lock_guard lock(mutex_);
    std::vector<DayActivity> result = days_.between(fromKey, toKey);
    days_.trim();
    return result;
}

void Store::setDayActivity(const DayActivity& activity) {
    std::lock_guard lock(mutex_);
    // A scan sets every repository's day again, mostly to what it already was: the
    // files change only where it did not.
    days_.upsert(std::span<const DayActivity>(&activity, 1));
}

// Journal

std::optional<DailyJournal> Store::journal(const std::string& dateKey) const {
    std::lock_guard lock(mutex_);
    auto it = journals_.items.find(dateKey);
    if (it == journals_.items.end()) return std::nullopt;
    return it->second;
}

std::vector<DailyJournal> Store::journals() const {
    std::lock_guard lock(mutex_);
    std::vector<DailyJournal> entries;
    entries.reserve(journals_.items.size());
    for (const auto& [dateKey, entry] : journals_.items) entries.push_back(entry);
    return entries;
}

void Store::upsertJournal(const DailyJournal& entry) {
    std::lock_guard lock(mutex_);
    journals_.items.insert_or_assign(entry.dateKey, entry);
    journals_.dirty = true;
}

// Reminders

std::vector<ReminderEvent> Store::reminders(bool unresolvedOnly) const {
    std::lock_guard lock(mutex_);
    std::vector<ReminderEvent> result;
    for (const ReminderEvent& event : reminders_.items) {
        if (!unresolvedOnly || !event.resolvedAt) result.push_back(event);
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const ReminderEvent& a, const ReminderEvent& b) {
                         return a.triggeredAt > b.triggeredAt;
                     });
    return result;
}

void Store::upsertReminders(const std::vector<ReminderEvent>& events) {
    std::lock_guard lock(mutex_);
    for (const ReminderEvent& event : events) {
        auto it = std::find_if(reminders_.items.begin(), reminders_.items.end(),
                               [&](const ReminderEvent& e) { return e.id == event.id; });
        if (it != reminders_.items.end()) {
            *it = event;
        } else {
            reminders_.items.push_back(event);
        }
    }
    if (!events.empty()) reminders_.dirty = true;
}

void Store::resolveReminders(const std::vector<std::string>& ids) {
    std::lock_guard lock(mutex_);
    Date now = clock_.now();
    for (ReminderEvent& event : reminders_.items) {
        if (std::find(ids.begin(), ids.end(), event.id) == ids.end()) continue;
        event.resolvedAt = now;
        reminders_.dirty = true;
    }
}

std::optional<ReminderEvent> Store::changeOpenReminder(
    const std::string& id, const std::function<bool(ReminderEvent&)>& change) {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(reminders_.items.begin(), reminders_.items.end(),
                           [&](const ReminderEvent& e) { return e.id == id && !e.resolvedAt; });
    if (it == reminders_.items.end() || !change(*it)) return std::nullopt;
    reminders_.dirty = true;
    return *it;
}

void Store::pruneResolvedReminders(int olderThanDays) {
    std::lock_guard lock(mutex_);
    Date cutoff = clock_.now() - kDay * olderThanDays;
    if (std::erase_if(reminders_.items, [&](const ReminderEvent& e) {
            return e.resolvedAt && *e.resolvedAt < cutoff;
        }) > 0) {
        reminders_.dirty = true;
    }
}

// Accounts and what was read through them

std::vector<GitHubAccount> Store::accounts() const {
    std::lock_guard lock(mutex_);
    std::vector<GitHubAccount> result = valuesOf(accounts_.items);
    std::stable_sort(result.begin(), result.end(),
                     [](const GitHubAccount& a, const GitHubAccount& b) {
                         return std::tie(a.displayName, a.id) < std::tie(b.displayName, b.id);
                     });
    return result;
}

void Store::upsertAccount(const GitHubAccount& account) {
    std::lock_guard lock(mutex_);
    accounts_.items.insert_or_assign(account.id, account);
    accounts_.dirty = true;
}

void Store::removeAccount(const std::string& accountID) {
    std::lock_guard lock(mutex_);
    if (accounts_.items.erase(accountID) > 0) accounts_.dirty = true;
    std::set<std::string> gone;
    for (const auto& [id, repo] : remoteRepos_.items) {
        if (repo.accountID == accountID) gone.insert(id);
    }
    if (eraseWhere(remoteRepos_.items,
                   [&](const RemoteRepository& r) { return r.accountID == accountID; })) {
        remoteRepos_.dirty = true;
    }
    // A link or a branch row that points at a repository only this account saw would
    // point at nothing; the next sync computes the links of what is left.
    if (eraseWhere(mappings_.items, [&](const RepositoryMapping& m) {
            return m.accountID == accountID || (m.remoteRepoID && gone.contains(*m.remoteRepoID));
        })) {
        mappings_.dirty = true;
    }
    if (eraseWhere(branches_.items,
                   [&](const BranchRecord& b) { return gone.contains(b.repoID); })) {
        branches_.dirty = true;
    }
}

std::vector<RemoteRepository> Store::remoteRepos(
    const std::optional<std::string>& accountID) const {
    std::lock_guard lock(mutex_);
    return valuesWhere(remoteRepos_.items, [&](const RemoteRepository& r) {
        return !accountID || r.accountID == *accountID;
    });
}

void Store::replaceRemoteRepos(const std::string& accountID,
                               const std::vector<RemoteRepository>& repos) {
    std::lock_guard lock(mutex_);
    eraseWhere(remoteRepos_.items,
               [&](const RemoteRepository& r) { return r.accountID == accountID; });
    for (const RemoteRepository& repo : repos) remoteRepos_.items.insert_or_assign(repo.id, repo);
    remoteRepos_.dirty = true;
}

std::vector<RepositoryMapping> Store::mappings() const {
    std::lock_guard lock(mutex_);
    return valuesOf(mappings_.items);
}

void Store::upsertMappings(const std::vector<RepositoryMapping>& mappings) {
    std::lock_guard lock(mutex_);
    for (const RepositoryMapping& mapping : mappings)
        mappings_.items.insert_or_assign(mapping.id, mapping);
    if (!mappings.empty()) mappings_.dirty = true;
}

void Store::replaceMappings(const std::vector<RepositoryMapping>& mappings) {
    std::lock_guard lock(mutex_);
    mappings_.items.clear();
    for (const RepositoryMapping& mapping : mappings)
        mappings_.items.insert_or_assign(mapping.id, mapping);
    mappings_.dirty = true;
}

std::vector<BranchRecord> Store::branches(const std::optional<std::string>& repoID) const {
    std::lock_guard lock(mutex_);
    return valuesWhere(branches_.items,
                       [&](const BranchRecord& b) { return !repoID || b.repoID == *repoID; });
}

void Store::replaceBranches(const std::string& repoID, const std::vector<BranchRecord>& branches) {
    std::lock_guard lock(mutex_);
    eraseWhere(branches_.items, [&](const BranchRecord& b) { return b.repoID == repoID; });
    for (const BranchRecord& branch : branches) branches_.items.insert_or_assign(branch.id, branch);
    branches_.dirty = true;
}

std::vector<SyncState> Store::syncStates() const {
    std::lock_guard lock(mutex_);
    return valuesOf(syncStates_.items);
}

std::optional<SyncState> Store::syncState(const std::string& repoID) const {
    std::lock_guard lock(mutex_);
    auto it = syncStates_.items.find(repoID);
    if (it == syncStates_.items.end()) return std::nullopt;
    return it->second;
}

void Store::replaceSyncStates(const std::vector<SyncState>& states) {
    std::lock_guard lock(mutex_);
    syncStates_.items.clear();
    for (const SyncState& state : states) syncStates_.items.insert_or_assign(state.id, state);
    syncStates_.dirty = true;
}

void Store::upsertSyncStates(const std::vector<SyncState>& states) {
    std::lock_guard lock(mutex_);
    for (const SyncState& state : states) syncStates_.items.insert_or_assign(state.id, state);
    if (!states.empty()) syncStates_.dirty = true;
}

std::vector<ProjectHealthSnapshot> Store::health(const std::optional<std::string>& repoID) const {
    std::lock_guard lock(mutex_);
    return valuesWhere(health_.items, [&](const ProjectHealthSnapshot& h) {
        return !repoID || h.repoID == *repoID;
    });
}

void Store::upsertHealth(const std::vector<ProjectHealthSnapshot>& records) {
    std::lock_guard lock(mutex_);
    for (const ProjectHealthSnapshot& record : records)
        health_.items.insert_or_assign(record.repoID, record);
    if (!records.empty()) health_.dirty = true;
}

// Proposals and the audit log

std::vector<PendingProposal> Store::proposals(std::optional<PendingProposal::Status> status) const {
    std::lock_guard lock(mutex_);
    std::vector<PendingProposal> result = valuesWhere(
        proposals_.items, [&](const PendingProposal& p) { return !status || p.status == *status; });
    std::stable_sort(result.begin(), result.end(),
                     [](const PendingProposal& a, const PendingProposal& b) {
                         return a.createdAt > b.createdAt;
                     });
    return result;
}

std::optional<PendingProposal> Store::proposal(const std::string& id) const {
    std::lock_guard lock(mutex_);
    auto it = proposals_.items.find(id);
    if (it == proposals_.items.end()) return std::nullopt;
    return it->second;
}

void Store::upsertProposal(const PendingProposal& proposal) {
    std::lock_guard lock(mutex_);
    proposals_.items.insert_or_assign(proposal.id, proposal);
    proposals_.dirty = true;
    writeFile("proposals.json");
}

std::optional<PendingProposal> Store::updateProposal(
    const std::string& id, const std::function<bool(PendingProposal&)>& change) {
    std::lock_guard lock(mutex_);
    auto it = proposals_.items.find(id);
    if (it == proposals_.items.end()) return std::nullopt;
    if (change(it->second)) {
        proposals_.dirty = true;
        writeFile("proposals.json");
    }
    return it->second;
}

Store::ConsumeResult Store::consumeApprovedProposal(const std::string& token) {
    std::lock_guard lock(mutex_);
    auto it =
        std::find_if(proposals_.items.begin(), proposals_.items.end(), [&](const auto& entry) {
            return entry.second.confirmationToken && *entry.second.confirmationToken == token;
        });
    if (it == proposals_.items.end()) return {ConsumeResult::Kind::notFound, std::nullopt, ""};
    PendingProposal& proposal = it->second;
    if (proposal.status != PendingProposal::Status::approved) {
        return {ConsumeResult::Kind::notApproved, std::nullopt,
                std::string(enumName(proposal.status))};
    }
    // A proposal without an expiry is deliberately unusable.
    if (!proposal.expiresAt || *proposal.expiresAt < clock_.now()) {
        return {ConsumeResult::Kind::expired, std::nullopt, ""};
    }
    proposal.status = PendingProposal::Status::applied;
    proposals_.dirty = true;
    writeFile("proposals.json");
    return {ConsumeResult::Kind::ok, proposal, ""};
}

void Store::rejectProposal(const std::string& id) {
    std::lock_guard lock(mutex_);
    auto it = proposals_.items.find(id);
    if (it == proposals_.items.end()) return;
    it->second.status = PendingProposal::Status::rejected;
    proposals_.dirty = true;
    writeFile("proposals.json");
}

void Store::markProposalApplied(const std::string& id) {
    std::lock_guard lock(mutex_);
    auto it = proposals_.items.find(id);
    if (it == proposals_.items.end()) return;
    it->second.status = PendingProposal::Status::applied;
    proposals_.dirty = true;
    writeFile("proposals.json");
}

std::vector<AuditLogEntry> Store::auditEntries(std::optional<size_t> limit) const {
    std::lock_guard lock(mutex_);
    // Appended in time order: reversed, entries of the same second read newest first.
    std::vector<AuditLogEntry> result(audit_.items.rbegin(), audit_.items.rend());
    std::stable_sort(result.begin(), result.end(),
                     [](const AuditLogEntry& a, const AuditLogEntry& b) { return a.at > b.at; });
    if (limit && result.size() > *limit) result.resize(*limit);
    return result;
}

void Store::appendAudit(const AuditLogEntry& entry) {
    std::lock_guard lock(mutex_);
    audit_.items.push_back(entry);
    if (audit_.items.size() > kMaxAuditEntries) {
        audit_.items.erase(audit_.items.begin(),
                           audit_.items.end() - static_cast<std::ptrdiff_t>(kMaxAuditEntries));
    }
    audit_.dirty = true;
    writeFile("agent_audit.json");
}

std::string Store::encodeAuditLog() {
    // The log only loses entries (the oldest, or those pruned) and gains new ones at
    // its end, so the texts kept from the last write are met in the same order.
    std::vector<EncodedAuditEntry> kept;
    kept.reserve(audit_.items.size());
    size_t next = 0;
    std::string out =
        JsonArray::encode(audit_.items, [&](const AuditLogEntry& entry, std::string& into) {
            size_t at = next;
            while (at < auditText_.size() && auditText_[at].entry != entry) ++at;
            if (at < auditText_.size()) {
                next = at + 1;
                kept.push_back(std::move(auditText_[at]));
            } else {
                kept.push_back({entry, JsonArray::element(entry)});
            }
            into += kept.back().text;
        });
    auditText_ = std::move(kept);
    return out;
}

void Store::pruneAudit(int olderThanDays) {
    std::lock_guard lock(mutex_);
    Date cutoff = clock_.now() - kDay * olderThanDays;
    if (std::erase_if(audit_.items, [&](const AuditLogEntry& e) { return e.at < cutoff; }) > 0) {
        audit_.dirty = true;
    }
}

std::optional<ProjectMetadata> Store::metadata(const std::string& repoID) const {
    std::lock_guard lock(mutex_);
    auto it = metadata_.items.find(repoID);
    if (it == metadata_.items.end()) return std::nullopt;
    return it->second;
}

void Store::upsertMetadata(const ProjectMetadata& metadata) {
    std::lock_guard lock(mutex_);
    metadata_.items.insert_or_assign(metadata.repoID, metadata);
    metadata_.dirty = true;
}

void Store::purgeRepo(const std::string& repoID) {
    std::lock_guard lock(mutex_);
    if (snapshots_.items.erase(repoID) > 0) snapshots_.dirty = true;
    if (health_.items.erase(repoID) > 0) health_.dirty = true;
    if (syncStates_.items.erase(repoID) > 0) syncStates_.dirty = true;
    commits_.purge(repoID);
    if (std::erase_if(sessions_.items, [&](const WorkSession& s) { return s.repoID == repoID; }) >
        0) {
        sessions_.dirty = true;
    }
    days_.purge(repoID);
    if (eraseWhere(branches_.items, [&](const BranchRecord& b) { return b.repoID == repoID; })) {
        branches_.dirty = true;
    }
    if (eraseWhere(mappings_.items, [&](const RepositoryMapping& m) {
            return m.id == repoID || m.localRepoID == repoID;
        })) {
        mappings_.dirty = true;
    }
}

}  // namespace quorvane
