#include "agent/LocalProjectFinder.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <regex>
#include <set>

#include "agent/ProjectFiles.hpp"
#include "base/BoundedParallel.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "git/GitCommand.hpp"
#include "git/GitParsing.hpp"
#include "github/RepoMapper.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

namespace {

namespace fs = std::filesystem;

constexpr double kGitTimeoutSeconds = 15;

// A ".git" folder, or the ".git" file of a linked worktree or submodule. A link or
// anything else of that name (a FIFO) makes no working tree.
bool hasGitEntry(const fs::path& folder) {
    struct stat info {};
    if (::lstat((folder / ".git").c_str(), &info) != 0) return false;
    return S_ISDIR(info.st_mode) || S_ISREG(info.st_mode);
}

bool isExcluded(const std::string& name, const fs::path& child,
                const std::vector<std::string>& excludes) {
    // Hidden folders hold tool data and caches, not the person's projects.
    if (name.empty() || name.front() == '.') return true;
    const std::string path = child.string();
    return std::any_of(excludes.begin(), excludes.end(), [&](const std::string& exclude) {
        if (exclude.find('/') == std::string::npos) return name == exclude;
        return path.ends_with("/" + exclude);
    });
}

// Depth first below `folder`, adding each working tree's top folder once.
void walk(const fs::path& folder, int depth, int maxDepth, const std::vector<std::string>& excludes,
          std::set<std::string>& seen, std::vector<std::string>& found) {
    if (hasGitEntry(folder)) {
        if (seen.insert(folder.string()).second) found.push_back(folder.string());
        return;
    }
    if (depth >= maxDepth) return;
    std::error_code ec;
    for (fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec), end;
         !ec && it != end; it.increment(ec)) {
        const fs::path child = it->path();
        const std::string name = child.filename().string();
        if (isExcluded(name, child, excludes)) continue;
        // The entry's own type: a link to a folder is a link, and is not followed.
        std::error_code typeError;
        fs::file_status own = it->symlink_status(typeError);
        if (typeError || !fs::is_directory(own)) continue;
        walk(child, depth + 1, maxDepth, excludes, seen, found);
    }
}

std::string lower(std::string_view text) {
    return Text::asciiLower(text);
}

// Letters and digits only, so "My_App", "my-app" and "myapp" read alike. Bytes of
// other scripts are kept as they are.
std::string compact(std::string_view text) {
    std::string out;
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80 || std::isalnum(byte)) out += static_cast<char>(std::tolower(byte));
    }
    return out;
}

std::vector<std::string> queryWords(std::string_view query) {
    std::vector<std::string> words;
    std::string word;
    for (char c : std::string(query) + " ") {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80 || std::isalnum(byte)) {
            word += static_cast<char>(std::tolower(byte));
            continue;
        }
        if (word.size() >= 3) words.push_back(word);
        word.clear();
    }
    return words;
}

bool contains(std::string_view text, std::string_view part) {
    return !part.empty() && text.find(part) != std::string_view::npos;
}

std::string lastComponent(const std::string& path) {
    std::string name = fs::path(path).filename().string();
    return name.empty() ? path : name;
}

// ---- Manifests ----------------------------------------------------------------

std::optional<std::string> nonEmpty(std::string_view text) {
    std::string_view trimmed = Text::trim(text);
    if (trimmed.empty()) return std::nullopt;
    return std::string(trimmed);
}

// The text of a TOML string value: "basic" (with \" and \\) or 'literal'.
std::optional<std::string> tomlString(std::string_view value) {
    value = Text::trim(value);
    if (value.size() < 2) return std::nullopt;
    const char quote = value.front();
    if (quote != '"' && quote != '\'') return std::nullopt;
    std::string out;
    for (size_t i = 1; i < value.size(); ++i) {
        if (value[i] == quote) return out;
        if (quote == '"' && value[i] == '\\' && i + 1 < value.size()) ++i;
        out += value[i];
    }
    return std::nullopt;
}

