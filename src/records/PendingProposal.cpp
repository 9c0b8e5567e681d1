#include "records/PendingProposal.hpp"

namespace quorvane {

void fromJson(const Json& json, PendingProposal& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.id = reader.required<std::string>("id");
    out.kind = reader.required<PendingProposal::Kind>("kind");
    out.title = reader.required<std::string>("title");
    out.summary = reader.required<std::string>("summary");
    out.payloadJSON = reader.required<std::string>("payloadJSON");
    out.confidence = reader.optional<int>("confidence");
    out.evidence = reader.required<std::vector<std::string>>("evidence");
    out.status = reader.required<PendingProposal::Status>("status");
    out.confirmationToken = reader.optional<std::string>("confirmationToken");
    out.createdAt = reader.required<Date>("createdAt");
    out.expiresAt = reader.optional<Date>("expiresAt");
    out.intendedTool = reader.optional<std::string>("intendedTool");
    out.argsFingerprint = reader.optional<std::string>("argsFingerprint");
}

Json toJson(const PendingProposal& proposal) {
    Json json{{"id", proposal.id},
              {"kind", toJson(proposal.kind)},
              {"title", proposal.title},
              {"summary", proposal.summary},
              {"payloadJSON", proposal.payloadJSON},
              {"evidence", toJson(proposal.evidence)},
              {"status", toJson(proposal.status)},
              {"createdAt", toJson(proposal.createdAt)}};
    putIfPresent(json, "confidence", proposal.confidence);
    putIfPresent(json, "confirmationToken", proposal.confirmationToken);
    putIfPresent(json, "expiresAt", proposal.expiresAt);
    putIfPresent(json, "intendedTool", proposal.intendedTool);
    putIfPresent(json, "argsFingerprint", proposal.argsFingerprint);
    return json;
}

}  // namespace quorvane
