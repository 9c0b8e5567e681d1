// The reports of one fixed day and week, rendered by the command line from a data
// folder that real scans of real repositories filled, compared byte for byte with
// the files under tests/golden. After an intended change of the reports, run the
// tests with QUORVANE_UPDATE_GOLDEN=1 to rewrite those files, and review the diff.
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "app/AppEnvironment.hpp"
#include "cli/CommandLine.hpp"
#include "git/GitScanner.hpp"
#include "git/RepoDiscovery.hpp"
#include "github/BranchIntelligence.hpp"
#include "persistence/AtomicFile.hpp"
#include "platform/Shell.hpp"
#include "records/JsonCodec.hpp"
#include "testing/FakeClock.hpp"
#include "testing/LoopbackHttpServer.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::TestRepo;

Date at(const char* iso) {
    return *DateHelpers::parseISO(iso);
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
    return text;
}

class ReportGoldenTest : public ::testing::Test {
protected:
    // A week whose Wednesday, 2026-03-11, is "today": the base commit on Monday, a
    // probe commit on Tuesday, the rest on Wednesday morning before the first scan.
    void SetUp() override {
        TestRepo origin(dir_ / "origin.git", TestRepo::Kind::bare);
        TestRepo synced = TestRepo::cloneOf(origin, dir_ / "synced");
        synced.commitFile("README.md", "# Project\n", "Lay out the project",
                          at("2026-03-09T10:00:00Z"));
        synced.git({"push", "-q", "origin", "main"});
        TestRepo app = TestRepo::cloneOf(origin, dir_ / "app");
        TestRepo lagging = TestRepo::cloneOf(origin, dir_ / "lagging");
        // A feature branch with a commit no remote holds, left while main goes on.
        synced.git({"checkout", "-q", "-b", "feature/export"});
        synced.commitFile("export.c", "int export(void);\n", "Sketch the export",
                          at("2026-03-05T16:00:00Z"));
        synced.git({"checkout", "-q", "main"});
        synced.commitFile("build.txt", "fast\n", "Tune the build", at("2026-03-11T08:00:00Z"));
        synced.git({"push", "-q", "origin", "main"});
        lagging.git({"fetch", "-q"});
        lagging.write("README.md", "# Project, edited\n");

        app.commitFile("parser.c", "int parse(void);\n",
                       "Add the parser\n\nIt reads the configuration file.",
                       at("2026-03-11T07:30:00Z"));
        app.commitFile("main.c", "int main(void) { return parse(); }\n", "Wire the parser in",
                       at("2026-03-11T08:15:00Z"));

        TestRepo probe(dir_ / "probe");
        probe.commitFile("probe.sh", "echo 1\n", "Sketch the probe", at("2026-03-10T15:00:00Z"));
        probe.commitFile("probe.sh", "echo 2\n", "Try a faster probe", at("2026-03-11T08:40:00Z"));
        probe.git({"checkout", "-q", "--detach", "HEAD"});

        // Nobody works in idle this week; its remote moved on without it.
        TestRepo idleOrigin(dir_ / "idle-origin.git", TestRepo::Kind::bare);
        TestRepo idleSeed = TestRepo::cloneOf(idleOrigin, dir_ / "idle-seed");
        idleSeed.commitFile("plan.md", "- one\n", "Draft the plan", at("2026-02-20T10:00:00Z"));
        idleSeed.git({"push", "-q", "origin", "main"});
        TestRepo idle = TestRepo::cloneOf(idleOrigin, dir_ / "idle");
        idleSeed.commitFile("plan.md", "- two\n", "Revise the plan", at("2026-02-24T10:00:00Z"));
        idleSeed.git({"push", "-q", "origin", "main"});
        idle.git({"fetch", "-q"});

        TestRepo quoted(dir_ / "say \"hi\"");
        quoted.commitFile("notes.md", "- one\n", "Start the notes", at("2026-03-02T09:00:00Z"));
        quoted.write("draft.md", "unsaved thoughts\n");

        AppEnvironment env(dataDir(), clock_, shell_);
        env.load();
        RepoDiscovery discovery(shell_);
        env.addDiscovered({discovery.makeRepo(app.path()), discovery.makeRepo(synced.path()),
                           discovery.makeRepo(lagging.path()), discovery.makeRepo(probe.path()),
                           discovery.makeRepo(quoted.path()), discovery.makeRepo(idle.path())});
        env.scanNow();  // the first scan has nothing to compare with: no session yet

        // Three changes in the app between scans: a session from 09:25 to 10:35.
        app.write("parser.c", "int parse(const char*);\n");
        clock_.advance(25min);
        env.scanNow();
        app.write("lexer.c", "int lex(void);\n");
        clock_.advance(40min);
        env.scanNow();
        app.git({"add", "lexer.c"});
        clock_.advance(30min);
        env.scanNow();

        // The local branches as a sync stores them.
        GitScanner scanner(shell_, clock_);
        for (const RepoConfig& repo : env.config().repositories) {
            env.store().replaceBranches(
                repo.id, BranchIntelligence::branches(
                             repo.id, scanner.localBranches(repo.localPath), {}, clock_.now()));
        }
        env.store().upsertJournal(DailyJournal{.dateKey = "2026-03-11",
                                               .manualNotes = "Paired on the parser.",
                                               .blockers = "",
                                               .tomorrowNotes = "Release the probe.",
                                               .updatedAt = clock_.now()});
        env.store().flush();
    }

