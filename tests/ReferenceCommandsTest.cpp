// The completion scripts and the manual page, as the built program prints them for
// the build to install: checked against what its own --help lists, then read and
// run by bash, zsh, fish and groff.
#include <map>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Shell.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

// A command as its --help shows it: the words that name it, its options (every
// name of each) and its subcommands.
struct HelpedCommand {
    std::string words;  // "repos add"; empty for the program itself
    std::vector<std::string> options;
    std::vector<std::string> commands;
};

std::vector<std::string> splitWords(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

class ReferenceCommandsTest : public ::testing::Test {
protected:
    ShellResult run(const std::string& executable, std::vector<std::string> arguments,
                    std::optional<std::string> input = std::nullopt) {
        ProcessRequest request;
        request.executable = executable;
        request.arguments = std::move(arguments);
        request.standardInput = std::move(input);
        request.environment = {{"HOME", home_.string()}};
        request.unsetEnvironment = {"XDG_DATA_HOME", "XDG_CONFIG_HOME"};
        request.timeout = 60;
        return Shell().run(request);
    }
    std::string quorvane(std::vector<std::string> arguments) {
        ShellResult result = run(QUORVANE_BINARY, arguments);
        EXPECT_EQ(result.exitCode, 0) << result.stdErr;
        return result.stdOut;
    }
    std::string save(const std::string& name, const std::string& text) {
        std::filesystem::path path = dir_ / name;
        testing::writeFile(path, text);
        return path.string();
    }

    // Every command the program's help lists, found by asking each one for its help.
    std::vector<HelpedCommand> helpedCommands() {
        std::vector<HelpedCommand> found;
        std::vector<std::string> pending = {""};
        while (!pending.empty()) {
            HelpedCommand command{pending.back(), {}, {}};
            pending.pop_back();
            std::vector<std::string> arguments = splitWords(command.words);
            arguments.push_back("--help");
            std::istringstream help(quorvane(arguments));
            std::string section;
            for (std::string line; std::getline(help, line);) {
                if (!line.empty() && line[0] != ' ') section = line;
                std::vector<std::string> words = splitWords(line);
                // An entry starts in the third column; a description wrapped to the
                // screen's width goes on further in.
                if (line.rfind("  ", 0) != 0 || line.size() < 3 || line[2] == ' ' ||
                    words.empty()) {
                    continue;
                }
                if (section == "Options:" && words[0][0] == '-') {
                    std::istringstream names(words[0]);
                    for (std::string name; std::getline(names, name, ',');) {
                        command.options.push_back(name);
                    }
                } else if (section == "Subcommands:" && splitWords(command.words).size() < 3) {
                    command.commands.push_back(words[0]);
                    pending.push_back(command.words.empty() ? words[0]
                                                            : command.words + " " + words[0]);
                }
            }
            found.push_back(command);
        }
        return found;
    }

    testing::TempDir dir_;
    std::filesystem::path home_ = dir_ / "home";
};

TEST_F(ReferenceCommandsTest, CompletionsCoverEveryCommandAndOptionTheHelpLists) {
    std::vector<HelpedCommand> commands = helpedCommands();
    ASSERT_GT(commands.size(), 30u);
    std::string bash = quorvane({"completion", "bash"});
    std::string zsh = quorvane({"completion", "zsh"});
    std::string fish = quorvane({"completion", "fish"});

    // Bash and fish are asked, as a person's TAB would, for each command's options
    // and subcommands.
    std::string bashCases = "source " + save("quorvane.bash", bash) + "\n";
    std::string fishCases = "source " + save("quorvane.fish", fish) + "\n";
    auto named = [](const HelpedCommand& command) {
        return command.words.empty() ? std::string("quorvane") : "quorvane " + command.words;
    };
    for (const HelpedCommand& command : commands) {
        for (const char* typed : {" -", " "}) {
            std::string line = named(command) + typed;
            std::vector<std::string> words = splitWords(line);
            if (line.back() == ' ') words.push_back("");
            bashCases += "COMP_WORDS=(";
            for (const std::string& word : words) bashCases += "'" + word + "' ";
            bashCases += fmt::format(
                "); COMP_CWORD={}; COMPREPLY=(); _quorvane; echo \"<{}> ${{COMPREPLY[*]}}\"\n",
                words.size() - 1, line);
            fishCases += fmt::format(
                "for c in (complete -C '{}'); echo \"<{}> \"(string split "
                "-f1 \\t -- $c); end\n",
                line, line);
        }
    }
    ShellResult bashRun = run("/bin/bash", {"--norc", "--noprofile", "-c", bashCases});
    ASSERT_EQ(bashRun.exitCode, 0) << bashRun.stdErr;
    ShellResult fishRun = run("/usr/bin/fish", {"--no-config", "-c", fishCases});
    ASSERT_EQ(fishRun.exitCode, 0) << fishRun.stdErr;
    // "<line> word word..." per line for bash, one "<line> word" per word for fish.
    auto offered = [](const std::string& output) {
        std::map<std::string, std::set<std::string>> replies;
        std::istringstream in(output);
        for (std::string line; std::getline(in, line);) {
            size_t close = line.find("> ");
            if (line.empty() || line[0] != '<' || close == std::string::npos) continue;
            for (const std::string& word : splitWords(line.substr(close + 2))) {
                replies[line.substr(1, close - 1)].insert(word);
            }
        }
        return replies;
    };
    std::map<std::string, std::set<std::string>> bashOffers = offered(bashRun.stdOut);
    std::map<std::string, std::set<std::string>> fishOffers = offered(fishRun.stdOut);

    for (const HelpedCommand& command : commands) {
        std::string prefix = named(command);
        SCOPED_TRACE(prefix);
        EXPECT_THAT(bashOffers[prefix + " -"], IsSupersetOf(command.options));
        EXPECT_THAT(fishOffers[prefix + " -"], IsSupersetOf(command.options));
        EXPECT_THAT(bashOffers[prefix + " "], IsSupersetOf(command.commands));
        EXPECT_THAT(fishOffers[prefix + " "], IsSupersetOf(command.commands));

        // zsh: the command's function describes each subcommand and option.
        std::string function = "_quorvane";
        for (const std::string& word : splitWords(command.words)) function += "_" + word;
        for (char& c : function) c = c == '-' ? '_' : c;
        size_t start = zsh.find("\n" + function + "() {\n");
        ASSERT_NE(start, std::string::npos);
        std::string body = zsh.substr(start, zsh.find("\n}\n", start) - start);
        for (const std::string& option : command.options) {
            EXPECT_THAT(body, ::testing::AnyOf(HasSubstr("'" + option + "["),
                                               HasSubstr("'" + option + "=[")));
        }
        for (const std::string& sub : command.commands) {
            EXPECT_THAT(body, HasSubstr("'" + sub + ":"));
        }
    }
    // Hidden commands are neither listed nor completed.
    EXPECT_EQ(bashOffers["quorvane "].count("completion"), 0u);
    EXPECT_EQ(bashOffers["quorvane "].count("manpage"), 0u);
    EXPECT_EQ(bashOffers["quorvane service "].count("unit"), 0u);
}

TEST_F(ReferenceCommandsTest, ShellsCompleteValuesFoldersAndChoices) {
    std::filesystem::create_directories(dir_ / "work/code");
    std::filesystem::create_directories(dir_ / "work/cold");
    testing::writeFile(dir_ / "work/coffee.txt", "not a folder");
    std::string work = (dir_ / "work").string();
    std::string bash = save("quorvane.bash", quorvane({"completion", "bash"}));
    auto complete = [&](std::vector<std::string> words) {
        std::string script = "source " + bash + "\nCOMP_WORDS=(";
        for (const std::string& word : words) script += "'" + word + "' ";
        script += fmt::format("); COMP_CWORD={}; _quorvane; printf '%s\\n' \"${{COMPREPLY[@]}}\"",
                              words.size() - 1);
        ShellResult result = run("/bin/bash", {"--norc", "--noprofile", "-c", script});
        EXPECT_EQ(result.exitCode, 0) << result.stdErr;
        std::vector<std::string> replies = splitWords(result.stdOut);
        return std::set<std::string>(replies.begin(), replies.end());
    };
    EXPECT_THAT(complete({"quorvane", "rep"}), UnorderedElementsAre("repos", "report"));
    EXPECT_THAT(complete({"quorvane", "repos", "add", work + "/co"}),
                UnorderedElementsAre(work + "/code", work + "/cold"));
    EXPECT_THAT(complete({"quorvane", "inventory", "--filter", "a"}),
                UnorderedElementsAre("active", "all", "archived"));
    EXPECT_THAT(complete({"quorvane", "report", ""}), UnorderedElementsAre("daily", "weekly"));
    EXPECT_THAT(complete({"quorvane", "report", "daily", "--format", ""}),
                UnorderedElementsAre("md", "json", "csv"));
    EXPECT_THAT(complete({"quorvane", "commits", "--l"}), UnorderedElementsAre("--limit"));
    // An option's value is skipped, whether it follows as a word or after "=",
    // which bash splits off as a word of its own.
    EXPECT_THAT(complete({"quorvane", "--data-dir", work, "sc"}), UnorderedElementsAre("scan"));
    EXPECT_THAT(complete({"quorvane", "--data-dir", "=", work, "sc"}),
                UnorderedElementsAre("scan"));
    EXPECT_THAT(complete({"quorvane", "--data-dir", "=", work + "/co"}),
                UnorderedElementsAre(work + "/code", work + "/cold"));
    EXPECT_TRUE(complete({"quorvane", "journal", "--notes", ""}).empty());

    std::string fish = save("quorvane.fish", quorvane({"completion", "fish"}));
    ShellResult fishRun = run("/usr/bin/fish", {"--no-config", "-c",
                                                "source " + fish +
                                                    "; complete -C 'quorvane report '; echo ==; "
                                                    "complete -C 'quorvane --data-dir " +
                                                    work + " repos add " + work + "/co'"});
    ASSERT_EQ(fishRun.exitCode, 0) << fishRun.stdErr;
    EXPECT_THAT(fishRun.stdOut, HasSubstr("daily\tPERIOD\nweekly\tPERIOD\n==\n"));
    EXPECT_THAT(fishRun.stdOut, HasSubstr(work + "/code/"));
    EXPECT_THAT(fishRun.stdOut, Not(HasSubstr("coffee")));
}

TEST_F(ReferenceCommandsTest, TheShellsAndGroffReadWhatIsInstalledWithoutComplaint) {
    std::string bash = save("quorvane.bash", quorvane({"completion", "bash"}));
    std::string zsh = save("_quorvane", quorvane({"completion", "zsh"}));
    std::string fish = save("quorvane.fish", quorvane({"completion", "fish"}));
    std::string manual = save("quorvane.1", quorvane({"manpage"}));
    // Printing them needs no data folder, and makes none.
    EXPECT_FALSE(std::filesystem::exists(home_ / ".local/share/Quorvane"));

    ShellResult bashCheck = run("/bin/bash", {"-n", bash});
    EXPECT_EQ(bashCheck.exitCode, 0) << bashCheck.stdErr;
    ShellResult fishCheck = run("/usr/bin/fish", {"--no-execute", fish});
    EXPECT_EQ(fishCheck.exitCode, 0) << fishCheck.stdErr;
    ShellResult zshCheck = run("/usr/bin/zsh", {"-n", zsh});
    EXPECT_EQ(zshCheck.exitCode, 0) << zshCheck.stdErr;
    // Sourced after compinit, the zsh file registers itself for quorvane.
    ShellResult zshLoad = run("/usr/bin/zsh", {"-f", "-c",
                                               "autoload -Uz compinit && compinit -u -D && "
                                               "source " +
                                                   zsh + " && print $_comps[quorvane]"});
    EXPECT_EQ(zshLoad.exitCode, 0) << zshLoad.stdErr;
    EXPECT_EQ(zshLoad.stdOut, "_quorvane\n") << zshLoad.stdErr;

    // -ww: every warning groff knows; any is a fault in the page.
    ShellResult groff = run("/usr/bin/groff", {"-man", "-Tutf8", "-ww", "-z", manual});
    EXPECT_EQ(groff.exitCode, 0);
    EXPECT_EQ(groff.stdErr, "");
}

}  // namespace
}  // namespace quorvane
