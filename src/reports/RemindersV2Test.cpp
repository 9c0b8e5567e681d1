#include <gtest/gtest.h>

#include "reports/RemindersV2.hpp"

namespace quorvane {
namespace {

using Kind = ReminderEvent::Kind;
using Status = SyncState::Status;
using Strings = std::vector<std::string>;
using AccountStatus = GitHubAccount::Status;

const Date kNow = *DateHelpers::parseISO("2026-11-21T18:00:00Z");

SyncState state(std::optional<std::string> repoID, Status status, int behind = 0) {
    SyncState sync;
    sync.id = repoID.value_or("acc:octo/r");
    sync.repoID = std::move(repoID);
    sync.status = status;
    sync.localBehind = behind;
    return sync;
}

GitHubAccount account(const char* id, const char* displayName, AccountStatus status) {
    GitHubAccount result;
    result.id = id;
    result.displayName = displayName;
    result.username = "hubber";
    result.status = status;
    return result;
}

ReminderEvent open(const char* id, Kind kind, std::optional<std::string> repoID) {
    ReminderEvent event;
    event.id = id;
    event.repoID = std::move(repoID);
    event.kind = kind;
    event.message = "as raised";
    return event;
}

RepoConfig config(const char* id, const char* name, std::optional<std::string> displayName) {
    RepoConfig repo;
    repo.id = repo.localPath = id;
    repo.name = name;
    repo.displayName = std::move(displayName);
    return repo;
}

// Names raised reminders R1, R2... so results compare exactly.
RemindersV2::Reconciliation reconcile(const std::vector<SyncState>& states,
                                      const std::vector<GitHubAccount>& accounts = {},
                                      const std::vector<ReminderEvent>& existing = {},
                                      const ReminderPrefs& prefs = {},
                                      const std::vector<RepoConfig>& configs = {},
                                      const std::vector<RepoSnapshot>& snapshots = {}) {
    int next = 0;
    return RemindersV2::reconcile(kNow, prefs, configs, states, snapshots, accounts, existing,
                                  [&] { return "R" + std::to_string(++next); });
}

// Each event as "id kind#repoID: message".
Strings described(const std::vector<ReminderEvent>& events) {
    Strings out;
    for (const auto& event : events) {
        EXPECT_EQ(event.triggeredAt, kNow);
        out.push_back(event.id + " " + event.reconcileKey() + ": " + event.message);
    }
    return out;
}

TEST(RemindersV2, RaisesEachAlignmentConditionWithItsText) {
    // A blank display name shows the name; an untracked repository shows its id.
    std::vector<RepoConfig> configs = {config("/app", "app", "The App"), config("/lib", "lib", ""),
                                       config("/tool", "tool", "Tool")};
    configs[2].trackingEnabled = false;
    std::vector<SyncState> states = {
        state("/app", Status::noUpstream),       state("/lib", Status::needsPull, 1),
        state(std::nullopt, Status::remoteOnly), state("/tool", Status::needsPull, 2),
        state("/app", Status::synced),           state("/lib", Status::diverged, 4),
        state(std::nullopt, Status::noUpstream), state("/peek", Status::noUpstream)};
    // A detached HEAD has no branch to give an upstream: pushing would publish another.
    RepoSnapshot detached;
    detached.repoID = "/peek";
    detached.isDetachedHead = true;
    std::vector<GitHubAccount> accounts = {account("a1", "Work", AccountStatus::tokenInvalid),
                                           account("a2", "Home", AccountStatus::connected),
                                           account("a3", "", AccountStatus::tokenInvalid)};
    ReminderPrefs prefs;
    prefs.needsPush = prefs.needsCommit = prefs.staleDirty = false;  // not read here
    auto result = reconcile(states, accounts, {}, prefs, configs, {detached});
    EXPECT_EQ(
        described(result.emit),
        (Strings{"R1 noUpstream#/app: The App: the local branch has no upstream. Set one with "
                 "push -u origin.",
                 "R2 needsPull#/lib: lib: 1 commit behind the remote. Pull.",
                 "R3 needsPull#/tool: /tool: 2 commits behind the remote. Pull.",
                 "R4 remoteOnly#: 1 repository on GitHub only, never cloned locally. Review them.",
                 "R5 tokenIssue#a1: Account “Work” — the GitHub token is invalid or expired. "
                 "Revalidate it.",
                 "R6 tokenIssue#a3: Account “hubber” — the GitHub token is invalid or expired. "
                 "Revalidate it."}));
    EXPECT_TRUE(result.resolve.empty());

    // Any number of remote-only repositories makes one reminder.
    std::vector<SyncState> remote(3, state(std::nullopt, Status::remoteOnly));
    remote[1].repoID = "/cloned-elsewhere";
    EXPECT_EQ(described(reconcile(remote).emit),
              Strings{"R1 remoteOnly#: 3 repositories on GitHub only, never cloned locally. "
                      "Review them."});

    // The behind switch silences the pull reminder; the others have no switch.
    prefs.behindRemote = false;
    EXPECT_EQ(reconcile(states, accounts, {}, prefs, configs, {detached}).emit.size(), 4u);
}

TEST(RemindersV2, OpenRemindersOfItsOwnKindsStandUntilTheirConditionEnds) {
    std::vector<SyncState> states = {state("/app", Status::needsPull, 5),
                                     state(std::nullopt, Status::remoteOnly),
                                     state(std::nullopt, Status::remoteOnly)};
    std::vector<GitHubAccount> accounts = {account("a1", "Work", AccountStatus::tokenInvalid),
                                           account("a2", "Home", AccountStatus::connected)};
    ReminderEvent resolved = open("old", Kind::noUpstream, "/lib");
    resolved.resolvedAt = kNow;
    std::vector<ReminderEvent> existing = {
        open("pull", Kind::needsPull, "/app"),         // still behind, by more than when raised
        open("only", Kind::remoteOnly, std::nullopt),  // raised for one, now two
        open("tok1", Kind::tokenIssue, "a1"),
        open("tok2", Kind::tokenIssue, "a2"),  // recovered
        open("up", Kind::noUpstream, "/app"),  // has an upstream now
        resolved,
        open("push", Kind::needsPush, "/lib"),
        open("behind", Kind::behindRemote, "/lib"),
        open("day", Kind::endDayReview, std::nullopt)};

    auto result = reconcile(states, accounts, existing);
    EXPECT_TRUE(result.emit.empty());
    EXPECT_EQ(result.resolve, (Strings{"tok2", "up"}));

    // Only an open reminder holds a condition back: a resolved one is raised anew.
    EXPECT_EQ(described(reconcile({state("/lib", Status::noUpstream)}, {}, {resolved}).emit),
              Strings{"R1 noUpstream#/lib: /lib: the local branch has no upstream. Set one with "
                      "push -u origin."});

    // With no alignment condition left, every open alignment reminder resolves, and the
    // local and end-of-day reminders stay.
    ReminderPrefs allOff;
    allOff.needsPush = allOff.behindRemote = allOff.needsCommit = allOff.staleDirty = false;
    auto cleared = reconcile({states[0]}, {}, existing, allOff);
    EXPECT_TRUE(cleared.emit.empty());
    EXPECT_EQ(cleared.resolve, (Strings{"pull", "only", "tok1", "tok2", "up"}));
}

}  // namespace
}  // namespace quorvane
