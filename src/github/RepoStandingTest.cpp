#include "github/RepoStanding.hpp"

#include <gtest/gtest.h>

#include "git/Aggregator.hpp"

namespace quorvane {
namespace {

using Status = SyncState::Status;

const Date kNow = *DateHelpers::parseISO("2026-03-11T12:00:00Z");
const std::string kGitHub = "git@github.com:me/app.git";

// A clean branch in step with its GitHub upstream, changed by `edit`.
template <typename Edit>
RepoSnapshot snapshot(Edit edit) {
    RepoSnapshot s;
    s.repoID = "/code/app";
    s.branch = "main";
    s.remoteURL = kGitHub;
    s.hasUpstream = true;
    s.lastCommitAt = kNow;
    edit(s);
    return s;
}

std::string joined(const std::vector<StatusWord>& words) {
    std::string out;
    for (const StatusWord& word : words) out += (out.empty() ? "" : ", ") + word.text;
    return out;
}

SyncState stored(Status status) {
    SyncState state;
    state.id = "/code/app";
    state.status = status;
    return state;
}

struct Case {
    const char* what;
    RepoSnapshot snapshot;
    std::optional<Status> sync;
    const char* words;  // with the labels a scan today gives
    const char* github;
    std::optional<Status> syncStatus;
};

// What the command line shows of these end to end (a branch never pushed, no remote,
// a detached HEAD, a remote elsewhere, a push since the sync) is not repeated here.
TEST(RepoStanding, EveryViewGetsOneHonestWordForHowARepositoryStands) {
    auto is = [](auto edit) { return snapshot(edit); };
    const std::vector<Case> cases = {
        {"in step", is([](RepoSnapshot&) {}), {}, "synced, active", "synced", {}},
        // An upstream that is another local branch is still no remote.
        {"a local upstream", is([](RepoSnapshot& s) { s.remoteURL.reset(); }), Status::localOnly,
         "no remote, active", "no remote", Status::localOnly},
        // A branch in step with dirty files is not yet synced: the commit comes first.
        {"dirty in step", is([](RepoSnapshot& s) { s.files.modified = 2; }), Status::synced,
         "needs commit, active", "synced", Status::synced},
        {"dirty and ahead, idle for days",
         is([](RepoSnapshot& s) {
             s.files.untracked = 1;
             s.ahead = 3;
             s.lastCommitAt = kNow - std::chrono::hours(24 * 10);
         }),
         {},
         "needs commit, needs push, inactive, stale",
         "needs push",
         {}},
        {"both ways", is([](RepoSnapshot& s) { s.ahead = s.behind = 1; }), Status::diverged,
         "diverged, active", "diverged", Status::diverged},
        // A failed scan knows nothing new, so the stored status stands.
        {"unreadable", is([](RepoSnapshot& s) { s.error = "fatal: not a git repository"; }),
         Status::remoteInaccessible, "error", "error", Status::remoteInaccessible},
        {"behind since the sync", is([](RepoSnapshot& s) { s.behind = 1; }), Status::synced,
         "needs pull, active", "needs pull", Status::needsPull},
        // What only a sync can know stands beside the scan's words.
        {"account missing", is([](RepoSnapshot& s) { s.ahead = 1; }), Status::accountMissing,
         "needs push, active", "account missing", Status::accountMissing},
    };
    for (const Case& c : cases) {
        SyncState state = stored(c.sync.value_or(Status::unknown));
        bool active = DateHelpers::dateKey(*c.snapshot.lastCommitAt) == DateHelpers::dateKey(kNow);
        std::vector<RepoStatus> labels =
            Aggregator::statuses(c.snapshot, active, 3, c.snapshot.lastCommitAt, kNow);
        RepoStanding::Description d =
            RepoStanding::describe(labels, &c.snapshot, c.sync ? &state : nullptr);
        EXPECT_EQ(joined(d.words), c.words) << c.what;
        EXPECT_EQ(RepoStanding::word(d.github).text, c.github) << c.what;
        EXPECT_EQ(d.syncStatus, c.syncStatus) << c.what;
        // The label and the word agree: a scan never files as synced what the words
        // say is not.
        bool syncedLabel =
            std::find(labels.begin(), labels.end(), RepoStatus::synced) != labels.end();
        EXPECT_EQ(syncedLabel, joined(d.words).starts_with("synced")) << c.what;
    }

    // A past day has only the labels its record kept, old ones included.
    auto fromLabels = [](std::vector<RepoStatus> labels) {
        return joined(RepoStanding::describe(labels, nullptr, nullptr).words);
    };
    using enum RepoStatus;
    EXPECT_EQ(fromLabels({needsCommit, needsPush, behindRemote, inactive}),
              "needs commit, diverged, inactive");
    EXPECT_EQ(fromLabels({synced, activeToday, noRemote, detachedHead}), "detached, active");
    // Without a scan, a stored state is taken as it stands.
    SyncState diverged = stored(Status::diverged);
    EXPECT_EQ(RepoStanding::describe({}, nullptr, &diverged).github,
              RepoStanding::Standing::diverged);

    // No score is no number, and never a full mark.
    EXPECT_EQ(RepoStanding::healthWord(std::nullopt), (StatusWord{"–", Tone::dim}));
    EXPECT_EQ(RepoStanding::healthWord(70), (StatusWord{"70", Tone::attention}));
    EXPECT_EQ(RepoStanding::healthWord(69), (StatusWord{"69", Tone::problem}));
}

}  // namespace
}  // namespace quorvane
