#include "persistence/Store.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/FakeClock.hpp"
#include "testing/LogCapture.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAreArray;
using namespace std::chrono_literals;

const Date kNow = *DateHelpers::parseISO("2026-11-21T12:00:00Z");
// Where the commits of "/r" in November go; the name must never change between
// releases, or a repository's history would be split over two files.
const std::string kCommitFile = "commits/2026-11/r-07d65407b49cb8e4.json";
const std::string kDayFile = "day_activity/2026-11/r-07d65407b49cb8e4.json";

ino_t inode(const std::filesystem::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

CommitRecord commit(const std::string& repo, const std::string& sha, Date at) {
    CommitRecord c;
    c.repoID = repo;
    c.sha = sha;
    c.shortSha = sha.substr(0, 3);
    c.message = "subject " + sha;
    c.authorName = "A";
    c.authorEmail = "a@example.invalid";
    c.committedAt = at;
    return c;
}

AuditLogEntry audit(const std::string& id, Date at) {
    AuditLogEntry entry;
    entry.id = id;
    entry.at = at;
    entry.actor = "claude";
    entry.tool = "list_repositories";
    entry.status = "ok";
    return entry;
}

PendingProposal proposal(const std::string& id, PendingProposal::Status status,
                         std::optional<std::string> token, std::optional<Date> expiresAt) {
    PendingProposal p;
    p.id = id;
    p.title = "Track ~/code";
    p.payloadJSON = "{}";
    p.status = status;
    p.confirmationToken = std::move(token);
    p.createdAt = kNow - 1h;
    p.expiresAt = expiresAt;
    return p;
}

// One record in every collection, so a round trip exercises all fifteen files.
void fillEverything(Store& store) {
    RepoSnapshot snapshot;
    snapshot.id = "S1";
    snapshot.repoID = "/r";
    snapshot.capturedAt = kNow;
    snapshot.branch = "main";
    store.replaceSnapshot(snapshot);
    store.upsertCommits({commit("/r", "abc1", kNow - 2h)});
    WorkSession session;
    session.id = "W1";
    session.repoID = "/r";
    session.startedAt = kNow - 1h;
    session.endedAt = kNow;
    session.isOpen = true;
    store.upsertSessions({session});
    DayActivity day;
    day.repoID = "/r";
    day.dateKey = "2026-11-21";
    day.commitCount = 1;
    store.setDayActivity(day);
    DailyJournal journal;
    journal.dateKey = "2026-11-21";
    journal.manualNotes = "notes";
    store.upsertJournal(journal);
    ReminderEvent reminder;
    reminder.id = "R1";
    reminder.repoID = "/r";
    reminder.message = "push";
    reminder.triggeredAt = kNow;
    store.upsertReminders({reminder});
    GitHubAccount account;
    account.id = "acc";
    account.displayName = "Work";
    account.username = "me";
    store.upsertAccount(account);
    RemoteRepository remote;
    remote.id = "acc:me/r";
    remote.accountID = "acc";
    remote.owner = "me";
    remote.name = "r";
    store.replaceRemoteRepos("acc", {remote});
    RepositoryMapping mapping;
    mapping.id = "/r";
    mapping.localRepoID = "/r";
    store.upsertMappings({mapping});
    BranchRecord branch;
    branch.id = "/r#main#L";
    branch.repoID = "/r";
    branch.name = "main";
    store.replaceBranches("/r", {branch});
    SyncState state;
    state.id = "/r";
    store.replaceSyncStates({state});
    ProjectHealthSnapshot health;
    health.id = health.repoID = "/r";
    store.upsertHealth({health});
    store.upsertProposal(
        proposal("P1", PendingProposal::Status::pending, std::nullopt, std::nullopt));
    store.appendAudit(audit("A1", kNow));
    ProjectMetadata metadata;
    metadata.repoID = "/r";
    metadata.projectType = "cmake";
    store.upsertMetadata(metadata);
}

class StoreTest : public ::testing::Test {
protected:
    Store& fresh() {
        stores_.push_back(std::make_unique<Store>(dir_.path(), clock_));
        return *stores_.back();
    }
    Store& loaded() {
        Store& store = fresh();
        store.load();
        return store;
    }

    testing::TempDir dir_;
    testing::FakeClock clock_{kNow};
    std::vector<std::unique_ptr<Store>> stores_;
};

TEST_F(StoreTest, EveryCollectionSurvivesAFlushAndALoad) {
    Store& first = loaded();
    fillEverything(first);
    first.flush();
    std::vector<std::string> names = Store::loadOrder();
    names.push_back(kCommitFile);
    for (const std::string& name : names) {
        EXPECT_TRUE(std::filesystem::exists(dir_ / name)) << name;
        struct stat info {};
        ::stat((dir_ / name).c_str(), &info);
        EXPECT_EQ(info.st_mode & 0777, 0600u) << name;
    }
    struct stat month {};
    ::stat((dir_ / "commits" / "2026-11").c_str(), &month);
    EXPECT_EQ(month.st_mode & 0777, 0700u);

    auto everything = [](Store& store) {
        return std::tuple(store.snapshots(), store.commits(std::nullopt),
                          store.sessions(std::nullopt, std::nullopt),
                          store.dayActivities("2026-11-21"), store.journal("2026-11-21"),
                          store.reminders(false), store.accounts(), store.remoteRepos(std::nullopt),
                          store.mappings(), store.branches(std::nullopt), store.syncStates(),
                          store.health(std::nullopt), store.proposals(std::nullopt),
                          store.auditEntries(), store.metadata("/r"));
    };
    EXPECT_EQ(everything(loaded()), everything(first));
    EXPECT_EQ(first.commits(std::nullopt).size(), 1u);

    // A record changed after a load is written as it now stands, not as it was read.
    Store& second = loaded();
    WorkSession session = second.sessions("/r", std::nullopt).front();
    session.estimatedSeconds = 4321;
    second.upsertSessions({session});
    DayActivity day = second.dayActivities("2026-11-21").front();
    day.commitCount = 7;
    second.setDayActivity(day);
    ASSERT_TRUE(second.flush());
    EXPECT_EQ(everything(loaded()), everything(second));
    EXPECT_EQ(loaded().sessions("/r", std::nullopt).front().estimatedSeconds, 4321);
}

TEST_F(StoreTest, AFlushBeforeLoadIsRefusedAndTouchesNothing) {
    Store& writer = loaded();
    fillEverything(writer);
    writer.flush();
    std::string before = testing::readFile(dir_ / kCommitFile);

    testing::LogCapture log;
    Store& early = fresh();
    EXPECT_TRUE(early.snapshots().empty());
    early.upsertCommits({commit("/r", "abc2", kNow)});
    early.flush();
    EXPECT_EQ(testing::readFile(dir_ / kCommitFile), before);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].category, "store");
    EXPECT_EQ(log.lines()[0].message,
              "flush() before load() — refusing to overwrite existing data with empty collections");
}

