#include "agent/AgentService.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <map>

#include <fmt/format.h>

#include "agent/AgentToolSupport.hpp"
#include "agent/AgentTools.hpp"
#include "agent/ProposalRules.hpp"
#include "base/EnumNames.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "base/Uuid.hpp"

namespace quorvane {

using AgentToolSupport::textArg;

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

// The group a waiting proposal counts in against the limit for one tool: the apply
// tool it authorises, or its kind when it authorises none (a cleanup plan).
std::string proposalGroup(const PendingProposal& proposal) {
    return proposal.intendedTool ? *proposal.intendedTool : std::string(enumName(proposal.kind));
}

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

}  // namespace

AgentService::AgentService(Store& store, AgentEnvAccess& env, const Clock& clock,
                           const ProcessRunner& runner, ProposalLimits limits)
    : store_(store), env_(env), clock_(clock), runner_(runner), limits_(limits) {}

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
    const AgentTool* entry = AgentTools::find(tool);
    if (entry == nullptr) return std::nullopt;
    return entry->level;
}

std::optional<std::string> AgentService::allowedRootPathKey(std::string_view tool) {
    const AgentTool* entry = AgentTools::find(tool);
    if (entry == nullptr || entry->rootKey.empty()) return std::nullopt;
    return std::string(entry->rootKey);
}

std::string AgentService::allowedRootOf(const std::string& typed, const std::filesystem::path& base,
                                        bool folderOnly, std::string& problem) {
    namespace fs = std::filesystem;
    std::error_code ec;
    fs::path path = PathHelpers::expandTilde(typed);
    if (path.is_relative()) path = base / path;
    // The agent refuses a root that holds "..", so none is kept.
    fs::path resolved = fs::weakly_canonical(path, ec);
    std::string root = ec ? "" : canonical(resolved.string());
    if (root.empty()) {
        problem = fmt::format(
            "agent.allowedRoots cannot hold {}: a part of it cannot be resolved (a dangling or "
            "looping link, or a folder that cannot be read)",
            Text::visible(typed));
        return "";
    }
    if (folderOnly && !fs::is_directory(root, ec)) {
        problem =
            fmt::format("agent.allowedRoots holds folders, and {} is none", Text::visible(root));
        return "";
    }
    return root;
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
    std::string status = "error";
    if (outcome.code == "confirmation_required") status = "confirmation_required";
    if (outcome.code == "too_many_proposals") status = "denied";
    return refuse(call, status, outcome.detail, outcome.code, outcome.hint);
}

AgentResult AgentService::refuse(const Call& call, const ProposalAdmission& admission) {
    return refuse(call, "denied", admission.detail, "too_many_proposals",
                  admission.refusal.value_or(""));
}

AgentResult AgentService::refuse(const Call& call, const AgentToolSupport::ArgProblem& problem) {
    return refuse(call, "error", "bad " + problem.key, "invalid_params", problem.hint);
}

AgentResult AgentService::refuseOutsideRoots(const Call& call, const std::string& detail) {
    return refuse(call, "denied", detail, "not_in_allowed_root",
                  "Add this folder to Allowed Roots in Quorvane → MCP");
}

AgentResult AgentService::handle(const std::string& tool, const std::string& argsJSON) {
    const Json args = parseArgs(argsJSON);
    const AppConfig config = env_.currentConfig();
    const AgentTool* entry = AgentTools::find(tool);
    const Call call{tool, args, config, entry};

    if (!config.agent.enabled) {
        return refuse(call, "denied", "agent disabled", "permission_denied",
                      "The agent is disabled in Quorvane → MCP/Settings.");
    }
    if (tool == "resources/read") return handleResourceRead(call);

    if (entry == nullptr) {
        return refuse(call, "error", "unknown tool", "not_found", "unknown tool `" + tool + "`");
    }
    if (config.agent.permissionLevel < entry->level) {
        return refuse(call, "denied",
                      fmt::format("needs {}, have {}", enumName(entry->level),
                                  enumName(config.agent.permissionLevel)),
                      "permission_denied", "Raise permission in Quorvane → MCP/Settings");
    }
    if (!entry->rootKey.empty()) {
        const std::string key(entry->rootKey);
        std::optional<std::string> path = textArg(args, key.c_str());
        if (!path || path->empty()) {
            return refuse(call, "error", "missing " + key, "not_found",
                          "`" + key + "` is required");
        }
        if (!isInsideAllowedRoot(*path, config.agent.allowedRoots)) {
            return refuseOutsideRoots(call, "path outside allowedRoots");
        }
    }
    if (entry->licence == ToolLicence::needed && !env_.licenceGrants()) {
        return refuse(call, "denied", "licence refused", "license_required",
                      "This tool needs a Quorvane licence.");
    }
    return (this->*entry->handler)(call);
}