// `key = "value"` directly in table `[table]`. Enough TOML for a manifest's name;
// anything fancier (a dotted key, a multi-line string) counts as absent.
std::optional<std::string> tomlValue(std::string_view text, std::string_view table,
                                     std::string_view key) {
    bool inTable = false;
    for (std::string_view line : Text::nonEmptyLines(text)) {
        line = Text::trim(line);
        if (line.starts_with('#')) continue;
        if (line.starts_with('[')) {
            size_t close = line.find(']');
            // An array of tables ("[[bin]]") is never the table asked for.
            inTable = !line.starts_with("[[") && close != std::string_view::npos &&
                      Text::trim(line.substr(1, close - 1)) == table;
            continue;
        }
        if (!inTable) continue;
        size_t equals = line.find('=');
        if (equals == std::string_view::npos || Text::trim(line.substr(0, equals)) != key) continue;
        if (auto value = tomlString(line.substr(equals + 1))) return nonEmpty(*value);
    }
    return std::nullopt;
}

std::optional<std::string> packageJsonName(std::string_view text) {
    Json json = Json::parse(text, nullptr, false);
    if (json.is_discarded() || !json.is_object()) return std::nullopt;
    auto name = json.find("name");
    if (name == json.end() || !name->is_string()) return std::nullopt;
    return nonEmpty(name->get<std::string>());
}

// "github.com/acme/tool/v2" names the package "tool": the major version suffix is
// part of the path, not of the name.
std::optional<std::string> goModuleName(std::string_view text) {
    for (std::string_view line : Text::nonEmptyLines(text)) {
        std::vector<std::string_view> words = Text::words(line);
        if (words.size() < 2 || words[0] != "module") continue;
        std::string path(words[1]);
        if (path.size() >= 2 && path.front() == '"' && path.back() == '"') {
            path = path.substr(1, path.size() - 2);
        }
        std::vector<std::string> parts;
        for (size_t start = 0; start <= path.size();) {
            size_t slash = std::min(path.find('/', start), path.size());
            if (slash > start) parts.push_back(path.substr(start, slash - start));
            start = slash + 1;
        }
        static const std::regex majorVersion("v[0-9]+");
        if (parts.size() > 1 && std::regex_match(parts.back(), majorVersion)) parts.pop_back();
        if (parts.empty()) return std::nullopt;
        return parts.back();
    }
    return std::nullopt;
}

std::optional<std::string> cmakeProjectName(std::string_view text) {
    std::string code;
    for (std::string_view line : Text::nonEmptyLines(text)) {
        std::string_view trimmed = Text::trim(line);
        if (!trimmed.starts_with('#')) code.append(trimmed).append("\n");
    }
    static const std::regex project(R"(\bproject\s*\(\s*([A-Za-z0-9_.+-]+))", std::regex::icase);
    std::smatch found;
    if (!std::regex_search(code, found, project)) return std::nullopt;
    return found[1].str();
}

// ---- README titles --------------------------------------------------------------

// Links keep their text, images and tags go, and emphasis marks are dropped.
std::string plainTitle(std::string_view raw) {
    static const std::regex image(R"(!\[[^\]]*\]\([^)]*\))");
    static const std::regex link(R"(\[([^\]]*)\]\([^)]*\))");
    static const std::regex tag(R"(<[^>]*>)");
    std::string text = std::regex_replace(std::string(raw), image, "");
    text = std::regex_replace(text, link, "$1");
    text = std::regex_replace(text, tag, " ");
    std::string collapsed;
    for (char c : text) {
        // Emphasis and code marks say how the title looks, not what it says.
        if (c == '*' || c == '`') continue;
        const bool blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
        if (blank && (collapsed.empty() || collapsed.back() == ' ')) continue;
        collapsed += blank ? ' ' : c;
    }
    // Underscores belong to names ("snake_case") except around the whole title.
    std::string_view trimmed = Text::trim(collapsed);
    while (trimmed.starts_with('_')) trimmed.remove_prefix(1);
    while (trimmed.ends_with('_')) trimmed.remove_suffix(1);
    trimmed = Text::trim(trimmed);
    // Characters, not bytes: a cut never splits one.
    size_t characters = 0;
    for (size_t i = 0; i < trimmed.size(); ++i) {
        if ((static_cast<unsigned char>(trimmed[i]) & 0xC0) == 0x80) continue;
        if (characters++ == LocalProjectFinder::kMaxTitleCharacters) {
            return std::string(Text::trim(trimmed.substr(0, i)));
        }
    }
    return std::string(trimmed);
}