TEST_F(StoreTest, ATruncatedCommitFileIsQuarantinedWhenItsMonthIsRead) {
    Store& writer = loaded();
    fillEverything(writer);
    writer.flush();
    std::string text = testing::readFile(dir_ / kCommitFile);
    std::string half = text.substr(0, text.size() / 2);
    testing::writeFile(dir_ / kCommitFile, half);
    const std::filesystem::path quarantined = dir_ / (kCommitFile + ".corrupt-1795262400");

    testing::LogCapture log;
    // A reader beside the writer reports the file but never moves it.
    Store reader(dir_.path(), clock_, Store::Access::readOnly);
    reader.load();
    EXPECT_TRUE(reader.commits(std::nullopt).empty());
    ASSERT_EQ(reader.unreadableFiles().size(), 1u);
    EXPECT_EQ(reader.unreadableFiles()[0].name, kCommitFile);
    EXPECT_EQ(testing::readFile(dir_ / kCommitFile), half);
    EXPECT_FALSE(std::filesystem::exists(quarantined));

    Store& store = loaded();
    EXPECT_TRUE(store.commitsBetween(kNow - 24h, kNow).empty());
    EXPECT_EQ(testing::readFile(quarantined), half);
    EXPECT_EQ(store.unreadableFiles().size(), 1u);
    EXPECT_EQ(store.snapshots().size(), 1u);
    EXPECT_EQ(store.sessions(std::nullopt, std::nullopt).size(), 1u);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_THAT(log.lines().back().message, HasSubstr(kCommitFile + " unreadable — quarantined: "));

    // A new commit of that month makes a new file; the damaged one is kept.
    store.upsertCommits({commit("/r", "abc2", kNow)});
    ASSERT_TRUE(store.flush());
    EXPECT_EQ(loaded().commits("/r").size(), 1u);
    EXPECT_EQ(testing::readFile(quarantined), half);
}

