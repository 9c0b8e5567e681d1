#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/AgentEnvAccess.hpp"
#include "agent/AgentJSON.hpp"
#include "agent/AgentResult.hpp"
#include "agent/AgentTools.hpp"
#include "agent/LocalProjectFinder.hpp"
#include "persistence/Store.hpp"
#include "platform/Clock.hpp"
#include "platform/ProcessRunner.hpp"
#include "records/JsonCodec.hpp"
#include "records/PendingProposal.hpp"

namespace quorvane {

namespace AgentToolSupport {
struct ArgProblem;
}

// One call as a tool's handler sees it, once the dispatcher's checks passed.
struct AgentToolCall {
    const std::string& tool;
    const Json& args;
    const AppConfig& config;
    // The tool's row in the table; null for a resource read and a name no tool has.
    const AgentTool* entry = nullptr;
};

// How a presented confirmation token fared: the proposal it spent, or why it was
// refused.
struct ConfirmOutcome {
    bool success = false;
    PendingProposal proposal;  // with success
    std::string code;          // without: "confirmation_required" or a refusal's code
    std::string detail;        // for the audit log; never the token
    std::string hint;          // for the agent
};

// How many proposals may wait for the person's decision at once. Each is read and
// decided by hand, so far fewer ever wait in honest use; the limits keep a runaway
// agent from burying the person, and the store, in them.
struct ProposalLimits {
    // Per apply tool (a cleanup plan counts as its own): above the repositories a
    // person tracks or keeps on GitHub, so one change proposed for each still fits.
    size_t perTool = 500;
    size_t overall = 2000;
};

// The agent server's dispatcher. Each call is checked in a fixed order (agent on,
// tool known, permission level, folder inside the allowed roots, licence) before
// the tool runs, and every call past reading the configuration leaves exactly one
// audit entry. Nothing an agent asks for changes anything until the person has
// approved that exact action: a changing tool called without a token only creates
// a proposal, and a token is spent by its first valid presentation.
//
// Calls from different connections run at the same time; the store serialises its
// own operations, and the proposal bookkeeping here has its own lock.
class AgentService final : public ToolDispatcher {
public:
    AgentService(Store& store, AgentEnvAccess& env, const Clock& clock, const ProcessRunner& runner,
                 ProposalLimits limits = {});

    AgentResult handle(const std::string& tool, const std::string& argsJSON) override;

    // The arguments as an object. Anything else (empty text, bad JSON, an array)
    // gives an empty object: bad arguments only look absent to a tool.
    static Json parseArgs(std::string_view argsJSON);
    // The level a tool needs; nothing for a name that is no tool.
    static std::optional<AgentPermissionLevel> requiredLevel(std::string_view tool);
    // The argument naming a folder that must lie inside the allowed roots.
    static std::optional<std::string> allowedRootPathKey(std::string_view tool);
    // The path with "~" expanded, "." and repeated slashes removed and symbolic links
    // resolved; empty (refused) when it is relative or still climbs with "..".
    static std::string canonical(std::string_view path);
    // A folder typed for agent.allowedRoots, as the checks read it: "~" expanded,
    // made absolute against `base`, ".." taken as the folders on disk take it, and
    // links resolved. Empty, with the reason in `problem`, when it cannot be such a
    // path, or is no folder while `folderOnly`.
    static std::string allowedRootOf(const std::string& typed, const std::filesystem::path& base,
                                     bool folderOnly, std::string& problem);
    // Whether the path, resolved, is one of the roots or lies below one. "/a/bc" is
    // not below "/a/b"; no roots refuse every path.
    static bool isInsideAllowedRoot(std::string_view path, const std::vector<std::string>& roots);
    // The arguments for the audit log: sorted "key=value" items, each cut short, the
    // confirmation token left out.
    static std::string argsSummary(const Json& args);

    // Spends the call's confirmationToken if it was approved for exactly this tool
    // and these security-relevant arguments. Without a token it makes sure a
    // proposal for this action waits for the person, and says which.
    ConfirmOutcome confirm(const std::string& tool, const Json& args);

