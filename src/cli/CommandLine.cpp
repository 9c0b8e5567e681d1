#include "cli/CommandLine.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <ostream>
#include <sstream>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "app/AppInfo.hpp"
#include "base/DateHelpers.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "base/TextLayout.hpp"
#include "cli/CommandTable.hpp"
#include "cli/ControlClient.hpp"
#include "cli/ControlProtocol.hpp"

namespace quorvane {

namespace {

constexpr const char* kAbout = R"(Quorvane keeps a local record of your daily Git work.

It reads the Git repositories you track (read-only: it never changes a
repository) and tells you, for each, what is uncommitted, what is not yet
pushed or pulled, and what you committed today. 'quorvane daemon' keeps
watching in the background, estimating work sessions from file changes and
commits. Everything it keeps lives in your data folder: $XDG_DATA_HOME/Quorvane,
by default ~/.local/share/Quorvane.)";

constexpr const char* kExamples = R"(
Examples:
  quorvane repos add ~/code/project    track one repository
  quorvane folders add ~/code          remember a folder that holds repositories
  quorvane scan                        read every tracked repository now
  quorvane scan --json                 the same, as JSON snapshots
  quorvane accounts add --name Work    add a GitHub account (token on stdin)
  quorvane sync                        read GitHub and link repositories to remotes
  quorvane alignment                   what differs from GitHub, with the command to align it
  quorvane status                      what the last scan found, without scanning
  quorvane commits --repo ~/code/api   the stored commits of one repository
  quorvane today                       what you did today, per repository
  quorvane week --date 2026-03-02      the week holding that day, Monday first
  quorvane heatmap --days 90           a calendar of the last 90 days' commits
  quorvane report daily                today's report as Markdown
  quorvane daemon                      keep watching and scanning until Ctrl-C

Run 'quorvane COMMAND --help' for the details of a command.)";

// Lists each command by the first line of its description; the rest of it is
// shown by that command's own --help. Help fits the screen: lines longer than it
// is wide are broken at spaces.
class SummaryFormatter final : public CLI::Formatter {
public:
    explicit SummaryFormatter(size_t width) : width_(width) {}

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        std::istringstream lines(CLI::Formatter::make_help(app, std::move(name), mode));
        std::string help, line;
        while (std::getline(lines, line)) {
            for (const std::string& piece : fitHelpLine(line)) help += piece + "\n";
        }
        return help;
    }

    std::string make_description(const CLI::App* app) const override {
        return reflow(CLI::Formatter::make_description(app));
    }

    std::string make_subcommand(const CLI::App* sub) const override {
        std::string summary = sub->get_description();
        summary = summary.substr(0, summary.find('\n'));
        std::stringstream out;
        CLI::detail::format_help(out, sub->get_display_name(true), summary, column_width_);
        return out.str();
    }

private:
    // A line too wide for the screen, broken at spaces. A line in two columns (a
    // name, then its description) continues under the description, or, when the
    // name leaves too little room, has the description on lines of its own.
    std::vector<std::string> fitHelpLine(const std::string& line) const {
        if (line.empty() || TextLayout::visibleWidth(line) <= width_) return {line};
        size_t start = line.find_first_not_of(' ');
        if (start == std::string::npos) return {line};
        std::vector<std::string> lines;
        std::string head;
        std::string_view text = std::string_view(line).substr(start);
        size_t hang = std::min(start, width_ / 2);
        size_t gap = line.find("  ", start);
        size_t second = gap == std::string::npos ? gap : line.find_first_not_of(' ', gap);
        if (second != std::string::npos) {
            text = std::string_view(line).substr(second);
            if (TextLayout::visibleWidth(line.substr(0, second)) <= width_ / 2) {
                head = line.substr(0, second);
                hang = TextLayout::visibleWidth(head);
            } else {
                lines.push_back(line.substr(0, gap));
                hang = std::min(start + 4, width_ / 2);
            }
        }
        if (head.empty()) head = std::string(hang, ' ');
        std::vector<std::string> pieces = TextLayout::wrap(text, width_ > hang ? width_ - hang : 1);
        for (size_t i = 0; i < pieces.size(); ++i) {
            lines.push_back((i == 0 ? head : std::string(hang, ' ')) + pieces[i]);
        }
        return lines;
    }

    // Paragraphs written for a wider screen are joined and broken anew; the first
    // line (the summary) and indented lines, such as examples, keep their own.
    std::string reflow(const std::string& text) const {
        std::istringstream in(text);
        std::string out, line;
        std::vector<std::string> paragraph;
        auto flush = [&] {
            bool wide = std::any_of(paragraph.begin(), paragraph.end(), [&](const std::string& l) {
                return TextLayout::visibleWidth(l) > width_;
            });
            if (wide) {
                std::string joined;
                for (const std::string& l : paragraph) joined += (joined.empty() ? "" : " ") + l;
                paragraph = TextLayout::wrap(joined, width_);
            }
            for (const std::string& l : paragraph) out += l + "\n";
            paragraph.clear();
        };
        for (bool first = true; std::getline(in, line); first = false) {
            if (first || line.empty() || line.starts_with(' ')) {
                flush();
                out += line + "\n";
            } else {
                paragraph.push_back(line);
            }
        }
        flush();
        return out;
    }

    size_t width_;
};

