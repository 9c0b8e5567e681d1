#include "agent/CleanupPlanner.hpp"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

using Status = SyncState::Status;

RepoSnapshot snapshot(const std::string& repoID, int ahead, int behind, int modified,
                      bool hasUpstream = true, const std::string& branch = "main") {
    RepoSnapshot s;
    s.repoID = repoID;
    s.branch = branch;
    s.hasUpstream = hasUpstream;
    s.files.modified = modified;
    s.ahead = ahead;
    s.behind = behind;
    return s;
}

RepoConfig config(const std::string& id, const std::string& name) {
    RepoConfig c;
    c.id = c.localPath = id;
    c.name = name;
    return c;
}

SyncState state(const std::string& id, Status status) {
    SyncState s;
    s.id = id;
    s.status = status;
    return s;
}

TEST(CleanupPlannerTest, NothingToDoGivesOnlyTheHeadAndTheAllClearLine) {
    const std::string aligned =
        "# Daily cleanup plan\n\nEverything looks aligned — nothing to clean up.\n";
    EXPECT_EQ(CleanupPlanner::dailyPlan({}, {}, {}), aligned);
    // Clean snapshots, settled sync states and an untracked repository's mess leave
    // nothing to say.
    RepoConfig off = config("/code/off", "off");
    off.trackingEnabled = false;
    EXPECT_EQ(CleanupPlanner::dailyPlan(
                  {snapshot("/code/a", 0, 0, 0), snapshot("/code/off", 1, 1, 4)},
                  {state("/code/a", Status::synced), state("/code/b", Status::localOnly),
                   state("/code/off", Status::diverged), state("/code/c", Status::unknown)},
                  {config("/code/a", "a"), off}),
              aligned);
}

TEST(CleanupPlannerTest, AMixedDayGivesTheFourSectionsInOrder) {
    RepoSnapshot beta = snapshot("/code/beta", 0, 2, 2);
    beta.files.untracked = 1;
    RepoSnapshot broken = snapshot("/code/delta", 0, 0, 0);
    broken.error = "fatal: bad object HEAD";
    RepoConfig betaConfig = config("/code/beta", "beta");
    betaConfig.displayName = "Beta site";
    const std::string plan = CleanupPlanner::dailyPlan(
        {beta, snapshot("/code/alpha", 2, 0, 0), snapshot("/code/gamma", 1, 0, 0, false, ""),
         snapshot("/code/Gamma-tools", 3, 0, 1, false, "feature/x"), broken,
         snapshot("/code/alpha", 0, 9, 0)},  // a later, older snapshot is ignored
        {state("/code/alpha", Status::needsPush), state("/code/gamma", Status::noUpstream),
         state("/code/delta", Status::remoteInaccessible), state("/code/epsilon", Status::diverged),
         state("/code/omega", Status::accountMissing), state("/code/beta", Status::needsPull)},
        {config("/code/alpha", "alpha"), betaConfig, config("/code/gamma", "gamma"),
         config("/code/delta", "delta"), config("/code/omega", "Omega")});

    EXPECT_EQ(plan,
              "# Daily cleanup plan\n\n## 1. Commit first\n\n"
              "- **Beta site** — 3 dirty file(s) on `main`\n"
              "- **Gamma-tools** — 1 dirty file(s) on `feature/x`\n\n"
              "## 2. Push safe\n\n"
              "- **alpha** — 2 commit(s) ahead → `git push` (safe, has upstream)\n"
              "- **gamma** — 1 commit(s) ahead, no upstream → `git push -u origin <branch>`\n"
              "- **Gamma-tools** — 3 commit(s) ahead, no upstream → `git push -u origin "
              "feature/x`\n\n"
              "## 3. Pull after check\n\n"
              "- **Beta site** — 2 commit(s) behind → `git pull --ff-only` ⚠️ commit/stash "
              "first\n\n"
              "## 4. Review stale / needs attention\n\n"
              "- **delta** — scan error: fatal: bad object HEAD\n"
              "- **epsilon** — sync status: diverged\n"
              "- **Omega** — sync status: account missing\n");

    // Empty sections say so; a detached HEAD reads as HEAD.
    EXPECT_EQ(
        CleanupPlanner::dailyPlan({snapshot("/code/d", 0, 1, 1, true, "")}, {}, {}),
        "# Daily cleanup plan\n\n"
        "## 1. Commit first\n\n- **d** — 1 dirty file(s) on `HEAD`\n\n"
        "## 2. Push safe\n\n_Nothing to push._\n\n"
        "## 3. Pull after check\n\n- **d** — 1 commit(s) behind → `git pull --ff-only` ⚠️ "
        "commit/stash first\n\n"
        "## 4. Review stale / needs attention\n\n_Nothing needs attention._\n");
}

TEST(CleanupPlannerTest, DuplicatesShareAnOriginOrElseAPackageName) {
    auto match = [](const std::string& path, std::optional<std::string> origin,
                    std::optional<std::string> pkg) {
        return LocalProjectMatch{path, origin, pkg, {}, {}, 0, {}};
    };
    EXPECT_EQ(CleanupPlanner::detectDuplicates({
                  match("/a/site", "Acme/Site", {}),
                  match("/b/site-copy", "acme/site", "other-pkg"),
                  match("/c/tool", {}, "Tool"),
                  match("/d/tool2", {}, "tool"),
                  match("/e/lonely", "acme/lonely", {}),
                  match("/e/lonely", "acme/lonely", {}),  // one folder twice is no duplicate
                  match("/f/nothing", {}, {}),
                  match("/g/nothing", "", ""),
              }),
              (std::vector<CleanupPlanner::DuplicateGroup>{
                  {"pkg:tool", {"/c/tool", "/d/tool2"}},
                  {"remote:acme/site", {"/a/site", "/b/site-copy"}}}));
}

TEST(CleanupPlannerTest, ARemoteIsMissingUnlessAMappingLinksItToALocalRepository) {
    auto remote = [](const std::string& fullName) {
        RemoteRepository r;
        r.id = "a:" + fullName;
        r.fullName = fullName;
        return r;
    };
    auto mapping = [](std::optional<std::string> local, std::optional<std::string> remoteID) {
        RepositoryMapping m;
        m.localRepoID = std::move(local);
        m.remoteRepoID = std::move(remoteID);
        return m;
    };
    const RemoteRepository cloned = remote("me/cloned"), unlinked = remote("me/unlinked"),
                           unmapped = remote("me/unmapped");
    const std::vector<RepositoryMapping> mappings = {
        mapping("/code/cloned", cloned.id),
        mapping(std::nullopt, unlinked.id),  // no local side: not a clone
        mapping("/code/mine", std::nullopt)};
    EXPECT_EQ(CleanupPlanner::missingLocal({unmapped, cloned, unlinked}, mappings),
              (std::vector<CleanupPlanner::MissingLocal>{{"a:me/unmapped", "me/unmapped"},
                                                         {"a:me/unlinked", "me/unlinked"}}));
}

}  // namespace
}  // namespace quorvane
