#include "agent/CleanupPlanner.hpp"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

using Status = SyncState::Status;

RepoSnapshot snapshot(const std::string& repoID, const std::string& branch = "main") {
    RepoSnapshot s;
    s.repoID = repoID;
    s.branch = branch;
    s.hasUpstream = true;
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

LocalProjectMatch match(const std::string& path, std::optional<std::string> origin,
                        std::optional<std::string> pkg = std::nullopt) {
    LocalProjectMatch m;
    m.path = path;
    m.remoteOwnerRepo = std::move(origin);
    m.pkgName = std::move(pkg);
    return m;
}

TEST(CleanupPlannerTest, NothingToDoGivesOnlyTheHeadAndTheAllClearLine) {
    const std::string aligned =
        "# Daily cleanup plan\n\nEverything looks aligned — nothing to clean up.\n";
    EXPECT_EQ(CleanupPlanner::dailyPlan({}, {}, {}), aligned);
    // Clean snapshots, settled sync states and an untracked repository's mess
    // leave nothing to say.
    RepoSnapshot ignored = snapshot("/code/ignored");
    ignored.files.modified = 4;
    RepoConfig off = config("/code/ignored", "ignored");
    off.trackingEnabled = false;
    EXPECT_EQ(CleanupPlanner::dailyPlan(
                  {snapshot("/code/a"), ignored},
                  {state("/code/a", Status::synced), state("/code/b", Status::localOnly),
                   state("/code/ignored", Status::diverged), state("/code/c", Status::unknown)},
                  {config("/code/a", "a"), off}),
              aligned);
}

TEST(CleanupPlannerTest, AMixedDayGivesTheFourSectionsInOrder) {
    RepoSnapshot beta = snapshot("/code/beta");
    beta.files.modified = 2;
    beta.files.untracked = 1;
    beta.behind = 2;
    RepoSnapshot alpha = snapshot("/code/alpha");
    alpha.ahead = 2;
    RepoSnapshot gamma = snapshot("/code/gamma", "");
    gamma.hasUpstream = false;
    gamma.ahead = 1;
    RepoSnapshot feature = snapshot("/code/Gamma-tools", "feature/x");
    feature.hasUpstream = false;
    feature.ahead = 3;
    feature.files.staged = 1;
    RepoSnapshot broken = snapshot("/code/delta");
    broken.error = "fatal: bad object HEAD";
    RepoSnapshot older = snapshot("/code/alpha");  // a later, older snapshot is ignored
    older.behind = 9;

    RepoConfig betaConfig = config("/code/beta", "beta");
    betaConfig.displayName = "Beta site";
    const std::string plan = CleanupPlanner::dailyPlan(
        {beta, alpha, gamma, feature, broken, older},
        {state("/code/alpha", Status::needsPush), state("/code/gamma", Status::noUpstream),
         state("/code/delta", Status::remoteInaccessible), state("/code/epsilon", Status::diverged),
         state("/code/omega", Status::accountMissing), state("/code/beta", Status::needsPull)},
        {config("/code/alpha", "alpha"), betaConfig, config("/code/gamma", "gamma"),
         config("/code/delta", "delta"), config("/code/omega", "Omega")});

    EXPECT_EQ(plan,
              "# Daily cleanup plan\n"
              "\n"
              "## 1. Commit first\n"
              "\n"
              "- **Beta site** — 3 dirty file(s) on `main`\n"
              "- **Gamma-tools** — 1 dirty file(s) on `feature/x`\n"
              "\n"
              "## 2. Push safe\n"
              "\n"
              "- **alpha** — 2 commit(s) ahead → `git push` (safe, has upstream)\n"
              "- **gamma** — 1 commit(s) ahead, no upstream → `git push -u origin <branch>`\n"
              "- **Gamma-tools** — 3 commit(s) ahead, no upstream → `git push -u origin "
              "feature/x`\n"
              "\n"
              "## 3. Pull after check\n"
              "\n"
              "- **Beta site** — 2 commit(s) behind → `git pull --ff-only` ⚠️ commit/stash "
              "first\n"
              "\n"
              "## 4. Review stale / needs attention\n"
              "\n"
              "- **delta** — scan error: fatal: bad object HEAD\n"
              "- **epsilon** — sync status: diverged\n"
              "- **Omega** — sync status: accountMissing\n");
}

TEST(CleanupPlannerTest, EmptySectionsSayNothingIsThere) {
    RepoSnapshot late = snapshot("/code/late");
    late.behind = 1;
    EXPECT_EQ(CleanupPlanner::dailyPlan({late}, {}, {}),
              "# Daily cleanup plan\n\n"
              "## 1. Commit first\n\n_No uncommitted changes._\n\n"
              "## 2. Push safe\n\n_Nothing to push._\n\n"
              "## 3. Pull after check\n\n- **late** — 1 commit(s) behind → `git pull --ff-only`\n\n"
              "## 4. Review stale / needs attention\n\n_Nothing needs attention._\n");
    // A diverged repository alone is enough for a plan, and a detached HEAD reads as HEAD.
    RepoSnapshot detached = snapshot("/code/d", "");
    detached.files.deleted = 1;
    const std::string plan =
        CleanupPlanner::dailyPlan({detached}, {state("/code/x", Status::diverged)}, {});
    EXPECT_NE(plan.find("- **d** — 1 dirty file(s) on `HEAD`\n"), std::string::npos);
    EXPECT_NE(plan.find("_Nothing to pull._"), std::string::npos);
    EXPECT_NE(plan.find("- **x** — sync status: diverged\n"), std::string::npos);
}

TEST(CleanupPlannerTest, DuplicatesShareAnOriginOrElseAPackageName) {
    const std::vector<CleanupPlanner::DuplicateGroup> groups = CleanupPlanner::detectDuplicates({
        match("/a/site", "Acme/Site"),
        match("/b/site-copy", "acme/site", "other-pkg"),
        match("/c/tool", std::nullopt, "Tool"),
        match("/d/tool2", std::nullopt, "tool"),
        match("/e/lonely", "acme/lonely"),
        match("/e/lonely", "acme/lonely"),  // one folder twice is no duplicate
        match("/f/nothing", std::nullopt),
        match("/g/nothing", std::nullopt),
        match("/h/blank", "", ""),
        match("/i/blank", "", ""),
    });
    EXPECT_EQ(groups, (std::vector<CleanupPlanner::DuplicateGroup>{
                          {"pkg:tool", {"/c/tool", "/d/tool2"}},
                          {"remote:acme/site", {"/a/site", "/b/site-copy"}}}));
}

TEST(CleanupPlannerTest, ARemoteIsMissingUnlessAMappingLinksItToALocalRepository) {
    RemoteRepository cloned, unlinked, unmapped;
    cloned.id = "acct:me/cloned";
    cloned.fullName = "me/cloned";
    unlinked.id = "acct:me/unlinked";
    unlinked.fullName = "me/unlinked";
    unmapped.id = "acct:me/unmapped";
    unmapped.fullName = "me/unmapped";
    RepositoryMapping linked, remoteOnly;
    linked.localRepoID = "/code/cloned";
    linked.remoteRepoID = cloned.id;
    remoteOnly.remoteRepoID = unlinked.id;  // no local side: not a clone
    RepositoryMapping localOnly;
    localOnly.localRepoID = "/code/mine";

    EXPECT_EQ(
        CleanupPlanner::missingLocal({unmapped, cloned, unlinked}, {linked, remoteOnly, localOnly}),
        (std::vector<CleanupPlanner::MissingLocal>{{"acct:me/unmapped", "me/unmapped"},
                                                   {"acct:me/unlinked", "me/unlinked"}}));
    EXPECT_TRUE(CleanupPlanner::missingLocal({}, {linked}).empty());
}

}  // namespace
}  // namespace quorvane