TEST_F(StoreTest, FilesThatExistButCannotBeReadAreSetAsideNeverReplaced) {
    Store& writer = loaded();
    fillEverything(writer);
    writer.flush();
    const std::string reminders = testing::readFile(dir_ / "reminders.json");
    // A folder, a FIFO (whose open must not wait for a writer) and a number beyond
    // any double each stand where a data file should be.
    std::filesystem::remove(dir_ / "journals.json");
    testing::writeFile(dir_ / "journals.json" / "inside", "kept");
    std::filesystem::remove(dir_ / "sessions.json");
    ASSERT_EQ(::mkfifo((dir_ / "sessions.json").c_str(), 0600), 0);
    const std::string huge = R"([{"repoID": "/r", "dateKey": "2026-11-21", "commitCount": 1e400}])";
    testing::writeFile(dir_ / "day_activity.json", huge);

    testing::LogCapture log;
    Store& store = loaded();
    const std::string suffix = ".corrupt-1795262400";
    EXPECT_EQ(testing::readFile(dir_ / ("journals.json" + suffix) / "inside"), "kept");
    EXPECT_TRUE(std::filesystem::is_fifo(dir_ / ("sessions.json" + suffix)));
    EXPECT_EQ(testing::readFile(dir_ / ("day_activity.json" + suffix)), huge);
    std::vector<std::string> messages;
    for (const auto& line : log.lines()) messages.push_back(line.message);
    EXPECT_THAT(messages, ::testing::IsSupersetOf({
                              HasSubstr("journals.json unreadable — quarantined: "),
                              HasSubstr("sessions.json unreadable — quarantined: "),
                              HasSubstr("day_activity.json unreadable — quarantined: "),
                          }));
    EXPECT_EQ(store.reminders(false).size(), 1u);  // the others still load

    ASSERT_TRUE(store.flush());
    EXPECT_EQ(testing::readFile(dir_ / "journals.json"), "[]\n");
    EXPECT_EQ(testing::readFile(dir_ / "reminders.json"), reminders);

    // Permission bits do not stop root, so only another user sees this one.
    if (::geteuid() != 0) {
        ::chmod((dir_ / "reminders.json").c_str(), 0);
        Store& again = loaded();
        EXPECT_EQ(testing::readFile(dir_ / ("reminders.json" + suffix)), reminders);
        ASSERT_TRUE(again.flush());
        EXPECT_EQ(testing::readFile(dir_ / "reminders.json"), "[]\n");
    }
}