    fs::path dataDir() const { return dir_ / "data"; }

    struct Outcome {
        int status = 0;
        std::string out, err;
    };

    // Runs the command line in this process, on the fixed clock.
    Outcome runAny(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "quorvane");
        arguments.push_back("--data-dir");
        arguments.push_back(dataDir().string());
        std::vector<const char*> argv;
        for (const std::string& argument : arguments) argv.push_back(argument.c_str());
        std::ostringstream out, err;
        int status =
            runCommandLine(static_cast<int>(argv.size()), argv.data(), out, err, shell_, clock_);
        return {status, out.str(), err.str()};
    }

    // The same, failing the test when the command fails or complains.
    std::string run(std::vector<std::string> arguments) {
        Outcome outcome = runAny(std::move(arguments));
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(outcome.err, "");
        return outcome.out;
    }

    // The line of `text` that starts with `start`, or "" when none does.
    static std::string lineStarting(const std::string& text, const std::string& start) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(start)) return line;
        }
        return "";
    }

    // The temporary folder differs on every run; the golden files name it "/TMP".
    std::string portable(std::string text) const {
        text = replaceAll(std::move(text), fs::canonical(dir_.path()).string(), "/TMP");
        return replaceAll(std::move(text), dir_.path().string(), "/TMP");
    }

    std::string readFile(const fs::path& path) const {
        AtomicFile::ReadResult read = AtomicFile::read(path);
        EXPECT_TRUE(read.bytes.has_value()) << path << ": " << read.error;
        return read.bytes.value_or("");
    }

    void expectGolden(const std::string& name, const std::string& rendered) {
        fs::path golden = fs::path(QUORVANE_GOLDEN_DIR) / name;
        std::string text = portable(rendered);
        const char* update = std::getenv("QUORVANE_UPDATE_GOLDEN");
        if (update != nullptr && std::string(update) == "1") {
            ASSERT_FALSE(AtomicFile::write(golden, text, 0644).has_value()) << golden;
            return;
        }
        EXPECT_EQ(text, readFile(golden))
            << "differs from " << golden << " (QUORVANE_UPDATE_GOLDEN=1 rewrites it)";
    }

    testing::TempDir dir_;
    testing::FakeClock clock_{at("2026-03-11T09:00:00Z")};
    Shell shell_;
};

TEST_F(ReportGoldenTest, TheDailyReportInEveryFormat) {
    std::string markdown = run({"report", "daily", "--date", "2026-03-11"});
    expectGolden("daily.md", markdown);

    fs::path out = dir_ / "reports";
    for (const char* format : {"json", "csv", "md"}) {
        fs::path file = out / fmt::format("daily-2026-03-11.{}", format);
        EXPECT_EQ(run({"report", "daily", "--date", "2026-03-11", "--format", format, "--out",
                       out.string()}),
                  file.string() + "\n");
        expectGolden(fmt::format("daily.{}", format), readFile(file));
        // "--out -" prints what the file holds.
        EXPECT_EQ(
            run({"report", "daily", "--date", "2026-03-11", "--format", format, "--out", "-"}),
            readFile(file))
            << format;
    }
}

TEST_F(ReportGoldenTest, TheWeeklyReportAsMarkdownAndJSON) {
    // Any day of the week gives the week that starts on its Monday.
    std::string markdown = run({"report", "weekly", "--date", "2026-03-15"});
    expectGolden("weekly.md", markdown);

    fs::path out = dir_ / "reports";
    EXPECT_EQ(run({"report", "weekly", "--format", "json", "--out", out.string()}),
              (out / "weekly-2026-03-09.json").string() + "\n");
    expectGolden("weekly.json", readFile(out / "weekly-2026-03-09.json"));
    EXPECT_EQ(run({"report", "weekly", "--format", "json", "--out", "-"}),
              readFile(out / "weekly-2026-03-09.json"));
}

