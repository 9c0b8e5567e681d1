// What ends up tracked: every repository once, and none whose path the data files
// could not hold.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/PathHelpers.hpp"
#include "records/JsonCodec.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

Json trackedRepos(const fs::path& data) {
    ShellResult list = testing::runQuorvane(data, {"repos", "list", "--json"});
    EXPECT_EQ(list.exitCode, 0) << list.stdErr;
    return JsonCodec::parse(list.stdOut);
}

TEST(EnrolmentTest, APathThatIsNotUtf8IsRefusedAndNoFolderIsEnrolledTwice) {
    testing::TempDir dir;
    fs::path data = dir / "data";
    // Latin-1 "café": a valid Linux file name, but no text a JSON file can hold.
    fs::path latin1 = dir / "code/caf\xe9";
    testing::TestRepo(latin1).commitFile("a.txt", "a", "first");
    fs::path home = PathHelpers::homeDirectory();
    std::string name = "enrol-" + dir.path().filename().string();
    testing::TestRepo own(home / name);
    own.commitFile("a.txt", "a", "first");

    ShellResult add = testing::runQuorvane(data, {"repos", "add", latin1.string()});
    EXPECT_EQ(add.exitCode, 1);
    EXPECT_THAT(add.stdErr, HasSubstr("caf\\xe9"));
    EXPECT_THAT(add.stdErr, HasSubstr("not valid UTF-8"));

    // A repository tracked under a hand-written path is the same folder as the one a
    // scan folder finds.
    ASSERT_EQ(testing::runQuorvane(data, {"repos", "add", own.path().string()}).exitCode, 0);
    Json written = JsonCodec::parse(testing::readFile(data / "config.json"));
    written["repositories"][0]["id"] = "~/" + name + "/";
    written["repositories"][0]["localPath"] = "~/" + name + "/";
    testing::writeFile(data / "config.json", written.dump(2));

    ASSERT_EQ(testing::runQuorvane(data, {"folders", "add", (dir / "code").string(), home.string()})
                  .exitCode,
              0);
    for (int scan = 0; scan < 3; ++scan) {
        ShellResult result = testing::runQuorvane(data, {"scan"});
        EXPECT_EQ(result.exitCode, 0) << result.stdErr;
    }
    Json repos = trackedRepos(data);
    ASSERT_EQ(repos.size(), 1u) << repos.dump(2);
    EXPECT_EQ(repos[0].at("localPath"), "~/" + name + "/");
    fs::remove_all(own.path());
}

TEST(EnrolmentTest, AScanFolderThatIsNotUtf8IsRefusedAndOneStoredReplacedCanBeRemoved) {
    testing::TempDir dir;
    fs::path data = dir / "data";
    fs::path latin1 = dir / "caf\xe9", plain = dir / "plain";
    for (const fs::path& folder : {latin1, plain}) fs::create_directories(folder);
    for (int attempt = 0; attempt < 2; ++attempt) {
        ShellResult add = testing::runQuorvane(data, {"folders", "add", latin1.string()});
        EXPECT_EQ(add.exitCode, 1);
        EXPECT_THAT(add.stdErr, HasSubstr("caf\\xe9"));
        EXPECT_THAT(add.stdErr, HasSubstr("not valid UTF-8"));
    }
    ASSERT_EQ(testing::runQuorvane(data, {"folders", "add", plain.string()}).exitCode, 0);
    EXPECT_EQ(testing::runQuorvane(data, {"folders", "list"}).stdOut, plain.string() + "\n");

    // As an older version kept them: each byte that was not UTF-8 replaced by U+FFFD.
    Json written = JsonCodec::parse(testing::readFile(data / "config.json"));
    written["scanFolders"] = {(dir / "caf\xef\xbf\xbd").string(),
                              (dir / "na\xef\xbf\xbdve").string(), plain.string()};
    testing::writeFile(data / "config.json", written.dump(2));
    // Given the folder's own bytes, or its entry as the list prints it.
    ShellResult byBytes = testing::runQuorvane(data, {"folders", "remove", latin1.string()});
    EXPECT_EQ(byBytes.exitCode, 0) << byBytes.stdErr;
    ShellResult listed = testing::runQuorvane(data, {"folders", "list"});
    ASSERT_EQ(listed.stdOut, (dir / "na\xef\xbf\xbdve").string() + "\n" + plain.string() + "\n");
    ShellResult asListed = testing::runQuorvane(
        data, {"folders", "remove", listed.stdOut.substr(0, listed.stdOut.find('\n'))});
    EXPECT_EQ(asListed.exitCode, 0) << asListed.stdErr;
    EXPECT_EQ(testing::runQuorvane(data, {"folders", "list"}).stdOut, plain.string() + "\n");
}

}  // namespace
}  // namespace quorvane