TEST_F(StoreTest, AFileThatCouldNotBeSetAsideIsNeverWritten) {
    testing::writeFile(dir_ / kCommitFile, "[{");
    // Every name a quarantine could take this second is taken already.
    testing::writeFile(dir_ / (kCommitFile + ".corrupt-1795262400"), "");
    for (int n = 1; n < 1000; ++n) {
        testing::writeFile(dir_ / (kCommitFile + ".corrupt-1795262400-" + std::to_string(n)), "");
    }
    testing::LogCapture log;
    Store& store = loaded();
    store.upsertCommits({commit("/r", "abc1", kNow)});
    ASSERT_FALSE(log.lines().empty());
    EXPECT_THAT(log.lines().back().message,
                HasSubstr(kCommitFile + " unreadable and could not be set aside"));
    EXPECT_FALSE(store.flush());
    EXPECT_THAT(store.flushProblem(), HasSubstr(kCommitFile + " was not written"));
    EXPECT_EQ(testing::readFile(dir_ / kCommitFile), "[{");
    EXPECT_TRUE(std::filesystem::exists(dir_ / "sessions.json"));  // the rest is written
}

TEST_F(StoreTest, FlushWritesOnlyWhatChangedAndRetriesAFailedWrite) {
    Store& store = loaded();
    fillEverything(store);
    store.flush();
    const std::string october = "commits/2026-10/r-07d65407b49cb8e4.json";
    store.upsertCommits({commit("/r", "old", kNow - 40 * 24h)});
    store.flush();
    std::vector<std::string> names = Store::flushOrder();
    names.insert(names.end(), {kCommitFile, october, kDayFile});
    std::map<std::string, ino_t> before;
    for (const std::string& name : names) before[name] = inode(dir_ / name);

    // A scan hands back what the store already holds: no file is written again.
    store.upsertCommits(store.commits(std::nullopt));
    store.upsertSessions(store.sessions(std::nullopt, std::nullopt));
    for (const DayActivity& day : store.dayActivities("0000-00-00", "9999-99-99")) {
        store.setDayActivity(day);
    }
    for (const RepoSnapshot& snapshot : store.snapshots()) store.replaceSnapshot(snapshot);
    store.flush();
    for (const std::string& name : names) {
        EXPECT_EQ(inode(dir_ / name), before[name]) << name << " was rewritten unchanged";
    }

    // A new commit rewrites its repository's month, and nothing of another month.
    store.upsertCommits({commit("/r", "abc2", kNow)});
    store.flush();
    for (const std::string& name : names) {
        if (name == kCommitFile) {
            EXPECT_NE(inode(dir_ / name), before[name]);
        } else {
            EXPECT_EQ(inode(dir_ / name), before[name]) << name << " was rewritten";
        }
    }

    // A folder in the file's place makes the rename fail; the next flush tries again.
    store.upsertCommits({commit("/r", "abc3", kNow)});
    std::filesystem::remove(dir_ / kCommitFile);
    std::filesystem::create_directories(dir_ / kCommitFile / "blocker");
    testing::LogCapture log;
    store.flush();
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines()[0].message, HasSubstr("write " + kCommitFile + " failed: "));
    std::filesystem::remove_all(dir_ / kCommitFile);
    store.flush();
    EXPECT_EQ(loaded().commits(std::nullopt).size(), 4u);

    // Forgetting the repository leaves no file of it behind.
    store.purgeRepo("/r");
    ASSERT_TRUE(store.flush());
    EXPECT_FALSE(std::filesystem::exists(dir_ / kCommitFile));
    EXPECT_FALSE(std::filesystem::exists(dir_ / october));
    EXPECT_TRUE(loaded().commits(std::nullopt).empty());
}

// The single file an earlier release kept every commit in, as it wrote it.
template <class Record>
void writeSingleFile(const std::filesystem::path& path, const std::vector<Record>& all) {
    Json records = Json::array();
    for (const Record& record : all) records.push_back(toJson(record));
    testing::writeFile(path, records.dump(2) + "\n");
}

