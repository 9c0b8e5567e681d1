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

const Date kRead = Date(std::chrono::seconds(1795000000));
const Date kEarlier = Date(std::chrono::seconds(1794000000));

// Writes `record` as a file holds it and expects it back whole: a field left out of
// either direction of the codec would be lost at the next save.
template <class R>
void expectThroughFile(const R& record) {
    R decoded{};
    fromJson(JsonCodec::parse(JsonCodec::pretty(toJson(record))), decoded, "record");
    EXPECT_EQ(decoded, record);
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

// Records with every optional field empty go through the store in StoreTest.
TEST(GitHubRecordsTest, EveryFieldSurvivesAFile) {
    expectThroughFile(fullRemote());
    expectThroughFile(RemoteBranch{"main", "abc", kEarlier});
    expectThroughFile(fullBranch());
    expectThroughFile(fullMapping());
    expectThroughFile(fullState());
    expectThroughFile(
        ProjectHealthSnapshot{"/r", "/r", 65, {"pushed today"}, {"dirty", "stale"}, kRead});
    expectThroughFile(MappingCandidate{"acc:octo/tool", "/w/tool", 90, {"same name"}});
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
