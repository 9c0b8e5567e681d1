#include "testing/TestRepo.hpp"

#include <stdexcept>

#include "base/TextHelpers.hpp"
#include "git/GitCommand.hpp"
#include "platform/Shell.hpp"
#include "testing/TempDir.hpp"

namespace quorvane::testing {

namespace {

ShellResult runGit(const std::filesystem::path& cwd, const std::vector<std::string>& arguments,
                   std::optional<Date> date) {
    ProcessRequest request;
    request.executable = std::string(GitCommand::kGitPath);
    request.arguments = arguments;
    request.cwd = cwd.string();
    request.timeout = 60;
    if (date) {
        std::string when = DateHelpers::isoString(*date);
        request.environment = {{"GIT_AUTHOR_DATE", when}, {"GIT_COMMITTER_DATE", when}};
    }
    return Shell().run(request);
}

std::string joined(const std::vector<std::string>& arguments) {
    std::string line = "git";
    for (const auto& argument : arguments) line += " " + argument;
    return line;
}

}  // namespace

TestRepo::TestRepo(std::filesystem::path dir, Kind kind) : path_(std::move(dir)) {
    std::filesystem::create_directories(path_);
    std::vector<std::string> init = {"init", "-q", "-b", "main"};
    if (kind == Kind::bare) init.push_back("--bare");
    git(init);
}

TestRepo TestRepo::cloneOf(const TestRepo& origin, std::filesystem::path dir) {
    std::filesystem::create_directories(dir.parent_path());
    ShellResult result = runGit(
        dir.parent_path(), {"clone", "-q", origin.path().string(), dir.string()}, std::nullopt);
    if (!result.succeeded()) throw std::runtime_error("git clone failed: " + result.stdErr);
    TestRepo clone;
    clone.path_ = std::move(dir);
    return clone;
}

ShellResult TestRepo::gitResult(const std::vector<std::string>& arguments) const {
    return runGit(path_, arguments, std::nullopt);
}

std::string TestRepo::git(const std::vector<std::string>& arguments,
                          std::optional<Date> date) const {
    ShellResult result = runGit(path_, arguments, date);
    if (!result.succeeded()) {
        throw std::runtime_error(joined(arguments) + " failed (" + std::to_string(result.exitCode) +
                                 "): " + result.stdErr);
    }
    return result.stdOut;
}

std::string TestRepo::gitLine(const std::vector<std::string>& arguments) const {
    return std::string(Text::trim(git(arguments)));
}

void TestRepo::write(const std::string& relative, const std::string& content) const {
    writeFile(path_ / relative, content);
}

std::string TestRepo::commitAll(const std::string& subject, std::optional<Date> at) const {
    git({"add", "-A"});
    git({"commit", "-q", "--allow-empty", "-m", subject}, at);
    return gitLine({"rev-parse", "HEAD"});
}

std::string TestRepo::commitFile(const std::string& relative, const std::string& content,
                                 const std::string& subject, std::optional<Date> at) const {
    write(relative, content);
    return commitAll(subject, at);
}

}  // namespace quorvane::testing