TEST_F(StoreTest, ASingleCommitsFileIsSplitByTheWriterAndNothingIsLost) {
    std::vector<CommitRecord> history = {commit("/r", "a1", kNow - 2h),
                                         commit("/r", "a0", kNow - 40 * 24h),
                                         commit("/home/me/My Project!", "b1", kNow - 1h),
                                         commit("/home/me/My Project!", "b0", kNow - 400 * 24h)};
    writeSingleFile(dir_ / "commits.json", history);
    const std::string single = testing::readFile(dir_ / "commits.json");

    // A reader takes it as it is and writes nothing.
    Store reader(dir_.path(), clock_, Store::Access::readOnly);
    reader.load();
    EXPECT_THAT(reader.commits(std::nullopt), UnorderedElementsAreArray(history));
    EXPECT_EQ(reader.commitsBetween(kNow - 3h, kNow).size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "commits"));

    // A split that stopped half-way: November's file of "/r" was written and changed
    // since, and October's folder cannot be made. The single file stays.
    history[0].message = "amended";
    writeSingleFile(dir_ / kCommitFile, std::vector{history[0]});
    testing::writeFile(dir_ / "commits" / "2026-10", "in the way");
    {
        testing::LogCapture log;
        Store& halfWay = loaded();
        EXPECT_THAT(halfWay.commits(std::nullopt), UnorderedElementsAreArray(history));
        ASSERT_FALSE(log.lines().empty());
        EXPECT_THAT(log.lines().back().message, HasSubstr("commits.json kept until"));
        EXPECT_EQ(testing::readFile(dir_ / "commits.json"), single);
    }
    std::filesystem::remove(dir_ / "commits" / "2026-10");
    loaded();
    EXPECT_FALSE(std::filesystem::exists(dir_ / "commits.json"));
    EXPECT_TRUE(
        std::filesystem::exists(dir_ / "commits/2025-10/My_Project_-3238669995f2b111.json"));
    EXPECT_THAT(loaded().commits(std::nullopt), UnorderedElementsAreArray(history));

    // A damaged single file is set aside whole, never split.
    const std::string half = single.substr(0, single.size() / 2);
    testing::writeFile(dir_ / "commits.json", half);
    Store& again = loaded();
    EXPECT_EQ(testing::readFile(dir_ / "commits.json.corrupt-1795262400"), half);
    ASSERT_EQ(again.unreadableFiles().size(), 1u);
    EXPECT_EQ(again.unreadableFiles()[0].name, "commits.json");
    EXPECT_THAT(again.commits(std::nullopt), UnorderedElementsAreArray(history));
}

TEST_F(StoreTest, TheSingleDayFileIsSplitByMonthAndRepository) {
    std::vector<DayActivity> days(3);
    days[0].repoID = days[1].repoID = "/r";
    days[2].repoID = "/a";
    days[0].dateKey = days[2].dateKey = "2026-11-20";
    days[1].dateKey = "2026-10-02";
    for (DayActivity& day : days) day.commitCount = 2;
    writeSingleFile(dir_ / "day_activity.json", days);

    Store reader(dir_.path(), clock_, Store::Access::readOnly);
    reader.load();
    EXPECT_EQ(reader.dayActivities("2026-11-20").size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "day_activity"));

    Store& writer = loaded();
    EXPECT_FALSE(std::filesystem::exists(dir_ / "day_activity.json"));
    EXPECT_TRUE(std::filesystem::exists(dir_ / "day_activity/2026-10/r-07d65407b49cb8e4.json"));
    EXPECT_TRUE(std::filesystem::exists(dir_ / kDayFile));
    // By repository, then day, whichever months they came from.
    std::vector<DayActivity> all = writer.dayActivities("0000-00-00", "9999-99-99");
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0], days[2]);
    EXPECT_EQ(all[1], days[1]);
    EXPECT_EQ(all[2], days[0]);
    EXPECT_EQ(loaded().dayActivities("2026-10-01", "2026-10-31"), std::vector{days[1]});
}

