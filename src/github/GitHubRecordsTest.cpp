#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>

#include "github/MappingCandidate.hpp"
#include "github/RemoteBranch.hpp"
#include "records/BranchRecord.hpp"
#include "records/ProjectHealthSnapshot.hpp"
#include "records/RemoteRepository.hpp"
#include "records/RepositoryMapping.hpp"
#include "records/SyncState.hpp"

namespace quorvane {
namespace {

using Keys = std::set<std::string>;

const Date kRead = Date(std::chrono::seconds(1795000000));
const Date kEarlier = Date(std::chrono::seconds(1794000000));

// Writes `record` as a file holds it, checks the keys written, and reads it back.
template <class R>
void expectRoundTrip(const R& record, const Keys& keys) {
    Json json = JsonCodec::parse(JsonCodec::pretty(toJson(record)));
    Keys written;
    for (const auto& item : json.items()) written.insert(item.key());
    EXPECT_EQ(written, keys);
    R decoded{};
    fromJson(json, decoded, "record");
    EXPECT_EQ(decoded, record);
}

// Round-trips `full` with every key and `bare` with the optional keys left out, and
// expects `bare` refused without any one of its required keys.
template <class R>
void expectRoundTrips(const R& full, const R& bare, Keys required, const Keys& optional) {
    expectRoundTrip(bare, required);
    for (const std::string& key : required) {
        Json partial = toJson(bare);
        partial.erase(key);
        R decoded{};
        EXPECT_THROW(fromJson(partial, decoded, "record"), DecodeError) << key;
    }
    required.insert(optional.begin(), optional.end());
    expectRoundTrip(full, required);
}

// clang-format off
RemoteRepository fullRemote() {
    return {"acc:octo/tool", "acc", "octo", "tool", "octo/tool", "https://h/octo/tool",
            "git@h:octo/tool.git", "https://h/octo/tool.git", true, true, true, "trunk",
            "a tool", "C++", kEarlier, kRead - std::chrono::seconds(5), kRead};
}
BranchRecord fullBranch() {
    return {"/r#feat#L", "/r", "feat", true, true, "origin/feat", 3, 4, "abc", kEarlier, kRead, 3};
}
RepositoryMapping fullMapping() {
    return {"/r", "/r", "acc:octo/tool", "acc", RepositoryMapping::Kind::accountMismatch, 0.5,
            true, kRead};
}
SyncState fullState() {
    return {"/r", "/r", "acc:octo/tool", "acc", SyncState::Status::diverged, 2, 7, true, true,
            "remote-sha", "local-sha", kRead};
}
// clang-format on

const ProjectHealthSnapshot kHealth{"/r", "/r", 65, {"pushed today"}, {"dirty", "stale"}, kRead};

TEST(GitHubRecordsTest, RecordsRoundTripAndRequireTheirKeys) {
    RemoteRepository bareRemote = fullRemote();
    bareRemote.htmlURL = bareRemote.sshURL = bareRemote.cloneURL = "";
    bareRemote.description = bareRemote.language = std::nullopt;
    bareRemote.pushedAt = bareRemote.updatedAt = std::nullopt;
    expectRoundTrips(
        fullRemote(), bareRemote,
        {"id", "accountID", "owner", "name", "fullName", "htmlURL", "sshURL", "cloneURL",
         "isPrivate", "isFork", "isArchived", "defaultBranch", "lastSyncedAt"},
        {"description", "language", "pushedAt", "updatedAt"});

    expectRoundTrips(RemoteBranch{"main", "abc", kEarlier}, RemoteBranch{"main", {}, {}}, {"name"},
                     {"lastCommitSha", "lastCommitDate"});

    BranchRecord bareBranch = fullBranch();
    bareBranch.upstreamName = bareBranch.lastCommitSha = std::nullopt;
    bareBranch.lastCommitDate = std::nullopt;
    bareBranch.unpushedCount = 0;  // as in a file written before the count was kept
    expectRoundTrips(fullBranch(), bareBranch,
                     {"id", "repoID", "name", "isLocal", "isRemote", "aheadCount", "behindCount",
                      "lastSyncedAt"},
                     {"upstreamName", "lastCommitSha", "lastCommitDate", "unpushedCount"});

    RepositoryMapping bareMapping = fullMapping();
    bareMapping.localRepoID = bareMapping.remoteRepoID = bareMapping.accountID = std::nullopt;
    expectRoundTrips(fullMapping(), bareMapping,
                     {"id", "kind", "confidence", "confirmedByUser", "createdAt"},
                     {"localRepoID", "remoteRepoID", "accountID"});

    SyncState bareState = fullState();
    bareState.repoID = bareState.remoteRepoID = bareState.accountID = std::nullopt;
    bareState.lastRemoteCommitSha = bareState.lastLocalCommitSha = std::nullopt;
    expectRoundTrips(
        fullState(), bareState,
        {"id", "status", "localAhead", "localBehind", "hasUpstream", "hasRemoteBranch",
         "calculatedAt"},
        {"repoID", "remoteRepoID", "accountID", "lastRemoteCommitSha", "lastLocalCommitSha"});

    expectRoundTrips(kHealth, ProjectHealthSnapshot{"/r", "/r", 100, {}, {}, kRead},
                     {"id", "repoID", "score", "reasonsPositive", "reasonsNegative", "capturedAt"},
                     {});

    expectRoundTrips(MappingCandidate{"acc:octo/tool", "/w/tool", 90, {"same name"}},
                     MappingCandidate{"acc:octo/tool", "/w/tool", 1, {}},
                     {"remoteRepoID", "localPath", "confidence", "evidence"}, {});
}

// A case left out of the name table would be written as an empty name and never read back.
template <class E>
void expectEveryCaseNamed(E last, const std::string& lastName) {
    std::set<std::string_view> names;
    for (int i = 0; i <= static_cast<int>(last); ++i) {
        std::string_view name = enumName(static_cast<E>(i));
        EXPECT_EQ(enumFromName<E>(name), static_cast<E>(i)) << "case " << i;
        names.insert(name);
    }
    EXPECT_EQ(names.size(), static_cast<size_t>(last) + 1);
    EXPECT_EQ(enumName(last), lastName);
}

TEST(GitHubRecordsTest, EnumsPersistAsTheirCaseNamesAndRejectOthers) {
    expectEveryCaseNamed(RepositoryMapping::Kind::remoteInaccessible, "remoteInaccessible");
    expectEveryCaseNamed(SyncState::Status::unknown, "unknown");
    EXPECT_EQ(toJson(fullMapping())["kind"], "accountMismatch");

    Json state = toJson(fullState());
    state["status"] = "behind";
    SyncState decoded;
    EXPECT_THROW(fromJson(state, decoded, "state"), DecodeError);
}

TEST(GitHubRecordsTest, ComposedIDsHaveTheirShape) {
    EXPECT_EQ(fullRemote().composedID(), "acc:octo/tool");

    BranchRecord branch = fullBranch();  // on both sides: one local row
    EXPECT_EQ(branch.composedID(), "/r#feat#L");
    branch.isLocal = false;
    branch.repoID = fullRemote().composedID();
    EXPECT_EQ(branch.composedID(), "acc:octo/tool#feat#R");

    RepositoryMapping mapping = fullMapping();
    EXPECT_EQ(mapping.composedID(), "/r");
    mapping.localRepoID = std::nullopt;  // a remote-only row
    EXPECT_EQ(mapping.composedID(), "acc:octo/tool");
    mapping.remoteRepoID = std::nullopt;
    EXPECT_EQ(mapping.composedID(), "");
}

}  // namespace
}  // namespace quorvane
