#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "agent/AgentResult.hpp"
#include "platform/ProcessRunner.hpp"

namespace quorvane {

// One of the four git commands an agent may have run on the person's behalf. Only
// the branch comes from outside; everything else of the command line is fixed.
struct SafeGitAction {
    struct Push {
        std::optional<std::string> branch;  // HEAD when absent or empty
    };
    struct SetUpstreamPush {
        std::string branch;
    };
    struct Fetch {};
    struct PullFFOnly {};

    std::variant<Push, SetUpstreamPush, Fetch, PullFFOnly> value;

    static SafeGitAction push(std::optional<std::string> branch = std::nullopt) {
        return {Push{std::move(branch)}};
    }
    static SafeGitAction setUpstreamPush(std::string branch) {
        return {SetUpstreamPush{std::move(branch)}};
    }
    static SafeGitAction fetch() { return {Fetch{}}; }
    static SafeGitAction pullFFOnly() { return {PullFFOnly{}}; }

    // The four commands, as the git tools name the one each runs.
    enum class Command { fetch, pullFFOnly, push, setUpstreamPush };
    // The command with the call's branch: a push pushes `branch` when one is given.
    static SafeGitAction of(Command command, const std::optional<std::string>& branch);
    // What the git tool named `tool` runs; nothing for any other tool.
    static std::optional<SafeGitAction> forTool(std::string_view tool,
                                                const std::optional<std::string>& branch);

    // What results call it: "push", "push -u", "fetch" or "pull --ff-only".
    std::string_view label() const;
};

// The only place that changes a repository. It builds the argument list itself, and
// a second check that knows nothing of how the list was built refuses any command
// line holding a dangerous word, so a later edit of the list cannot open a hole.
// No refusal starts a process.
class SafeGitRunner {
public:
    SafeGitRunner() = delete;

    // Words that must never reach git, in the order they are tried. "branch -D" can
    // never hit, since the text is lower-cased first; "branch -d" does its work.
    static constexpr std::array<std::string_view, 21> dangerousNeedles = {
        "--force", "-f",       "+",          "reset",      "--hard",   "clean",         "rebase",
        "merge",   "checkout", "branch -d",  "branch -D",  "rm ",      "filter-branch", "reflog",
        "gc",      "prune",    "stash drop", "update-ref", "--delete", "cherry-pick",   "revert"};

    static constexpr double kTimeoutSeconds = 120;

    // The arguments after the executable: "-C", the path, then the command.
    static std::vector<std::string> arguments(const SafeGitAction& action,
                                              const std::string& repoPath);

    // Whether a command text holds a forced refspec (" +") or a needle: one with a
    // blank as a plain substring, the others as a word between blanks, all in the
    // lower-cased text padded with a blank on each side. So "feature/clean" passes
    // and "clean" does not, and "rm " hits any text ending in "rm" ("terraform").
    static bool isDangerous(std::string_view commandText);

    // Why the runner would refuse the action whatever the repository: a dangerous
    // command line, then an unsafe branch name, as "dangerous_blocked". Nothing when
    // it would run. Public so that a git tool refuses such a call before the person
    // is asked to approve a command that could never run.
    static std::optional<AgentResult> refusal(const SafeGitAction& action);

    // Runs the action in the repository at `repoPath` ("~" expanded) through
    // `runner`, or says why not: "not_found" without a .git there, then
    // "dangerous_blocked" for a dangerous command or an unsafe branch name. Git's
    // failure gives "error" with what it printed.
    static AgentResult run(const SafeGitAction& action, const std::string& repoPath,
                           const ProcessRunner& runner);

    // A name git could read as an option, a refspec or a pattern of refs, or one it
    // refuses to make a ref of. An empty name is not unsafe by this test.
    static bool isUnsafeBranchName(std::string_view name);
};

}  // namespace quorvane
