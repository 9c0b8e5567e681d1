#include "agent/AgentService.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include <fmt/format.h>

#include "agent/AgentTools.hpp"
#include "agent/ProposalRules.hpp"
#include "base/EnumNames.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "base/Uuid.hpp"
#include "persistence/ConfigKeys.hpp"

namespace quorvane {

namespace {

const char* const kInvalidTokenHint =
    "Token invalid or expired. Re-confirm the proposal in Quorvane → Agent Review.";

// The first `count` characters of `text`, never splitting one.
std::string cutCharacters(const std::string& text, size_t count) {
    size_t characters = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80) {
            if (characters == count) return text.substr(0, i);
            ++characters;
        }
    }
    return text;
}

std::optional<std::string> textArg(const Json& args, const char* key) {
    auto it = args.find(key);
    if (it == args.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

// A path's components without "" and "."; nothing when one of them is "..": such a
// path is refused rather than resolved, so no spelling can climb out of a root.
std::optional<std::vector<std::string>> standardComponents(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        std::string part = path.substr(start, end - start);
        if (part == "..") return std::nullopt;
        if (!part.empty() && part != ".") parts.push_back(std::move(part));
        start = end + 1;
    }
    return parts;
}

std::string joined(const std::vector<std::string>& parts, size_t from, size_t to) {
    std::string path;
    for (size_t i = from; i < to; ++i) path += "/" + parts[i];
    return path;
}

// The path's longest existing beginning with its links resolved, and the rest as
// written. A component that exists but cannot be resolved (a dangling or looping
// link, a folder we may not read) refuses the whole path: what it would lead to
// cannot be known, and may be created outside the roots later.
std::string resolveLinks(const std::vector<std::string>& parts) {
    for (size_t length = parts.size() + 1; length-- > 0;) {
        const std::string prefix = length == 0 ? "/" : joined(parts, 0, length);
        char resolved[PATH_MAX];
        if (::realpath(prefix.c_str(), resolved) != nullptr) {
            std::string result = resolved;
            if (result == "/") result.clear();
            result += joined(parts, length, parts.size());
            return result.empty() ? "/" : result;
        }
        struct stat info {};
        if (::lstat(prefix.c_str(), &info) == 0) return "";
        if (errno != ENOENT && errno != ENOTDIR) return "";
    }
    return "";
}

AgentJSON optionalText(const std::optional<std::string>& text) {
    return text ? AgentJSON(*text) : AgentJSON(nullptr);
}

AgentJSON textList(const std::vector<std::string>& items) {
    AgentJSON::Array array;
    for (const std::string& item : items) array.emplace_back(item);
    return AgentJSON(std::move(array));
}

AgentJSON auditJSON(const AuditLogEntry& entry) {
    return AgentJSON(AgentJSON::Object{{"id", entry.id},
                                       {"at", DateHelpers::isoString(entry.at)},
                                       {"actor", entry.actor},
                                       {"tool", entry.tool},
                                       {"argsSummary", entry.argsSummary},
                                       {"status", entry.status},
                                       {"detail", optionalText(entry.detail)},
                                       {"proposalId", optionalText(entry.proposalId)}});
}

}  // namespace

AgentService::AgentService(Store& store, AgentEnvAccess& env, const Clock& clock)
    : store_(store), env_(env), clock_(clock) {}

Json AgentService::parseArgs(std::string_view argsJSON) {
    std::string_view text = Text::trim(argsJSON);
    // The parser stops at a NUL byte, which no JSON text holds.
    if (text.empty() || text.find('\0') != std::string_view::npos ||
        nestedDeeperThan(text, kMaxJsonDepth)) {
        return Json::object();
    }
    Json parsed = Json::parse(text, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) return Json::object();
    return parsed;
}

std::optional<AgentPermissionLevel> AgentService::requiredLevel(std::string_view tool) {
    for (const auto* set : {&AgentTools::readOnlyTools(), &AgentTools::proposeTools(),
                            &AgentTools::applyTools(), &AgentTools::gitTools()}) {
        if (set->contains(std::string(tool))) return AgentTools::find(tool)->level;
    }
    return std::nullopt;
}

std::optional<std::string> AgentService::allowedRootPathKey(std::string_view tool) {
    const AgentTool* entry = AgentTools::find(tool);
    if (entry == nullptr || entry->rootKey.empty()) return std::nullopt;
    return std::string(entry->rootKey);
}

std::string AgentService::canonical(std::string_view path) {
    const std::string expanded = PathHelpers::expandTilde(path);
    if (expanded.empty() || expanded.front() != '/') return "";
    std::optional<std::vector<std::string>> parts = standardComponents(expanded);
    if (!parts) return "";
    return resolveLinks(*parts);
}

