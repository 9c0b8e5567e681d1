// The agent's tools that change something: each checks its arguments, then asks
// for the person's confirmation, then acts, marks the proposal applied and
// records what it did, in that order.
#include <algorithm>
#include <cmath>
#include <set>

#include "agent/AgentService.hpp"
#include "agent/AgentToolSupport.hpp"
#include "agent/AgentTools.hpp"
#include "agent/CleanupPlanner.hpp"
#include "agent/LocalProjectFinder.hpp"
#include "agent/ProposalRules.hpp"
#include "base/EnumNames.hpp"
#include "base/Uuid.hpp"
#include "github/MappingConfidenceEngine.hpp"
#include "persistence/ConfigKeys.hpp"

namespace quorvane {

using namespace AgentToolSupport;

namespace {

// The apply tool one change of a settings proposal goes to.
enum class SettingsTarget {
    category,
    priority,
    reminderRules,
    aliases,
    trackingOn,
    trackingOff,
    scanFolders,
    cloneFolder,
    reviewTime
};

// The tool and arguments one change of a settings proposal stands for.
struct SettingsStep {
    SettingsTarget target;
    Json args;
};

// The fields a settings change proposal may name.
const std::set<std::string>& settingsFields() {
    static const std::set<std::string> names = {
        "category",        "priority",    "reminderRules",      "aliases",
        "trackingEnabled", "scanFolders", "defaultCloneFolder", "dailyReviewTime"};
    return names;
}

// Why a settings change cannot be proposed: the error code and what the agent is told.
struct StepProblem {
    std::string code;
    std::string hint;
};

// Whether the change's `value` is left out or of type T. One of another type is
// refused here: its apply tool would refuse it only after the person approved it.
template <typename T>
bool valueFits(const Json& change, const std::string& field, StepProblem& problem) {
    auto value = change.find("value");
    if (value == change.end() || ArgType<T>::fits(*value)) return true;
    problem = {"invalid_params", "`value` for " + field + " must be " + ArgType<T>::kName};
    return false;
}

// Maps one {repoId?, field, value} change to the apply tool that carries it out.
// Nothing, with the reason, for a field no tool sets or a value it cannot take.
std::optional<SettingsStep> settingsTool(const std::string& field, const Json& change,
                                         StepProblem& problem) {
    const Json repoId = change.contains("repoId") ? change["repoId"] : Json();
    const Json value = change.contains("value") ? change["value"] : Json();
    auto withRepo = [&](Json args) {
        if (!repoId.is_null()) args["repoId"] = repoId;
        return args;
    };
    // A category, priority or rule set of another type is proposed as an empty one:
    // the person sees that in the proposal before anything is cleared.
    if (field == "category" || field == "priority") {
        return SettingsStep{
            field == "category" ? SettingsTarget::category : SettingsTarget::priority,
            withRepo({{"value", value.is_string() ? value : Json("")}})};
    }
    if (field == "reminderRules") {
        return SettingsStep{SettingsTarget::reminderRules,
                            withRepo({{"rules", value.is_object() ? value : Json::object()}})};
    }
    if (field == "aliases") {
        if (!valueFits<std::vector<std::string>>(change, field, problem)) return std::nullopt;
        return SettingsStep{SettingsTarget::aliases, withRepo({{"aliases", value}})};
    }
    if (field == "trackingEnabled") {
        if (!value.is_boolean()) {
            problem = {"not_found", "`trackingEnabled` takes true or false"};
            return std::nullopt;
        }
        return SettingsStep{
            value.get<bool>() ? SettingsTarget::trackingOn : SettingsTarget::trackingOff,
            withRepo(Json::object())};
    }
    if (field == "scanFolders") {
        if (!valueFits<std::vector<std::string>>(change, field, problem)) return std::nullopt;
        return SettingsStep{SettingsTarget::scanFolders, {{"folders", value}}};
    }
    if (field == "defaultCloneFolder" || field == "dailyReviewTime") {
        if (!valueFits<std::string>(change, field, problem)) return std::nullopt;
        return field == "defaultCloneFolder"
                   ? SettingsStep{SettingsTarget::cloneFolder, {{"path", value}}}
                   : SettingsStep{SettingsTarget::reviewTime, {{"time", value}}};
    }
    std::string supported;
    for (const std::string& name : settingsFields()) {  // a sorted set
        supported += (supported.empty() ? "" : ", ") + name;
    }
    problem = {"not_found", "unsupported settings field `" + field + "`; supported: " + supported};
    return std::nullopt;
}

// A link the person decided: certain, and kept over what a sync computes.
RepositoryMapping confirmedMapping(const std::string& id, RepositoryMapping::Kind kind, Date now) {
    RepositoryMapping mapping;
    mapping.id = id;
    mapping.kind = kind;
    mapping.confidence = 1.0;
    mapping.confirmedByUser = true;
    mapping.createdAt = now;
    return mapping;
}

// A folder as config.json keeps it: absolute, or from the home folder.
bool isFolderPath(const Json& value) {
    if (!value.is_string()) return false;
    const std::string path = value.get<std::string>();
    return !path.empty() && (path.front() == '/' || path.front() == '~');
}

}  // namespace

AgentResult AgentService::proposeSettings(const Call& call) {
    auto changes = call.args.find("changes");
    const bool usable = changes != call.args.end() && changes->is_array() && !changes->empty() &&
                        std::all_of(changes->begin(), changes->end(),
                                    [](const Json& change) { return change.is_object(); });
    if (!usable) {
        return refuse(call, "error", "bad changes", "not_found",
                      "`changes` must be a non-empty array of {repoId?, field, value}");
    }
    // Every change is mapped before any is stored: one refused change stores none.
    std::vector<SettingsStep> steps;
    for (const Json& change : *changes) {
        auto field = change.find("field");
        if (field == change.end() || !field->is_string()) {
            return refuse(call, "error", "missing field", "not_found",
                          "each change needs a `field`");
        }
        StepProblem problem;
        std::optional<SettingsStep> step = settingsTool(field->get<std::string>(), change, problem);
        if (!step) return refuse(call, "error", problem.hint, problem.code, problem.hint);
        steps.push_back(std::move(*step));
    }
    auto handlerFor = [](SettingsTarget target) -> AgentToolHandler {
        switch (target) {
            case SettingsTarget::category: return &AgentService::setCategory;
            case SettingsTarget::priority: return &AgentService::setPriority;
            case SettingsTarget::reminderRules: return &AgentService::setReminderRules;
            case SettingsTarget::aliases: return &AgentService::updateAliases;
            case SettingsTarget::trackingOn: return &AgentService::enableTracking;
            case SettingsTarget::trackingOff: return &AgentService::disableTracking;
            case SettingsTarget::scanFolders: return &AgentService::updateScanFolders;
            case SettingsTarget::cloneFolder: return &AgentService::setCloneFolder;
            case SettingsTarget::reviewTime: return &AgentService::setDailyReviewTime;
        }
        return nullptr;
    };
    // One proposal a tool: a token is bound to one tool and one set of arguments.
    std::vector<ProposedAction> actions;
    for (SettingsStep& step : steps) {
        actions.push_back({AgentTools::nameOf(handlerFor(step.target)), std::move(step.args)});
    }
    ProposalAdmission admission = ensurePendingProposals(actions);
    if (admission.refusal) return refuse(call, admission);
    AgentJSON::Array ids;
    for (const std::string& id : admission.ids) ids.emplace_back(id);
    AgentJSON first = ids.empty() ? AgentJSON(nullptr) : ids.front();
    const size_t count = ids.size();
    return ok(call,
              AgentJSON(AgentJSON::Object{{"proposalId", first}, {"proposalIds", std::move(ids)}}),
              "proposals=" + std::to_string(count));
}

AgentResult AgentService::proposeMapping(const Call& call) {
    std::optional<std::string> wanted = textArg(call.args, "remoteRepoId");
    if (!wanted || wanted->empty()) {
        return refuse(call, "error", "missing remoteRepoId", "not_found",
                      "`remoteRepoId` is required");
    }
    OptionalArg<std::vector<std::string>> searchRoots =
        optionalArg<std::vector<std::string>>(call.args, "searchRoots");
    if (searchRoots.problem) return refuse(call, *searchRoots.problem);
    OptionalArg<double> minConfidenceGiven = minConfidenceArg(call.args);
    if (minConfidenceGiven.problem) return refuse(call, *minConfidenceGiven.problem);
    std::optional<RemoteRepository> remote = resolveRemote(*wanted);
    if (!remote) {
        return refuse(call, "error", "remote not found", "not_found", remoteNotFoundHint(*wanted));
    }
    std::vector<std::string> roots = call.config.agent.allowedRoots;
    if (searchRoots.value) {
        roots = *searchRoots.value;
        for (const std::string& root : roots) {
            // The search reads what it walks: it stays inside the allowed roots too.
            if (!isInsideAllowedRoot(root, call.config.agent.allowedRoots)) {
                return refuseOutsideRoots(call, "path outside allowedRoots");
            }
        }
    }
    const int minConfidence =
        static_cast<int>(minConfidenceGiven.value.value_or(kDefaultMinConfidence));

    static const std::vector<std::string> kExcludes = {"node_modules", ".build",      "Pods",
                                                       "DerivedData",  ".venv",       "vendor",
                                                       "Carthage",     ".git/modules"};
    std::vector<LocalProjectMatch> matches = finderWithinRoots(call).find(
        roots, remote->name, call.config.agent.maxScanDepth, kExcludes);
    std::vector<MappingCandidate> candidates =
        MappingConfidenceEngine::candidates(*remote, matches);
    std::erase_if(candidates,
                  [&](const MappingCandidate& c) { return c.confidence < minConfidence; });

    PendingProposal proposal;
    proposal.id = newUUID();
    proposal.kind = PendingProposal::Kind::mapping;
    Json payload = {{"remoteRepoId", remote->id}, {"localRepoId", nullptr}};
    if (candidates.empty()) {
        proposal.title = "Map " + remote->fullName + " (no local match)";
        proposal.summary = "No local checkout found ≥" + std::to_string(minConfidence) + "%.";
    } else {
        const MappingCandidate& best = candidates.front();
        payload["localRepoId"] = best.localPath;
        proposal.title = "Map " + remote->fullName + " → " + best.localPath;
        proposal.summary = "Best candidate: " + best.localPath + " (" +
                           std::to_string(best.confidence) + "% confidence)";
        proposal.confidence = best.confidence;
        proposal.evidence = best.evidence;
    }
    proposal.payloadJSON = AgentJSON::fromJson(payload).serialized();
    proposal.createdAt = clock_.now();
    const std::string applyTool = AgentTools::nameOf(&AgentService::applyMapping);
    proposal.intendedTool = applyTool;
    proposal.argsFingerprint = ProposalRules::fingerprint(applyTool, payload);
    if (ProposalAdmission admission = admitProposals({proposal}, false); admission.refusal) {
        return refuse(call, admission);
    }

    AgentJSON::Array listed;
    for (const MappingCandidate& candidate : candidates) {
        listed.emplace_back(AgentJSON::Object{{"localPath", candidate.localPath},
                                              {"confidence", candidate.confidence},
                                              {"evidence", textList(candidate.evidence)}});
    }
    return ok(call,
              AgentJSON(AgentJSON::Object{{"proposalId", proposal.id},
                                          {"candidates", std::move(listed)},
                                          {"remoteRepoId", remote->id}}),
              "proposalId=" + proposal.id, proposal.id);
}

// A plan is for the person to read: it authorises nothing, so it is bound to no
// tool, and each call makes a new one.
AgentResult AgentService::proposeCleanup(const Call& call) {
    OptionalArg<std::string> scopeGiven = optionalArg<std::string>(call.args, "scope");
    if (scopeGiven.problem) return refuse(call, *scopeGiven.problem);
    const std::string scope = scopeGiven.value.value_or("today");
    PendingProposal proposal;
    proposal.id = newUUID();
    proposal.kind = PendingProposal::Kind::cleanupPlan;
    proposal.title = "Cleanup plan (" + scope + ")";
    proposal.summary = CleanupPlanner::dailyPlan(store_.snapshots(), store_.syncStates(),
                                                 call.config.repositories);
    proposal.payloadJSON = AgentJSON(AgentJSON::Object{{"scope", scope}}).serialized();
    proposal.createdAt = clock_.now();
    if (ProposalAdmission admission = admitProposals({proposal}, false); admission.refusal) {
        return refuse(call, admission);
    }
    return ok(call,
              AgentJSON(AgentJSON::Object{{"proposalId", proposal.id}, {"plan", proposal.summary}}),
              "proposalId=" + proposal.id, proposal.id);
}

AgentResult AgentService::applyMapping(const Call& call) {
    std::optional<std::string> remote = textArg(call.args, "remoteRepoId");
    std::optional<std::string> local = textArg(call.args, "localRepoId");
    if (!remote || !local) {
        return refuse(call, "error", "missing repo ids", "not_found", "missing repo ids");
    }
    ConfirmOutcome outcome = confirm(call.tool, call.args);
    if (!outcome.success) return refuse(call, outcome);
    // What the person saw in the proposal wins over what the call says.
    Json payload = parseArgs(outcome.proposal.payloadJSON);
    if (std::optional<std::string> shown = textArg(payload, "remoteRepoId")) remote = shown;
    if (std::optional<std::string> shown = textArg(payload, "localRepoId")) local = shown;

    std::optional<std::string> accountID;
    for (const RemoteRepository& repo : store_.remoteRepos(std::nullopt)) {
        if (repo.id == *remote) accountID = repo.accountID;
    }
    RepositoryMapping mapping =
        confirmedMapping(*local, RepositoryMapping::Kind::mapped, clock_.now());
    mapping.localRepoID = *local;
    mapping.remoteRepoID = *remote;
    mapping.accountID = accountID;
    store_.upsertMappings({mapping});
    // A decision the person made is written now, not at the next scan's end.
    store_.flush();
    store_.markProposalApplied(outcome.proposal.id);
    return ok(call, AgentJSON(AgentJSON::Object{{"applied", true}, {"mappingId", mapping.id}}),
              "mapped " + *local + " → " + *remote, outcome.proposal.id);
}

AgentResult AgentService::markRepository(const Call& call) {
    std::optional<std::string> repoId = textArg(call.args, "repoId");
    if (!repoId || repoId->empty()) {
        return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    }
    ConfirmOutcome outcome = confirm(call.tool, call.args);
    if (!outcome.success) return refuse(call, outcome);

    const PendingProposal::Kind mark = call.entry->approval->kind;
    if (mark == PendingProposal::Kind::markIgnored) {
        const std::string id = *repoId;
        std::optional<std::string> problem = env_.applyConfigChange([&](AppConfig& config) {
            if (std::find(config.ignoredRepoIDs.begin(), config.ignoredRepoIDs.end(), id) ==
                config.ignoredRepoIDs.end()) {
                config.ignoredRepoIDs.push_back(id);
            }
            std::erase_if(config.repositories,
                          [&](const RepoConfig& repo) { return repo.id == id; });
        });
        if (problem) {
            return refuse(call, "error", "config not saved", "not_found",
                          "config.json could not be saved: " + *problem);
        }
        store_.purgeRepo(id);
    } else {
        const bool remoteOnly = mark == PendingProposal::Kind::markRemoteOnly;
        RepositoryMapping mapping = confirmedMapping(
            *repoId,
            remoteOnly ? RepositoryMapping::Kind::remoteOnly : RepositoryMapping::Kind::localOnly,
            clock_.now());
        // A remote-only repository is one seen on GitHub; a local-only one is tracked here.
        (remoteOnly ? mapping.remoteRepoID : mapping.localRepoID) = *repoId;
        store_.upsertMappings({mapping});
    }
    store_.flush();
    store_.markProposalApplied(outcome.proposal.id);
    return ok(call, AgentJSON(AgentJSON::Object{{"applied", true}, {"repoId", *repoId}}),
              std::nullopt, outcome.proposal.id);
}

// The one paid tool without a token: it only adjusts the figure of a link the
// person already confirmed.
AgentResult AgentService::updateMappingConfidence(const Call& call) {
    std::optional<std::string> remote = textArg(call.args, "remoteRepoId");
    std::optional<std::string> local = textArg(call.args, "localRepoId");
    auto confidence = call.args.find("confidence");
    if (!remote || !local || confidence == call.args.end()) {
        return refuse(call, "error", "missing args", "invalid_params", "missing args");
    }
    // Taken as a fraction, or as a percentage when above 1, as agents write both.
    // Text such as "0.5" is refused with the rest, not read as a number.
    double value = confidence->is_number() ? confidence->get<double>() : std::nan("");
    if (value > 1.0) value /= 100.0;
    if (!(value >= 0.0 && value <= 1.0)) {
        return refuse(call, "error", "bad confidence", "invalid_params",
                      "`confidence` must be a number from 0 to 1 (or 0 to 100 as a percentage)");
    }
    std::vector<RepositoryMapping> mappings = store_.mappings();
    auto found = std::find_if(mappings.begin(), mappings.end(), [&](const RepositoryMapping& m) {
        return m.localRepoID == local && m.remoteRepoID == remote;
    });
    if (found == mappings.end()) {
        return refuse(call, "error", "no mapping", "not_found",
                      "no mapping for " + *local + " — use apply_repository_mapping first");
    }
    found->confidence = value;
    store_.upsertMappings({*found});
    store_.flush();
    return ok(call, AgentJSON(AgentJSON::Object{{"mappingId", found->id}, {"confidence", value}}),
              "confidence=" + AgentJSON(value).serialized());
}

// The name is kept for agents that know it; recipes themselves are not built.
// No token is asked for, so none is spent.
AgentResult AgentService::applyRecipe(const Call& call) {
    std::string named =
        textArg(call.args, "recipe").value_or(textArg(call.args, "recipeId").value_or("<none>"));
    return refuse(call, "error", "not implemented", "not_implemented",
                  "settings recipes are not implemented (recipe=" + named +
                      "); use propose_settings_change + the matching set_* apply tool");
}

AgentResult AgentService::rejectMapping(const Call& call) {
    std::optional<std::string> id = textArg(call.args, "proposalId");
    if (!id || id->empty()) {
        return refuse(call, "error", "missing proposalId", "not_found", "missing proposalId");
    }
    if (!store_.proposal(*id)) {
        return refuse(call, "error", "proposal not found", "not_found", "proposal not found");
    }
    store_.rejectProposal(*id);
    env_.proposalWithdrawn(*id);
    return ok(call, AgentJSON(AgentJSON::Object{{"rejected", true}}), std::nullopt, *id);
}

AgentResult AgentService::applyConfigChange(const Call& call,
                                            const std::function<void(AppConfig&)>& change,
                                            AgentJSON::Object result) {
    ConfirmOutcome outcome = confirm(call.tool, call.args);
    if (!outcome.success) return refuse(call, outcome);
    if (std::optional<std::string> problem = env_.applyConfigChange(change)) {
        return refuse(call, "error", "config not saved", "not_found",
                      "config.json could not be saved: " + *problem);
    }
    store_.markProposalApplied(outcome.proposal.id);
    result.emplace("applied", true);
    return ok(call, AgentJSON(std::move(result)), std::nullopt, outcome.proposal.id);
}

AgentResult AgentService::setDailyReviewTime(const Call& call) {
    std::optional<std::string> time = textArg(call.args, "time");
    if (!time || time->empty()) {
        return refuse(call, "error", "missing time", "not_found", "missing time");
    }
    ConfigKeys::Parsed parsed = ConfigKeys::parse("dailyReviewTime", *time);
    if (!parsed.error.empty()) {
        return refuse(call, "error", "bad time", "invalid_params",
                      "`time` must be a time of day, HH:MM (24-hour)");
    }
    const std::string value = parsed.value.get<std::string>();
    return applyConfigChange(call, [&](AppConfig& config) { config.dailyReviewTime = value; },
                             {{"dailyReviewTime", value}});
}

AgentResult AgentService::setCloneFolder(const Call& call) {
    auto path = call.args.find("path");
    if (path == call.args.end() || path->is_null()) {
        return refuse(call, "error", "missing path", "not_found", "missing path");
    }
    if (!isFolderPath(*path)) {
        return refuse(call, "error", "bad path", "invalid_params",
                      "`path` must be an absolute folder path (or one from ~)");
    }
    const std::string folder = path->get<std::string>();
    return applyConfigChange(call,
                             [&](AppConfig& config) { config.mapping.defaultCloneFolder = folder; },
                             {{"defaultCloneFolder", folder}});
}

AgentResult AgentService::changeRepository(const Call& call, const std::string& repoId,
                                           const std::function<void(RepoConfig&)>& change,
                                           AgentJSON::Object result) {
    // Looked up before the token is asked for, so no proposal is made for a
    // repository that is not there.
    if (std::none_of(call.config.repositories.begin(), call.config.repositories.end(),
                     [&](const RepoConfig& repo) { return repo.id == repoId; })) {
        return refuse(call, "error", "repo not found", "not_found", "repo not found");
    }
    result.emplace("repoId", repoId);
    return applyConfigChange(
        call,
        [&](AppConfig& config) {
            for (RepoConfig& repo : config.repositories) {
                if (repo.id == repoId) change(repo);
            }
        },
        std::move(result));
}

AgentResult AgentService::enableTracking(const Call& call) {
    return setTracking(call, true);
}

AgentResult AgentService::disableTracking(const Call& call) {
    return setTracking(call, false);
}

AgentResult AgentService::setTracking(const Call& call, bool enabled) {
    std::optional<std::string> repoId = textArg(call.args, "repoId");
    if (!repoId || repoId->empty()) {
        return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    }
    return changeRepository(call, *repoId,
                            [&](RepoConfig& repo) { repo.trackingEnabled = enabled; },
                            {{"trackingEnabled", enabled}});
}

namespace {

// The tracked repository a per-repository settings call names; nothing when absent.
std::optional<std::string> repoIdArg(const Json& args) {
    std::optional<std::string> repoId = textArg(args, "repoId");
    if (!repoId || repoId->empty()) return std::nullopt;
    return repoId;
}

}  // namespace

AgentResult AgentService::setCategory(const Call& call) {
    std::optional<std::string> repoId = repoIdArg(call.args);
    if (!repoId) return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    OptionalArg<std::string> given = optionalArg<std::string>(call.args, "value");
    if (given.problem) return refuse(call, *given.problem);
    // Empty text, or none, clears the category.
    const std::string value = given.value.value_or("");
    return changeRepository(call, *repoId,
                            [&](RepoConfig& repo) {
                                repo.category = value.empty() ? std::nullopt : std::optional(value);
                            },
                            {{"category", value.empty() ? AgentJSON(nullptr) : AgentJSON(value)}});
}

AgentResult AgentService::setPriority(const Call& call) {
    std::optional<std::string> repoId = repoIdArg(call.args);
    if (!repoId) return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    std::optional<RepoConfig::Priority> priority =
        enumFromName<RepoConfig::Priority>(textArg(call.args, "value").value_or(""));
    if (!priority) {
        return refuse(call, "error", "bad priority", "invalid_params",
                      "`value` must be low, normal or high");
    }
    return changeRepository(call, *repoId, [&](RepoConfig& repo) { repo.priority = *priority; },
                            {{"priority", std::string(enumName(*priority))}});
}

// How many days of untouched changes count as stale; null goes back to the default.
AgentResult AgentService::setReminderRules(const Call& call) {
    std::optional<std::string> repoId = repoIdArg(call.args);
    if (!repoId) return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    auto rules = call.args.find("rules");
    std::optional<int> stale;
    bool valid = rules != call.args.end() && rules->is_object();
    if (valid && rules->contains("staleDaysThreshold")) {
        const Json& days = (*rules)["staleDaysThreshold"];
        if (days.is_number_integer() && days.get<long long>() >= 0 &&
            days.get<long long>() <= 3650) {
            stale = days.get<int>();
        } else if (!days.is_null()) {
            valid = false;
        }
    }
    if (!valid) {
        return refuse(call, "error", "bad rules", "invalid_params",
                      "`rules` must be an object such as {\"staleDaysThreshold\": 7}");
    }
    return changeRepository(
        call, *repoId, [&](RepoConfig& repo) { repo.staleDaysThreshold = stale; },
        {{"staleDaysThreshold", stale ? AgentJSON(*stale) : AgentJSON(nullptr)}});
}

AgentResult AgentService::updateAliases(const Call& call) {
    std::optional<std::string> repoId = textArg(call.args, "repoId");
    auto aliases = call.args.find("aliases");
    if (!repoId || repoId->empty() || aliases == call.args.end()) {
        return refuse(call, "error", "missing args", "not_found", "missing args");
    }
    std::vector<std::string> names;
    bool valid = aliases->is_array();
    for (const Json& alias : valid ? *aliases : Json::array()) {
        if (!alias.is_string() || alias.get<std::string>().empty()) {
            valid = false;
            break;
        }
        names.push_back(alias.get<std::string>());
    }
    if (!valid) {
        return refuse(call, "error", "bad aliases", "invalid_params",
                      "`aliases` must be a list of names");
    }
    return changeRepository(call, *repoId, [&](RepoConfig& repo) { repo.aliases = names; },
                            {{"aliases", textList(names)}});
}

AgentResult AgentService::updateScanFolders(const Call& call) {
    auto it = call.args.find("folders");
    if (it == call.args.end() || it->is_null()) {
        return refuse(call, "error", "missing folders", "not_found", "missing folders");
    }
    std::vector<std::string> folders;
    bool valid = it->is_array();
    if (valid) {
        for (const Json& folder : *it) {
            if (!folder.is_string()) {
                valid = false;
                break;
            }
            std::string path = folder.get<std::string>();
            // The scans read these as they are written: absolute, or from the home folder.
            if (path.empty() || (path.front() != '/' && path.front() != '~')) {
                valid = false;
                break;
            }
            folders.push_back(std::move(path));
        }
    }
    if (!valid) {
        return refuse(call, "error", "bad folders", "invalid_params",
                      "`folders` must be a list of absolute folder paths (or paths from ~)");
    }
    return applyConfigChange(call, [&](AppConfig& config) { config.scanFolders = folders; },
                             {{"scanFolders", textList(folders)}});
}

}  // namespace quorvane
