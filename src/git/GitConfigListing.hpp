#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// What a scan needs from a repository's configuration, read by one `git config`
// child: the filter drivers it defines, what `git remote get-url origin` would
// print, how status quotes paths, and which files all that came from, so that a
// later scan can tell whether it can still hold.
struct GitConfigListing {
    struct Entry {
        std::string scope;                 // "local", "global", "system", "worktree", "command"
        std::string origin;                // "file:<path>" or another source
        std::string key;                   // section and variable in lower case
        std::optional<std::string> value;  // nothing for a key written without "="
    };

    // The arguments after `git`.
    static std::vector<std::string> query();

    // Reads the query's output; nothing when it is malformed.
    static std::optional<GitConfigListing> parse(std::string_view output);

    std::vector<Entry> entries;

    // Filter drivers defined outside the user's own (global and system) files.
    std::vector<std::string> repositoryFilterDrivers() const;

    // The first remote.origin.url with the longest matching url.<base>.insteadOf
    // applied, trimmed; nothing when there is none or it is blank.
    std::optional<std::string> originURL() const;

    // Every user.email value, in the order git read them.
    std::vector<std::string> userEmails() const;

    // core.quotePath, true unless set false.
    bool quotePath() const;

    // The repository's own config file, from where core.repositoryformatversion
    // was read, relative paths taken from `repoPath`.
    std::optional<std::string> localConfigFile(const std::string& repoPath) const;

    // Every file the values came from and every file an include names, whether it
    // exists or not, with relative paths resolved as git resolves them.
    std::vector<std::string> sourceFiles(const std::string& repoPath) const;

    // Whether an include depends on the current branch.
    bool includesOnBranch() const;

    // Whether a per-worktree config file may be read besides the shared one.
    bool usesWorktreeConfig() const;
};

}  // namespace quorvane