bool AgentService::isInsideAllowedRoot(std::string_view path,
                                       const std::vector<std::string>& roots) {
    const std::string resolved = canonical(path);
    if (resolved.empty()) return false;
    for (const std::string& root : roots) {
        const std::string base = canonical(root);
        if (base.empty()) continue;
        if (resolved == base) return true;
        const std::string prefix = base.back() == '/' ? base : base + "/";
        if (resolved.starts_with(prefix)) return true;
    }
    return false;
}

std::string AgentService::argsSummary(const Json& args) {
    if (!args.is_object()) return "";
    std::string summary;
    for (const auto& [key, value] : args.items()) {  // an object's keys come sorted
        if (key == "confirmationToken") continue;
        std::string item =
            value.is_string()
                ? key + "=" + cutCharacters(value.get<std::string>(), 60)
                : cutCharacters(key + "=" + AgentJSON::fromJson(value).serialized(), 80);
        if (!summary.empty()) summary += ' ';
        summary += item;
    }
    return cutCharacters(summary, 200);
}

void AgentService::audit(const std::string& tool, const Json& args, const std::string& status,
                         std::optional<std::string> detail, std::optional<std::string> proposalId) {
    AuditLogEntry entry;
    entry.id = newUUID();
    entry.at = clock_.now();
    entry.actor = "claude";
    // A name no tool has is the caller's text: kept short and valid in the log.
    entry.tool = cutCharacters(Text::repairUtf8(tool), 100);
    entry.argsSummary = Text::repairUtf8(argsSummary(args));
    entry.status = status;
    entry.detail = std::move(detail);
    entry.proposalId = std::move(proposalId);
    store_.appendAudit(entry);
}

AgentResult AgentService::ok(const Call& call, const AgentJSON& result,
                             std::optional<std::string> detail,
                             std::optional<std::string> proposalId) {
    audit(call.tool, call.args, "ok", std::move(detail), std::move(proposalId));
    return AgentResult::success(result.serialized());
}

AgentResult AgentService::refuse(const Call& call, const std::string& status,
                                 const std::string& detail, const std::string& code,
                                 const std::string& hint) {
    audit(call.tool, call.args, status, detail, std::nullopt);
    return AgentResult::failure(code, hint);
}

AgentResult AgentService::refuse(const Call& call, const ConfirmOutcome& outcome) {
    const std::string status =
        outcome.code == "confirmation_required" ? "confirmation_required" : "error";
    return refuse(call, status, outcome.detail, outcome.code, outcome.hint);
}

AgentResult AgentService::handle(const std::string& tool, const std::string& argsJSON) {
    const Json args = parseArgs(argsJSON);
    const AppConfig config = env_.currentConfig();
    const Call call{tool, args, config};

    if (!config.agent.enabled) {
        return refuse(call, "denied", "agent disabled", "permission_denied",
                      "The agent is disabled in Quorvane → MCP/Settings.");
    }
    if (tool == "resources/read") return handleResourceRead(call);

    const std::optional<AgentPermissionLevel> required = requiredLevel(tool);
    if (!required) {
        return refuse(call, "error", "unknown tool", "not_found", "unknown tool `" + tool + "`");
    }
    if (config.agent.permissionLevel < *required) {
        return refuse(call, "denied",
                      fmt::format("needs {}, have {}", enumName(*required),
                                  enumName(config.agent.permissionLevel)),
                      "permission_denied", "Raise permission in Quorvane → MCP/Settings");
    }
    if (std::optional<std::string> key = allowedRootPathKey(tool)) {
        std::optional<std::string> path = textArg(args, key->c_str());
        if (!path || path->empty()) {
            return refuse(call, "error", "missing " + *key, "not_found",
                          "`" + *key + "` is required");
        }
        if (!isInsideAllowedRoot(*path, config.agent.allowedRoots)) {
            return refuse(call, "denied", "path outside allowedRoots", "not_in_allowed_root",
                          "Add this folder to Allowed Roots in Quorvane → MCP");
        }
    }
    if (AgentTools::gitTools().contains(tool) || AgentTools::paidApplyTools().contains(tool)) {
        if (!env_.licenceGrants()) {
            return refuse(call, "denied", "licence refused", "license_required",
                          "This tool needs a Quorvane licence.");
        }
        return executePaid(call);
    }
    return executeFree(call);
}

