#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Notifier.hpp"
#include "records/PendingProposal.hpp"

namespace quorvane {

// Tells the person, through the notifier, of proposals an agent left for their
// review, so they need not keep looking: one notification for the proposals one
// call stored, with a button that opens Agent Review. It is taken down once every
// proposal it tells of has been decided.
class ProposalNotices {
public:
    // The button's key, which the notifier's owner answers by opening Agent Review.
    static constexpr const char* kReviewAction = "review";

    // Without a notifier nothing is shown.
    explicit ProposalNotices(Notifier* notifier) : notifier_(notifier) {}

    // Shows one notification for `proposals`, stored together; nothing for none.
    void added(const std::vector<PendingProposal>& proposals);
    // The person, or the agent, decided the proposal `id`.
    void decided(const std::string& id);

    // What the person is shown for `proposals` (at least one): the title of one, the
    // count of several.
    static Notification notice(const std::vector<PendingProposal>& proposals);

private:
    Notifier* const notifier_;
    // Held across the notifier's calls, so a decision made while its notification is
    // being posted takes it down after the post, never before.
    std::mutex mutex_;
    // The key of the notification that tells of each undecided proposal.
    std::map<std::string, std::string> keyOf_;
};

}  // namespace quorvane
