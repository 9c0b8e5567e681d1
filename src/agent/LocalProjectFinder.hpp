#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "github/LocalProjectMatch.hpp"
#include "platform/ProcessRunner.hpp"

namespace quorvane {

// Finds git working trees on disk and reads what identifies each one: its GitHub
// origin, package name, README title and latest commits. It only reads: git runs
// the read-only way a scan does (no program a repository configures, no lock, no
// remote), and files are read a bounded head at a time, never through a link.
// Safe to use from several threads at once.
class LocalProjectFinder {
public:
    // A match's ranking against a query, 0 to 100, and the one line behind it.
    struct Score {
        int confidence = 0;
        std::vector<std::string> evidence;

        bool operator==(const Score&) const = default;
    };

    // Says whether git may read a repository kept in `folder`.
    using FolderCheck = std::function<bool(std::string_view folder)>;

    // With `mayRead`, a working tree whose git folder or common folder (the history,
    // branches and remotes a linked worktree or a ".git" file leads to) fails the
    // check counts as none: what an agent's search finds stays where it may look.
    explicit LocalProjectFinder(const ProcessRunner& runner, FolderCheck mayRead = {})
        : runner_(runner), mayRead_(std::move(mayRead)) {}

    // The working trees under `roots`, best first by `queryScore` and then by path;
    // every one is listed, a score of 0 last, so a caller that ranks by its own
    // rules loses none. The walk:
    // - goes at most `maxDepth` folders below a root (0: the root alone);
    // - stops at a working tree: a repository inside another is not looked for;
    // - never follows a symbolic link, so it cannot leave a root;
    // - skips hidden folders, and folders whose name is in `excludes` or whose path
    //   ends with an entry holding a slash (".git/modules");
    // - passes over a folder it cannot read, and never opens anything but folders.
    // Each working tree is listed once, even when roots overlap.
    std::vector<LocalProjectMatch> find(const std::vector<std::string>& roots,
                                        const std::string& query, int maxDepth,
                                        const std::vector<std::string>& excludes) const;

    // The record of the working tree whose top folder is `path` ("~" expanded, links
    // resolved); nothing when it is no working tree's top, even when it lies inside
    // one. Its confidence is 0 and it has no evidence.
    std::optional<LocalProjectMatch> inspect(const std::string& path) const;

    // The oldest root commit reachable from HEAD: the same for every clone of a
    // history. Nothing without commits.
    std::optional<std::string> firstCommitSha(const std::string& path) const;

    // How well the match answers a query, by the first rung that holds: the origin
    // is the query as "owner/name" (100); the origin's repository name is it (95); the
    // folder name (90) or the package name (85) is it; one of these equals it once
    // case and punctuation are set aside (75), or holds it, or it holds one of at
    // least three characters (60); the README title holds it (50); a word of three
    // or more characters of the query appears in one of them (30). Case never counts.
    // An empty query scores 0.
    static Score queryScore(const LocalProjectMatch& match, const std::string& query);

    // The name the folder's manifest declares, from the first of package.json,
    // Cargo.toml ([package]), pyproject.toml ([project], then [tool.poetry]), go.mod
    // (the module path's last element, a /vN suffix set aside) and CMakeLists.txt
    // (the first project()) that names one.
    static std::optional<std::string> packageName(const std::filesystem::path& at);

    // The first title of the folder's README (README.md, .markdown, .rst, .txt or no
    // extension, in that order, any case): the first ATX heading, underlined
    // heading or <h1> outside code blocks and front matter, with links, images,
    // tags and emphasis taken out. A README that is not Markdown falls back to its
    // first line of text. At most kMaxTitleCharacters.
    static std::optional<std::string> readmeTitle(const std::filesystem::path& at);

    static constexpr size_t kMaxTitleCharacters = 120;
    static constexpr int kRecentShaCount = 5;
    static constexpr size_t kMaxParallelReads = 4;

private:
    ShellResult git(const std::string& path, std::vector<std::string> arguments) const;

    const ProcessRunner& runner_;
    FolderCheck mayRead_;
};

}  // namespace quorvane
