#include <set>

#include <gtest/gtest.h>

#include "reports/ReminderEngine.hpp"
#include "testing/ZoneScope.hpp"

namespace quorvane {
namespace {

using Kind = ReminderEvent::Kind;
using std::chrono::hours;
using std::chrono::seconds;

const Date kNow = *DateHelpers::parseISO("2026-11-21T15:00:00Z");
const std::string kApp = "/home/dev/code/app";

RepoConfig config(const std::string& id, const std::string& name) {
    RepoConfig repo;
    repo.id = id;
    repo.name = name;
    repo.localPath = id;
    return repo;
}

// A readable repository whose tree changed an hour ago, with nothing to report.
RepoSnapshot snapshot(const std::string& repoID) {
    RepoSnapshot scan;
    scan.repoID = repoID;
    scan.capturedAt = kNow;
    scan.lastWorkingTreeChangeAt = kNow - hours(1);
    return scan;
}

ReminderEvent open(const std::string& id, Kind kind, std::optional<std::string> repoID) {
    return ReminderEvent{.id = id,
                         .repoID = std::move(repoID),
                         .kind = kind,
                         .message = "as raised",
                         .triggeredAt = kNow - hours(5),
                         .resolvedAt = std::nullopt,
                         .snoozedUntil = std::nullopt};
}

WorkSession worked(const std::string& repoID, Date endedAt, int estimatedSeconds) {
    WorkSession session;
    session.id = "S";
    session.repoID = repoID;
    session.startedAt = endedAt - seconds(estimatedSeconds);
    session.endedAt = endedAt;
    session.estimatedSeconds = estimatedSeconds;
    return session;
}

// Names raised reminders R1, R2... so results compare exactly.
ReminderEngine::Reconciliation reconcile(const ReminderPrefs& prefs,
                                         const std::vector<RepoConfig>& configs,
                                         const std::vector<RepoSnapshot>& snapshots,
                                         const std::vector<WorkSession>& sessions = {},
                                         const std::vector<ReminderEvent>& existing = {},
                                         Date now = kNow) {
    int next = 0;
    return ReminderEngine::reconcile(now, prefs, configs, snapshots, sessions, existing,
                                     [&] { return "R" + std::to_string(++next); });
}

std::vector<std::string> messages(const std::vector<ReminderEvent>& events) {
    std::vector<std::string> out;
    for (const auto& event : events) out.push_back(event.message);
    return out;
}

TEST(ReminderEngine, RaisesEachConditionInOrderCountingOnlyOneAsSingular) {
    RepoSnapshot one = snapshot(kApp);
    one.ahead = 1;
    one.behind = 1;
    one.files.modified = 1;
    one.lastWorkingTreeChangeAt.reset();
    ReminderPrefs prefs;
    prefs.commitAfterWorkMinutes = 0;
    auto result = reconcile(prefs, {config(kApp, "app")}, {one});
    ASSERT_EQ(result.emit.size(), 4u);
    EXPECT_EQ(messages(result.emit),
              (std::vector<std::string>{
                  "app: 1 unpushed commit. Push them.", "app: 1 commit behind the remote. Pull.",
                  "app: 1 modified file worked on today with no commit. Save your progress.",
                  "app: uncommitted changes for more than 3 days."}));
    std::vector<Kind> kinds;
    for (const auto& event : result.emit) {
        kinds.push_back(event.kind);
        EXPECT_EQ(event.repoID, kApp);
        EXPECT_EQ(event.triggeredAt, kNow);
        EXPECT_FALSE(event.resolvedAt);
    }
    EXPECT_EQ(kinds, (std::vector{Kind::needsPush, Kind::behindRemote, Kind::needsCommit,
                                  Kind::staleDirty}));
    EXPECT_EQ(result.emit[0].id, "R1");
    EXPECT_EQ(result.emit[3].id, "R4");
    EXPECT_TRUE(result.resolve.empty());

    // Every kind of dirty entry counts, the display name wins over the name, and the
    // day count is printed as configured.
    RepoSnapshot many = one;
    many.ahead = 2;
    many.behind = 3;
    many.files = GitFileCounts{1, 1, 1, 1, 1};
    RepoConfig named = config(kApp, "app");
    named.displayName = "The App";
    prefs.staleDirtyAfterDays = 1;
    EXPECT_EQ(messages(reconcile(prefs, {named}, {many}).emit),
              (std::vector<std::string>{
                  "The App: 2 unpushed commits. Push them.",
                  "The App: 3 commits behind the remote. Pull.",
                  "The App: 5 modified files worked on today with no commit. Save your progress.",
                  "The App: uncommitted changes for more than 1 days."}));

    ReminderPrefs off;
    off.needsPush = off.behindRemote = off.needsCommit = off.staleDirty = false;
    EXPECT_TRUE(reconcile(off, {named}, {many}).emit.empty());
}

TEST(ReminderEngine, EndDayReviewCountsTheDaysProjects) {
    int next = 0;
    auto id = [&] { return "E" + std::to_string(++next); };
    ReminderEvent none = ReminderEngine::endDayReview(kNow, 0, id);
    EXPECT_EQ(none.message,
              "End of day: no active project today. Want to note anything in the journal?");
    EXPECT_EQ(none.id, "E1");
    EXPECT_EQ(none.kind, Kind::endDayReview);
    EXPECT_FALSE(none.repoID);
    EXPECT_EQ(none.triggeredAt, kNow);
    EXPECT_EQ(ReminderEngine::endDayReview(kNow, 1, id).message,
              "End of day: you worked on 1 project. Review and note it in the journal.");
    EXPECT_EQ(ReminderEngine::endDayReview(kNow, 2, id).message,
              "End of day: you worked on 2 projects. Review and note it in the journal.");
}

TEST(ReminderEngine, OpenRemindersStandUntilTheirConditionEnds) {
    ReminderPrefs prefs;
    std::vector<RepoConfig> configs = {config(kApp, "app")};
    RepoSnapshot ahead = snapshot(kApp);
    ahead.ahead = 3;
    ReminderEvent push = open("P", Kind::needsPush, kApp);

    // Still ahead, now by more: not raised again, and its old message is not refreshed.
    auto still = reconcile(prefs, configs, {ahead}, {}, {push});
    EXPECT_TRUE(still.emit.empty());
    EXPECT_TRUE(still.resolve.empty());

    // Pushed between scans.
    EXPECT_EQ(reconcile(prefs, configs, {snapshot(kApp)}, {}, {push}).resolve,
              std::vector<std::string>{"P"});

    // A resolved reminder does not count: the condition is raised anew.
    ReminderEvent resolved = push;
    resolved.resolvedAt = kNow - hours(1);
    auto again = reconcile(prefs, configs, {ahead}, {}, {resolved});
    ASSERT_EQ(again.emit.size(), 1u);
    EXPECT_EQ(again.emit[0].id, "R1");
    EXPECT_TRUE(again.resolve.empty());

    // Tracking switched off, or a scan that failed: the conditions are gone.
    RepoConfig untracked = configs[0];
    untracked.trackingEnabled = false;
    auto off = reconcile(prefs, {untracked}, {ahead}, {}, {push});
    EXPECT_TRUE(off.emit.empty());
    EXPECT_EQ(off.resolve, std::vector<std::string>{"P"});
    RepoSnapshot failed = ahead;
    failed.error = "git status failed";
    failed.lastWorkingTreeChangeAt.reset();
    failed.files.modified = 4;
    auto broken = reconcile(prefs, configs, {failed}, {}, {push});
    EXPECT_TRUE(broken.emit.empty());
    EXPECT_EQ(broken.resolve, std::vector<std::string>{"P"});

    // Two snapshots of one repository raise twice; nothing de-duplicates them.
    EXPECT_EQ(reconcile(prefs, configs, {ahead, ahead}).emit.size(), 2u);

    // With every switch off only local kinds resolve; the alignment kinds and the
    // end-of-day review belong to others.
    ReminderPrefs allOff;
    allOff.needsPush = allOff.behindRemote = allOff.needsCommit = allOff.staleDirty = false;
    std::vector<ReminderEvent> existing = {
        open("pull", Kind::needsPull, kApp),      open("day", Kind::endDayReview, std::nullopt),
        open("behind", Kind::behindRemote, kApp), open("only", Kind::remoteOnly, std::nullopt),
        open("token", Kind::tokenIssue, "acct"),  open("up", Kind::noUpstream, kApp),
        open("stale", Kind::staleDirty, kApp)};
    RepoSnapshot everything = ahead;
    everything.behind = 2;
    everything.files.modified = 1;
    everything.lastWorkingTreeChangeAt.reset();
    EXPECT_EQ(reconcile(allOff, configs, {everything}, {}, existing).resolve,
              (std::vector<std::string>{"behind", "stale"}));
}

TEST(ReminderEngine, CommitReminderWantsEnoughWorkTodayAndNoCommit) {
    ReminderPrefs prefs;  // 60 minutes
    std::vector<RepoConfig> configs = {config(kApp, "app")};
    RepoSnapshot dirty = snapshot(kApp);
    dirty.files.untracked = 2;
    auto commitReminders = [&](const RepoSnapshot& scan, const std::vector<WorkSession>& sessions,
                               const ReminderPrefs& p) {
        size_t count = 0;
        for (const auto& event : reconcile(p, configs, {scan}, sessions).emit) {
            count += event.kind == Kind::needsCommit;
        }
        return count;
    };

    // Exactly the threshold, an open session counting like a closed one.
    WorkSession running = worked(kApp, kNow - seconds(10), 1800);
    running.isOpen = true;
    std::vector<WorkSession> hour = {worked(kApp, kNow - hours(2), 1800), running};
    EXPECT_EQ(commitReminders(dirty, hour, prefs), 1u);

    // One second short; yesterday's and another repository's work do not count.
    std::vector<WorkSession> tooLittle = {worked(kApp, kNow - hours(2), 3599),
                                          worked(kApp, kNow - hours(24), 7200),
                                          worked("/home/dev/code/other", kNow, 7200)};
    EXPECT_EQ(commitReminders(dirty, tooLittle, prefs), 0u);

    // A commit today silences it however long the work.
    RepoSnapshot committed = dirty;
    committed.commitsToday = 1;
    EXPECT_EQ(commitReminders(committed, hour, prefs), 0u);

    // A negative threshold is 0: any dirty repository qualifies, even without work.
    ReminderPrefs eager;
    eager.commitAfterWorkMinutes = -5;
    EXPECT_EQ(commitReminders(dirty, {}, eager), 1u);
    EXPECT_EQ(commitReminders(snapshot(kApp), {}, eager), 0u);

    // "Today" is the local day: at 10:00 in New York, work that ended at 23:00 the
    // evening before is yesterday's although the UTC date is the same.
    testing::ZoneScope zone("America/New_York");
    EXPECT_EQ(commitReminders(dirty, {worked(kApp, kNow - hours(11), 3600)}, prefs), 0u);
    EXPECT_EQ(commitReminders(dirty, {worked(kApp, kNow - hours(9), 3600)}, prefs), 1u);
}

TEST(ReminderEngine, StaleChangesAreOlderThanCalendarDaysBeforeNow) {
    ReminderPrefs prefs;
    prefs.staleDirtyAfterDays = 7;
    RepoConfig repo = config(kApp, "app");
    repo.staleDaysThreshold = 3;
    RepoSnapshot dirty = snapshot(kApp);
    dirty.files.deleted = 1;
    auto stale = [&](std::optional<Date> changedAt, const RepoConfig& r, Date now = kNow) {
        RepoSnapshot scan = dirty;
        scan.lastWorkingTreeChangeAt = changedAt;
        std::vector<std::string> out;
        for (const auto& event : reconcile(prefs, {r}, {scan}, {}, {}, now).emit) {
            if (event.kind == Kind::staleDirty) out.push_back(event.message);
        }
        return out;
    };

    using Messages = std::vector<std::string>;
    Messages three = {"app: uncommitted changes for more than 3 days."};
    EXPECT_EQ(stale(std::nullopt, repo), three) << "never seen changing is stale at once";
    EXPECT_EQ(stale(kNow - hours(72), repo), Messages{}) << "exactly at the cutoff";
    EXPECT_EQ(stale(kNow - hours(72) - seconds(1), repo), three);
    RepoConfig global = config(kApp, "app");
    EXPECT_EQ(stale(kNow - hours(72) - seconds(1), global), Messages{});
    EXPECT_EQ(stale(kNow - hours(7 * 24) - seconds(1), global),
              Messages{"app: uncommitted changes for more than 7 days."});

    // A negative threshold acts as 0 and is printed as it is.
    RepoConfig negative = config(kApp, "app");
    negative.staleDaysThreshold = -2;
    EXPECT_EQ(stale(kNow - seconds(1), negative),
              Messages{"app: uncommitted changes for more than -2 days."});

    // Clean trees are never stale.
    dirty.files = {};
    EXPECT_EQ(stale(std::nullopt, repo), Messages{});
    dirty.files.renamed = 1;

    // Days are calendar days: across the spring change in Berlin, three days before
    // 10:00 CEST is 10:00 CET, 71 hours earlier, not 72.
    testing::ZoneScope zone("Europe/Berlin");
    Date morning = *DateHelpers::parseISO("2026-03-30T08:00:00Z");
    EXPECT_EQ(stale(morning - hours(71), repo, morning), Messages{});
    EXPECT_EQ(stale(morning - hours(71) - seconds(1), repo, morning), three);
}

TEST(ReminderEngine, EveryKindHasItsOwnTitleAndAtMostOneSet) {
    std::set<std::string_view> titles;
    for (auto [kind, name] : enumCases(Kind{})) {
        std::string_view text = title(kind);
        EXPECT_TRUE(text.starts_with("Quorvane \u2014 ")) << name;
        titles.insert(text);
        bool local = std::ranges::find(localKinds, kind) != localKinds.end();
        bool alignment = std::ranges::find(alignmentKinds, kind) != alignmentKinds.end();
        EXPECT_FALSE(local && alignment) << name;
        EXPECT_EQ(local || alignment, kind != Kind::endDayReview) << name;
    }
    EXPECT_EQ(titles.size(), enumCases(Kind{}).size());
}

}  // namespace
}  // namespace quorvane
