#include <gtest/gtest.h>

#include "git/WorkSessionEngine.hpp"

namespace quorvane {
namespace {

using Confidence = WorkSession::Confidence;
using Source = WorkSession::Source;
using std::chrono::seconds;

const Date kNow = *DateHelpers::parseISO("2026-11-21T15:00:00Z");

RepoSnapshot scan(std::optional<std::string> sha, int modified, std::string branch = "main") {
    RepoSnapshot snapshot;
    snapshot.repoID = "/home/dev/code/app";
    snapshot.lastCommitSha = std::move(sha);
    snapshot.files.modified = modified;
    snapshot.branch = std::move(branch);
    return snapshot;
}

WorkSession openSession(Confidence confidence, Source source, Date startedAt, Date endedAt) {
    return WorkSession{.id = "S1",
                       .repoID = "/home/dev/code/app",
                       .startedAt = startedAt,
                       .endedAt = endedAt,
                       .estimatedSeconds = 0,
                       .confidence = confidence,
                       .source = source,
                       .isOpen = true};
}

std::vector<WorkSession> step(const std::optional<RepoSnapshot>& previous,
                              const RepoSnapshot& current,
                              const std::optional<WorkSession>& open = std::nullopt,
                              std::optional<Date> fileActivityAt = std::nullopt) {
    return WorkSessionEngine::update(previous, current, open, kNow,
                                     WorkSessionEngine::kIdleTimeoutSeconds, fileActivityAt,
                                     [] { return std::string("NEW"); });
}

// Opens a session from one step and returns its confidence and source.
std::pair<Confidence, Source> opened(const RepoSnapshot& previous, const RepoSnapshot& current) {
    auto result = step(previous, current);
    EXPECT_EQ(result.size(), 1u);
    if (result.empty()) return {};
    EXPECT_EQ(result[0].id, "NEW");
    EXPECT_EQ(result[0].startedAt, kNow);
    EXPECT_EQ(result[0].endedAt, kNow);
    EXPECT_TRUE(result[0].isOpen);
    return {result[0].confidence, result[0].source};
}

TEST(WorkSessionEngine, CommitOutranksFilesWhichOutrankBranch) {
    RepoSnapshot base = scan("aaa", 0);
    EXPECT_TRUE(step(std::nullopt, scan("bbb", 5, "dev")).empty()) << "first scan opens nothing";
    EXPECT_TRUE(step(base, base).empty());

    EXPECT_EQ(opened(base, scan("bbb", 5, "dev")), std::pair(Confidence::high, Source::localGit));
    EXPECT_EQ(opened(base, scan("aaa", 5, "dev")),
              std::pair(Confidence::medium, Source::fileActivity));
    EXPECT_EQ(opened(base, scan("aaa", 0, "dev")),
              std::pair(Confidence::low, Source::fileActivity));
    // A failed scan loses its head commit, which reads as a commit.
    RepoSnapshot failed = scan(std::nullopt, 0);
    failed.error = "not a git repository";
    EXPECT_EQ(opened(base, failed), std::pair(Confidence::high, Source::localGit));
}

TEST(WorkSessionEngine, FileEventsCountUpToTheIdleTimeoutAndNotFromTheFuture) {
    RepoSnapshot same = scan("aaa", 0);
    auto atLimit = step(same, same, std::nullopt, kNow - seconds(1200));
    ASSERT_EQ(atLimit.size(), 1u);
    EXPECT_EQ(atLimit[0].source, Source::fileActivity);
    EXPECT_EQ(atLimit[0].confidence, Confidence::medium);

    EXPECT_TRUE(step(same, same, std::nullopt, kNow - seconds(1201)).empty());
    EXPECT_TRUE(step(same, same, std::nullopt, kNow + seconds(1)).empty());
}

TEST(WorkSessionEngine, ExtendingRaisesConfidenceAndMixesSources) {
    RepoSnapshot base = scan("aaa", 0);
    Date started = kNow - seconds(600);
    auto extend = [&](Confidence confidence, Source source, const RepoSnapshot& current) {
        auto result = step(base, current, openSession(confidence, source, started, started));
        EXPECT_EQ(result.size(), 1u);
        return result.empty() ? WorkSession{} : result[0];
    };

    WorkSession filesThenCommit = extend(Confidence::medium, Source::fileActivity, scan("bbb", 0));
    EXPECT_EQ(filesThenCommit.id, "S1");
    EXPECT_EQ(filesThenCommit.confidence, Confidence::high);
    EXPECT_EQ(filesThenCommit.source, Source::mixed);
    EXPECT_EQ(filesThenCommit.endedAt, kNow);
    EXPECT_EQ(filesThenCommit.estimatedSeconds, 600);
    EXPECT_TRUE(filesThenCommit.isOpen);

    WorkSession commitThenBranch = extend(Confidence::high, Source::localGit, scan("aaa", 0, "x"));
    EXPECT_EQ(commitThenBranch.confidence, Confidence::high);
    EXPECT_EQ(commitThenBranch.source, Source::mixed);

    WorkSession branchThenFiles = extend(Confidence::low, Source::fileActivity, scan("aaa", 2));
    EXPECT_EQ(branchThenFiles.confidence, Confidence::medium);
    EXPECT_EQ(branchThenFiles.source, Source::fileActivity);

    EXPECT_EQ(extend(Confidence::low, Source::fileActivity, scan("aaa", 0, "x")).confidence,
              Confidence::low);
    EXPECT_EQ(extend(Confidence::high, Source::manual, scan("aaa", 3)).confidence,
              Confidence::high);
    EXPECT_EQ(extend(Confidence::low, Source::manual, scan("bbb", 0)).source, Source::manual);
}

TEST(WorkSessionEngine, QuietSessionClosesAtTheTimeoutWithoutCountingTheWait) {
    RepoSnapshot same = scan("aaa", 0);
    Date started = kNow - seconds(2000);
    EXPECT_TRUE(step(same, same,
                     openSession(Confidence::high, Source::localGit, started, kNow - seconds(1199)))
                    .empty());

    Date lastActivity = kNow - seconds(1200);
    auto closed =
        step(same, same, openSession(Confidence::high, Source::localGit, started, lastActivity));
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_FALSE(closed[0].isOpen);
    EXPECT_EQ(closed[0].endedAt, lastActivity);
    EXPECT_EQ(closed[0].estimatedSeconds, 800);

    // One activity alone closes at length 0: there is no minimum duration.
    auto single = step(
        same, same, openSession(Confidence::low, Source::fileActivity, lastActivity, lastActivity));
    ASSERT_EQ(single.size(), 1u);
    EXPECT_EQ(single[0].estimatedSeconds, 0);
}

}  // namespace
}  // namespace quorvane
