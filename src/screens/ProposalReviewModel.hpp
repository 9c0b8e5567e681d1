#pragma once

#include <optional>

#include "agent/GitProposalReview.hpp"
#include "records/JsonCodec.hpp"
#include "records/PendingProposal.hpp"

namespace quorvane::ProposalReviewModel {

// A proposal as a listing shows it: every field but the token, which a listing
// never hands out.
Json listing(const PendingProposal& proposal);

// Whether the agent called its change destructive, which a review marks.
bool isDestructive(const PendingProposal& proposal);

// What the person reads before deciding: the listing, the destructive mark and,
// for a git command, what will run and where it connects.
Json review(const PendingProposal& proposal, const std::optional<GitProposalReview>& git);

}  // namespace quorvane::ProposalReviewModel
