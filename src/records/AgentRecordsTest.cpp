#include <gtest/gtest.h>

#include "records/AuditLogEntry.hpp"
#include "records/PendingProposal.hpp"
#include "records/ProjectMetadata.hpp"

namespace quorvane {
namespace {

const Date kNow{std::chrono::seconds(1795000000)};

// Writes the record as file text and reads it back, then checks that a changed or
// removed key is refused.
template <class T>
void expectSurvivesFileAndRefuses(const T& record, const char* key, const Json& badValue) {
    T out{};
    fromJson(JsonCodec::parse(JsonCodec::pretty(toJson(record))), out, "record");
    EXPECT_EQ(out, record);
    Json changed = toJson(record);
    changed[key] = badValue;
    EXPECT_THROW(fromJson(changed, out, "record"), DecodeError) << key;
    changed.erase(key);
    EXPECT_THROW(fromJson(changed, out, "record"), DecodeError) << key;
}

TEST(AgentRecords, ProposalSurvivesAFileBeforeAndAfterApproval) {
    PendingProposal proposal;
    proposal.id = "9a4f3b10-0000-4000-8000-000000000004";
    proposal.title = "Link app to dev/app";
    proposal.payloadJSON = R"({"localRepoId":"/r","remoteRepoId":"42"})";
    proposal.createdAt = kNow;
    EXPECT_EQ(toJson(proposal)["payloadJSON"], proposal.payloadJSON);  // text, not nested
    EXPECT_FALSE(toJson(proposal).contains("confirmationToken"));
    expectSurvivesFileAndRefuses(proposal, "status", "done");

    proposal.kind = PendingProposal::Kind::safeGit;
    proposal.confidence = 87;
    proposal.evidence = {"remote URL matches"};
    proposal.status = PendingProposal::Status::approved;
    proposal.confirmationToken = "test-token-not-secret";
    proposal.expiresAt = kNow + std::chrono::seconds(900);
    proposal.intendedTool = "git_push";
    proposal.argsFingerprint = R"(git_push|{"branch":"main","repoId":"/r"})";
    EXPECT_EQ(toJson(proposal)["status"], "approved");
    expectSurvivesFileAndRefuses(proposal, "kind", "safegit");
    expectSurvivesFileAndRefuses(proposal, "evidence", "remote URL matches");
}

TEST(AgentRecords, AuditEntryAndProjectMetadataSurviveAFile) {
    AuditLogEntry entry;
    entry.id = "c3d2e1f0-0000-4000-8000-000000000005";
    entry.at = kNow;
    entry.actor = "user";
    entry.tool = "agent_review.confirm";
    entry.status = "ok";
    EXPECT_EQ(toJson(entry)["at"], "2026-11-18T11:06:40Z");
    EXPECT_FALSE(toJson(entry).contains("detail"));
    expectSurvivesFileAndRefuses(entry, "status", 1);
    entry.detail = "approved mapping; token valid 15m";
    entry.proposalId = "9a4f3b10-0000-4000-8000-000000000004";
    expectSurvivesFileAndRefuses(entry, "at", "yesterday");

    ProjectMetadata metadata;
    metadata.repoID = "/home/dev/code/api";
    metadata.inferredAt = kNow;
    EXPECT_FALSE(toJson(metadata).contains("nextAction"));
    expectSurvivesFileAndRefuses(metadata, "stack", "python");
    metadata.stack = {"python", "docker"};
    metadata.category = "work";
    metadata.priority = RepoConfig::Priority::high;
    metadata.nextAction = "Commit the pending changes.";
    EXPECT_EQ(toJson(metadata)["priority"], "high");
    expectSurvivesFileAndRefuses(metadata, "priority", "urgent");
}

}  // namespace
}  // namespace quorvane