// A line of one repeated mark that underlines the title above it: "=" or "-" in
// Markdown, any of these in reStructuredText.
bool isUnderline(std::string_view line, bool markdown) {
    line = Text::trim(line);
    const std::string_view marks = markdown ? "=-" : "=-~^*#+";
    if (line.size() < 2 || marks.find(line.front()) == std::string::npos) {
        return false;
    }
    return std::all_of(line.begin(), line.end(), [&](char c) { return c == line.front(); });
}

// "# Title #" gives "Title"; nothing for a line that is no ATX heading.
std::optional<std::string_view> atxHeading(std::string_view line) {
    size_t indent = 0;
    while (indent < line.size() && indent < 3 && line[indent] == ' ') ++indent;
    line.remove_prefix(indent);
    size_t level = 0;
    while (level < line.size() && line[level] == '#') ++level;
    if (level == 0 || level > 6) return std::nullopt;
    if (level < line.size() && line[level] != ' ' && line[level] != '\t') return std::nullopt;
    std::string_view text = Text::trim(line.substr(level));
    while (!text.empty() && text.back() == '#') text.remove_suffix(1);
    return Text::trim(text);
}

std::optional<std::string> titleOf(std::string_view text, bool markdown) {
    std::vector<std::string_view> lines;
    for (size_t start = 0; start < text.size();) {
        size_t end = std::min(text.find('\n', start), text.size());
        std::string_view line = text.substr(start, end - start);
        if (line.ends_with('\r')) line.remove_suffix(1);
        lines.push_back(line);
        start = end + 1;
    }
    size_t i = 0;
    // YAML front matter is metadata, not the document.
    if (markdown && !lines.empty() && Text::trim(lines[0]) == "---") {
        for (i = 1; i < lines.size() && Text::trim(lines[i]) != "---"; ++i) {}
        ++i;
    }
    bool inFence = false;
    std::optional<std::string> firstText;
    for (; i < lines.size(); ++i) {
        std::string_view line = Text::trim(lines[i]);
        if (line.starts_with("```") || line.starts_with("~~~")) {
            inFence = !inFence;
            continue;
        }
        if (inFence || line.empty()) continue;
        if (auto heading = atxHeading(lines[i])) {
            std::string title = plainTitle(*heading);
            if (!title.empty()) return title;
            continue;
        }
        if (Text::asciiLower(line).starts_with("<h1")) {
            // The heading may run over several lines (a logo, then the name).
            std::string html;
            for (size_t k = i; k < lines.size() && k < i + 10; ++k) {
                html.append(lines[k]).append(" ");
                if (Text::asciiLower(lines[k]).find("</h1>") != std::string::npos) break;
            }
            std::string title = plainTitle(html);
            if (!title.empty()) return title;
            continue;
        }
        const bool underline = isUnderline(line, markdown);
        if (!underline && i + 1 < lines.size() && isUnderline(lines[i + 1], markdown)) {
            std::string title = plainTitle(line);
            if (!title.empty()) return title;
        }
        // Badges, pictures, markup and reStructuredText directives are no title.
        if (!firstText && !underline && !line.starts_with('<') && !line.starts_with("[!") &&
            !line.starts_with("![") && !line.starts_with("..")) {
            firstText = plainTitle(line);
        }
    }
    if (!markdown && firstText && !firstText->empty()) return firstText;
    return std::nullopt;
}

}  // namespace

ShellResult LocalProjectFinder::git(const std::string& path,
                                    std::vector<std::string> arguments) const {
    return runner_.run(GitCommand::request(path, std::move(arguments), kGitTimeoutSeconds));
}

