// The report command: the day's or the week's work as Markdown, JSON or CSV. It
// reads the data folder without the writer lock, like the other views.
#include <ostream>

#include <fmt/format.h>

#include "app/ExtendedReportQueries.hpp"
#include "app/Queries.hpp"
#include "base/PathHelpers.hpp"
#include "base/QuorvaneError.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/Commands.hpp"
#include "persistence/KeychainStore.hpp"
#include "persistence/Store.hpp"
#include "records/JsonCodec.hpp"
#include "reports/MarkdownReport.hpp"
#include "reports/ReportExport.hpp"
#include "screens/ReportsViewModel.hpp"

namespace quorvane::Commands {

struct ReportOptions {
    enum class Period { daily, weekly };
    enum class Format { markdown, json, csv };
    Period period = Period::daily;
    Format format = Format::markdown;
    std::optional<Date> day;  // the day, or any day of the week; today when absent
    std::optional<std::filesystem::path> outDir;
    bool toStandardOutput = false;  // "--out -": any format printed, no file
    // The daily report with GitHub alignment and the activity table, in Markdown;
    // with `ai`, also the AI summary of the configured provider.
    bool extended = false;
    bool ai = false;
};

namespace {

namespace fs = std::filesystem;

using Period = ReportOptions::Period;
using Format = ReportOptions::Format;

// Markdown is read on the terminal unless a folder is named; the file formats always
// become files, in the reports folder by default.
std::optional<fs::path> targetFolder(const ReportOptions& options) {
    if (options.outDir) return options.outDir;
    if (options.format == Format::markdown) return std::nullopt;
    return ReportExport::defaultBaseDir();
}

ReportsViewModel::Format fileFormat(ReportOptions::Format format) {
    switch (format) {
        case Format::markdown: return ReportsViewModel::Format::markdown;
        case Format::json: return ReportsViewModel::Format::json;
        case Format::csv: return ReportsViewModel::Format::csv;
    }
    return ReportsViewModel::Format::markdown;
}

// Prints `file`, or writes it into the folder the options name and prints its path.
int deliver(CommandContext& context, const ReportOptions& options,
            const ReportsViewModel::ReportFile& file) {
    std::optional<fs::path> folder =
        options.toStandardOutput ? std::nullopt : targetFolder(options);
    if (!folder) {
        context.out << file.bytes;
        return 0;
    }
    context.out << ReportExport::saveText(*folder, file.fileName, file.bytes).string() << '\n';
    return 0;
}

int daily(CommandContext& context, const ReportOptions& options, const AppConfig& config,
          const Store& store, Date now) {
    Queries::DailyReportInput input =
        Queries::dailyReport(store, config, now, options.day.value_or(now));
    return deliver(
        context, options,
        ReportsViewModel::dailyFile(input, config.repositories, fileFormat(options.format)));
}

// A line on a terminal's stderr while a slow call runs, wiped when it ends however it
// ends, so that neither the report nor an error message lands after it.
class WaitingLine {
public:
    WaitingLine(CommandContext& context, std::string_view text) : context_(context) {
        if (context_.progress) context_.err << text << std::flush;
    }
    ~WaitingLine() {
        if (context_.progress) context_.err << "\r\033[K" << std::flush;
    }
    WaitingLine(const WaitingLine&) = delete;
    WaitingLine& operator=(const WaitingLine&) = delete;

private:
    CommandContext& context_;
};

// The AI summary of the report's day, or nothing with the reason on stderr. The
// report is whole without it. The provider may take up to a minute to answer.
std::optional<std::string> aiSummary(CommandContext& context, const AppConfig& config,
                                     const Store& store, const DailyReport& report) {
    KeychainStore keychain(KeychainStore::kService,
                           KeychainStore::chooseBackend(context.dataDir, context.clock));
    CurlTransport transport;
    std::unique_ptr<AIProvider> provider =
        AISummaryService::provider(config.ai, keychain, transport);
    if (!provider) {
        context.err << AISummaryService::kFailureMessage << "\n"
                    << ReportsViewModel::noProviderReason(config.ai.provider) << "\n";
        return std::nullopt;
    }
    try {
        WaitingLine waiting(
            context, fmt::format("asking {}…", ReportsViewModel::providerName(config.ai.provider)));
        return Queries::generateAISummary(store, config, report, *provider);
    } catch (const QuorvaneError& error) {
        context.err << AISummaryService::kFailureMessage << "\n"
                    << Text::visible(error.what()) << "\n";
        return std::nullopt;
    }
}

int extendedDaily(CommandContext& context, const ReportOptions& options, const AppConfig& config,
                  const Store& store, Date now) {
    Date day = options.day.value_or(now);
    V2DailyReport report = Queries::v2DailyReport(store, config, now, day);
    std::optional<std::string> summary;
    if (options.ai) summary = aiSummary(context, config, store, report.base);
    ReportsViewModel::ReportFile file = ReportsViewModel::extendedDailyFile(
        report, ReportsViewModel::activityPeriods(store, config, now, day), summary);
    if (options.toStandardOutput || !options.outDir) {
        context.out << file.bytes;
        return 0;
    }
    context.out << ReportExport::saveText(*options.outDir, file.fileName, file.bytes).string()
                << '\n';
    return 0;
}

int weekly(CommandContext& context, const ReportOptions& options, const AppConfig& config,
           const Store& store, Date now) {
    WeeklySummary summary = Queries::weeklySummary(store, config, options.day.value_or(now));
    std::optional<ReportsViewModel::ReportFile> file =
        ReportsViewModel::weeklyFile(summary, fileFormat(options.format));
    if (!file) {
        // The command line refuses this pairing before anything is read.
        context.err << "quorvane: a weekly report is written as md or json\n";
        return 1;
    }
    return deliver(context, options, *file);
}

}  // namespace

// The day's or the week's report, read from the data folder without the writer lock.
// Markdown goes to standard output and JSON and CSV to the reports folder, unless
// `outDir` names a folder: then every format is written there. A written file's
// path is printed.
int report(CommandContext& context, const ReportOptions& options) {
    std::optional<AppConfig> read = readConfig(context);
    if (!read) return 1;
    const AppConfig& config = *read;
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    Date now = context.clock.now();
    // The report is the day's record, read again later and elsewhere: how old its
    // data is goes beside it, for the person who asked for it now.
    printAsOf(context.err, config, store, now);
    try {
        if (options.extended) return extendedDaily(context, options, config, store, now);
        return options.period == Period::daily ? daily(context, options, config, store, now)
                                               : weekly(context, options, config, store, now);
    } catch (const ReportExport::ReportExportError& error) {
        context.err << "quorvane: " << error.what() << '\n';
        return 1;
    }
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareReportCommands(CommandTable& table) {
    struct Words {
        std::string period, format = "md";
        std::optional<std::string> date, out;
        bool extended = false, ai = false;
    };
    auto& words = table.keep<Words>();
    auto& options = table.keep<Commands::ReportOptions>();
    CLI::App* report = table.add(
        "report",
        "Write the day's or the week's report as Markdown, JSON or CSV\n"
        "'daily' lists the day's counters, each project worked on or left uncommitted\n"
        "with its commits of that day, what is left to push or commit, and your journal\n"
        "notes. 'weekly' gives the week's totals, one row per day and the repositories\n"
        "that need attention. Markdown is printed; JSON and CSV are written to\n"
        "QVNQuorvane/Reports in your documents folder (XDG_DOCUMENTS_DIR, by default\n"
        "~/Documents), and --out writes any format to a folder of your choice. The path\n"
        "of a written file is printed. A weekly report comes as md or json: CSV is a\n"
        "day's table of projects. It reads what scans recorded and never scans itself;\n"
        "a past day shows how that day's last scan left each repository.\n"
        "'daily --extended' shows instead how each repository stands against GitHub\n"
        "(sync status, health, the safe command that aligns it) and a table of activity\n"
        "over the day, 30 days and all time. --ai adds a summary written by the provider\n"
        "set in ai.provider: Anthropic, with the key that 'quorvane config set-secret ai'\n"
        "stored, or an Ollama server. Only repository names, statuses, file counts,\n"
        "commit subjects and your journal notes are sent, never code or diffs. When no\n"
        "summary can be written the report comes without it and stderr says why.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::report(c, options); }});
    report->add_option("PERIOD", words.period, "daily or weekly")
        ->required()
        ->check(CLI::IsMember({"daily", "weekly"}));
    report->add_option("--date", words.date, "The day, or any day of the week (default today)")
        ->type_name("YYYY-MM-DD")
        ->check(localDateCheck());
    report->add_option("--format", words.format, "md, json or csv (default md)")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"md", "json", "csv"}));
    report->add_option("--out", words.out, "Write the file into DIR; - prints it instead")
        ->type_name("DIR|-");
    CLI::Option* extendedFlag = report->add_flag(
        "--extended", words.extended, "daily only: with GitHub alignment and activity (md only)");
    report->add_flag("--ai", words.ai, "With --extended: add the AI provider's summary")
        ->needs(extendedFlag);
    // Checked while parsing, so that a combination no report has is a usage error.
    report->callback([&] {
        using Options = Commands::ReportOptions;
        options.period =
            words.period == "weekly" ? Options::Period::weekly : Options::Period::daily;
        options.format = words.format == "json"  ? Options::Format::json
                         : words.format == "csv" ? Options::Format::csv
                                                 : Options::Format::markdown;
        if (options.period == Options::Period::weekly && options.format == Options::Format::csv) {
            throw CLI::ValidationError("--format",
                                       "a weekly report is written as md or json; csv is for "
                                       "'quorvane report daily'");
        }
        if (words.extended && (options.period != Options::Period::daily ||
                               options.format != Options::Format::markdown)) {
            throw CLI::ValidationError("--extended", "the extended report is a daily report in md");
        }
        options.extended = words.extended;
        options.ai = words.ai;
        if (words.date) options.day = DateHelpers::parseDateKey(*words.date);
        if (words.out && *words.out == "-") {
            options.toStandardOutput = true;
        } else if (words.out) {
            options.outDir = PathHelpers::canonicalPath(*words.out);
        }
    });
}

}  // namespace quorvane
