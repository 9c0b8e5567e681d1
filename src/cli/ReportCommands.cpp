// The report command: the day's or the week's work as Markdown, JSON or CSV. It
// reads the data folder without the writer lock, like the other views.
#include <ostream>

#include <fmt/format.h>

#include "cli/CommandSupport.hpp"
#include "cli/Commands.hpp"
#include "app/Queries.hpp"
#include "persistence/JsonCodec.hpp"
#include "persistence/Store.hpp"
#include "reports/MarkdownReport.hpp"
#include "reports/ReportExport.hpp"

namespace quorvane::Commands {

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
                context.out << JsonCodec::pretty(ReportExport::dailyJSON(input.report));
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
        case Format::json: written = ReportExport::saveDailyJSON(input.report, folder); break;
        case Format::csv: written = ReportExport::saveDailyCSV(input.report.summary, folder); break;
    }
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

int report(CommandContext& context, const ReportOptions& options) {
    AppConfig config = readConfig(context);
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    store.load();
    Date now = context.clock.now();
    try {
        return options.period == Period::daily ? daily(context, options, config, store, now)
                                               : weekly(context, options, config, store, now);
    } catch (const ReportExport::ReportExportError& error) {
        context.err << "quorvane: " << error.what() << '\n';
        return 1;
    }
}

}  // namespace quorvane::Commands
