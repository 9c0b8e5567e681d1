// The journal: the person's own notes of a day, shown by `quorvane journal` and
// carried into the day's report.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <ostream>

#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/Store.hpp"
#include "records/DailyJournal.hpp"
#include "screens/JournalViewModel.hpp"

extern char** environ;

namespace quorvane::Commands {

struct JournalOptions {
    std::optional<Date> day;  // today when absent
    std::optional<std::string> notes;
    std::optional<std::string> blockers;
    std::optional<std::string> tomorrow;
    bool edit = false;
    bool json = false;
};

namespace {

namespace fs = std::filesystem;

// The fields in the order they are shown and edited, with their headings.
struct Field {
    const char* heading;
    std::optional<std::string> DailyJournal::*member;
};
constexpr Field kFields[] = {{"Notes", &DailyJournal::manualNotes},
                             {"Blockers", &DailyJournal::blockers},
                             {"Tomorrow", &DailyJournal::tomorrowNotes}};

// Blank text clears a field, so that it leaves the report too.
std::optional<std::string> noteText(std::string_view text) {
    std::string_view trimmed = Text::trim(text);
    if (trimmed.empty()) return std::nullopt;
    return std::string(trimmed);
}

constexpr std::string_view kEditorHelp =
    "# The journal for {}. Write under each heading; a heading left empty is cleared.\n"
    "# Lines starting with '#' are ignored. Save and quit to keep it.\n";

std::string editableText(const DailyJournal& entry) {
    std::string text = fmt::format(fmt::runtime(kEditorHelp), entry.dateKey);
    for (const Field& field : kFields) {
        text += fmt::format("\n## {}\n\n", field.heading);
        if (entry.*field.member) text += *(entry.*field.member) + "\n";
    }
    return text;
}

// Reads back what the editor left: the text under each known heading.
DailyJournal parseEdited(std::string_view text, DailyJournal entry) {
    constexpr size_t kNone = std::size(kFields);
    std::string bodies[std::size(kFields)];
    size_t current = kNone;
    size_t from = 0;
    while (from < text.size()) {
        size_t end = text.find('\n', from);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(from, end - from);
        from = end + 1;
        if (line.starts_with("## ")) {
            std::string_view heading = Text::trim(line.substr(3));
            current = kNone;
            for (size_t i = 0; i < std::size(kFields); ++i) {
                if (heading == kFields[i].heading) current = i;
            }
            continue;
        }
        if (line.starts_with("#") || current == kNone) continue;
        bodies[current] += std::string(line) + "\n";
    }
    for (size_t i = 0; i < std::size(kFields); ++i) entry.*kFields[i].member = noteText(bodies[i]);
    return entry;
}

// Runs the person's editor on `file` with the terminal attached, through the shell
// so that an EDITOR such as "code --wait" works. The exit status, or -1.
int runEditor(const fs::path& file) {
    const char* editor = std::getenv("VISUAL");
    if (editor == nullptr || *editor == '\0') editor = std::getenv("EDITOR");
    if (editor == nullptr || *editor == '\0') editor = "vi";
    std::string script = std::string(editor) + " \"$1\"";
    std::string path = file.string();
    const char* argv[] = {"sh", "-c", script.c_str(), "sh", path.c_str(), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(argv), environ) !=
        0) {
        return -1;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void printEntry(std::ostream& out, size_t width, const std::string& dateKey,
                const std::optional<DailyJournal>& entry) {
    out << fmt::format("Journal for {}\n", dateKey);
    bool any = false;
    for (const Field& field : kFields) {
        if (!entry || !((*entry).*field.member)) continue;
        any = true;
        out << fmt::format("\n{}\n", field.heading);
        for (std::string_view line : Text::nonEmptyLines(*((*entry).*field.member))) {
            printWrapped(out, Text::visible(line, Text::Lines::many), width, "  ");
        }
    }
    if (!any) {
        out << "\nNothing written yet. Add a note with: quorvane journal --notes TEXT "
               "(or --edit)\n";
    }
}

// Opens `entry` in the person's editor: the entry as edited, or nothing, with the
// reason on stderr, when the editor did not finish cleanly.
std::optional<DailyJournal> editInEditor(const CommandContext& context, const DailyJournal& entry) {
    // In the data folder, private like everything there, and gone afterwards.
    fs::path draft = context.dataDir / fmt::format("journal-{}-{}.md", entry.dateKey, ::getpid());
    std::string original = editableText(entry);
    if (std::optional<std::string> error = AtomicFile::write(draft, original)) {
        context.err << fmt::format("quorvane: cannot write {}: {}\n", draft.string(), *error);
        return std::nullopt;
    }
    int status = runEditor(draft);
    AtomicFile::ReadResult edited = AtomicFile::read(draft);
    std::error_code ec;
    fs::remove(draft, ec);
    if (status != 0 || !edited.bytes) {
        context.err << fmt::format(
            "quorvane: the editor did not finish cleanly (exit {}); the journal is unchanged\n",
            status);
        return std::nullopt;
    }
    return *edited.bytes == original ? entry : parseEdited(*edited.bytes, entry);
}

DailyJournal withOptions(DailyJournal entry, const JournalOptions& options) {
    if (options.notes) entry.manualNotes = noteText(*options.notes);
    if (options.blockers) entry.blockers = noteText(*options.blockers);
    if (options.tomorrow) entry.tomorrowNotes = noteText(*options.tomorrow);
    return entry;
}

}  // namespace

// Shows a day's journal, or changes it: a field given replaces that field (blank
// text clears it), and `edit` opens the entry in the person's editor.
int journal(CommandContext& context, const JournalOptions& options) {
    Date day = options.day.value_or(context.clock.now());
    std::string dateKey = DateHelpers::dateKey(day);
    bool changes = options.notes || options.blockers || options.tomorrow || options.edit;
    if (!changes) {
        Store store(context.dataDir, context.clock, Store::Access::readOnly);
        if (!loadForReading(context, store)) return 1;
        std::optional<DailyJournal> entry = store.journal(dateKey);
        if (options.json) {
            context.out << JsonCodec::pretty(JournalViewModel::entryJson(entry));
        } else {
            printEntry(context.out, context.columns, dateKey, entry);
        }
        return 0;
    }

    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    AppEnvironment::JournalChange change{dateKey, options.notes, options.blockers,
                                         options.tomorrow};
    if (options.edit) {
        DailyJournal entry = withOptions(
            env.store().journal(dateKey).value_or(DailyJournal{dateKey, {}, {}, {}, {}}), options);
        std::optional<DailyJournal> edited = editInEditor(context, entry);
        if (!edited) return 1;
        // Every field is written, so what the editor cleared is cleared.
        change.notes = edited->manualNotes.value_or("");
        change.blockers = edited->blockers.value_or("");
        change.tomorrow = edited->tomorrowNotes.value_or("");
    }
    AppEnvironment::JournalWrite written = env.writeJournal(change);
    if (!written.saved) {
        context.err << "quorvane: the journal could not be saved: " << env.saveProblem() << "\n";
        return 1;
    }
    if (!written.changed) {
        context.out << fmt::format("The journal for {} is unchanged.\n", dateKey);
        return 0;
    }
    context.out << fmt::format("Saved the journal for {}.\n", dateKey);
    return 0;
}

// Edits the day's entry in the person's editor, reading it without the writer lock,
// and returns the three fields as edited, to be written by whoever holds the data
// folder. Nothing, with the reason on stderr, when the editor failed.
std::optional<JournalOptions> editJournalHere(CommandContext& context,
                                              const JournalOptions& options) {
    Date day = options.day.value_or(context.clock.now());
    std::string dateKey = DateHelpers::dateKey(day);
    // An entry that could not be read would be edited from blank, and the blank sent
    // over it.
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return std::nullopt;
    DailyJournal entry = withOptions(
        store.journal(dateKey).value_or(DailyJournal{dateKey, {}, {}, {}, {}}), options);
    std::optional<DailyJournal> edited = editInEditor(context, entry);
    if (!edited) return std::nullopt;
    JournalOptions result;
    result.day = day;
    // Every field is sent, so what the editor cleared is cleared.
    result.notes = edited->manualNotes.value_or("");
    result.blockers = edited->blockers.value_or("");
    result.tomorrow = edited->tomorrowNotes.value_or("");
    result.json = options.json;
    return result;
}

// The command line that writes `options`' fields for its day.
std::vector<std::string> journalWords(const JournalOptions& options) {
    std::vector<std::string> words = {"journal"};
    if (options.day) words.insert(words.end(), {"--date", DateHelpers::dateKey(*options.day)});
    if (options.notes) words.insert(words.end(), {"--notes", *options.notes});
    if (options.blockers) words.insert(words.end(), {"--blockers", *options.blockers});
    if (options.tomorrow) words.insert(words.end(), {"--tomorrow", *options.tomorrow});
    if (options.edit) words.push_back("--edit");
    if (options.json) words.push_back("--json");
    return words;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareJournalCommand(CommandTable& table) {
    auto& options = table.keep<Commands::JournalOptions>();
    auto& date = table.keep<std::optional<std::string>>();
    CLI::App* journal = table.add(
        "journal",
        "Show or write the journal of a day: notes, blockers and plans for tomorrow\n"
        "With no option it shows the day's entry. --notes, --blockers and --tomorrow\n"
        "replace that part (\"\" clears it); --edit opens the whole entry in $VISUAL or\n"
        "$EDITOR. The journal goes into the day's report. While the daemon runs, the\n"
        "change is sent to it (the editor still opens here).",
        {DataUse::reads,
         [&](CommandContext& c) {
             // Nobody sits at the daemon's terminal: the command line runs the editor on
             // the person's side and sends the text it leaves.
             if (c.service != nullptr && options.edit) {
                 c.err << "quorvane: the daemon opens no editor; 'quorvane journal --edit' "
                          "opens it where it is typed and sends the daemon the text\n";
                 return 2;
             }
             return Commands::journal(c, options);
         },
         [&](CommandContext& c, ControlProtocol::Request& request) {
             if (!options.edit) return true;
             std::optional<Commands::JournalOptions> edited = Commands::editJournalHere(c, options);
             if (edited) request.arguments = Commands::journalWords(*edited);
             return edited.has_value();
         }});
    journal->add_option("--date", date, "The local day (default today)")
        ->type_name("YYYY-MM-DD")
        ->check(localDateCheck());
    journal->add_option("--notes", options.notes, "What you did or want to remember")
        ->type_name("TEXT");
    journal->add_option("--blockers", options.blockers, "What held you up")->type_name("TEXT");
    journal->add_option("--tomorrow", options.tomorrow, "What comes next")->type_name("TEXT");
    journal->add_flag("--edit", options.edit, "Edit the entry in your editor");
    journal->add_flag("--json", options.json, "Print the entry as JSON (null when none)");
    // Showing the entry only reads; changing it writes, through the daemon when one runs.
    journal->callback([&, journal] {
        if (date) options.day = DateHelpers::parseDateKey(*date);
        if (options.notes || options.blockers || options.tomorrow || options.edit) {
            table.rowOf(journal).use = DataUse::writes;
        }
    });
}

}  // namespace quorvane