// ---- Proposals and tokens -------------------------------------------------------

AgentService::ProposalAdmission AgentService::ensurePendingProposals(
    const std::vector<ProposedAction>& actions) {
    std::vector<PendingProposal> proposals;
    for (const auto& [tool, args] : actions) {
        std::optional<PendingProposal::Kind> kind = ProposalRules::proposalKind(tool);
        if (!kind) continue;
        PendingProposal proposal;
        proposal.id = newUUID();
        proposal.kind = *kind;
        std::tie(proposal.title, proposal.summary) = ProposalRules::proposalText(tool, args);
        proposal.payloadJSON = ProposalRules::canonicalArgsJSON(tool, args);
        proposal.status = PendingProposal::Status::pending;
        proposal.createdAt = clock_.now();
        proposal.intendedTool = tool;
        proposal.argsFingerprint = ProposalRules::fingerprint(tool, args);
        proposals.push_back(std::move(proposal));
    }
    return admitProposals(std::move(proposals), true);
}

AgentService::ProposalAdmission AgentService::admitProposals(std::vector<PendingProposal> proposals,
                                                             bool twinsAreOne) {
    auto proposalCount = [](size_t count) {
        return fmt::format("{} proposal{}", count, count == 1 ? "" : "s");
    };
    auto crowded = [](const std::string& waiting, const std::string& detail) {
        return ProposalAdmission{
            {},
            "The person has " + waiting +
                " waiting, the most allowed: ask them to review or reject those (for example "
                "with `quorvane proposals`) before proposing more.",
            detail};
    };

    std::unique_lock lock(proposalMutex_);
    // The one look at the waiting proposals a call makes: counted and searched at once.
    std::vector<PendingProposal> waiting = store_.proposals(PendingProposal::Status::pending);
    std::map<std::string, size_t> perGroup;
    for (const PendingProposal& proposal : waiting) ++perGroup[proposalGroup(proposal)];
    ProposalAdmission admission;
    std::vector<PendingProposal> fresh;
    for (PendingProposal& proposal : proposals) {
        if (twinsAreOne) {
            auto twin =
                std::find_if(waiting.begin(), waiting.end(), [&](const PendingProposal& other) {
                    return other.intendedTool == proposal.intendedTool &&
                           other.argsFingerprint == proposal.argsFingerprint;
                });
            if (twin != waiting.end()) {
                admission.ids.push_back(twin->id);
                continue;
            }
        }
        const std::string group = proposalGroup(proposal);
        if (perGroup[group] >= limits_.perTool) {
            return crowded(proposalCount(perGroup[group]) + " for " + group,
                           "too many pending proposals for " + group);
        }
        if (waiting.size() >= limits_.overall) {
            return crowded(proposalCount(waiting.size()), "too many pending proposals");
        }
        ++perGroup[group];
        admission.ids.push_back(proposal.id);
        // Counted, and found by a twin later in the same call, from here on.
        waiting.push_back(proposal);
        fresh.push_back(std::move(proposal));
    }
    for (const PendingProposal& proposal : fresh) store_.upsertProposal(proposal);
    lock.unlock();
    // Outside the lock: telling the person may take a moment, and other calls need not
    // wait for it.
    if (!fresh.empty()) env_.proposalsAdded(fresh);
    return admission;
}

ConfirmOutcome AgentService::confirm(const std::string& tool, const Json& args) {
    auto failure = [](std::string code, std::string detail, std::string hint) {
        return ConfirmOutcome{false, {}, std::move(code), std::move(detail), std::move(hint)};
    };
    std::optional<std::string> token = textArg(args, "confirmationToken");
    if (!token || token->empty()) {
        ProposalAdmission admission = ensurePendingProposals({{tool, args}});
        if (admission.refusal) {
            return failure("too_many_proposals", admission.detail, *admission.refusal);
        }
        if (!admission.ids.empty()) {
            const std::string& id = admission.ids.front();
            return failure("confirmation_required", "proposalId=" + id,
                           "Confirm this action in Quorvane → Agent Review (proposal " + id +
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

}  // namespace quorvane
