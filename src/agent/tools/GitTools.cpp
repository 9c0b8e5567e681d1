// The agent's git tools: fetch, fast-forward pull, push and push with upstream of a
// tracked repository, each only with the person's approval of that exact call, and
// each through the safe runner that builds the whole command line itself.
#include <algorithm>

#include "agent/AgentService.hpp"
#include "agent/AgentToolSupport.hpp"
#include "agent/SafeGitRunner.hpp"

namespace quorvane {

using namespace AgentToolSupport;

AgentResult AgentService::runGit(const Call& call) {
    std::optional<std::string> repoId = textArg(call.args, "repoId");
    if (!repoId || repoId->empty()) {
        return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    }
    auto repo = std::find_if(call.config.repositories.begin(), call.config.repositories.end(),
                             [&](const RepoConfig& r) { return r.id == *repoId; });
    if (repo == call.config.repositories.end()) {
        return refuse(call, "error", "repo not found", "not_found", "repo not found");
    }
    // A push of a branch named in a form that cannot be read is refused, not made a
    // push of the current branch, which the agent did not ask for.
    const SafeGitAction::Command command = *call.entry->approval->gitCommand;
    const bool pushes = command == SafeGitAction::Command::push ||
                        command == SafeGitAction::Command::setUpstreamPush;
    OptionalArg<std::string> branchGiven = optionalArg<std::string>(call.args, "branch");
    if (pushes && branchGiven.problem) return refuse(call, *branchGiven.problem);
    const std::optional<std::string>& branch = branchGiven.value;
    // Setting an upstream pushes one named branch: without it the person would approve
    // a push that can only fail, and spend the token on it.
    if (command == SafeGitAction::Command::setUpstreamPush && (!branch || branch->empty())) {
        return refuse(call, "error", "missing branch", "not_found", "missing branch");
    }
    // A command the runner refuses to run is never put to the person: the approval
    // could only be wasted on it. The same check runs again when the command runs.
    const SafeGitAction action = SafeGitAction::of(command, branch);
    if (std::optional<AgentResult> refused = SafeGitRunner::refusal(action)) {
        const std::string why = refused->hint.value_or("git error");
        return refuse(call, "blocked", why, "dangerous_blocked", why);
    }
    ConfirmOutcome outcome = confirm(call.tool, call.args);
    if (!outcome.success) return refuse(call, outcome);

    AgentResult result = SafeGitRunner::run(action, repo->localPath, runner_);
    if (result.ok) {
        store_.markProposalApplied(outcome.proposal.id);
        // The branch now stands differently against its remote: say so at once, not
        // after the next scan and sync.
        env_.repositoryChanged(repo->id);
        audit(call.tool, call.args, "ok", std::nullopt, outcome.proposal.id);
        return result;
    }
    // The token stays spent: a command that failed does not get it back.
    const std::string status = result.errorCode == "dangerous_blocked" ? "blocked" : "error";
    audit(call.tool, call.args, status, result.hint.value_or("git error"), outcome.proposal.id);
    return result;
}

}  // namespace quorvane
