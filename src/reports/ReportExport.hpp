#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "git/ActivitySummaries.hpp"
#include "git/DailyReport.hpp"
#include "records/CommitRecord.hpp"
#include "records/JsonCodec.hpp"

// Writes a day's report as a file for other tools: JSON for programs, CSV for
// spreadsheets. Each file is written whole in one step into the reports folder,
// which is created first; a failure throws a ReportExportError naming the path.
namespace quorvane::ReportExport {

class ReportExportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Each repository's commits, newest first, by repository id.
using CommitsByRepo = std::map<std::string, std::vector<CommitRecord>>;

// The JSON file's content: the day's counters, pending items, whether a scan recorded
// the day, one object per line with its commits of the day from `commitsByRepo` (as
// the Markdown report lists them), and the journal's notes; absent notes are left out.
Json dailyJSON(const DailyReport& report, const CommitsByRepo& commitsByRepo);

// The CSV file's content: a header, then one row per line; text is always quoted.
std::string dailyCSV(const TodaySummary& summary);

// "daily-<dateKey>.json" in `baseDir`, or in the default folder when absent.
std::filesystem::path saveDailyJSON(const DailyReport& report, const CommitsByRepo& commitsByRepo,
                                    const std::optional<std::filesystem::path>& baseDir);

// "daily-<dateKey>.csv" in `baseDir`, or in the default folder when absent.
std::filesystem::path saveDailyCSV(const TodaySummary& summary,
                                   const std::optional<std::filesystem::path>& baseDir);

// Writes `text` to `dir`/`fileName`, creating the folder first; returns the path.
std::filesystem::path saveText(const std::filesystem::path& dir, const std::string& fileName,
                               std::string_view text);

// The documents folder named by the XDG_DOCUMENTS_DIR line of a user-dirs.dirs text:
// "$HOME/..." is taken under `home`, an absolute path as it is. Nothing when the line
// is missing or names neither.
std::optional<std::filesystem::path> documentsDirFrom(std::string_view userDirs,
                                                      const std::filesystem::path& home);

// The user's documents folder (from user-dirs.dirs in $XDG_CONFIG_HOME, else
// ~/.config; ~/Documents without one), then "QVNQuorvane/Reports". Read once.
std::filesystem::path defaultBaseDir();

}  // namespace quorvane::ReportExport
