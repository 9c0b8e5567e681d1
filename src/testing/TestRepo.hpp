#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/DateHelpers.hpp"
#include "platform/ProcessRunner.hpp"

namespace quorvane::testing {

// A real Git repository that a test builds in a folder of its own, through the real
// /usr/bin/git. Helpers throw with git's message when a command fails, which fails the test.
class TestRepo {
public:
    enum class Kind { workTree, bare };

    // Runs `git init` (branch "main") in `dir`, creating it.
    explicit TestRepo(std::filesystem::path dir, Kind kind = Kind::workTree);

    // Clones `origin` into `dir`.
    static TestRepo cloneOf(const TestRepo& origin, std::filesystem::path dir);

    const std::filesystem::path& path() const { return path_; }

    // Runs git here and returns its standard output; throws when it exits non-zero.
    std::string git(const std::vector<std::string>& arguments,
                    std::optional<Date> date = std::nullopt) const;
    // The same, returning the whole result whatever the exit status.
    ShellResult gitResult(const std::vector<std::string>& arguments) const;
    // Trimmed standard output of a git command, for one-line answers.
    std::string gitLine(const std::vector<std::string>& arguments) const;

    void write(const std::string& relative, const std::string& content) const;

    // Stages everything and commits it with `subject` (author and committer date
    // `at` when given); returns the new commit's full hash.
    std::string commitAll(const std::string& subject, std::optional<Date> at = std::nullopt) const;

    // Writes a file and commits it.
    std::string commitFile(const std::string& relative, const std::string& content,
                           const std::string& subject, std::optional<Date> at = std::nullopt) const;

private:
    TestRepo() = default;
    std::filesystem::path path_;
};

}  // namespace quorvane::testing