    // An action an apply tool takes: the tool and its arguments.
    struct ProposedAction {
        std::string tool;
        Json args;
    };
    // What became of proposals asked for.
    struct ProposalAdmission {
        // In order, the id of each proposal waiting for the action, new or not.
        std::vector<std::string> ids;
        // Set, with nothing stored, when the new ones would leave more waiting for
        // the person than the limits allow: what the agent is told, and what the
        // audit log keeps.
        std::optional<std::string> refusal;
        std::string detail;
    };
    // Makes sure a proposal waits for each action, creating those that have none,
    // or none at all when there is no room for them. A tool that takes no token
    // gets no proposal.
    ProposalAdmission ensurePendingProposals(const std::vector<ProposedAction>& actions);

    static constexpr int kDefaultAuditLimit = 100;

private:
    using Call = AgentToolCall;
    // The table names the handlers; nothing else reaches them past the checks.
    friend const std::vector<AgentTool>& AgentTools::all();

    AgentResult handleResourceRead(const Call& call);

    // Records the call and answers with `result`.
    AgentResult ok(const Call& call, const AgentJSON& result,
                   std::optional<std::string> detail = std::nullopt,
                   std::optional<std::string> proposalId = std::nullopt);
    // Records the refusal with its audit status and answers with the code and hint.
    AgentResult refuse(const Call& call, const std::string& status, const std::string& detail,
                       const std::string& code, const std::string& hint);
    AgentResult refuse(const Call& call, const ConfirmOutcome& outcome);
    AgentResult refuse(const Call& call, const ProposalAdmission& admission);
    // Refuses an argument of the wrong type as invalid, naming the type it must have.
    AgentResult refuse(const Call& call, const AgentToolSupport::ArgProblem& problem);
    // Refuses a folder that lies, or reaches, outside the allowed roots.
    AgentResult refuseOutsideRoots(const Call& call, const std::string& detail);
    void audit(const std::string& tool, const Json& args, const std::string& status,
               std::optional<std::string> detail, std::optional<std::string> proposalId);

    // Stores the new proposals once the limits leave room for all of them. With
    // `twinsAreOne`, one with the same tool and arguments as a waiting proposal is
    // that proposal, and is not stored again.
    ProposalAdmission admitProposals(std::vector<PendingProposal> proposals, bool twinsAreOne);

    // ---- Read tools and resources (tools/ReadTools.cpp) ----
    AgentResult listAccounts(const Call& call);
    AgentResult listRemoteRepositories(const Call& call);
    AgentResult listLocalRepositories(const Call& call);
    AgentResult getRepository(const Call& call);
    AgentResult getRepositoryStatus(const Call& call);
    AgentResult getRepositoriesStatus(const Call& call);
    AgentResult getUnmappedRemote(const Call& call);
    AgentResult getUnmappedLocal(const Call& call);
    AgentResult getMappingCandidates(const Call& call);
    AgentResult getDailySummary(const Call& call);
    AgentResult getWeeklySummary(const Call& call);
    AgentResult getSettings(const Call& call);
    AgentResult getAuditLog(const Call& call);
    AgentResult getProposalStatus(const Call& call);
    AgentResult listPendingProposals(const Call& call);
    AgentResult getHealthOverview(const Call& call);
    AgentResult getBranchOverview(const Call& call);
    AgentResult generateDailyReport(const Call& call);
    AgentResult generateWeeklyReport(const Call& call);
    AgentResult generateMappingReport(const Call& call);
    AgentResult getActivityRanking(const Call& call);
    AgentResult rescanNow(const Call& call);
    AgentResult syncRemoteInventory(const Call& call);
    AgentResult readGitRemote(const Call& call);
    AgentResult readGitBranches(const Call& call);
    AgentResult readGitCommits(const Call& call);
    AgentResult readGitStatus(const Call& call);
    AgentResult generateHealthReport(const Call& call);
    AgentResult exportReportMarkdown(const Call& call);
    // One tracked repository, whole or only its working state.
    AgentResult repositoryAnswer(const Call& call, bool statusOnly);
    // Runs `tool` for the day the call names in `date` (or `day`), "yyyy-MM-dd", or
    // for today when it names none. A day that cannot be read is refused.
    AgentResult forDay(const Call& call, const std::function<AgentResult(Date)>& tool);
    // Where a git read tool reads for the call's `path`.
    struct GitTarget {
        // The folder, resolved, once git finds a repository there without climbing
        // above the allowed root that holds it; nothing otherwise.
        std::optional<std::string> path;
        // The repository found keeps its git folder, the folder it shares with its
        // worktrees, or its work tree outside the allowed roots: nothing is read.
        bool outsideRoots = false;
    };
    GitTarget gitRepositoryAt(const Call& call);
    // The project finder for an agent's call: it reads no repository kept outside
    // the allowed roots.
    LocalProjectFinder finderWithinRoots(const Call& call) const;
    ShellResult readGit(const std::string& path, std::vector<std::string> arguments,
                        double timeout) const;
    AgentJSON settingsResource(const AppConfig& config) const;
    AgentJSON localRepositories(const AppConfig& config) const;
    AgentJSON auditLog(std::optional<size_t> limit) const;
    // The remote repository `text` names, for every tool that takes one: its full id,
    // its "owner/name" or GitHub URL when one account holds it, or a bare name only
    // one repository has. Nothing when it names none, or more than one.
    std::optional<RemoteRepository> resolveRemote(const std::string& text) const;
    // What to tell the agent when resolveRemote(text) found nothing.
    std::string remoteNotFoundHint(const std::string& text) const;