// Runs a command that changes the data folder in the daemon that holds it. What the
// daemon cannot do for the person happens here first, by the command's own row.
int forward(ControlClient& daemon, CommandContext& context, std::vector<std::string> words,
            const CommandRow& row) {
    ControlProtocol::Request request;
    std::error_code ec;
    request.workingDirectory = std::filesystem::current_path(ec).string();
    // A folder removed while the shell stood in it has no path any more; the shell's
    // name for it makes relative paths fail as they would here.
    if (const char* pwd = std::getenv("PWD"); ec && pwd != nullptr) request.workingDirectory = pwd;
    if (!request.workingDirectory.starts_with('/')) {
        context.err << "quorvane: cannot tell the current folder, which the daemon needs to "
                       "resolve relative paths\n";
        return 1;
    }
    request.arguments = std::move(words);
    if (row.beforeSending && !row.beforeSending(context, request)) return 1;
    // A window narrower or wider than any layout is made for is laid out at the nearest.
    request.terminal = {context.color, std::clamp<size_t>(context.columns, 20, 1000),
                        context.progress};
    return daemon.run(request, context.out, context.err);
}

// How a command line came to be run: by the person, or by the daemon for a client.
struct Invocation {
    // The daemon's own state and data folder, for a command a client sent it.
    AppEnvironment* service = nullptr;
    std::filesystem::path serviceDataDir;
    std::filesystem::path workingDir;
    std::optional<std::string> input;
    ControlProtocol::TerminalLayout terminal;
    // Colour and width for the person's terminal (the client's, for the daemon).
    TerminalStyle style;
};

std::string fullName(const CLI::App* command) {
    std::string name = command->get_name();
    for (const CLI::App* up = command->get_parent(); up != nullptr; up = up->get_parent()) {
        name = up->get_name() + " " + name;
    }
    return name;
}

// Walks the words as the parser will, to name what a mistyped command or option was
// meant to be where the parser would only say it was not expected; "help COMMAND"
// becomes "COMMAND --help" on the way. The exit status when a word was refused.
std::optional<int> refuseMistypedWords(CLI::App& app, std::vector<std::string>& words,
                                       std::ostream& err) {
    CLI::App* command = &app;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word == "--") return std::nullopt;
        if (word.size() > 1 && word.starts_with('-')) {
            std::string name = word.substr(0, word.find('='));
            if (const CLI::Option* option = command->get_option_no_throw(name)) {
                if (option->get_items_expected_min() > 0 && name.size() == word.size()) ++i;
                continue;
            }
            std::vector<std::string> names;
            for (const CLI::Option* option : command->get_options()) {
                for (const std::string& l : option->get_lnames()) names.push_back("--" + l);
            }
            std::optional<std::string> nearest = Text::nearestName(name, names);
            if (!nearest) return std::nullopt;  // the parser's own words say enough
            err << fmt::format(
                "quorvane: '{}' is not an option of '{}'. Did you mean '{}'?\n"
                "Run '{} --help' for its options.\n",
                name, fullName(command), *nearest, fullName(command));
            return 2;
        }
        std::vector<CLI::App*> subs = command->get_subcommands({});
        auto named = std::find_if(subs.begin(), subs.end(),
                                  [&](const CLI::App* sub) { return sub->check_name(word); });
        if (named != subs.end()) {
            command = *named;
            continue;
        }
        if (command == &app && word == "help") {
            words.erase(words.begin() + static_cast<std::ptrdiff_t>(i--));
            words.push_back("--help");
            continue;
        }
        auto options = command->get_options();
        if (subs.empty() || std::any_of(options.begin(), options.end(),
                                        [](const CLI::Option* o) { return o->get_positional(); })) {
            continue;  // an argument of the command
        }
        std::vector<std::string> shown;
        // The hidden ones (completion scripts, the manual page) are never suggested.
        for (const CLI::App* sub : subs) {
            if (!sub->get_group().empty()) shown.push_back(sub->get_name());
        }
        std::optional<std::string> nearest = Text::nearestName(word, shown);
        bool top = command == &app;
        err << fmt::format(
            "quorvane: '{}' is not a command{}.{}\nRun '{} --help' for the list of {}commands.\n",
            word, top ? "" : fmt::format(" of '{}'", fullName(command)),
            nearest ? fmt::format(" Did you mean '{}'?", *nearest) : "", fullName(command),
            top ? "" : "its ");
        return 2;
    }
    return std::nullopt;
}

