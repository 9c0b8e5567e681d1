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
    std::vector<std::vector<std::string>> rows = {{"ID", "RAISED", "KIND", "MESSAGE"}};
    if (all) rows[0].push_back("RESOLVED");
    for (const ReminderEvent& event : events) {
        rows.push_back(
            {Style::paint(context, Tone::dim, shortID(event.id)),
             DateHelpers::dateKey(event.triggeredAt) + " " + localClockTime(event.triggeredAt),
             Style::paint(context, event.resolvedAt ? Tone::dim : Style::toneOf(event.kind),
                          enumName(event.kind)),
             Text::visible(event.message)});
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

// Resolves the open reminder with this id, or with this unique id prefix.
int dismissReminder(CommandContext& context, const std::string& id) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    Store& store = writer->env().store();
    // The full id, or a prefix that only one open reminder has.
    std::vector<ReminderEvent> matches;
    for (const ReminderEvent& event : store.reminders(true)) {
        if (event.id == id) {
            matches = {event};
            break;
        }
        if (id.size() >= 4 && event.id.starts_with(id)) matches.push_back(event);
    }
    if (matches.size() != 1) {
        context.err << fmt::format(
            fmt::runtime(
                matches.empty()
                    ? "quorvane: no open reminder has the id {} (see: quorvane reminders)\n"
                    : "quorvane: {} matches several open reminders; give more of the id\n"),
            id);
        return 1;
    }
    store.resolveReminders({matches[0].id});
    if (!store.flush()) {
        context.err << "quorvane: the reminder could not be saved as dismissed (see the log)\n";
        return 1;
    }
    context.out << fmt::format("dismissed: {}\n", Text::visible(matches[0].message));
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
}

}  // namespace quorvane
