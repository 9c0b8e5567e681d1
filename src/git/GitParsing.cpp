#include "git/GitParsing.hpp"

#include <algorithm>
#include <limits>

#include <fmt/format.h>

#include "base/TextHelpers.hpp"

namespace quorvane::GitParsing {

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

// One record of kCommitFormat's seven fields, or nothing when its hashes are not
// real or no date can be read.
std::optional<CommitRecord> commitFrom(const std::vector<std::string_view>& f,
                                       std::string_view subject, const std::string& repoID,
                                       const std::string& branch) {
    std::string_view sha = f[0], shortSha = f[1];
    if (!isObjectName(sha) || shortSha.empty() || !sha.starts_with(shortSha)) return std::nullopt;
    std::optional<Date> date = commitDate(f[4], f[5]);
    if (!date) return std::nullopt;
    CommitRecord record;
    record.repoID = repoID;
    record.sha = std::string(sha);
    record.shortSha = std::string(shortSha);
    record.authorName = std::string(f[2]);
    record.authorEmail = std::string(f[3]);
    record.committedAt = *date;
    record.message = std::string(subject);
    record.branch = branch;
    return record;
}

}  // namespace

std::optional<Date> commitDate(std::string_view authorDate, std::string_view committerDate) {
    if (std::optional<Date> authored = parseISODate(authorDate)) return authored;
    return parseISODate(committerDate);
}

std::vector<CommitRecord> commits(std::string_view logOutput, const std::string& repoID,
                                  const std::string& branch) {
    std::vector<CommitRecord> records;
    for (const auto& f : nulRecords(logOutput, 7)) {
        if (auto record = commitFrom(f, f[6], repoID, branch))
            records.push_back(std::move(*record));
    }
    return records;
}

