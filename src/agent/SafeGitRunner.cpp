#include "agent/SafeGitRunner.hpp"

#include <sys/stat.h>

#include "agent/AgentJSON.hpp"
#include "agent/AgentTools.hpp"
#include "base/PathHelpers.hpp"
#include "base/RemoteURL.hpp"
#include "base/TextHelpers.hpp"
#include "git/GitCommand.hpp"

namespace quorvane {

namespace {

template <class... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

const std::optional<std::string>& namedBranch(const SafeGitAction& action) {
    static const std::optional<std::string> none;
    if (const auto* push = std::get_if<SafeGitAction::Push>(&action.value)) {
        return push->branch && !push->branch->empty() ? push->branch : none;
    }
    return none;
}

// The branch whose name is checked: push's when it names one, setUpstreamPush's
// always.
std::optional<std::string> checkedBranch(const SafeGitAction& action) {
    if (const auto* upstream = std::get_if<SafeGitAction::SetUpstreamPush>(&action.value)) {
        return upstream->branch;
    }
    return namedBranch(action);
}

bool exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

}  // namespace

std::string_view SafeGitAction::label() const {
    return std::visit(
        Overloaded{[](const Push&) { return std::string_view("push"); },
                   [](const SetUpstreamPush&) { return std::string_view("push -u"); },
                   [](const Fetch&) { return std::string_view("fetch"); },
                   [](const PullFFOnly&) { return std::string_view("pull --ff-only"); }},
        value);
}

SafeGitAction SafeGitAction::of(Command command, const std::optional<std::string>& branch) {
    switch (command) {
        case Command::fetch: return fetch();
        case Command::pullFFOnly: return pullFFOnly();
        case Command::push: return push(branch);
        case Command::setUpstreamPush: return setUpstreamPush(branch.value_or(""));
    }
    return fetch();
}

std::optional<SafeGitAction> SafeGitAction::forTool(std::string_view tool,
                                                    const std::optional<std::string>& branch) {
    const AgentTool* entry = AgentTools::find(tool);
    if (entry == nullptr || !entry->approval || !entry->approval->gitCommand) return std::nullopt;
    return of(*entry->approval->gitCommand, branch);
}

std::vector<std::string> SafeGitRunner::arguments(const SafeGitAction& action,
                                                  const std::string& repoPath) {
    std::vector<std::string> args = {"-C", repoPath};
    std::visit(
        Overloaded{
            [&](const SafeGitAction::Push&) {
                args.insert(args.end(), {"push", "--end-of-options", "origin",
                                         namedBranch(action).value_or("HEAD")});
            },
            [&](const SafeGitAction::SetUpstreamPush& push) {
                args.insert(args.end(), {"push", "-u", "--end-of-options", "origin", push.branch});
            },
            [&](const SafeGitAction::Fetch&) {
                args.insert(args.end(), {"fetch", "--prune"});
            },
            [&](const SafeGitAction::PullFFOnly&) {
                args.insert(args.end(), {"pull", "--ff-only"});
            }},
        action.value);
    return args;
}

bool SafeGitRunner::isDangerous(std::string_view commandText) {
    // ASCII lowering is enough: git reads options, commands and ref names byte for
    // byte, so only ASCII letters can spell something it would act on.
    const std::string padded = " " + Text::asciiLower(commandText) + " ";
    // A refspec with a leading "+" forces the update, whatever follows.
    if (padded.find(" +") != std::string::npos) return true;
    for (std::string_view needle : dangerousNeedles) {
        const std::string probe = needle.find(' ') != std::string_view::npos
                                      ? std::string(needle)
                                      : " " + std::string(needle) + " ";
        if (padded.find(probe) != std::string::npos) return true;
    }
    return false;
}

bool SafeGitRunner::isUnsafeBranchName(std::string_view name) {
    if (name.empty()) return false;
    if (name.starts_with('-') || name.starts_with('+')) return true;
    // git refuses these in a ref name; "*", "?" and "[" would make a refspec a
    // pattern, and "@{" or a lone "@" name another ref than the one written.
    if (name == "@" || name.find("..") != std::string_view::npos ||
        name.find("@{") != std::string_view::npos || name.ends_with('.')) {
        return true;
    }
    for (char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f ||
            std::string_view(" ~^:?*[\\").find(c) != std::string_view::npos) {
            return true;
        }
    }
    // Each part between slashes is a file name in the repository: none is empty,
    // hidden, or named like the lock file git writes beside a ref.
    for (std::string_view rest = name;;) {
        const size_t slash = rest.find('/');
        const std::string_view part = rest.substr(0, slash);
        if (part.empty() || part.starts_with('.') || part.ends_with(".lock")) return true;
        if (slash == std::string_view::npos) return false;
        rest.remove_prefix(slash + 1);
    }
}

std::optional<AgentResult> SafeGitRunner::refusal(const SafeGitAction& action) {
    // The check reads the command without "-C" and the path, so a folder named
    // "reset" or "clean" does not block a push from it.
    const std::vector<std::string> args = arguments(action, "");
    std::string checked;
    for (size_t i = 2; i < args.size(); ++i) {
        if (!checked.empty()) checked += ' ';
        checked += args[i];
    }
    if (isDangerous(checked)) {
        return AgentResult::failure("dangerous_blocked",
                                    "refusing unsafe git invocation: " + checked);
    }
    if (std::optional<std::string> branch = checkedBranch(action);
        branch && isUnsafeBranchName(*branch)) {
        return AgentResult::failure("dangerous_blocked", "unsafe branch name: " + *branch);
    }
    return std::nullopt;
}

AgentResult SafeGitRunner::run(const SafeGitAction& action, const std::string& repoPath,
                               const ProcessRunner& runner) {
    const std::string path = PathHelpers::expandTilde(repoPath);
    if (!exists(path + "/.git")) return AgentResult::failure("not_found", "no .git at " + path);
    if (std::optional<AgentResult> refused = refusal(action)) return *refused;
    std::vector<std::string> args = arguments(action, path);

    // The person confirmed this exact command, so it runs as when they type it: their
    // credential helpers, hooks and transports apply. It may not prompt, though;
    // nobody is at a terminal to answer.
    ShellResult result =
        runner.run(GitCommand::confirmedActionRequest(std::move(args), kTimeoutSeconds));
    if (result.succeeded()) {
        AgentJSON answer(AgentJSON::Object{{"action", std::string(action.label())},
                                           {"stdout", RemoteURL::scrubbed(result.stdOut)},
                                           {"stderr", RemoteURL::scrubbed(result.stdErr)}});
        return AgentResult::success(answer.serialized());
    }
    std::string_view said = Text::trim(result.stdErr);
    if (said.empty()) said = Text::trim(result.stdOut);
    AgentResult failure = AgentResult::failure("error", RemoteURL::scrubbed(said));
    // No text at all leaves no hint, so the caller can say "git error" instead.
    if (said.empty()) failure.hint.reset();
    return failure;
}

}  // namespace quorvane