    // ---- Disk and plan tools (tools/DiskTools.cpp) ----
    AgentResult searchLocalProjects(const Call& call);
    AgentResult scanFolderForGitRepos(const Call& call);
    // Walks the call's root for working trees, ranked against `query` when it has one.
    AgentResult walkForProjects(const Call& call, bool withQuery);
    AgentResult inspectLocalGitRepo(const Call& call);
    AgentResult computeRepoFingerprint(const Call& call);
    AgentResult inferProjectMetadata(const Call& call);
    AgentResult findDuplicateClones(const Call& call);
    AgentResult findMissingLocalClones(const Call& call);
    AgentResult generateCleanupPlan(const Call& call);

    // ---- Tools that change something (tools/ChangeTools.cpp) ----
    AgentResult proposeMapping(const Call& call);
    AgentResult proposeSettings(const Call& call);
    AgentResult proposeCleanup(const Call& call);
    AgentResult applyMapping(const Call& call);
    AgentResult rejectMapping(const Call& call);
    // Remote-only, local-only or ignored, as the tool's proposal kind says.
    AgentResult markRepository(const Call& call);
    AgentResult updateMappingConfidence(const Call& call);
    AgentResult applyRecipe(const Call& call);
    AgentResult setDailyReviewTime(const Call& call);
    AgentResult setCloneFolder(const Call& call);
    AgentResult enableTracking(const Call& call);
    AgentResult disableTracking(const Call& call);
    AgentResult setTracking(const Call& call, bool enabled);
    AgentResult updateScanFolders(const Call& call);
    AgentResult setCategory(const Call& call);
    AgentResult setPriority(const Call& call);
    AgentResult setReminderRules(const Call& call);
    AgentResult updateAliases(const Call& call);
    // The four git tools (tools/GitTools.cpp): the repository by id, the person's
    // token, then the one fixed command of the tool's row through the safe runner.
    AgentResult runGit(const Call& call);
    // Changes the tracked repository `repoId` through the settings path; refuses an
    // unknown one before any proposal is made.
    AgentResult changeRepository(const Call& call, const std::string& repoId,
                                 const std::function<void(RepoConfig&)>& change,
                                 AgentJSON::Object result);
    // The common end of the settings tools: confirm, change the configuration, mark
    // the proposal applied, record it.
    AgentResult applyConfigChange(const Call& call, const std::function<void(AppConfig&)>& change,
                                  AgentJSON::Object result);

    Store& store_;
    AgentEnvAccess& env_;
    const Clock& clock_;
    // The door to git for the read and git tools.
    const ProcessRunner& runner_;
    const ProposalLimits limits_;
    // Makes counting and looking through the pending proposals and creating one a
    // single step, so two identical calls at once still leave one proposal, and
    // two at the limit do not both pass it.
    std::mutex proposalMutex_;
};

}  // namespace quorvane
