#include "reports/ReportExport.hpp"

#include <cstdlib>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "persistence/AtomicFile.hpp"

namespace quorvane::ReportExport {

namespace fs = std::filesystem;

namespace {

// The line's commits of the report's day in the order given, each by its subject: a
// body may hold more than the person means to hand on.
Json commitsJSON(const RepoTodayLine& line, const std::string& dateKey,
                 const CommitsByRepo& commitsByRepo) {
    Json commits = Json::array();
    auto found = commitsByRepo.find(line.repoID);
    if (found == commitsByRepo.end()) return commits;
    for (const CommitRecord& commit : found->second) {
        if (DateHelpers::dateKey(commit.committedAt) != dateKey) continue;
        commits.push_back(
            Json{{"sha", commit.sha},
                 {"shortSha", commit.shortSha},
                 {"subject", commit.message.substr(0, commit.message.find_first_of("\r\n"))},
                 {"author", commit.authorName},
                 {"committedAt", toJson(commit.committedAt)}});
    }
    return commits;
}

Json lineJSON(const RepoTodayLine& line, Json commits) {
    Json statuses = Json::array();
    for (RepoStatus status : line.statuses) statuses.push_back(std::string(enumName(status)));
    return Json{{"repoID", line.repoID},
                {"name", line.name},
                {"branch", line.branch},
                {"commitsToday", line.commitsToday},
                {"modified", line.files.modified},
                {"staged", line.files.staged},
                {"untracked", line.files.untracked},
                {"deleted", line.files.deleted},
                {"renamed", line.files.renamed},
                {"totalDirty", line.files.total()},
                {"ahead", line.ahead},
                {"behind", line.behind},
                {"statuses", statuses},
                {"estimatedSeconds", line.estimatedSeconds},
                {"commits", std::move(commits)}};
}

// Every text field is quoted, so a comma, a quote or a line break inside one never
// shifts the columns; a quote inside is doubled. The text comes from repositories:
// its controls show, so that the file cannot act on a terminal it is printed on.
std::string csvText(std::string_view text) {
    std::string out = "\"";
    for (char c : Text::visible(text)) {
        if (c == '"') out += '"';
        out += c;
    }
    out += '"';
    return out;
}

// Undoes the shell quoting that xdg-user-dirs writes inside the double quotes.
std::string unescape(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        out += text[i];
    }
    return out;
}

fs::path resolveBaseDir(const std::optional<fs::path>& baseDir) {
    return baseDir ? *baseDir : defaultBaseDir();
}

}  // namespace

Json dailyJSON(const DailyReport& report, const CommitsByRepo& commitsByRepo) {
    const TodaySummary& summary = report.summary;
    Json lines = Json::array();
    for (const RepoTodayLine& line : summary.lines) {
        lines.push_back(lineJSON(line, commitsJSON(line, report.dateKey, commitsByRepo)));
    }
    // The summary's counters as the views give them; the lines take the export's form.
    Json json = toJson(summary);
    json["dateKey"] = report.dateKey;
    json["pending"] = report.pending;
    json["scanRecorded"] = report.scanRecorded;
    json["lines"] = std::move(lines);
    if (report.journal) {
        putIfPresent(json, "journalNotes", report.journal->manualNotes);
        putIfPresent(json, "journalBlockers", report.journal->blockers);
        putIfPresent(json, "journalTomorrow", report.journal->tomorrowNotes);
    }
    return json;
}

std::string dailyCSV(const TodaySummary& summary) {
    std::string text =
        "repo,branch,commitsToday,modified,staged,untracked,ahead,behind,estimatedSeconds,"
        "statuses\n";
    for (const RepoTodayLine& line : summary.lines) {
        std::string statuses;
        for (RepoStatus status : line.statuses) {
            if (!statuses.empty()) statuses += '|';
            statuses += enumName(status);
        }
        text += fmt::format("{},{},{},{},{},{},{},{},{},{}\n", csvText(line.name),
                            csvText(line.branch), line.commitsToday, line.files.modified,
                            line.files.staged, line.files.untracked, line.ahead, line.behind,
                            line.estimatedSeconds, csvText(statuses));
    }
    return text;
}

fs::path saveText(const fs::path& dir, const std::string& fileName, std::string_view text) {
    std::error_code error;
    fs::create_directories(dir, error);
    if (error || !fs::is_directory(dir, error)) {
        throw ReportExportError(fmt::format("cannot create the reports folder {}: {}", dir.string(),
                                            error ? error.message() : "not a folder"));
    }
    fs::path path = dir / fileName;
    if (std::optional<std::string> problem = AtomicFile::write(path, text, 0600)) {
        throw ReportExportError(
            fmt::format("cannot write the report {}: {}", path.string(), *problem));
    }
    return path;
}

fs::path saveDailyJSON(const DailyReport& report, const CommitsByRepo& commitsByRepo,
                       const std::optional<fs::path>& baseDir) {
    return saveText(resolveBaseDir(baseDir), "daily-" + report.dateKey + ".json",
                    JsonCodec::pretty(dailyJSON(report, commitsByRepo)));
}

fs::path saveDailyCSV(const TodaySummary& summary, const std::optional<fs::path>& baseDir) {
    return saveText(resolveBaseDir(baseDir), "daily-" + summary.dateKey + ".csv",
                    dailyCSV(summary));
}

std::optional<fs::path> documentsDirFrom(std::string_view userDirs, const fs::path& home) {
    constexpr std::string_view kKey = "XDG_DOCUMENTS_DIR=";
    std::optional<fs::path> found;
    size_t start = 0;
    while (start <= userDirs.size()) {
        size_t end = userDirs.find('\n', start);
        if (end == std::string_view::npos) end = userDirs.size();
        std::string_view line = userDirs.substr(start, end - start);
        start = end + 1;
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            line.remove_prefix(1);
        }
        if (!line.starts_with(kKey)) continue;
        std::string_view value = line.substr(kKey.size());
        while (!value.empty() &&
               (value.back() == ' ' || value.back() == '\t' || value.back() == '\r')) {
            value.remove_suffix(1);
        }
        if (value.size() < 2 || value.front() != '"' || value.back() != '"') continue;
        std::string path = unescape(value.substr(1, value.size() - 2));
        // As the shell would, a later line overrides an earlier one.
        if (path == "$HOME") {
            found = home;
        } else if (path.starts_with("$HOME/")) {
            found = home / path.substr(6);
        } else if (path.starts_with("/")) {
            found = fs::path(path);
        }
    }
    return found;
}

fs::path defaultBaseDir() {
    static const fs::path dir = [] {
        fs::path home = PathHelpers::homeDirectory();
        const char* configHome = std::getenv("XDG_CONFIG_HOME");
        fs::path config =
            configHome != nullptr && configHome[0] == '/' ? fs::path(configHome) : home / ".config";
        std::optional<fs::path> documents;
        AtomicFile::ReadResult read = AtomicFile::read(config / "user-dirs.dirs");
        if (read.bytes) documents = documentsDirFrom(*read.bytes, home);
        return documents.value_or(home / "Documents") / "QVNQuorvane" / "Reports";
    }();
    return dir;
}

}  // namespace quorvane::ReportExport