TEST_F(StoreTest, AQuestionReadsOnlyTheMonthsItCovers) {
    Store& writer = loaded();
    writer.upsertCommits({commit("/r", "new", kNow - 1h), commit("/r", "mid", kNow - 40 * 24h),
                          commit("/a", "a", kNow - 2h)});
    writer.flush();
    // A damaged file of an old month goes unnoticed until a question reaches it.
    testing::writeFile(dir_ / "commits/2025-01/r-07d65407b49cb8e4.json", "[{");
    Store reader(dir_.path(), clock_, Store::Access::readOnly);
    reader.load();
    EXPECT_EQ(reader.commitsBetween(kNow - 24h, kNow).size(), 2u);
    EXPECT_EQ(reader.commits("/r", 2).size(), 2u);  // November and October suffice
    EXPECT_TRUE(reader.unreadableFiles().empty());
    EXPECT_EQ(reader.commits("/r").size(), 2u);
    EXPECT_EQ(reader.unreadableFiles().size(), 1u);
}

TEST_F(StoreTest, TheAuditLogKeepsNinetyDaysAndFiveThousandEntries) {
    auto writeLog = [&](size_t count) {
        std::vector<AuditLogEntry> entries;
        for (size_t i = 0; i < count; ++i) {
            entries.push_back(
                audit("A" + std::to_string(i), kNow - 6000s + std::chrono::seconds(i)));
        }
        testing::writeFile(dir_ / "agent_audit.json", JsonCodec::pretty(toJson(entries)));
    };
    writeLog(5000);
    Store& exact = loaded();
    EXPECT_EQ(exact.auditEntries().size(), 5000u);
    EXPECT_EQ(exact.auditEntries().back().id, "A0");

    // Appending is written at once, without a flush, and drops the oldest.
    exact.appendAudit(audit("newest", kNow));
    EXPECT_THAT(testing::readFile(dir_ / "agent_audit.json"), HasSubstr("\"newest\""));
    std::vector<AuditLogEntry> kept = loaded().auditEntries();
    ASSERT_EQ(kept.size(), 5000u);
    EXPECT_EQ(kept.front().id, "newest");
    EXPECT_EQ(kept.back().id, "A1");
    EXPECT_THAT(exact.auditEntries(3), ::testing::SizeIs(3));

    writeLog(5001);  // a longer log is cut back when it is loaded
    std::vector<AuditLogEntry> trimmed = loaded().auditEntries();
    ASSERT_EQ(trimmed.size(), 5000u);
    EXPECT_EQ(trimmed.back().id, "A1");

    std::filesystem::remove(dir_ / "agent_audit.json");
    Store& old = loaded();
    old.appendAudit(audit("91 days", kNow - 24h * 91));
    old.appendAudit(audit("89 days", kNow - 24h * 89));
    std::vector<AuditLogEntry> recent = loaded().auditEntries();
    ASSERT_EQ(recent.size(), 1u);
    EXPECT_EQ(recent[0].id, "89 days");
}

// Each append rewrites the log from texts kept from earlier writes: the file must
// read exactly as one written afresh, even when a hand-edited log repeats an id.
TEST_F(StoreTest, TheRewrittenAuditLogIsTheSameAsOneWrittenAfresh) {
    AuditLogEntry first = audit("same", kNow - 24h * 30);
    AuditLogEntry second = audit("same", kNow - 10s);
    second.tool = "get_settings";
    second.detail = "second of the id";
    testing::writeFile(dir_ / "agent_audit.json",
                       JsonCodec::pretty(toJson(std::vector<AuditLogEntry>{first, second})));
    Store& store = loaded();
    for (int i = 0; i < 3; ++i) {
        store.appendAudit(audit("N" + std::to_string(i), kNow + std::chrono::seconds(i)));
    }
    const std::string appended = testing::readFile(dir_ / "agent_audit.json");

    std::vector<AuditLogEntry> expected = {first, second};
    for (int i = 0; i < 3; ++i) {
        expected.push_back(audit("N" + std::to_string(i), kNow + std::chrono::seconds(i)));
    }
    EXPECT_EQ(appended, JsonCodec::pretty(toJson(expected)));

    // The older entry of the id goes; the text kept for that id is not the other's.
    store.pruneAudit(20);
    store.appendAudit(audit("N3", kNow + 3s));
    expected.erase(expected.begin());
    expected.push_back(audit("N3", kNow + 3s));
    EXPECT_EQ(testing::readFile(dir_ / "agent_audit.json"), JsonCodec::pretty(toJson(expected)));
}

