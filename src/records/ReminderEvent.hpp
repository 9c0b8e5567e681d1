#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One reminder: raised once for a condition, kept open while the condition holds,
// then marked resolved. Stored under its `id`.
struct ReminderEvent {
    // The condition a reminder is about; persisted by its name.
    enum class Kind {
        needsPush,
        needsCommit,
        behindRemote,
        staleDirty,
        needsPull,
        noUpstream,
        remoteOnly,
        tokenIssue,
        endDayReview
    };

    std::string id;  // UUID, fresh for each new reminder
    // The repository, or the account's id for a token problem; absent for reminders
    // that concern no single repository.
    std::optional<std::string> repoID;
    Kind kind = Kind::needsPush;
    std::string message;
    Date triggeredAt{};
    std::optional<Date> resolvedAt;  // absent while the reminder is open
    // Set when the person put the reminder off: its notification stays down until
    // then, and comes back if the reminder is still open. Absent in files written
    // before reminders could be put off.
    std::optional<Date> snoozedUntil;

    // Two reminders are the same reminder when these are equal: "<kind>#<repoID>",
    // with nothing after the "#" when there is no repository.
    std::string reconcileKey() const;
    bool operator==(const ReminderEvent&) const = default;
};

constexpr auto enumCases(ReminderEvent::Kind) {
    using enum ReminderEvent::Kind;
    return std::array{std::pair{needsPush, std::string_view("needsPush")},
                      std::pair{needsCommit, std::string_view("needsCommit")},
                      std::pair{behindRemote, std::string_view("behindRemote")},
                      std::pair{staleDirty, std::string_view("staleDirty")},
                      std::pair{needsPull, std::string_view("needsPull")},
                      std::pair{noUpstream, std::string_view("noUpstream")},
                      std::pair{remoteOnly, std::string_view("remoteOnly")},
                      std::pair{tokenIssue, std::string_view("tokenIssue")},
                      std::pair{endDayReview, std::string_view("endDayReview")}};
}

// The kinds read from the local scan, and those that need the GitHub alignment. Each
// reconciliation clears only reminders of its own set, so neither undoes the other;
// `endDayReview` is in neither, so no reconciliation ever clears it.
inline constexpr std::array localKinds{
    ReminderEvent::Kind::needsPush, ReminderEvent::Kind::needsCommit,
    ReminderEvent::Kind::behindRemote, ReminderEvent::Kind::staleDirty};
inline constexpr std::array alignmentKinds{
    ReminderEvent::Kind::needsPull, ReminderEvent::Kind::noUpstream,
    ReminderEvent::Kind::remoteOnly, ReminderEvent::Kind::tokenIssue};

// The headline of the desktop notification that shows a reminder of this kind.
std::string_view title(ReminderEvent::Kind kind);

void fromJson(const Json& json, ReminderEvent& out, const std::string& path);
Json toJson(const ReminderEvent& event);

}  // namespace quorvane