std::vector<LocalProjectMatch> LocalProjectFinder::find(
    const std::vector<std::string>& roots, const std::string& query, int maxDepth,
    const std::vector<std::string>& excludes) const {
    std::set<std::string> seen;
    std::vector<std::string> found;
    for (const std::string& root : roots) {
        // The root itself may be reached through a link: the person named it.
        const std::string start = PathHelpers::canonicalPath(root);
        std::error_code ec;
        if (start.empty() || !fs::is_directory(start, ec)) continue;
        walk(start, 0, std::max(maxDepth, 0), excludes, seen, found);
    }
    // Walking is cheap; each inspection starts a few git children, so a few run at once.
    std::vector<std::optional<LocalProjectMatch>> inspected =
        boundedParallelMap<std::optional<LocalProjectMatch>>(
            found.size(), kMaxParallelReads, [&](size_t i) { return inspect(found[i]); });
    std::vector<LocalProjectMatch> matches;
    for (std::optional<LocalProjectMatch>& match : inspected) {
        if (!match) continue;
        Score score = queryScore(*match, query);
        match->confidence = score.confidence;
        match->evidence = std::move(score.evidence);
        matches.push_back(std::move(*match));
    }
    std::sort(matches.begin(), matches.end(),
              [](const LocalProjectMatch& a, const LocalProjectMatch& b) {
                  if (a.confidence != b.confidence) return a.confidence > b.confidence;
                  return a.path < b.path;
              });
    return matches;
}

std::optional<LocalProjectMatch> LocalProjectFinder::inspect(const std::string& path) const {
    const std::string folder = PathHelpers::canonicalPath(path);
    std::error_code ec;
    if (folder.empty() || !fs::is_directory(folder, ec) || !hasGitEntry(folder)) {
        return std::nullopt;
    }
    // git looks upwards from a folder whose .git it cannot use, so the top it names
    // must be this folder, or the folder is no working tree of its own.
    ShellResult found = git(folder, {"rev-parse", "--path-format=absolute", "--show-toplevel",
                                     "--git-dir", "--git-common-dir"});
    std::vector<std::string_view> folders = Text::nonEmptyLines(found.stdOut);
    // A folder name holding a line end cannot be told apart from two: not read.
    if (!found.succeeded() || folders.size() != 3 ||
        PathHelpers::canonicalPath(folders[0]) != folder) {
        return std::nullopt;
    }
    if (mayRead_ && (!mayRead_(folders[1]) || !mayRead_(folders[2]))) return std::nullopt;
    LocalProjectMatch match;
    match.path = folder;
    // Only owner and name are kept: the URL itself may carry a token.
    ShellResult origin = git(folder, {"remote", "get-url", "origin"});
    if (origin.succeeded()) {
        if (auto parsed = RepoMapper::ownerRepo(Text::trim(origin.stdOut))) {
            match.remoteOwnerRepo = parsed->first + "/" + parsed->second;
        }
    }
    ShellResult log =
        git(folder, {"log", "-n", std::to_string(kRecentShaCount), "--pretty=format:%H"});
    if (log.succeeded()) {
        for (std::string_view line : Text::nonEmptyLines(log.stdOut)) {
            if (GitParsing::isObjectName(Text::trim(line))) {
                match.recentShas.emplace_back(Text::trim(line));
            }
        }
    }
    match.pkgName = packageName(folder);
    match.readmeTitle = readmeTitle(folder);
    return match;
}

std::optional<std::string> LocalProjectFinder::firstCommitSha(const std::string& path) const {
    ShellResult roots =
        git(PathHelpers::canonicalPath(path), {"rev-list", "--max-parents=0", "HEAD"});
    if (!roots.succeeded()) return std::nullopt;
    std::optional<std::string> oldest;
    // Newest first, so the last one listed is the history's first.
    for (std::string_view line : Text::nonEmptyLines(roots.stdOut)) {
        if (GitParsing::isObjectName(Text::trim(line))) oldest = std::string(Text::trim(line));
    }
    return oldest;
}

