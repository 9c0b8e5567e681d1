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

int daily(CommandContext& context, const ReportOptions& options, const AppConfig& config,
          const Store& store, Date now) {
    Queries::DailyReportInput input =
        Queries::dailyReport(store, config, now, options.day.value_or(now));
    if (options.toStandardOutput) {
        switch (options.format) {
            case Format::markdown:
                context.out << MarkdownReport::daily(input.report, config.repositories,
                                                     input.commitsByRepo);
                break;
            case Format::json:
                context.out << JsonCodec::pretty(
                    ReportExport::dailyJSON(input.report, input.commitsByRepo));
                break;
            case Format::csv: context.out << ReportExport::dailyCSV(input.report.summary); break;
        }
        return 0;
    }
    std::optional<fs::path> folder = targetFolder(options);
    fs::path written;
    switch (options.format) {
        case Format::markdown: {
            std::string text =
                MarkdownReport::daily(input.report, config.repositories, input.commitsByRepo);
            if (!folder) {
                context.out << text;
                return 0;
            }
            written =
                ReportExport::saveText(*folder, "daily-" + input.report.dateKey + ".md", text);
            break;
        }
        case Format::json:
            written = ReportExport::saveDailyJSON(input.report, input.commitsByRepo, folder);
            break;
        case Format::csv: written = ReportExport::saveDailyCSV(input.report.summary, folder); break;
    }
    context.out << written.string() << '\n';
    return 0;
}

// The activity table beside the extended report: the report's day, the 30 days up to
// it and all time up to it. Today's rows carry the names the other views give them.
std::string activityTable(const Store& store, const AppConfig& config, Date now, Date day) {
    bool today = DateHelpers::dateKey(day) == DateHelpers::dateKey(now);
    Date end = today ? now : Aggregator::dayRange(day).end;
    std::string dateKey = DateHelpers::dateKey(day);
    std::vector<ActivityInsights> periods;
    for (InsightsPeriod period :
         {InsightsPeriod::today, InsightsPeriod::month, InsightsPeriod::allTime}) {
        ActivityInsights row = Queries::insights(store, config, end, period);
        if (!today) {
            row.label = period == InsightsPeriod::today   ? dateKey
                        : period == InsightsPeriod::month ? "30 days to " + dateKey
                                                          : "All time to " + dateKey;
        }
        periods.push_back(std::move(row));
    }
    return ReportsViewModel::insightsMarkdown(periods);
}

// The provider's name as the person chose it in ai.provider.
const char* providerName(AIPrefs::Provider provider) {
    switch (provider) {
        case AIPrefs::Provider::anthropic: return "Anthropic";
        case AIPrefs::Provider::ollama: return "Ollama";
        case AIPrefs::Provider::disabled: return "no provider";
    }
    return "the provider";
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
                    << (config.ai.provider == AIPrefs::Provider::disabled
                            ? "No AI provider is chosen: quorvane config set ai.provider "
                              "anthropic (or ollama).\n"
                            : "No Anthropic API key is stored: quorvane config set-secret ai.\n");
        return std::nullopt;
    }
    try {
        WaitingLine waiting(context, fmt::format("asking {}…", providerName(config.ai.provider)));
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
    if (options.ai) report.aiSummary = aiSummary(context, config, store, report.base);
    std::string text = V2Report::daily(report) + activityTable(store, config, now, day);
    if (options.toStandardOutput || !options.outDir) {
        context.out << text;
        return 0;
    }
    fs::path written = ReportExport::saveText(
        *options.outDir, "daily-" + report.base.dateKey + "-extended.md", text);
    context.out << written.string() << '\n';
    return 0;
}

int weekly(CommandContext& context, const ReportOptions& options, const AppConfig& config,
           const Store& store, Date now) {
    WeeklySummary summary = Queries::weeklySummary(store, config, options.day.value_or(now));
    if (options.toStandardOutput && options.format != Format::csv) {
        context.out << (options.format == Format::json ? JsonCodec::pretty(toJson(summary))
                                                       : MarkdownReport::weekly(summary));
        return 0;
    }
    std::optional<fs::path> folder = targetFolder(options);
    fs::path written;
    switch (options.format) {
        case Format::markdown: {
            std::string text = MarkdownReport::weekly(summary);
            if (!folder) {
                context.out << text;
                return 0;
            }
            written = ReportExport::saveText(*folder, "weekly-" + summary.weekKey + ".md", text);
            break;
        }
        case Format::json:
            written = ReportExport::saveText(*folder, "weekly-" + summary.weekKey + ".json",
                                             JsonCodec::pretty(toJson(summary)));
            break;
        case Format::csv:
            // The command line refuses this pairing before anything is read.
            context.err << "quorvane: a weekly report is written as md or json\n";
            return 1;
    }
    context.out << written.string() << '\n';
    return 0;
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
