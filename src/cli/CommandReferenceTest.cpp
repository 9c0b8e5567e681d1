#include "cli/CommandReference.hpp"

#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <CLI/CLI.hpp>

#include "cli/ManualPage.hpp"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// A small program shaped like quorvane's: a group that needs a subcommand, a
// repeating path argument, listed values, a validated number, an optional
// argument, and a hidden command and option that must stay out of sight.
class CommandReferenceTest : public ::testing::Test {
protected:
    CommandReferenceTest() {
        app_.require_subcommand(1);
        app_.add_option("--data-dir", text_, "Use DIR")->type_name("DIR");
        app_.add_flag("--secret", flag_, "Not for people")->group("");
        CLI::App* repos = app_.add_subcommand("repos", "Manage repositories");
        repos->require_subcommand(1);
        CLI::App* add = repos->add_subcommand("add", "Track PATH...\nThe rest of the story.");
        add->add_option("PATH", paths_, "Folders")->required();
        add->add_flag("-j,--json", flag_, "Print JSON");
        CLI::App* report = app_.add_subcommand("report", "Write a report");
        report->add_option("PERIOD", text_, "daily or weekly")
            ->required()
            ->check(CLI::IsMember({"daily", "weekly"}));
        report->add_option("--limit", number_, "At most N")
            ->type_name("N")
            ->check(CLI::NonNegativeNumber);
        report->add_option("--out", text_, "Into DIR, or - for standard output")
            ->type_name("DIR|-");
        report->add_option("REPO", optional_, "One repository");
        app_.add_subcommand("internal", "Hidden")->group("");
    }

    CLI::App app_{"A test program.", "prog"};
    std::string text_;
    std::optional<std::string> optional_;
    std::vector<std::string> paths_;
    bool flag_ = false;
    int number_ = 0;
};

TEST_F(CommandReferenceTest, ReadsCommandsOptionsAndArgumentsAsDeclared) {
    CommandReference root = describeCommands(app_);
    EXPECT_TRUE(root.needsCommand);
    ASSERT_EQ(root.commands.size(), 2u);  // "internal" is hidden
    std::vector<std::string> names;
    for (const CommandReference* command : allCommands(root)) {
        names.push_back(command->fullName("prog"));
    }
    EXPECT_THAT(names, ElementsAre("prog", "prog repos", "prog repos add", "prog report"));

    // The help flag, then --data-dir; --secret is hidden.
    ASSERT_EQ(root.options.size(), 2u);
    EXPECT_THAT(root.options[0].names, ElementsAre("-h", "--help"));
    EXPECT_EQ(root.options[0].kind, ValueKind::none);
    EXPECT_EQ(root.options[1].valueName, "DIR");
    EXPECT_EQ(root.options[1].kind, ValueKind::directory);

    const CommandReference& add = root.commands[0].commands[0];
    EXPECT_EQ(add.summary(), "Track PATH...");
    ASSERT_EQ(add.arguments.size(), 1u);
    EXPECT_TRUE(add.arguments[0].positional());
    EXPECT_EQ(add.arguments[0].valueName, "PATH");
    EXPECT_EQ(add.arguments[0].kind, ValueKind::directory);
    EXPECT_TRUE(add.arguments[0].required);
    EXPECT_TRUE(add.arguments[0].repeats);
    EXPECT_THAT(add.options[1].names, ElementsAre("-j", "--json"));

    const CommandReference& report = root.commands[1];
    EXPECT_FALSE(report.needsCommand);
    ASSERT_EQ(report.arguments.size(), 2u);
    EXPECT_EQ(report.arguments[0].kind, ValueKind::choice);
    EXPECT_THAT(report.arguments[0].choices, ElementsAre("daily", "weekly"));
    EXPECT_FALSE(report.arguments[0].repeats);
    EXPECT_FALSE(report.arguments[1].required);
    EXPECT_EQ(report.arguments[1].kind, ValueKind::directory);  // a repository's folder
    // A validator that lists no values leaves only the value's name.
    EXPECT_EQ(report.options[1].valueName, "N");
    EXPECT_EQ(report.options[1].kind, ValueKind::text);
    EXPECT_TRUE(report.options[1].choices.empty());
    EXPECT_EQ(report.options[2].kind, ValueKind::directory);
}