LocalProjectFinder::Score LocalProjectFinder::queryScore(const LocalProjectMatch& match,
                                                         const std::string& query) {
    const std::string wanted = lower(Text::trim(query));
    if (wanted.empty()) return {};
    const std::string folder = lastComponent(match.path);
    std::optional<std::string> originName;
    if (match.remoteOwnerRepo) originName = lastComponent(*match.remoteOwnerRepo);

    if (match.remoteOwnerRepo && lower(*match.remoteOwnerRepo) == wanted) {
        return {100, {"git remote origin is " + *match.remoteOwnerRepo}};
    }
    if (originName && lower(*originName) == wanted) {
        return {95, {"origin repository " + *match.remoteOwnerRepo + " is named " + *originName}};
    }
    if (lower(folder) == wanted) return {90, {"folder is named " + folder}};
    if (match.pkgName && lower(*match.pkgName) == wanted) {
        return {85, {"package is named " + *match.pkgName}};
    }

    struct Name {
        const char* label;
        std::string value;
    };
    std::vector<Name> names;
    if (originName) names.push_back({"origin repository", *originName});
    names.push_back({"folder", folder});
    if (match.pkgName) names.push_back({"package", *match.pkgName});
    const std::string squeezed = compact(wanted);
    for (const Name& name : names) {
        if (!squeezed.empty() && compact(name.value) == squeezed) {
            return {75,
                    {std::string(name.label) + " name " + name.value + " matches " + query +
                     " apart from case and punctuation"}};
        }
    }
    for (const Name& name : names) {
        const std::string value = compact(name.value);
        if ((squeezed.size() >= 3 && contains(value, squeezed)) ||
            (value.size() >= 3 && contains(squeezed, value))) {
            return {60, {std::string(name.label) + " name " + name.value + " resembles " + query}};
        }
    }
    if (match.readmeTitle &&
        (contains(lower(*match.readmeTitle), wanted) ||
         (squeezed.size() >= 3 && contains(compact(*match.readmeTitle), squeezed)))) {
        return {50, {"README title \"" + *match.readmeTitle + "\" mentions " + query}};
    }
    if (match.readmeTitle) names.push_back({"README title", *match.readmeTitle});
    for (const std::string& word : queryWords(wanted)) {
        for (const Name& name : names) {
            if (contains(lower(name.value), word)) {
                return {30,
                        {std::string(name.label) + " " + name.value + " shares the word " + word}};
            }
        }
    }
    return {};
}

std::optional<std::string> LocalProjectFinder::packageName(const fs::path& at) {
    if (auto text = ProjectFiles::readHead(at, "package.json")) {
        if (auto name = packageJsonName(*text)) return name;
    }
    if (auto text = ProjectFiles::readHead(at, "Cargo.toml")) {
        if (auto name = tomlValue(*text, "package", "name")) return name;
    }
    if (auto text = ProjectFiles::readHead(at, "pyproject.toml")) {
        if (auto name = tomlValue(*text, "project", "name")) return name;
        if (auto name = tomlValue(*text, "tool.poetry", "name")) return name;
    }
    if (auto text = ProjectFiles::readHead(at, "go.mod")) {
        if (auto name = goModuleName(*text)) return name;
    }
    if (auto text = ProjectFiles::readHead(at, "CMakeLists.txt")) {
        if (auto name = cmakeProjectName(*text)) return name;
    }
    return std::nullopt;
}

std::optional<std::string> LocalProjectFinder::readmeTitle(const fs::path& at) {
    static constexpr std::array<std::string_view, 5> kNames = {
        "readme.md", "readme.markdown", "readme.rst", "readme.txt", "readme"};
    // The folder's own spelling of each name; of two spellings the first by bytes.
    std::array<std::optional<std::string>, kNames.size()> present;
    std::error_code ec;
    for (fs::directory_iterator it(at, ec), end; !ec && it != end; it.increment(ec)) {
        const std::string name = it->path().filename().string();
        auto known = std::find(kNames.begin(), kNames.end(), Text::asciiLower(name));
        if (known == kNames.end()) continue;
        std::optional<std::string>& slot = present[static_cast<size_t>(known - kNames.begin())];
        if (!slot || name < *slot) slot = name;
    }
    for (size_t i = 0; i < kNames.size(); ++i) {
        if (!present[i]) continue;
        std::optional<std::string> text = ProjectFiles::readHead(at, *present[i]);
        if (!text) continue;
        const bool markdown = i < 2;
        if (auto title = titleOf(*text, markdown)) return title;
    }
    return std::nullopt;
}

}  // namespace quorvane