AgentResult AgentService::executeFree(const Call& call) {
    const std::string& tool = call.tool;
    if (tool == "get_settings") return getSettings(call);
    if (tool == "get_audit_log") return getAuditLog(call);
    if (tool == "get_proposal_status") return getProposalStatus(call);
    if (tool == "list_pending_proposals") return listPendingProposals(call);
    if (tool == "list_local_repositories") return listLocalRepositories(call);
    if (tool == "reject_repository_mapping") return rejectMapping(call);
    if (AgentTools::find(tool) != nullptr) return notAvailableYet(call);
    return refuse(call, "error", "unhandled tool", "not_found", "tool `" + tool + "` not handled");
}

AgentResult AgentService::executePaid(const Call& call) {
    const std::string& tool = call.tool;
    if (tool == "set_daily_review_time") return setDailyReviewTime(call);
    if (tool == "enable_repository_tracking") return setTracking(call, true);
    if (tool == "disable_repository_tracking") return setTracking(call, false);
    if (tool == "update_scan_folders") return updateScanFolders(call);
    if (AgentTools::find(tool) != nullptr) return notAvailableYet(call);
    return refuse(call, "error", "unhandled tool", "not_found", "tool `" + tool + "` not handled");
}

// A known tool this version does not serve yet. It never creates a proposal: a
// token for it could authorise nothing.
AgentResult AgentService::notAvailableYet(const Call& call) {
    return refuse(call, "error", "not available yet", "not_found",
                  "tool `" + call.tool + "` is not available yet in this version of Quorvane");
}

// ---- Proposals and tokens -------------------------------------------------------

std::optional<std::string> AgentService::ensurePendingProposal(const std::string& tool,
                                                               const Json& args) {
    std::optional<PendingProposal::Kind> kind = ProposalRules::proposalKind(tool);
    if (!kind) return std::nullopt;
    const std::string fingerprint = ProposalRules::fingerprint(tool, args);

    std::lock_guard lock(proposalMutex_);
    for (const PendingProposal& waiting : store_.proposals(PendingProposal::Status::pending)) {
        if (waiting.intendedTool == tool && waiting.argsFingerprint == fingerprint) {
            return waiting.id;
        }
    }
    PendingProposal proposal;
    proposal.id = newUUID();
    proposal.kind = *kind;
    std::tie(proposal.title, proposal.summary) = ProposalRules::proposalText(tool, args);
    proposal.payloadJSON = ProposalRules::canonicalArgsJSON(tool, args);
    proposal.status = PendingProposal::Status::pending;
    proposal.createdAt = clock_.now();
    proposal.intendedTool = tool;
    proposal.argsFingerprint = fingerprint;
    store_.upsertProposal(proposal);
    return proposal.id;
}

ConfirmOutcome AgentService::confirm(const std::string& tool, const Json& args) {
    auto failure = [](std::string code, std::string detail, std::string hint) {
        return ConfirmOutcome{false, {}, std::move(code), std::move(detail), std::move(hint)};
    };
    std::optional<std::string> token = textArg(args, "confirmationToken");
    if (!token || token->empty()) {
        if (std::optional<std::string> id = ensurePendingProposal(tool, args)) {
            return failure("confirmation_required", "proposalId=" + *id,
                           "Confirm this action in Quorvane → Agent Review (proposal " + *id +
                               "), then retry with its confirmationToken.");
        }
        return failure("confirmation_required", "no token",
                       "Confirm this action in Quorvane → Agent Review, then retry with its "
                       "confirmationToken.");
    }

    // Spent here, before the tool and arguments are compared: a token shown for the
    // wrong action is gone too, and the agent must propose again.
    Store::ConsumeResult consumed = store_.consumeApprovedProposal(*token);
    switch (consumed.kind) {
        case Store::ConsumeResult::Kind::notApproved:
            return failure("invalid_token", "proposal not approved (" + consumed.status + ")",
                           kInvalidTokenHint);
        case Store::ConsumeResult::Kind::notFound:
            return failure("invalid_token", "no matching proposal", kInvalidTokenHint);
        case Store::ConsumeResult::Kind::expired:
            return failure("invalid_token", "token missing or expired", kInvalidTokenHint);
        case Store::ConsumeResult::Kind::ok: break;
    }
    const PendingProposal& proposal = *consumed.proposal;
    if (!ProposalRules::kindAuthorizes(proposal.kind, tool)) {
        return failure("invalid_token",
                       fmt::format("token approved for {}, not {}", enumName(proposal.kind), tool),
                       "This token was approved for a different kind of action. Re-propose " +
                           tool + " and confirm that specific proposal.");
    }
    if (!proposal.intendedTool) {
        return failure("invalid_token", "proposal is not bound to a tool",
                       "This proposal predates action binding and can no longer authorize "
                       "anything. Re-propose " +
                           tool + " and confirm the new proposal.");
    }
    if (*proposal.intendedTool != tool) {
        return failure("invalid_token",
                       "token approved for " + *proposal.intendedTool + ", not " + tool,
                       "This token was approved for `" + *proposal.intendedTool + "`. Re-propose " +
                           tool + " and confirm that specific proposal.");
    }
    if (proposal.argsFingerprint &&
        *proposal.argsFingerprint != ProposalRules::fingerprint(tool, args)) {
        return failure("invalid_token", "arguments differ from the approved proposal",
                       "The arguments differ from what was confirmed in Agent Review. "
                       "Re-propose with these exact arguments and confirm.");
    }
    return ConfirmOutcome{true, proposal, "", "", ""};
}