TEST_F(ReportGoldenTest, FilesGoToTheDocumentsReportsFolderAndWeeklyCSVIsRefused) {
    std::string data = dataDir().string();
    std::ostringstream out, err;
    std::vector<const char*> weeklyCSV = {"quorvane", "report",     "weekly",    "--format",
                                          "csv",      "--data-dir", data.c_str()};
    EXPECT_EQ(runCommandLine(static_cast<int>(weeklyCSV.size()), weeklyCSV.data(), out, err, shell_,
                             clock_),
              2);
    EXPECT_NE(err.str().find("a weekly report is written as md or json"), std::string::npos)
        << err.str();

    // The test's HOME has no user-dirs.dirs: the folder is ~/Documents/QVNQuorvane/Reports.
    fs::path written = run({"report", "daily", "--format", "csv"});
    written = written.string().substr(0, written.string().size() - 1);
    EXPECT_EQ(written.parent_path(),
              fs::path(std::getenv("HOME")) / "Documents" / "QVNQuorvane" / "Reports");
    EXPECT_EQ(written.filename(), "daily-2026-03-11.csv");
    EXPECT_EQ(readFile(written), readFile(fs::path(QUORVANE_GOLDEN_DIR) / "daily.csv"));
}

TEST_F(ReportGoldenTest, APastDayShowsHowItsLastScanLeftEachRepository) {
    std::string thatDay = run({"report", "daily"});

    // The next morning the app's work is committed and pushed, and lagging catches up.
    clock_.advance(24h);
    TestRepo app(dir_ / "app");
    app.commitAll("Finish the lexer", clock_.now());
    app.git({"pull", "-q", "--rebase", "origin", "main"});
    app.git({"push", "-q", "origin", "main"});
    TestRepo lagging(dir_ / "lagging");
    lagging.git({"checkout", "-q", "--", "README.md"});
    lagging.git({"merge", "-q", "--ff-only", "origin/main"});
    TestRepo(dir_ / "idle").git({"merge", "-q", "--ff-only", "origin/main"});
    {
        AppEnvironment env(dataDir(), clock_, shell_);
        env.load();
        env.scanNow();
    }

    std::string later = run({"report", "daily", "--date", "2026-03-11"});
    // Idle was behind that evening though nobody touched it, and synced had a branch
    // to push.
    for (const char* start :
         {"- Needs push:", "- Files: **", "- [ ] Push app", "- [ ] Commit app", "- Sync: 2 ahead",
          "- Status: needs commit, needs push", "- [ ] Push idle (1 behind)",
          "- [ ] Push synced branch feature/export (1 commit)"}) {
        EXPECT_NE(lineStarting(thatDay, start), "") << start;
        EXPECT_EQ(lineStarting(later, start), lineStarting(thatDay, start)) << later;
    }
    // The app's section reads as it did that evening.
    size_t section = later.find("### app");
    ASSERT_NE(section, std::string::npos) << later;
    EXPECT_EQ(lineStarting(later.substr(section), "- Files:"),
              "- Files: 1 modified, 1 staged, 0 untracked");

    // Today is today: the app is clean and pushed.
    std::string today = run({"report", "daily"});
    EXPECT_EQ(lineStarting(today, "- Needs push:"),
              "- Needs push: **0** · Needs commit: **1** · Behind: **0**")
        << today;
}

TEST_F(ReportGoldenTest, TheExtendedReportWithAndWithoutTheAISummary) {
    std::string plain = run({"report", "daily", "--extended", "--date", "2026-03-11"});
    expectGolden("daily-extended.md", plain);

    testing::LoopbackHttpServer ollama;
    const std::string summary =
        "Parser work in app: two commits, with the lexer staged.\n"
        "Push app and commit lagging before tomorrow.";
    ollama.set(
        "/api/chat",
        {200, {}, Json{{"message", {{"role", "assistant"}, {"content", summary}}}}.dump(), false});
    run({"config", "set", "ai.provider", "ollama"});
    run({"config", "set", "ai.ollamaBaseURL", ollama.base()});
    // The same report with the summary at its head.
    expectGolden("daily-extended-ai.md", run({"report", "daily", "--extended", "--ai"}));
    // What was sent is the day's prompt: names, statuses, counts, subjects, notes.
    Json body = Json::parse(ollama.bodies().at(0));
    expectGolden("daily-ai-prompt.txt", body["messages"][1]["content"].get<std::string>());
}

}  // namespace
}  // namespace quorvane