int runWords(std::vector<std::string> words, std::ostream& out, std::ostream& err,
             const ProcessRunner& runner, const Clock& clock, const Invocation& how) {
    const TerminalStyle& style = how.style;
    CommandTable table(kAbout, style.columns);
    for (auto declare : {declareReposCommands, declareScanCommands, declareAccountCommands,
                         declareAlignmentCommands, declareViewCommands, declareReportCommands,
                         declareDoctorCommand, declareJournalCommand, declareReminderCommands,
                         declareProposalCommands, declareAgentCommands, declareDashboardCommands,
                         declareDaemonCommand, declareServiceCommands, declareConfigCommands,
                         declareReferenceCommands}) {
        declare(table);
    }
    table.finish();
    CLI::App& app = table.app();
    app.footer(kExamples);

    if (words.empty() && how.service == nullptr) {
        app.description(std::string(kAbout).substr(0, std::string(kAbout).find('\n')));
        app.footer(
            "\nRun 'quorvane --help' for more and examples, or 'quorvane COMMAND --help' for "
            "the details of a command.");
        out << app.help();
        return 0;
    }
    if (std::optional<int> refused = refuseMistypedWords(app, words, err)) return *refused;
    std::vector<const char*> arguments = {"quorvane"};
    for (const std::string& word : words) arguments.push_back(word.c_str());
    try {
        app.parse(static_cast<int>(arguments.size()), arguments.data());
    } catch (const CLI::ParseError& error) {
        int code = app.exit(error, out, err);
        return code == static_cast<int>(CLI::ExitCodes::Success) ? 0 : 2;
    }
    CommandRow* row = table.chosen();
    if (row == nullptr) return 0;

    // The commands that change the data folder: while the daemon runs they are sent
    // to it, and they are all it runs for others.
    if (how.service != nullptr) {
        if (row->use != DataUse::writes && !row->daemonAnswers) {
            err << "quorvane: the daemon runs only commands that change the data folder\n";
            return 2;
        }
        CommandContext context{out, err, runner, clock, how.serviceDataDir, how.terminal.progress};
        context.service = how.service;
        context.color = style.color;
        context.columns = style.columns;
        context.workingDir = how.workingDir;
        // A secret comes with the request or not at all: the daemon's own standard
        // input is whatever it was started with, perhaps a terminal of its own.
        context.input = how.input.value_or("");
        try {
            return row->run(context);
        } catch (const std::exception& error) {
            err << fmt::format("quorvane: {}\n", error.what());
            return 1;
        }
    }
    if (row->use == DataUse::none) {
        CommandContext context{out, err, runner, clock, {}};
        return row->run(context);
    }

    const std::string& dataDir = table.dataDir();
    std::filesystem::path dir = dataDir.empty()
                                    ? PathHelpers::appSupportDir()
                                    : std::filesystem::path(PathHelpers::canonicalPath(dataDir));
    if (!PathHelpers::ensurePrivateDirectory(dir)) {
        std::optional<std::string> problem = PathHelpers::dataFolderProblem(dir);
        err << fmt::format("quorvane: cannot use the data folder{}\n",
                           problem ? ": " + *problem : " " + dir.string());
        return 1;
    }
    // Whoever can write to the data folder can change what every command reads and
    // swap its files; doctor still runs, to say so.
    if (std::optional<std::string> problem = PathHelpers::dataFolderProblem(dir);
        problem && !row->diagnoses) {
        err << fmt::format("quorvane: refusing the data folder: {}\n", *problem);
        return 1;
    }
    // A folder this user cannot read makes every file in it look missing, so a view
    // would report nothing tracked and nothing recorded.
    if (!row->diagnoses && ::access(dir.c_str(), R_OK | X_OK) != 0) {
        err << fmt::format("quorvane: cannot read the data folder {}: {}\n", dir.string(),
                           std::strerror(errno));
        return 1;
    }
    CommandContext context{out, err, runner, clock, dir, ::isatty(STDERR_FILENO) == 1};
    context.color = style.color;
    context.columns = style.columns;
    if (row->use == DataUse::writes) {
        if (std::optional<ControlClient> running = ControlClient::connect(dir, err)) {
            return forward(*running, context, words, *row);
        }
    }
    // Decoding errors are handled where files are read, but for a config.json that
    // cannot be read, which ends a command here before it changed anything. Whatever
    // else goes wrong ends the command with its reason rather than an abort. What was
    // saved before stays saved: every file is replaced whole or not at all.
    try {
        return row->run(context);
    } catch (const std::exception& error) {
        err << fmt::format("quorvane: {}\n", error.what());
        return 1;
    }
}

}  // namespace

