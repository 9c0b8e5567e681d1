#include "git/GitParsing.hpp"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

using GitParsing::AheadBehind;

GitFileCounts counts(int modified, int staged, int untracked, int deleted, int renamed) {
    return GitFileCounts{modified, staged, untracked, deleted, renamed};
}

TEST(GitParsingTest, FileCountsFollowTheStatusLetters) {
    EXPECT_EQ(GitParsing::fileCounts(" M a\n", false), counts(1, 0, 0, 0, 0));
    EXPECT_EQ(GitParsing::fileCounts("M  a\n", false), counts(0, 1, 0, 0, 0));
    EXPECT_EQ(GitParsing::fileCounts("MM a\n", false), counts(1, 1, 0, 0, 0));
    EXPECT_EQ(GitParsing::fileCounts(" T a\n", false), counts(1, 0, 0, 0, 0));
    EXPECT_EQ(GitParsing::fileCounts("A  a\n", false), counts(0, 1, 0, 0, 0));
    EXPECT_EQ(GitParsing::fileCounts(" D a\n", false), counts(0, 0, 0, 1, 0));
    EXPECT_EQ(GitParsing::fileCounts("D  a\n", false), counts(0, 1, 0, 1, 0));
    EXPECT_EQ(GitParsing::fileCounts("R  a -> b\n", false), counts(0, 1, 0, 0, 1));
    EXPECT_EQ(GitParsing::fileCounts("C  a -> b\n", false), counts(0, 1, 0, 0, 1));
    EXPECT_EQ(GitParsing::fileCounts("RM a -> b\n", false), counts(1, 1, 0, 0, 1));
    EXPECT_EQ(GitParsing::fileCounts("UU a\n", false), counts(0, 1, 0, 0, 0));
    EXPECT_EQ(GitParsing::fileCounts("!! ignored\n", false), counts(0, 0, 0, 0, 0));
}

TEST(GitParsingTest, FileCountsSkipShortLinesAndHonourIgnoreUntracked) {
    std::string text = "?? new\n\nX\n M changed\r\n?? other\n";
    EXPECT_EQ(GitParsing::fileCounts(text, false), counts(1, 0, 2, 0, 0));
    EXPECT_EQ(GitParsing::fileCounts(text, true), counts(1, 0, 0, 0, 0));
    EXPECT_EQ(GitParsing::fileCounts("", false).total(), 0);
}

TEST(GitParsingTest, AheadBehindReadsBehindFirst) {
    EXPECT_EQ(GitParsing::aheadBehind("2\t3\n"), (AheadBehind{3, 2}));
    EXPECT_EQ(GitParsing::aheadBehind("  +4   0 "), (AheadBehind{0, 4}));
    EXPECT_EQ(GitParsing::aheadBehind(""), (AheadBehind{0, 0}));
    EXPECT_EQ(GitParsing::aheadBehind("seven eight"), (AheadBehind{0, 0}));
    EXPECT_EQ(GitParsing::aheadBehind("5"), (AheadBehind{0, 0}));
    EXPECT_EQ(GitParsing::aheadBehind("1 x"), (AheadBehind{0, 0}));
}

// Fields as `git log -z` prints them: each one ended by a NUL.
std::string nulFields(const std::vector<std::string>& fields) {
    std::string out;
    for (const std::string& field : fields) out += field + '\0';
    return out;
}

TEST(GitParsingTest, CommitsComeFromNulFieldsAndRecordsWithoutARealHashAreDropped) {
    const std::string sha1(40, 'a'), sha2(64, 'b'), sha3 = "c" + std::string(39, '0');
    const std::string noon = "2026-11-21T12:00:00Z";
    std::string log = nulFields({sha1, "aaaaaaa", "Ada | Lovelace", "ada@example.org",
                                 "2026-11-21T10:15:00+01:00", noon, "Fix a|b parsing"}) +
                      nulFields({"not-a-hash", "abc", "Bob", "b@x", noon, noon, "dropped"}) +
                      // An author line git cannot read: it prints its own placeholder for the date.
                      nulFields({sha2, "bbbb", "", "", "%aI", noon, "Keep me"}) +
                      nulFields({sha2, "bbbb", "Bob", "b@x", "not a date", "nor this", "dropped"}) +
                      nulFields({sha3, "d", "Short hash", "x@y", noon, noon, "dropped"}) +
                      // Output cut short: an incomplete last record is not read.
                      nulFields({sha1, "aaaa", "Cut"}) + "off";
    auto record = [](std::string sha, std::string shortSha, std::string subject, std::string name,
                     std::string email, const char* when, std::string branch) {
        return CommitRecord{"/repo",
                            std::move(sha),
                            std::move(shortSha),
                            std::move(subject),
                            std::move(name),
                            std::move(email),
                            *DateHelpers::parseISO(when),
                            std::move(branch),
                            false,
                            std::nullopt,
                            std::nullopt};
    };
    // Without an author date the commit keeps its committer's; without both, no day holds it.
    EXPECT_EQ(GitParsing::commits(log, "/repo", "feature"),
              (std::vector<CommitRecord>{
                  record(sha1, "aaaaaaa", "Fix a|b parsing", "Ada | Lovelace", "ada@example.org",
                         "2026-11-21T09:15:00Z", "feature"),
                  record(sha2, "bbbb", "Keep me", "", "", noon.c_str(), "feature")}));

    std::string history =
        nulFields({sha1, "aaaa", "A", "a@x", noon, noon, "refs/heads/topic", "one"}) +
        nulFields({sha2, "bbbb", "B", "b@x", noon, noon, "main", "two"});
    EXPECT_EQ(
        GitParsing::historyCommits(history, "/repo"),
        (std::vector<CommitRecord>{record(sha1, "aaaa", "one", "A", "a@x", noon.c_str(), "topic"),
                                   record(sha2, "bbbb", "two", "B", "b@x", noon.c_str(), "main")}));
}

