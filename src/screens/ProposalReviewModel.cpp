#include "screens/ProposalReviewModel.hpp"

namespace quorvane::ProposalReviewModel {

Json listing(const PendingProposal& proposal) {
    Json json = toJson(proposal);
    json.erase("confirmationToken");
    return json;
}

bool isDestructive(const PendingProposal& proposal) {
    return proposal.summary.starts_with("DESTRUCTIVE");
}

Json review(const PendingProposal& proposal, const std::optional<GitProposalReview>& git) {
    Json json = listing(proposal);
    json["destructive"] = isDestructive(proposal);
    if (git) {
        json["git"] = Json{{"command", git->command},
                           {"remote", git->remote.name},
                           {"urls", git->remote.urls},
                           {"settings", git->settings},
                           {"hooks", git->hooks}};
    }
    return json;
}

}  // namespace quorvane::ProposalReviewModel