CommandTable::CommandTable(const std::string& about, size_t columns) : app_(about, "quorvane") {
    // Before any command: they inherit it.
    app_.formatter(std::make_shared<SummaryFormatter>(columns));
    app_.require_subcommand(1);
    app_.set_version_flag("-V,--version", fmt::format("quorvane {}", AppInfo::version()),
                          "Print the version and exit");
    // --data-dir is accepted by every command, before or after its name, and shown in
    // its help.
    addDataDir(&app_);
}

void CommandTable::addDataDir(CLI::App* command) {
    command
        ->add_option("--data-dir", dataDir_,
                     "Keep configuration and data in DIR instead of the default data folder")
        ->type_name("DIR");
}

CLI::App* CommandTable::add(const std::string& name, const std::string& help, CommandRow row) {
    return add(&app_, name, help, std::move(row));
}

CLI::App* CommandTable::add(CLI::App* parent, const std::string& name, const std::string& help,
                            CommandRow row) {
    CLI::App* command = parent->add_subcommand(name, help);
    rows_.emplace(command, std::move(row));
    return command;
}

CLI::App* CommandTable::group(const std::string& name, const std::string& help) {
    CLI::App* command = app_.add_subcommand(name, help);
    command->require_subcommand(1);
    return command;
}

void CommandTable::finish() {
    std::function<void(CLI::App*)> visit = [&](CLI::App* parent) {
        for (CLI::App* command : parent->get_subcommands({})) {
            auto row = rows_.find(command);
            if (row == rows_.end() || row->second.use != DataUse::none) addDataDir(command);
            visit(command);
        }
    };
    visit(&app_);
}

CommandRow* CommandTable::chosen() {
    const CLI::App* command = &app_;
    while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
    auto row = rows_.find(command);
    return row == rows_.end() ? nullptr : &row->second;
}

bool sendSecret(CommandContext& context, ControlProtocol::Request& request,
                const SecretReader& read) {
    std::string problem;
    std::optional<std::string> secret = read(context, problem);
    if (!secret) {
        context.err << "quorvane: " << problem << "\n";
        return false;
    }
    request.input = *secret + "\n";
    return true;
}

const CLI::Validator& localDateCheck() {
    static const CLI::Validator check(
        [](std::string& text) -> std::string {
            if (DateHelpers::parseDateKey(text)) return {};
            return fmt::format("\"{}\" is not a date: expected YYYY-MM-DD, such as 2026-03-14",
                               text);
        },
        "", "local date");
    return check;
}

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                   const ProcessRunner& runner, const Clock& clock) {
    return runCommandLine(argc, argv, out, err, runner, clock, detectTerminal());
}

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                   const ProcessRunner& runner, const Clock& clock, const TerminalStyle& style) {
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) words.emplace_back(argv[i]);
    Invocation how;
    how.style = style;
    return runWords(std::move(words), out, err, runner, clock, how);
}

int runForwardedCommand(const ControlProtocol::Request& request, std::ostream& out,
                        std::ostream& err, const ProcessRunner& runner, const Clock& clock,
                        AppEnvironment& env, const std::filesystem::path& dataDir) {
    Invocation how;
    how.service = &env;
    how.serviceDataDir = dataDir;
    how.workingDir = request.workingDirectory;
    how.input = request.input;
    how.terminal = request.terminal;
    how.style = TerminalStyle{request.terminal.color, request.terminal.columns};
    return runWords(request.arguments, out, err, runner, clock, how);
}

}  // namespace quorvane
