#include <gtest/gtest.h>

#include "records/DayActivity.hpp"
#include "records/WorkSession.hpp"

namespace quorvane {
namespace {

// Saves and loads the record as file text, as a flush and a load would.
template <class T>
T throughFile(const T& record) {
    T out{};
    fromJson(JsonCodec::parse(JsonCodec::pretty(toJson(record))), out, "record");
    return out;
}

TEST(SessionRecords, SessionsAndDaysSurviveAFileAndOlderDaysStillLoad) {
    const Date start{std::chrono::seconds(1795000000)};
    const WorkSession session{.id = "6f1c0d2e-0000-4000-8000-000000000001",
                              .repoID = "/home/dev/code/app",
                              .startedAt = start,
                              .endedAt = start + std::chrono::seconds(1500),
                              .estimatedSeconds = 1500,
                              .confidence = WorkSession::Confidence::medium,
                              .source = WorkSession::Source::manual,
                              .isOpen = true};
    EXPECT_EQ(throughFile(session), session);

    DayActivity day;
    day.repoID = "/home/dev/code/app";
    day.dateKey = "2026-11-21";
    EXPECT_EQ(day.key(), "/home/dev/code/app@2026-11-21");
    EXPECT_EQ(throughFile(day), day);  // empty lists are kept, not dropped
    day.commitCount = 3;
    day.estimatedSeconds = 4200;
    day.filesTouched = 7;
    day.pushed = true;
    day.branchesTouched = {"feature/x", "main"};
    day.statuses = {"activeToday", "needsCommit"};
    day.branch = "feature/x";
    day.files = GitFileCounts{.modified = 4, .staged = 2, .untracked = 1};
    day.ahead = 2;
    day.behind = 1;
    EXPECT_EQ(throughFile(day), day);

    // How the day ended: records kept before these were written lack them.
    Json older = toJson(day);
    for (const char* key : {"branch", "files", "ahead", "behind"}) older.erase(key);
    DayActivity read;
    fromJson(older, read, "record");
    EXPECT_EQ(read.files, std::nullopt);
    EXPECT_EQ(std::tuple(read.branch, read.ahead, read.behind), std::tuple("", 0, 0));
    older.erase("commitCount");
    EXPECT_THROW(fromJson(older, read, "record"), DecodeError);
}

}  // namespace
}  // namespace quorvane