std::vector<CommitRecord> historyCommits(std::string_view logOutput, const std::string& repoID) {
    std::vector<CommitRecord> records;
    for (const auto& f : nulRecords(logOutput, 8)) {
        std::string_view source = f[6];
        if (source.starts_with("refs/heads/")) source.remove_prefix(11);
        // Reached only from a detached HEAD: on no branch.
        if (source == "HEAD") source = {};
        std::string branch(source);
        if (auto record = commitFrom(f, f[7], repoID, branch))
            records.push_back(std::move(*record));
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

namespace {

// Splits `text` on single spaces into `count` fields, the last one taking the rest
// (a path may hold spaces). Nothing when there are fewer.
std::optional<std::vector<std::string_view>> fields(std::string_view text, size_t count) {
    std::vector<std::string_view> out;
    while (out.size() + 1 < count) {
        size_t space = text.find(' ');
        if (space == std::string_view::npos) return std::nullopt;
        out.push_back(text.substr(0, space));
        text.remove_prefix(space + 1);
    }
    out.push_back(text);
    return out;
}

bool isStatusCode(char c) {
    return c == '.' || c == 'M' || c == 'T' || c == 'A' || c == 'D' || c == 'R' || c == 'C' ||
           c == 'U';
}

bool readScore(std::string_view score) {
    if (score.size() < 2 || (score[0] != 'R' && score[0] != 'C')) return false;
    return std::all_of(score.begin() + 1, score.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::optional<AheadBehind> readAheadBehind(std::string_view text) {
    auto parts = fields(text, 2);
    if (!parts || (*parts)[0].size() < 2 || (*parts)[1].size() < 2 || (*parts)[0][0] != '+' ||
        (*parts)[1][0] != '-') {
        return std::nullopt;
    }
    long long ahead = 0, behind = 0;
    if (!Text::parseInt((*parts)[0].substr(1), ahead) ||
        !Text::parseInt((*parts)[1].substr(1), behind) || ahead < 0 || behind < 0 ||
        ahead > std::numeric_limits<int>::max() || behind > std::numeric_limits<int>::max()) {
        return std::nullopt;
    }
    return AheadBehind{static_cast<int>(ahead), static_cast<int>(behind)};
}

}  // namespace

std::optional<StatusV2> parseStatusV2(std::string_view output) {
    StatusV2 status;
    bool sawOid = false, sawHead = false;
    size_t pos = 0;
    auto next = [&]() -> std::optional<std::string_view> {
        size_t end = output.find('\0', pos);
        if (end == std::string_view::npos) return std::nullopt;
        std::string_view record = output.substr(pos, end - pos);
        pos = end + 1;
        return record;
    };
    while (pos < output.size()) {
        std::optional<std::string_view> record = next();
        if (!record || record->size() < 2) return std::nullopt;
        std::string_view text = *record;
        if (text.starts_with("# ")) {
            auto header = fields(text.substr(2), 2);
            if (!header) continue;
            std::string_view name = (*header)[0], value = (*header)[1];
            if (name == "branch.oid") {
                status.oid = std::string(value);
                sawOid = true;
            } else if (name == "branch.head") {
                status.head = std::string(value);
                sawHead = true;
            } else if (name == "branch.upstream") {
                status.upstream = std::string(value);
            } else if (name == "branch.ab") {
                status.aheadBehind = readAheadBehind(value);
                if (!status.aheadBehind) return std::nullopt;
            }
            continue;
        }
        if (text[1] != ' ') return std::nullopt;
        StatusV2::Entry entry;
        entry.kind = text[0];
        std::string_view rest = text.substr(2);
        std::optional<std::vector<std::string_view>> parts;
        switch (entry.kind) {
            case '1': parts = fields(rest, 8); break;
            case '2': parts = fields(rest, 9); break;
            case 'u': parts = fields(rest, 10); break;
            case '?':
            case '!':
                entry.x = entry.y = entry.kind;
                entry.path = std::string(rest);
                if (entry.path.empty()) return std::nullopt;
                status.entries.push_back(std::move(entry));
                continue;
            default: return std::nullopt;
        }
        if (!parts || (*parts)[0].size() != 2 || parts->back().empty()) return std::nullopt;
        entry.x = (*parts)[0][0];
        entry.y = (*parts)[0][1];
        if (!isStatusCode(entry.x) || !isStatusCode(entry.y)) return std::nullopt;
        entry.path = std::string(parts->back());
        if (entry.kind == '2') {
            if (!readScore((*parts)[7])) return std::nullopt;
            std::optional<std::string_view> origin = next();
            if (!origin || origin->empty()) return std::nullopt;
            entry.origin = std::string(*origin);
        }
        status.entries.push_back(std::move(entry));
    }
    if (!sawOid || !sawHead || status.oid.empty() || status.head.empty()) return std::nullopt;
    return status;
}

std::string porcelainV1Path(std::string_view path, bool quotePath) {
    std::string escaped;
    bool mustQuote = false;
    for (char c : path) {
        unsigned char byte = static_cast<unsigned char>(c);
        const char* named = nullptr;
        switch (c) {
            case '\a': named = "\\a"; break;
            case '\b': named = "\\b"; break;
            case '\t': named = "\\t"; break;
            case '\n': named = "\\n"; break;
            case '\v': named = "\\v"; break;
            case '\f': named = "\\f"; break;
            case '\r': named = "\\r"; break;
            case '"': named = "\\\""; break;
            case '\\': named = "\\\\"; break;
            default: break;
        }
        if (named != nullptr) {
            escaped += named;
            mustQuote = true;
        } else if (byte < 0x20 || byte == 0x7f || (byte >= 0x80 && quotePath)) {
            escaped += fmt::format("\\{:03o}", byte);
            mustQuote = true;
        } else {
            escaped += c;
        }
    }
    if (mustQuote || path.find(' ') != std::string_view::npos) return '"' + escaped + '"';
    return escaped;
}

std::string porcelainV1(const StatusV2& status, bool quotePath) {
    std::string listing;
    for (const StatusV2::Entry& entry : status.entries) {
        listing += entry.x == '.' ? ' ' : entry.x;
        listing += entry.y == '.' ? ' ' : entry.y;
        listing += ' ';
        if (entry.kind == '2') listing += porcelainV1Path(entry.origin, quotePath) + " -> ";
        listing += porcelainV1Path(entry.path, quotePath);
        listing += '\n';
    }
    return listing;
}

}  // namespace quorvane::GitParsing
