// The agent's tools that look at the disk: searching folders for working trees,
// reading one, guessing what a project is, duplicate and missing clones, and the
// cleanup plan. They change nothing; their git runs the read-only way.
#include <algorithm>
#include <filesystem>

#include "agent/AgentService.hpp"
#include "agent/AgentToolSupport.hpp"
#include "agent/CleanupPlanner.hpp"
#include "agent/LocalProjectFinder.hpp"
#include "agent/ProjectMetadataInferer.hpp"
#include "base/BoundedParallel.hpp"
#include "base/EnumNames.hpp"

namespace quorvane {

using namespace AgentToolSupport;

namespace {

// Dependencies, build output and tool data: thousands of folders and no project of
// the person's own.
const std::vector<std::string>& searchExcludes() {
    static const std::vector<std::string> excludes = {"node_modules", ".build",      "Pods",
                                                      "DerivedData",  ".venv",       "vendor",
                                                      "Carthage",     ".git/modules"};
    return excludes;
}

AgentJSON matchJSON(const LocalProjectMatch& match) {
    return AgentJSON(AgentJSON::Object{{"path", match.path},
                                       {"remoteOwnerRepo", optionalText(match.remoteOwnerRepo)},
                                       {"pkgName", optionalText(match.pkgName)},
                                       {"readmeTitle", optionalText(match.readmeTitle)},
                                       {"recentShas", textList(match.recentShas)},
                                       {"confidence", match.confidence},
                                       {"evidence", textList(match.evidence)}});
}

bool isFolder(const std::string& path) {
    std::error_code ec;
    return !path.empty() && std::filesystem::is_directory(path, ec);
}

}  // namespace

AgentResult AgentService::searchLocalProjects(const Call& call) {
    return walkForProjects(call, true);
}

AgentResult AgentService::scanFolderForGitRepos(const Call& call) {
    return walkForProjects(call, false);
}

AgentResult AgentService::walkForProjects(const Call& call, bool withQuery) {
    // The person's depth limit bounds every walk; an agent may only ask for less.
    const int limit = std::max(call.config.agent.maxScanDepth, 0);
    int depth = limit;
    if (auto it = call.args.find("maxDepth"); it != call.args.end()) {
        if (!it->is_number_integer() || it->get<long long>() < 0) {
            return refuse(call, "error", "bad maxDepth", "invalid_params",
                          "`maxDepth` must be a whole number, 0 or more");
        }
        depth = static_cast<int>(std::min<long long>(it->get<long long>(), limit));
    }
    // The resolved root, which the allowed-root check has just accepted: the walk
    // follows no link, so it stays below it.
    const std::string root = canonical(textArg(call.args, "rootPath").value_or(""));
    if (!isFolder(root)) {
        return refuse(call, "error", "no such folder", "not_found", "no folder at " + root);
    }
    const std::string query = withQuery ? textArg(call.args, "query").value_or("") : "";
    AgentJSON::Array matches;
    for (const LocalProjectMatch& match :
         finderWithinRoots(call).find({root}, query, depth, searchExcludes())) {
        matches.push_back(matchJSON(match));
    }
    return ok(call, AgentJSON(std::move(matches)));
}

LocalProjectFinder AgentService::finderWithinRoots(const Call& call) const {
    return LocalProjectFinder(runner_,
                              [roots = call.config.agent.allowedRoots](std::string_view folder) {
                                  return isInsideAllowedRoot(folder, roots);
                              });
}

AgentResult AgentService::inspectLocalGitRepo(const Call& call) {
    if (gitRepositoryAt(call).outsideRoots) {
        return refuseOutsideRoots(call, "repository outside allowedRoots");
    }
    const std::string path = canonical(textArg(call.args, "path").value_or(""));
    std::optional<LocalProjectMatch> match = finderWithinRoots(call).inspect(path);
    if (!match) return refuse(call, "error", "not a git repo", "not_found", "not a git repo");
    return ok(call, matchJSON(*match));
}

AgentResult AgentService::computeRepoFingerprint(const Call& call) {
    if (gitRepositoryAt(call).outsideRoots) {
        return refuseOutsideRoots(call, "repository outside allowedRoots");
    }
    const std::string path = canonical(textArg(call.args, "path").value_or(""));
    const LocalProjectFinder finder = finderWithinRoots(call);
    std::optional<LocalProjectMatch> match = finder.inspect(path);
    if (!match) return refuse(call, "error", "not a git repo", "not_found", "not a git repo");
    return ok(call, AgentJSON(AgentJSON::Object{
                        {"path", match->path},
                        {"firstCommitSha", optionalText(finder.firstCommitSha(match->path))},
                        {"remoteOwnerRepo", optionalText(match->remoteOwnerRepo)},
                        {"pkgName", optionalText(match->pkgName)},
                        {"readmeTitle", optionalText(match->readmeTitle)}}));
}

AgentResult AgentService::inferProjectMetadata(const Call& call) {
    const std::string path = canonical(textArg(call.args, "path").value_or(""));
    if (!isFolder(path)) {
        return refuse(call, "error", "no such folder", "not_found", "no folder at " + path);
    }
    // The GitHub side, when the folder is a tracked repository linked to one: its
    // description and archived flag say more than the files can.
    std::optional<RemoteRepository> remote;
    for (const RepositoryMapping& mapping : store_.mappings()) {
        if (mapping.localRepoID != path || !mapping.remoteRepoID) continue;
        for (RemoteRepository& candidate : store_.remoteRepos(std::nullopt)) {
            if (candidate.id == *mapping.remoteRepoID) remote = std::move(candidate);
        }
        if (remote) break;
    }
    const ProjectMetadata metadata = ProjectMetadataInferer(clock_).infer(path, remote);
    return ok(call, AgentJSON(AgentJSON::Object{
                        {"repoId", metadata.repoID},
                        {"projectType", metadata.projectType},
                        {"stack", textList(metadata.stack)},
                        {"category", optionalText(metadata.category)},
                        {"priority", std::string(enumName(metadata.priority))},
                        {"summary", metadata.summary},
                        {"nextAction", optionalText(metadata.nextAction)},
                        {"inferredAt", DateHelpers::isoString(metadata.inferredAt)}}));
}

AgentResult AgentService::findDuplicateClones(const Call& call) {
    const std::vector<RepoConfig>& repos = call.config.repositories;
    const LocalProjectFinder finder(runner_);
    std::vector<std::optional<LocalProjectMatch>> read =
        boundedParallelMap<std::optional<LocalProjectMatch>>(
            repos.size(), LocalProjectFinder::kMaxParallelReads,
            [&](size_t i) { return finder.inspect(repos[i].localPath); });
    std::vector<LocalProjectMatch> matches;
    for (std::optional<LocalProjectMatch>& match : read) {
        if (match) matches.push_back(std::move(*match));
    }
    AgentJSON::Array groups;
    for (const CleanupPlanner::DuplicateGroup& group : CleanupPlanner::detectDuplicates(matches)) {
        groups.emplace_back(
            AgentJSON::Object{{"key", group.key}, {"paths", textList(group.paths)}});
    }
    return ok(call, AgentJSON(std::move(groups)));
}

AgentResult AgentService::findMissingLocalClones(const Call& call) {
    AgentJSON::Array missing;
    for (const CleanupPlanner::MissingLocal& item :
         CleanupPlanner::missingLocal(store_.remoteRepos(std::nullopt), store_.mappings())) {
        missing.emplace_back(
            AgentJSON::Object{{"remoteRepoId", item.remoteRepoID}, {"fullName", item.fullName}});
    }
    return ok(call, AgentJSON(std::move(missing)));
}

AgentResult AgentService::generateCleanupPlan(const Call& call) {
    const std::string plan = CleanupPlanner::dailyPlan(store_.snapshots(), store_.syncStates(),
                                                       call.config.repositories);
    return ok(call, AgentJSON(AgentJSON::Object{{"markdown", plan}}));
}

}  // namespace quorvane
