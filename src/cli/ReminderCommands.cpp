// The reminders the scans raised: listed, and dismissed one at a time.
#include <algorithm>
#include <ostream>

#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "app/Queries.hpp"
#include "base/EnumNames.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/Style.hpp"
#include "persistence/Store.hpp"
#include "records/ReminderEvent.hpp"
#include "reports/ReminderNotices.hpp"

namespace quorvane::Commands {

// Lists the open reminders (all of them with `all`), newest first.
int reminders(CommandContext& context, bool all, bool json) {
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    std::vector<ReminderEvent> events = Queries::remindersNewestFirst(store, all);
    if (json) {
        Json array = Json::array();
        for (const ReminderEvent& event : events) array.push_back(toJson(event));
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    if (events.empty()) {
        context.out << (all ? "No reminders yet.\n" : "No open reminders.\n");
        return 0;
    }
    const Date now = context.clock.now();
    std::vector<std::vector<std::string>> rows = {{"ID", "RAISED", "KIND", "MESSAGE"}};
    if (all) rows[0].push_back("RESOLVED");
    for (const ReminderEvent& event : events) {
        rows.push_back(
            {Style::paint(context, Tone::dim, shortID(event.id)),
             DateHelpers::dateKey(event.triggeredAt) + " " + localClockTime(event.triggeredAt),
             Style::paint(context, event.resolvedAt ? Tone::dim : Style::toneOf(event.kind),
                          enumName(event.kind)),
             Text::visible(event.message)});
        if (ReminderNotices::isSnoozed(event, now)) {
            rows.back().back() +=
                " (" + ReminderNotices::snoozedText(*event.snoozedUntil, now) + ")";
        }
        if (all) {
            rows.back().push_back(event.resolvedAt ? DateHelpers::dateKey(*event.resolvedAt) + " " +
                                                         localClockTime(*event.resolvedAt)
                                                   : "open");
        }
    }
    // A reminder's message is a sentence to read whole: it wraps within its column.
    using TextLayout::Shrink;
    printTable(context.out, rows,
               {context.columns,
                {Shrink::never, Shrink::wrap, Shrink::never, Shrink::wrap, Shrink::wrap},
                true});
    if (!all) context.out << "\nDismiss one with: quorvane reminders dismiss ID\n";
    return 0;
}

namespace {

// The open reminder with this full id, or with this unique id prefix of at least 4
// characters; nothing, with the reason on stderr, otherwise.
std::optional<ReminderEvent> openReminderNamed(const CommandContext& context, const Store& store,
                                               const std::string& id) {
    std::vector<ReminderEvent> matches;
    for (const ReminderEvent& event : store.reminders(true)) {
        if (event.id == id) return event;
        if (id.size() >= 4 && event.id.starts_with(id)) matches.push_back(event);
    }
    if (matches.size() == 1) return matches[0];
    context.err << fmt::format(
        fmt::runtime(matches.empty()
                         ? "quorvane: no open reminder has the id {} (see: quorvane reminders)\n"
                         : "quorvane: {} matches several open reminders; give more of the id\n"),
        Text::visible(id));
    return std::nullopt;
}

}  // namespace

// Resolves the open reminder with this id, or with this unique id prefix.
int dismissReminder(CommandContext& context, const std::string& id) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    Store& store = writer->env().store();
    std::optional<ReminderEvent> match = openReminderNamed(context, store, id);
    if (!match) return 1;
    store.resolveReminders({match->id});
    if (!store.flush()) {
        context.err << "quorvane: the reminder could not be saved as dismissed (see the log)\n";
        return 1;
    }
    context.out << fmt::format("dismissed: {}\n", Text::visible(match->message));
    return 0;
}

// Puts the open reminder with this id, or unique id prefix, off for `length`, as its
// notification's snooze button does.
int snoozeReminder(CommandContext& context, const std::string& id, const std::string& length) {
    std::optional<std::chrono::minutes> minutes = ReminderNotices::parseLength(length);
    if (!minutes) {
        context.err << fmt::format(
            "quorvane: --for takes hours and minutes such as 1h, 30m or 1h30m, from 1m to 168h, "
            "not '{}'\n",
            Text::visible(length));
        return 1;
    }
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    std::optional<ReminderEvent> match = openReminderNamed(context, env.store(), id);
    if (!match) return 1;
    AppEnvironment::Snoozed snoozed = env.snoozeReminder(match->id, *minutes);
    if (!snoozed.reminder) {
        // Resolved by a scan between the lookup and the snooze.
        context.err << fmt::format("quorvane: the reminder {} is no longer open\n",
                                   shortID(match->id));
        return 1;
    }
    if (!reportFlush(context, snoozed.saveProblem)) return 1;
    context.out << fmt::format(
        "{}: {}\n",
        ReminderNotices::snoozedText(*snoozed.reminder->snoozedUntil, context.clock.now()),
        Text::visible(snoozed.reminder->message));
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareReminderCommands(CommandTable& table) {
    auto& all = table.keep<bool>();
    auto& json = table.keep<bool>();
    CLI::App* reminders = table.add(
        "reminders",
        "List the reminders raised by scans: commits to push, work left uncommitted\n"
        "A reminder is raised once, when its condition appears (unpushed commits, changes\n"
        "worked on today with no commit, a branch behind its remote, changes left for\n"
        "days), shown as a desktop notification, and resolved by the first scan that finds\n"
        "the condition gone. Their switches and thresholds are the reminders.* settings\n"
        "of 'quorvane config list'.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::reminders(c, all, json); }});
    reminders->require_subcommand(0, 1);
    reminders->add_flag("--all", all, "Also list resolved reminders (kept 30 days)");
    reminders->add_flag("--json", json, "Print the reminders as a JSON array");
    auto& id = table.keep<std::string>();
    table
        .add(reminders, "dismiss",
             "Resolve an open reminder now, given its id or the first characters of it",
             {DataUse::writes, [&](CommandContext& c) { return Commands::dismissReminder(c, id); }})
        ->add_option("ID", id, "Reminder id (as listed)")
        ->required();
    auto& snoozeID = table.keep<std::string>();
    auto& length = table.keep<std::string>("1h");
    CLI::App* snooze = table.add(
        reminders, "snooze",
        "Put an open reminder off: its notification goes, and comes back when the time is up\n"
        "if the reminder is still open. The daemon keeps the snooze across restarts; its\n"
        "notification's \"Snooze 1 h\" button does the same.",
        {DataUse::writes,
         [&](CommandContext& c) { return Commands::snoozeReminder(c, snoozeID, length); }});
    snooze->add_option("ID", snoozeID, "Reminder id (as listed)")->required();
    snooze->add_option("--for", length, "How long, in hours and minutes: 1h, 30m, 1h30m")
        ->capture_default_str();
}

}  // namespace quorvane
