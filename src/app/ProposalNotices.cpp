#include "app/ProposalNotices.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "base/TextHelpers.hpp"

namespace quorvane {

Notification ProposalNotices::notice(const std::vector<PendingProposal>& proposals) {
    Notification notification;
    // The first proposal's id: unique, and never a reminder's.
    notification.key = proposals.front().id;
    notification.title = "Quorvane \u2014 Agent Review";
    // An agent wrote the title: nothing in it may pass for something else on screen.
    notification.body = proposals.size() == 1
                            ? Text::visible(proposals.front().title)
                            : fmt::format("{} proposals wait for your review", proposals.size());
    notification.actions = {{kReviewAction, "Review"}};
    return notification;
}

void ProposalNotices::added(const std::vector<PendingProposal>& proposals) {
    if (notifier_ == nullptr || proposals.empty()) return;
    std::lock_guard lock(mutex_);
    Notification notification = notice(proposals);
    for (const PendingProposal& proposal : proposals) keyOf_[proposal.id] = notification.key;
    notifier_->post(notification);
}

void ProposalNotices::decided(const std::string& id) {
    std::lock_guard lock(mutex_);
    auto found = keyOf_.find(id);
    if (found == keyOf_.end()) return;
    const std::string key = found->second;
    keyOf_.erase(found);
    bool othersWait = std::any_of(keyOf_.begin(), keyOf_.end(),
                                  [&](const auto& entry) { return entry.second == key; });
    if (!othersWait) notifier_->close(key);
}

}  // namespace quorvane
