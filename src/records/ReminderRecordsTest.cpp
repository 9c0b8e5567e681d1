#include <gtest/gtest.h>

#include "records/DailyJournal.hpp"
#include "records/ReminderEvent.hpp"

namespace quorvane {
namespace {

const Date kNow{std::chrono::seconds(1795000000)};

// Writes the record as file text and reads it back, as a save and a load would.
template <class T>
T throughFile(const T& record) {
    T out{};
    fromJson(JsonCodec::parse(JsonCodec::pretty(toJson(record))), out, "record");
    return out;
}

TEST(ReminderRecords, ReminderEventSurvivesAFileAndKeysByKindAndRepository) {
    ReminderEvent open;
    open.id = "0b8e7a52-0000-4000-8000-000000000002";
    open.repoID = "/home/dev/code/app";
    open.kind = ReminderEvent::Kind::staleDirty;
    open.message = "app: uncommitted changes for more than 7 days.";
    open.triggeredAt = kNow;
    EXPECT_EQ(open.reconcileKey(), "staleDirty#/home/dev/code/app");
    EXPECT_FALSE(toJson(open).contains("resolvedAt"));
    EXPECT_FALSE(toJson(open).contains("snoozedUntil"));
    EXPECT_EQ(throughFile(open), open);

    ReminderEvent resolved = open;
    resolved.repoID.reset();
    resolved.kind = ReminderEvent::Kind::remoteOnly;
    resolved.resolvedAt = kNow + std::chrono::hours(1);
    resolved.snoozedUntil = kNow + std::chrono::minutes(30);
    EXPECT_EQ(resolved.reconcileKey(), "remoteOnly#");
    EXPECT_FALSE(toJson(resolved).contains("repoID"));
    EXPECT_EQ(throughFile(resolved), resolved);

    ReminderEvent out;
    Json unknown = toJson(open);
    unknown["kind"] = "needsReview";
    EXPECT_THROW(fromJson(unknown, out, "reminder"), DecodeError);
    Json missing = toJson(open);
    missing.erase("message");
    EXPECT_THROW(fromJson(missing, out, "reminder"), DecodeError);
}

TEST(ReminderRecords, DailyJournalLeavesUnwrittenNotesOut) {
    DailyJournal journal;
    journal.dateKey = "2026-11-22";
    EXPECT_EQ(toJson(journal), Json({{"dateKey", "2026-11-22"}}));
    EXPECT_EQ(throughFile(journal), journal);

    journal.manualNotes = "Finished the parser.";
    journal.blockers = "Waiting on review.";
    journal.tomorrowNotes = "Ship it.";
    journal.updatedAt = kNow;
    EXPECT_EQ(throughFile(journal), journal);

    EXPECT_THROW(fromJson(Json{{"blockers", "x"}}, journal, "journal"), DecodeError);
}

}  // namespace
}  // namespace quorvane