TEST(GitParsingTest, ChangedPathsTakeTheNewNameAndStripQuotes) {
    std::string status =
        " M src/main.cpp\n"
        "R  old name.txt -> new name.txt\n"
        "?? \"with space \\303\\251.txt\"\n"
        "?? ab\n"
        " M\n";
    std::vector<std::string> paths = GitParsing::changedPaths(status);
    EXPECT_EQ(paths, (std::vector<std::string>{"src/main.cpp", "new name.txt",
                                               "with space \\303\\251.txt", "ab"}));
}

TEST(GitParsingTest, ParseISODateAcceptsZonesAndFractions) {
    EXPECT_EQ(GitParsing::parseISODate(" 2026-11-21T18:58:03Z\n"),
              DateHelpers::parseISO("2026-11-21T18:58:03Z"));
    EXPECT_EQ(GitParsing::parseISODate("2026-11-21T19:58:03.250+01:00"),
              DateHelpers::parseISO("2026-11-21T18:58:03Z"));
    EXPECT_FALSE(GitParsing::parseISODate("").has_value());
    EXPECT_FALSE(GitParsing::parseISODate("2026-11-21 18:58:03").has_value());
    EXPECT_FALSE(GitParsing::parseISODate("2026-11-21T18:58:03").has_value());
    EXPECT_FALSE(GitParsing::parseISODate("2026-02-30T18:58:03Z").has_value());
}

TEST(GitParsingTest, StatusV2IsReadStrictlyAndNoByteSequenceBreaksIt) {
    using namespace std::string_literals;
    const std::string good =
        "# branch.oid 1111111111111111111111111111111111111111\0# branch.head main\0"
        "# branch.upstream origin/main\0# branch.ab +2 -1\0# stash 3\0"
        "1 .M N... 100644 100644 100644 aaaa bbbb a file.txt\0"
        "2 R. N... 100644 100644 100644 aaaa bbbb R100 new name\0old name\0"
        "u UU N... 100644 100644 100644 100644 aaaa bbbb cccc both.txt\0"
        "? caf\xc3\xa9.txt\0"s;
    std::optional<GitParsing::StatusV2> status = GitParsing::parseStatusV2(good);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(status->head, "main");
    EXPECT_EQ(status->upstream, "origin/main");
    EXPECT_EQ(status->aheadBehind, (GitParsing::AheadBehind{2, 1}));
    ASSERT_EQ(status->entries.size(), 4u);
    EXPECT_EQ(status->entries[1].origin, "old name");
    // The v1 listing git would print: quotes for the space, escapes for the byte.
    EXPECT_EQ(GitParsing::porcelainV1(*status, true),
              " M \"a file.txt\"\nR  \"old name\" -> \"new name\"\nUU both.txt\n"
              "?? \"caf\\303\\251.txt\"\n");
    EXPECT_EQ(GitParsing::porcelainV1Path("caf\xc3\xa9", false), "caf\xc3\xa9");

    // Each of these is refused rather than half read.
    for (const std::string& bad : {
             good.substr(0, good.size() - 1),                              // cut short
             "# branch.head main\0"s,                                      // no oid
             good + "3 .M x\0",                                            // unknown kind
             good + "1 .Z N... 100644 100644 100644 aaaa bbbb x\0",        // unknown code
             good + "2 R. N... 100644 100644 100644 aaaa bbbb R100 x\0"s,  // no origin
             "# branch.oid x\0# branch.head m\0# branch.ab 2 1\0"s,        // no signs
         }) {
        EXPECT_FALSE(GitParsing::parseStatusV2(bad).has_value()) << bad;
    }
    // Every prefix and every single-byte change: an answer or a refusal, never a crash.
    for (size_t cut = 0; cut <= good.size(); ++cut) GitParsing::parseStatusV2(good.substr(0, cut));
    for (size_t at = 0; at < good.size(); ++at) {
        for (char byte : {'\0', ' ', '\n', '#', '2', 'x'}) {
            std::string changed = good;
            changed[at] = byte;
            if (auto parsed = GitParsing::parseStatusV2(changed)) {
                GitParsing::porcelainV1(*parsed, true);
            }
        }
    }
}

}  // namespace
}  // namespace quorvane
