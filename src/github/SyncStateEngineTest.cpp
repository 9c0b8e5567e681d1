#include "github/SyncStateEngine.hpp"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

using Status = SyncState::Status;
using Kind = RepositoryMapping::Kind;

const Date kNow = *DateHelpers::parseISO("2026-11-25T10:00:00Z");

// A scan of "/r" with these counts; `error` marks one that failed.
RepoSnapshot scan(bool hasUpstream, int ahead, int behind, std::optional<std::string> error = {}) {
    RepoSnapshot snap;
    snap.repoID = "/r";
    snap.hasUpstream = hasUpstream;
    snap.ahead = ahead;
    snap.behind = behind;
    snap.error = std::move(error);
    snap.lastCommitSha = "local-sha";
    return snap;
}

RepositoryMapping link(Kind kind) {
    RepositoryMapping mapping;
    mapping.id = "/r";
    mapping.kind = kind;
    return mapping;
}

RemoteRepository remote() {
    RemoteRepository repo;
    repo.accountID = "home";
    repo.id = "home:me/app";
    return repo;
}

struct Case {
    std::optional<RepoSnapshot> snapshot;
    std::optional<RepositoryMapping> mapping;
    bool withRemote;
    Status expected;
};

TEST(SyncStateEngineTest, TheFirstRuleThatHoldsDecidesTheStatus) {
    const RepoSnapshot clean = scan(true, 0, 0), failed = scan(true, 0, 0, "not a repository");
    std::vector<Case> cases = {
        {{}, {}, false, Status::localOnly},
        {clean, link(Kind::localOnly), true, Status::localOnly},
        // Without a remote no error can be told, not even a failed scan.
        {failed, {}, false, Status::localOnly},
        {clean, link(Kind::accountMismatch), false, Status::localOnly},
        // A failed scan outranks whatever the mapping says.
        {failed, link(Kind::accountMismatch), true, Status::remoteInaccessible},
        {clean, link(Kind::remoteInaccessible), true, Status::remoteInaccessible},
        {scan(true, 3, 0), link(Kind::accountMismatch), true, Status::accountMissing},
        // Without an upstream the counts are not read.
        {scan(false, 5, 0), link(Kind::mapped), true, Status::noUpstream},
        {scan(true, 1, 1), link(Kind::mapped), true, Status::diverged},
        {scan(true, 2, 0), {}, true, Status::needsPush},
        {scan(true, 0, 2), link(Kind::remoteOnly), true, Status::needsPull},
        {clean, {}, true, Status::synced},
    };
    // No snapshot with a remote is remote only before any mapping is looked at.
    for (Kind kind : {Kind::mapped, Kind::localOnly, Kind::remoteOnly, Kind::accountMismatch,
                      Kind::remoteInaccessible}) {
        cases.push_back({{}, link(kind), true, Status::remoteOnly});
    }
    for (size_t i = 0; i < cases.size(); ++i) {
        const Case& c = cases[i];
        auto other = c.withRemote ? std::optional(remote()) : std::nullopt;
        EXPECT_EQ(SyncStateEngine::compute("/r", c.snapshot, c.mapping, other, kNow).status,
                  c.expected)
            << "case " << i;
    }
}

TEST(SyncStateEngineTest, TheOtherFieldsComeFromSnapshotMappingAndRemote) {
    RepositoryMapping mapped = link(Kind::mapped);
    mapped.remoteRepoID = "work:me/app";
    mapped.accountID = "work";  // the mapping's account wins over the remote's
    EXPECT_EQ(SyncStateEngine::compute("/r", scan(true, 2, 7), mapped, remote(), kNow),
              (SyncState{"/r", "/r", "home:me/app", "work", Status::diverged, 2, 7, true, true,
                         std::nullopt, "local-sha", kNow}));
    // Without a remote the mapping names the remote side, and nothing is counted.
    EXPECT_EQ(SyncStateEngine::compute("/r", std::nullopt, mapped, std::nullopt, kNow),
              (SyncState{"/r", "/r", "work:me/app", "work", Status::localOnly, 0, 0, false, false,
                         std::nullopt, std::nullopt, kNow}));
    mapped.accountID.reset();
    EXPECT_EQ(SyncStateEngine::compute("/r", std::nullopt, mapped, remote(), kNow).accountID,
              "home");
}

}  // namespace
}  // namespace quorvane
