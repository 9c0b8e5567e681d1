#include "git/GitParsing.hpp"

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

std::vector<CommitRecord> commits(std::string_view logOutput, const std::string& repoID,
                                  const std::string& branch) {
    std::vector<CommitRecord> records;
    for (std::string_view line : Text::nonEmptyLines(logOutput)) {
        std::vector<std::string> parts = splitFirst(line, '|', 6);
        if (parts.size() != 6 || parts[0].empty()) continue;
        CommitRecord record;
        record.repoID = repoID;
        record.sha = parts[0];
        record.shortSha = parts[1];
        record.authorName = parts[2];
        record.authorEmail = parts[3];
        record.committedAt = parseISODate(parts[4]).value_or(Date{});
        record.message = parts[5];
        record.branch = branch;
        records.push_back(std::move(record));
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