// ---- Reading --------------------------------------------------------------------

AgentJSON AgentService::settingsResource(const AppConfig& config) const {
    return AgentJSON(AgentJSON::Object{
        {"scanFolders", textList(config.scanFolders)},
        {"scanIntervalMinutes", config.scanIntervalMinutes},
        {"autoTrackNewRepos", config.autoTrackNewRepos},
        {"dailyReviewTime", config.dailyReviewTime},
        {"theme", std::string(enumName(config.theme))},
        {"mapping", AgentJSON::Object{{"autoMapByURL", config.mapping.autoMapByURL},
                                      {"defaultCloneFolder", config.mapping.defaultCloneFolder}}},
        {"agent",
         AgentJSON::Object{{"enabled", config.agent.enabled},
                           {"permissionLevel", std::string(enumName(config.agent.permissionLevel))},
                           {"allowedRoots", textList(config.agent.allowedRoots)},
                           {"maxScanDepth", config.agent.maxScanDepth},
                           {"requireGuiConfirmation", config.agent.requireGuiConfirmation}}},
        {"repositoryCount", static_cast<int>(config.repositories.size())}});
}

AgentJSON AgentService::localRepositories(const AppConfig& config) const {
    AgentJSON::Array repos;
    for (const RepoConfig& repo : config.repositories) {
        std::optional<RepoSnapshot> snapshot = store_.snapshot(repo.id);
        std::optional<std::string> remoteURL =
            snapshot && snapshot->remoteURL ? snapshot->remoteURL : repo.remoteURL;
        AgentJSON::Array aliases;
        for (const std::string& alias : repo.aliases) aliases.emplace_back(alias);
        repos.emplace_back(AgentJSON::Object{{"repoId", repo.id},
                                             {"name", repo.name},
                                             {"displayName", optionalText(repo.displayName)},
                                             {"localPath", repo.localPath},
                                             {"defaultBranch", repo.defaultBranch},
                                             {"trackingEnabled", repo.trackingEnabled},
                                             {"aliases", std::move(aliases)},
                                             {"remoteURL", optionalText(remoteURL)}});
    }
    return AgentJSON(std::move(repos));
}

AgentJSON AgentService::auditLog(std::optional<size_t> limit) const {
    AgentJSON::Array entries;
    for (const AuditLogEntry& entry : store_.auditEntries(limit)) {
        entries.push_back(auditJSON(entry));
    }
    return AgentJSON(std::move(entries));
}

AgentResult AgentService::getSettings(const Call& call) {
    return ok(call, settingsResource(call.config));
}

AgentResult AgentService::listLocalRepositories(const Call& call) {
    return ok(call, localRepositories(call.config));
}

AgentResult AgentService::getAuditLog(const Call& call) {
    size_t limit = kDefaultAuditLimit;
    if (auto it = call.args.find("limit"); it != call.args.end()) {
        // A whole number, as JSON gives it; a negative or fractional one is refused.
        if (!it->is_number_integer() || it->get<long long>() < 0) {
            return refuse(call, "error", "bad limit", "invalid_params",
                          "`limit` must be a whole number, 0 or more");
        }
        limit = static_cast<size_t>(it->get<long long>());
    }
    return ok(call, auditLog(limit));
}