TEST_F(StoreTest, AConfirmationTokenIsSpentOnceAndOnlyWhileValid) {
    using Kind = Store::ConsumeResult::Kind;
    using Status = PendingProposal::Status;
    Store& store = loaded();
    store.upsertProposal(proposal("valid", Status::approved, "tok-valid", kNow + 5min));
    store.upsertProposal(proposal("late", Status::approved, "tok-late", kNow - 1s));
    store.upsertProposal(proposal("open-ended", Status::approved, "tok-open", std::nullopt));
    store.upsertProposal(proposal("waiting", Status::pending, "tok-waiting", kNow + 5min));
    store.upsertProposal(proposal("no token", Status::approved, std::nullopt, kNow + 5min));

    Store::ConsumeResult first = store.consumeApprovedProposal("tok-valid");
    EXPECT_EQ(first.kind, Kind::ok);
    ASSERT_TRUE(first.proposal.has_value());
    EXPECT_EQ(first.proposal->id, "valid");
    EXPECT_EQ(first.proposal->status, Status::applied);
    // Spent on disk at once, so a crash cannot make it valid again.
    Store reader(dir_.path(), clock_, Store::Access::readOnly);
    reader.load();
    EXPECT_EQ(reader.proposal("valid")->status, Status::applied);

    Store::ConsumeResult second = store.consumeApprovedProposal("tok-valid");
    EXPECT_EQ(second.kind, Kind::notApproved);
    EXPECT_EQ(second.status, "applied");
    EXPECT_EQ(store.consumeApprovedProposal("tok-late").kind, Kind::expired);
    EXPECT_EQ(store.consumeApprovedProposal("tok-open").kind, Kind::expired);
    EXPECT_EQ(store.proposal("open-ended")->status, Status::approved);
    Store::ConsumeResult pending = store.consumeApprovedProposal("tok-waiting");
    EXPECT_EQ(pending.kind, Kind::notApproved);
    EXPECT_EQ(pending.status, "pending");
    EXPECT_EQ(store.consumeApprovedProposal("").kind, Kind::notFound);
    EXPECT_EQ(store.consumeApprovedProposal("tok-unknown").kind, Kind::notFound);

    store.rejectProposal("waiting");
    reader.load();
    EXPECT_EQ(reader.proposal("waiting")->status, Status::rejected);
}

