// The journal through the built program: showing, setting, clearing and editing.
#include <stdlib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "records/JsonCodec.hpp"
#include "testing/TempDir.hpp"
#include "tests/CliRunner.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;

class JournalCommandTest : public ::testing::Test {
protected:
    ShellResult quorvane(std::vector<std::string> arguments) {
        return testing::runQuorvane(dir_ / "data", std::move(arguments));
    }
    Json entry(const std::string& date) {
        ShellResult shown = quorvane({"journal", "--date", date, "--json"});
        EXPECT_EQ(shown.exitCode, 0) << shown.stdErr;
        return JsonCodec::parse(shown.stdOut);
    }
    // An editor that replaces the draft with `text`, then exits with `status`.
    void useEditor(const std::string& text, int status) {
        std::filesystem::path body = dir_ / "edited.md";
        testing::writeFile(body, text);
        std::filesystem::path script = dir_ / "editor.sh";
        testing::writeFile(script, "#!/bin/sh\ncp '" + body.string() + "' \"$1\"\nexit " +
                                       std::to_string(status) + "\n");
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        unsetenv("VISUAL");
        setenv("EDITOR", script.c_str(), 1);
    }

    testing::TempDir dir_;
};

TEST_F(JournalCommandTest, FieldsAreSetClearedAndKeptPerDay) {
    EXPECT_THAT(quorvane({"journal"}).stdOut, HasSubstr("Nothing written yet"));
    EXPECT_TRUE(entry("2026-01-05").is_null());

    ShellResult set = quorvane({"journal", "--date", "2026-01-05", "--notes",
                                "  shipped the parser \n", "--tomorrow", "review"});
    EXPECT_EQ(set.exitCode, 0) << set.stdErr;
    Json saved = entry("2026-01-05");
    EXPECT_EQ(saved["manualNotes"], "shipped the parser");
    EXPECT_EQ(saved["tomorrowNotes"], "review");
    EXPECT_FALSE(saved.contains("blockers"));
    EXPECT_TRUE(entry("2026-01-06").is_null());

    // Blank text clears a field; the same text again changes nothing.
    EXPECT_EQ(quorvane({"journal", "--date", "2026-01-05", "--notes", ""}).exitCode, 0);
    EXPECT_FALSE(entry("2026-01-05").contains("manualNotes"));
    EXPECT_THAT(quorvane({"journal", "--date", "2026-01-05", "--tomorrow", "review"}).stdOut,
                HasSubstr("unchanged"));
    ShellResult shown = quorvane({"journal", "--date", "2026-01-05"});
    EXPECT_THAT(shown.stdOut, HasSubstr("Tomorrow\n  review\n"));
}

TEST_F(JournalCommandTest, TheEditorRewritesTheEntryOrChangesNothing) {
    ASSERT_EQ(quorvane({"journal", "--date", "2026-01-05", "--blockers", "flaky CI"}).exitCode, 0);
    useEditor(
        "# help text the editor kept\n## Notes\nfirst line\n\nsecond line\n## Blockers\n\n"
        "## Tomorrow\n  plan  \n## Unknown\nignored\n",
        0);
    ShellResult edited = quorvane({"journal", "--date", "2026-01-05", "--edit"});
    EXPECT_EQ(edited.exitCode, 0) << edited.stdErr;
    Json saved = entry("2026-01-05");
    EXPECT_EQ(saved["manualNotes"], "first line\n\nsecond line");
    EXPECT_FALSE(saved.contains("blockers"));
    EXPECT_EQ(saved["tomorrowNotes"], "plan");

    useEditor("## Notes\nnot kept\n", 1);
    ShellResult failed = quorvane({"journal", "--date", "2026-01-05", "--edit"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(failed.stdErr, HasSubstr("the journal is unchanged"));
    EXPECT_EQ(entry("2026-01-05")["manualNotes"], "first line\n\nsecond line");
    // The draft never outlives the edit.
    for (const auto& file : std::filesystem::directory_iterator(dir_ / "data")) {
        EXPECT_FALSE(file.path().filename().string().starts_with("journal-")) << file.path();
    }
}

}  // namespace
}  // namespace quorvane