AgentResult AgentService::getProposalStatus(const Call& call) {
    std::optional<std::string> id = textArg(call.args, "proposalId");
    if (!id || id->empty()) {
        return refuse(call, "error", "missing proposalId", "not_found", "missing proposalId");
    }
    std::optional<PendingProposal> proposal = store_.proposal(*id);
    if (!proposal) {
        return refuse(call, "error", "proposal not found", "not_found", "proposal not found");
    }
    AgentJSON::Object result{{"proposalId", proposal->id},
                             {"kind", std::string(enumName(proposal->kind))},
                             {"title", proposal->title},
                             {"status", std::string(enumName(proposal->status))},
                             {"intendedTool", optionalText(proposal->intendedTool)}};
    if (proposal->status != PendingProposal::Status::approved || !proposal->confirmationToken) {
        return ok(call, AgentJSON(std::move(result)));
    }
    // The agent's way to the token without the person typing it; the log says it
    // left, never what it is.
    result.emplace("confirmationToken", *proposal->confirmationToken);
    if (proposal->expiresAt)
        result.emplace("expiresAt", DateHelpers::isoString(*proposal->expiresAt));
    const std::string boundTo =
        proposal->intendedTool ? *proposal->intendedTool : std::string(enumName(proposal->kind));
    audit(call.tool, call.args, "token_disclosed", "token handed to caller for " + boundTo,
          proposal->id);
    return AgentResult::success(AgentJSON(std::move(result)).serialized());
}

AgentResult AgentService::listPendingProposals(const Call& call) {
    std::optional<PendingProposal::Status> status;
    if (auto it = call.args.find("status"); it != call.args.end()) {
        const std::string text = it->is_string() ? it->get<std::string>() : it->dump();
        status = enumFromName<PendingProposal::Status>(text);
        if (!status) {
            return refuse(call, "error", "unknown status", "invalid_params",
                          "unknown status `" + text + "`");
        }
    }
    AgentJSON::Array items;
    for (const PendingProposal& proposal : store_.proposals(status)) {
        items.emplace_back(
            AgentJSON::Object{{"proposalId", proposal.id},
                              {"kind", std::string(enumName(proposal.kind))},
                              {"title", proposal.title},
                              {"status", std::string(enumName(proposal.status))},
                              {"createdAt", DateHelpers::isoString(proposal.createdAt)}});
    }
    return ok(call, AgentJSON(std::move(items)));
}

AgentResult AgentService::handleResourceRead(const Call& call) {
    std::optional<std::string> uri = textArg(call.args, "uri");
    if (!uri) return refuse(call, "error", "missing uri", "not_found", "`uri` required");
    if (*uri == "quorvane://settings") return ok(call, settingsResource(call.config));
    if (*uri == "quorvane://audit-log") return ok(call, auditLog(kDefaultAuditLimit));
    if (*uri == "quorvane://repositories/local") return ok(call, localRepositories(call.config));
    static const std::set<std::string> later = {"quorvane://repositories/remote",
                                                "quorvane://repositories/unmapped",
                                                "quorvane://repositories/needs-attention",
                                                "quorvane://mappings/candidates",
                                                "quorvane://reports/today",
                                                "quorvane://reports/week"};
    if (later.contains(*uri)) {
        return refuse(call, "error", "not available yet", "not_found",
                      "resource `" + *uri + "` is not available yet in this version of Quorvane");
    }
    return refuse(call, "error", "unknown uri " + *uri, "not_found",
                  "unknown resource `" + *uri + "`");
}

// ---- Changing -------------------------------------------------------------------

AgentResult AgentService::rejectMapping(const Call& call) {
    std::optional<std::string> id = textArg(call.args, "proposalId");
    if (!id || id->empty()) {
        return refuse(call, "error", "missing proposalId", "not_found", "missing proposalId");
    }
    if (!store_.proposal(*id)) {
        return refuse(call, "error", "proposal not found", "not_found", "proposal not found");
    }
    store_.rejectProposal(*id);
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

AgentResult AgentService::setTracking(const Call& call, bool enabled) {
    std::optional<std::string> repoId = textArg(call.args, "repoId");
    if (!repoId || repoId->empty()) {
        return refuse(call, "error", "missing repoId", "not_found", "missing repoId");
    }
    auto known = [&](const AppConfig& config) {
        return std::any_of(config.repositories.begin(), config.repositories.end(),
                           [&](const RepoConfig& repo) { return repo.id == *repoId; });
    };
    // Looked up before the token is asked for, so no proposal is made for a
    // repository that is not there.
    if (!known(call.config)) {
        return refuse(call, "error", "repo not found", "not_found", "repo not found");
    }
    return applyConfigChange(call,
                             [&](AppConfig& config) {
                                 for (RepoConfig& repo : config.repositories) {
                                     if (repo.id == *repoId) repo.trackingEnabled = enabled;
                                 }
                             },
                             {{"repoId", *repoId}, {"trackingEnabled", enabled}});
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
