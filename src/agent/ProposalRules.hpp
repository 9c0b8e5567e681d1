#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "records/JsonCodec.hpp"
#include "records/PendingProposal.hpp"

namespace quorvane::ProposalRules {

// The arguments that decide what a tool does, and so the only ones a token is bound
// to. Others (a note, the token itself) may change between the proposal and the
// apply without making it a different action.
std::vector<std::string> securityRelevantArgKeys(const std::string& tool);

// The tool's security-relevant arguments that are present, as AgentJSON prints them:
// compact, keys sorted. An absent key is left out rather than written as null.
std::string canonicalArgsJSON(const std::string& tool, const Json& args);

// "<tool>|<canonical arguments>": what an approved proposal is bound to.
std::string fingerprint(const std::string& tool, const Json& args);

// Whether a proposal of `kind` may authorise `tool` at all. The proposal's own
// tool binding is checked besides this.
bool kindAuthorizes(PendingProposal::Kind kind, const std::string& tool);

// The kind of proposal an apply tool called without a token asks for; nothing for a
// tool that takes no token.
std::optional<PendingProposal::Kind> proposalKind(const std::string& applyTool);

// The title and summary the person reads before deciding.
std::pair<std::string, std::string> proposalText(const std::string& tool, const Json& args);

}  // namespace quorvane::ProposalRules