TEST_F(StoreTest, QueriesFilterOrderAndCut) {
    Store& store = loaded();
    store.upsertCommits({commit("/a", "1", kNow - 3h), commit("/a", "2", kNow - 1h),
                         commit("/b", "3", kNow - 2h), commit("/a", "1", kNow - 3h)});
    auto shas = [](const std::vector<CommitRecord>& commits) {
        std::vector<std::string> result;
        for (const auto& c : commits) result.push_back(c.sha);
        return result;
    };
    EXPECT_THAT(shas(store.commits(std::nullopt)), ElementsAre("2", "3", "1"));
    EXPECT_THAT(shas(store.commits("/a")), ElementsAre("2", "1"));
    EXPECT_THAT(shas(store.commits("/a", 1)), ElementsAre("2"));
    EXPECT_TRUE(store.commits("/a", 0).empty());
    EXPECT_EQ(store.commitsBetween(kNow - 2h, kNow - 1h).size(), 2u);

    WorkSession older, newer;
    older.id = "old";
    older.repoID = newer.repoID = "/a";
    older.startedAt = kNow - 5h;
    newer.id = "new";
    newer.startedAt = kNow - 1h;
    newer.isOpen = true;
    store.upsertSessions({older, newer});
    newer.estimatedSeconds = 60;
    store.upsertSessions({newer});
    std::vector<WorkSession> sessions = store.sessions("/a", std::nullopt);
    ASSERT_EQ(sessions.size(), 2u);
    EXPECT_EQ(sessions[0].id, "new");
    EXPECT_EQ(sessions[0].estimatedSeconds, 60);
    EXPECT_EQ(store.sessions("/a", kNow - 2h).size(), 1u);
    EXPECT_EQ(store.openSession("/a")->id, "new");
    EXPECT_FALSE(store.openSession("/b").has_value());

    ReminderEvent open, done;
    open.id = "open";
    open.triggeredAt = kNow;
    done.id = "done";
    done.triggeredAt = kNow - 40 * 24h;
    store.upsertReminders({open, done});
    store.resolveReminders({"done"});
    EXPECT_EQ(store.reminders(true).size(), 1u);
    clock_.advance(31 * 24h);
    store.pruneResolvedReminders(30);
    ASSERT_EQ(store.reminders(false).size(), 1u);
    EXPECT_EQ(store.reminders(false)[0].id, "open");
}

TEST_F(StoreTest, AccountsAndRepositoriesTakeWhatBelongsToThemWhenRemoved) {
    Store& store = loaded();
    fillEverything(store);
    RemoteRepository other;
    other.id = "acc2:me/x";
    other.accountID = "acc2";
    store.replaceRemoteRepos("acc2", {other});
    RepositoryMapping linked, linkedElsewhere;
    linked.id = "acc:me/r";
    linked.remoteRepoID = "acc:me/r";
    linkedElsewhere.id = "/x";
    linkedElsewhere.localRepoID = "/x";
    linkedElsewhere.remoteRepoID = "acc2:me/x";
    linkedElsewhere.accountID = "acc2";
    store.upsertMappings({linked, linkedElsewhere});
    BranchRecord remoteBranch;
    remoteBranch.id = "acc:me/r#main#R";
    remoteBranch.repoID = "acc:me/r";
    store.replaceBranches("acc:me/r", {remoteBranch});
    store.removeAccount("acc");
    EXPECT_TRUE(store.accounts().empty());
    ASSERT_EQ(store.remoteRepos(std::nullopt).size(), 1u);
    EXPECT_EQ(store.remoteRepos(std::nullopt)[0].id, "acc2:me/x");
    EXPECT_TRUE(store.branches("acc:me/r").empty());
    std::vector<std::string> kept;
    for (const RepositoryMapping& m : store.mappings()) kept.push_back(m.id);
    EXPECT_THAT(kept, ::testing::UnorderedElementsAre("/r", "/x"));  // "/r" has no remote side
    EXPECT_EQ(store.branches("/r").size(), 1u);

    store.upsertCommits({commit("/keep", "k", kNow)});
    store.purgeRepo("/r");
    EXPECT_FALSE(store.snapshot("/r").has_value());
    EXPECT_TRUE(store.health("/r").empty());
    EXPECT_EQ(store.commits(std::nullopt).size(), 1u);
    EXPECT_TRUE(store.sessions("/r", std::nullopt).empty());
    EXPECT_TRUE(store.dayActivities("2026-11-21").empty());
    EXPECT_FALSE(store.syncState("/r").has_value());
    EXPECT_TRUE(store.branches("/r").empty());
    ASSERT_EQ(store.mappings().size(), 1u);
    EXPECT_EQ(store.mappings()[0].id, "/x");
    EXPECT_TRUE(store.journal("2026-11-21").has_value());  // the journal is not the repository's
}

}  // namespace
}  // namespace quorvane
