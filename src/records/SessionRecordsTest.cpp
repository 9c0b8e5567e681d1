#include <gtest/gtest.h>

#include <set>

#include "records/DayActivity.hpp"
#include "records/WorkSession.hpp"

namespace quorvane {
namespace {

// Saves and loads the record as file text, then checks that no key may go missing
// but those in `mayBeAbsent`.
template <class T>
void expectSurvivesFileAndNeedsEveryKey(const T& record,
                                        const std::set<std::string>& mayBeAbsent = {}) {
    const Json json = toJson(record);
    T out{};
    fromJson(JsonCodec::parse(JsonCodec::pretty(json)), out, "record");
    EXPECT_EQ(out, record);
    for (const auto& [key, value] : json.items()) {
        Json missing = json;
        missing.erase(key);
        if (mayBeAbsent.contains(key)) {
            EXPECT_NO_THROW(fromJson(missing, out, "record")) << key;
        } else {
            EXPECT_THROW(fromJson(missing, out, "record"), DecodeError) << key;
        }
    }
}

TEST(SessionRecords, WorkSessionIsStoredWithCaseNamesAndEveryKeyRequired) {
    const Date start{std::chrono::seconds(1795000000)};
    const WorkSession session{.id = "6f1c0d2e-0000-4000-8000-000000000001",
                              .repoID = "/home/dev/code/app",
                              .startedAt = start,
                              .endedAt = start + std::chrono::seconds(1500),
                              .estimatedSeconds = 1500,
                              .confidence = WorkSession::Confidence::medium,
                              .source = WorkSession::Source::manual,
                              .isOpen = true};
    Json json = toJson(session);
    EXPECT_EQ(json["confidence"], "medium");
    EXPECT_EQ(json["source"], "manual");
    EXPECT_EQ(json["startedAt"], "2026-11-18T11:06:40Z");
    expectSurvivesFileAndNeedsEveryKey(session);

    json["source"] = "editor";
    WorkSession out;
    EXPECT_THROW(fromJson(json, out, "session"), DecodeError);
}

TEST(SessionRecords, DayActivityIsKeyedByRepositoryAndDay) {
    DayActivity day;
    day.repoID = "/home/dev/code/app";
    day.dateKey = "2026-11-21";
    EXPECT_EQ(day.key(), "/home/dev/code/app@2026-11-21");
    // How the day ended: records kept before these were written lack them.
    const std::set<std::string> later = {"branch", "files", "ahead", "behind"};
    expectSurvivesFileAndNeedsEveryKey(day, later);  // empty lists are kept, not dropped

    day.commitCount = 3;
    day.estimatedSeconds = 4200;
    day.filesTouched = 7;
    day.pushed = true;
    day.branchesTouched = {"feature/x", "main"};
    day.statuses = {"activeToday", "needsCommit"};
    expectSurvivesFileAndNeedsEveryKey(day, later);
    day.branch = "feature/x";
    day.files = GitFileCounts{.modified = 4, .staged = 2, .untracked = 1};
    day.ahead = 2;
    day.behind = 1;
    expectSurvivesFileAndNeedsEveryKey(day, later);

    Json older = toJson(day);
    for (const std::string& key : later) older.erase(key);
    DayActivity read;
    fromJson(older, read, "record");
    EXPECT_EQ(read.files, std::nullopt);
    EXPECT_EQ(std::tuple(read.branch, read.ahead, read.behind), std::tuple("", 0, 0));
}

}  // namespace
}  // namespace quorvane
