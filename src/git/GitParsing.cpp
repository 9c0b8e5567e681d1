#include "git/GitParsing.hpp"

#include <algorithm>

#include "app/TextHelpers.hpp"

namespace quorvane::GitParsing {

std::vector<std::string> splitFirst(std::string_view text, char separator, int maxParts) {
    if (maxParts < 2) return {std::string(text)};
    std::vector<std::string> parts;
    std::string current;
    for (char c : text) {
        if (c == separator && static_cast<int>(parts.size()) < maxParts - 1) {
            parts.push_back(std::move(current));
            current.clear();
            continue;
        }
        current.push_back(c);
    }
    parts.push_back(std::move(current));
    return parts;
}

std::vector<std::vector<std::string_view>> nulRecords(std::string_view output,
                                                      size_t fieldsPerRecord) {
    std::vector<std::vector<std::string_view>> records;
    if (fieldsPerRecord == 0) return records;
    std::vector<std::string_view> current;
    size_t start = 0;
    while (true) {
        size_t end = output.find('\0', start);
        if (end == std::string_view::npos) break;  // an unterminated tail is not a field
        current.push_back(output.substr(start, end - start));
        start = end + 1;
        if (current.size() == fieldsPerRecord) {
            records.push_back(std::move(current));
            current.clear();
        }
    }
    return records;
}

bool isObjectName(std::string_view text) {
    if (text.size() != 40 && text.size() != 64) return false;
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

namespace {

// One record of kCommitFormat's six fields, or nothing when its hashes are not real.
std::optional<CommitRecord> commitFrom(std::string_view sha, std::string_view shortSha,
                                       std::string_view name, std::string_view email,
                                       std::string_view date, std::string_view subject,
                                       const std::string& repoID, const std::string& branch) {
    if (!isObjectName(sha) || shortSha.empty() || !sha.starts_with(shortSha)) return std::nullopt;
    CommitRecord record;
    record.repoID = repoID;
    record.sha = std::string(sha);
    record.shortSha = std::string(shortSha);
    record.authorName = std::string(name);
    record.authorEmail = std::string(email);
    record.committedAt = parseISODate(date).value_or(Date{});
    record.message = std::string(subject);
    record.branch = branch;
    return record;
}

}  // namespace

std::vector<CommitRecord> commits(std::string_view logOutput, const std::string& repoID,
                                  const std::string& branch) {
    std::vector<CommitRecord> records;
    for (const auto& f : nulRecords(logOutput, 6)) {
        if (auto record = commitFrom(f[0], f[1], f[2], f[3], f[4], f[5], repoID, branch)) {
            records.push_back(std::move(*record));
        }
    }
    return records;
}

std::vector<CommitRecord> historyCommits(std::string_view logOutput, const std::string& repoID) {
    std::vector<CommitRecord> records;
    for (const auto& f : nulRecords(logOutput, 7)) {
        std::string_view source = f[5];
        if (source.starts_with("refs/heads/")) source.remove_prefix(11);
        std::string branch(source);
        if (auto record = commitFrom(f[0], f[1], f[2], f[3], f[4], f[6], repoID, branch)) {
            records.push_back(std::move(*record));
        }
    }
    return records;
}

GitFileCounts fileCounts(std::string_view porcelain, bool ignoreUntracked) {
    GitFileCounts counts;
    for (std::string_view line : Text::nonEmptyLines(porcelain)) {
        if (line.size() < 2) continue;
        char x = line[0], y = line[1];
        if (x == '?' && y == '?') {
            if (!ignoreUntracked) ++counts.untracked;
            continue;
        }
        if (x == '!' && y == '!') continue;
        if (x != ' ' && x != '?') ++counts.staged;
        if (y == 'M' || y == 'T') ++counts.modified;
        if (x == 'D' || y == 'D') ++counts.deleted;
        if (x == 'R' || y == 'R' || x == 'C' || y == 'C') ++counts.renamed;
    }
    return counts;
}

AheadBehind aheadBehind(std::string_view text) {
    std::vector<std::string_view> pieces = Text::words(Text::trim(text));
    long long behind = 0, ahead = 0;
    if (pieces.size() < 2 || !Text::parseInt(pieces[0], behind) ||
        !Text::parseInt(pieces[1], ahead)) {
        return {};
    }
    return AheadBehind{static_cast<int>(ahead), static_cast<int>(behind)};
}

std::optional<Date> parseISODate(std::string_view text) {
    std::string_view trimmed = Text::trim(text);
    if (trimmed.empty()) return std::nullopt;
    return DateHelpers::parseISO(trimmed);
}

std::vector<std::string> changedPaths(std::string_view porcelain) {
    std::vector<std::string> paths;
    for (std::string_view line : Text::nonEmptyLines(porcelain)) {
        if (line.size() < 4) continue;
        std::string_view rest = line.substr(3);
        size_t arrow = rest.find(" -> ");
        if (arrow != std::string_view::npos) rest = rest.substr(arrow + 4);
        // Only spaces are trimmed here: a path may legitimately end in a tab.
        while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
        while (!rest.empty() && rest.back() == ' ') rest.remove_suffix(1);
        if (rest.size() >= 2 && rest.front() == '"' && rest.back() == '"') {
            rest = rest.substr(1, rest.size() - 2);
        }
        if (!rest.empty()) paths.emplace_back(rest);
    }
    return paths;
}

}  // namespace quorvane::GitParsing