TEST(ManualPageTest, EscapesWhatRoffWouldReadAsRequestsOrEscapes) {
    using ManualPage::escape;
    EXPECT_EQ(escape(".hidden\n.also"), "\\&.hidden\n\\&.also");
    EXPECT_EQ(escape("a.b"), "a.b");
    EXPECT_EQ(escape("C:\\dir"), "C:\\edir");
    EXPECT_EQ(escape("--data-dir"), "\\-\\-data\\-dir");
    EXPECT_EQ(escape("'quoted' \"twice\""), "\\(aqquoted\\(aq \\(dqtwice\\(dq");
    EXPECT_EQ(escape("~/x ^ `y`"), "\\(ti/x \\(ha \\(gay\\(ga");
    EXPECT_EQ(escape("caf\u00e9 \u2192 \U0001F600"), "caf\\[u00E9] \\[u2192] \\[u1F600]");
    EXPECT_EQ(escape("bad \xC3"), "bad \\[uFFFD]");
}

TEST_F(CommandReferenceTest, TheManualPageDescribesEveryCommandOnce) {
    app_.footer("Examples:\n  prog repos add ~/code   track a folder\nNot an example.");
    app_.get_subcommand("repos")->get_subcommand("add")->description(
        "Track PATH...\n.dotted line\n  prog repos add \\\\server\nback to text");
    // Every command takes --data-dir, like the program does.
    for (CLI::App* command : {app_.get_subcommand("repos"), app_.get_subcommand("report"),
                              app_.get_subcommand("repos")->get_subcommand("add")}) {
        command->add_option("--data-dir", text_, "Use DIR")->type_name("DIR");
    }
    ManualText text;
    text.summary = "test things";
    text.source = "prog 1.0";
    text.files = {{"~/.prog", "Its folder"}};
    text.seeAlso = {"git(1)", "man(1)"};
    std::string page = ManualPage::write(describeCommands(app_), "prog", text);

    EXPECT_THAT(page, HasSubstr(".TH PROG 1 \"\" \"prog 1.0\" \"User Commands\"\n"));
    EXPECT_THAT(page, HasSubstr(".SH NAME\nprog \\- test things\n"));
    // The summary is a paragraph of its own; a leading dot is escaped, and an
    // indented line is kept as it is, backslashes and all.
    EXPECT_THAT(page, HasSubstr(".SS \\fBprog repos add\\fR [\\fIOPTIONS\\fR] \\fIPATH\\fR...\n"
                                "Track PATH...\n.PP\n\\&.dotted line\n"
                                ".RS\n.nf\nprog repos add \\e\\eserver\n.fi\n.RE\n"
                                "back to text\n"));
    EXPECT_THAT(page, HasSubstr(".TP\n\\fB\\-j\\fR, \\fB\\-\\-json\\fR\nPrint JSON\n"));
    EXPECT_THAT(page, HasSubstr(".SS \\fBprog report\\fR [\\fIOPTIONS\\fR] \\fIPERIOD\\fR "
                                "[\\fIREPO\\fR]\n"));
    EXPECT_THAT(page, HasSubstr(".SS \\fBprog repos\\fR [\\fIOPTIONS\\fR] \\fICOMMAND\\fR\n"));
    // --data-dir and --help go under OPTIONS once, said to work everywhere.
    EXPECT_THAT(page, HasSubstr("Every command takes \\fB\\-\\-help\\fR and "
                                "\\fB\\-\\-data\\-dir\\fR as well.\n"));
    size_t commands = page.find(".SH COMMANDS");
    ASSERT_NE(commands, std::string::npos);
    EXPECT_THAT(page.substr(commands), Not(HasSubstr("data\\-dir")));
    EXPECT_THAT(page, Not(HasSubstr("internal")));
    EXPECT_THAT(page, HasSubstr(".SH FILES\n.TP\n\\fI\\(ti/.prog\\fR\nIts folder\n"));
    EXPECT_THAT(page, Not(HasSubstr(".SH ENVIRONMENT")));  // none given
    EXPECT_THAT(page, HasSubstr(".SH EXAMPLES\n.TP\n\\fBprog repos add \\(ti/code\\fR\n"
                                "track a folder\n.SH SEE ALSO\n\\fBgit\\fR(1),\n\\fBman\\fR(1)\n"));
}

}  // namespace
}  // namespace quorvane
