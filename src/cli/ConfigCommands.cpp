// The settings of config.json, read and changed by name.
#include <algorithm>
#include <filesystem>
#include <ostream>

#include <fmt/format.h>

#include "agent/AgentService.hpp"
#include "app/AppEnvironment.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "persistence/ConfigKeys.hpp"

namespace quorvane::Commands {

enum class ListChange { add, remove };

namespace {

constexpr size_t kHelpWidth = 80;

constexpr std::string_view kAllowedRoots = "agent.allowedRoots";

// A folder typed for agent.allowedRoots, made absolute against the folder the
// command was typed in. The daemon runs a sent command in its own folder; the
// client's comes with it.
std::string allowedRootOf(const CommandContext& context, const std::string& typed, bool folderOnly,
                          std::string& problem) {
    std::error_code ec;
    std::filesystem::path base =
        context.workingDir.empty() ? std::filesystem::current_path(ec) : context.workingDir;
    if (ec) {
        problem = fmt::format("cannot tell the current folder to resolve {}: {}",
                              Text::visible(typed), ec.message());
        return "";
    }
    return AgentService::allowedRootOf(typed, base, folderOnly, problem);
}

// The group a key belongs to: "sync" for "sync.interval", "" for a top-level key.
std::string_view groupOf(const std::string& name) {
    size_t dot = name.find('.');
    return dot == std::string::npos ? std::string_view() : std::string_view(name).substr(0, dot);
}

}  // namespace

// The keys and what each takes, for the help of `quorvane config`.
std::string configKeysHelp() {
    size_t widestName = 0, widestAllowed = 0;
    for (const ConfigKeys::Key& key : ConfigKeys::all()) {
        widestName = std::max(widestName, key.name.size());
        widestAllowed = std::max(widestAllowed, key.allowed().size());
    }
    // Aligned as far as the widest values allow; a longer name pushes its own along.
    size_t column = std::min(widestName, kHelpWidth - 4 - widestAllowed);
    std::string text = "\nKeys and the values they take:\n";
    for (const ConfigKeys::Key& key : ConfigKeys::all()) {
        text += fmt::format("  {:<{}}  {}\n", key.name, column, key.allowed());
    }
    return text;
}

// The settings of config.json by their dotted names ("sync.interval"). `configSet`
// checks the value against its key before anything is touched, and changes it
// through the data folder's writer, on top of any edit made by hand. Unknown keys,
// refused values and an unreadable config.json exit 1.
int configList(CommandContext& context, bool json) {
    std::optional<AppConfig> config = readConfig(context);
    if (!config) return 1;
    if (json) {
        Json object = Json::object();
        for (const ConfigKeys::Key& key : ConfigKeys::all()) {
            object[key.name] = ConfigKeys::valueOf(*config, key);
        }
        context.out << JsonCodec::pretty(object);
        return 0;
    }
    std::string_view group;
    for (const ConfigKeys::Key& key : ConfigKeys::all()) {
        if (groupOf(key.name) != group) context.out << "\n";
        group = groupOf(key.name);
        context.out << fmt::format("{} = {}\n    {} ({})\n", key.name,
                                   ConfigKeys::display(ConfigKeys::valueOf(*config, key)),
                                   key.meaning, key.allowed());
    }
    return 0;
}

int configGet(CommandContext& context, const std::string& name, bool json) {
    ConfigKeys::Lookup lookup = ConfigKeys::find(name);
    if (lookup.key == nullptr) {
        context.err << fmt::format("quorvane: {}\n", lookup.error);
        return 1;
    }
    std::optional<AppConfig> config = readConfig(context);
    if (!config) return 1;
    Json value = ConfigKeys::valueOf(*config, *lookup.key);
    context.out << (json ? value.dump() : ConfigKeys::display(value)) << "\n";
    return 0;
}

int configSet(CommandContext& context, const std::string& name, const std::string& text) {
    ConfigKeys::Parsed parsed = ConfigKeys::parse(name, text);
    if (!parsed.error.empty()) {
        context.err << fmt::format("quorvane: {}\n", parsed.error);
        return 1;
    }
    const ConfigKeys::Key& key = *parsed.key;
    // Checked before the data folder is taken, so a refusal holds up no one.
    if (!readConfig(context)) {
        context.err << "quorvane: nothing was changed\n";
        return 1;
    }
    std::optional<WriterAccess> access = WriterAccess::open(context);
    if (!access) return 1;
    AppEnvironment& env = access->env();
    // What the running configuration holds may be older than a hand edit.
    env.adoptConfigEdits();
    Json before = ConfigKeys::valueOf(env.config(), key);
    if (before == parsed.value) {
        context.out << fmt::format("{}: {} (unchanged)\n", key.name, ConfigKeys::display(before));
        return 0;
    }
    bool saved = env.applyConfigChange([&](AppConfig& config) {
        before = ConfigKeys::valueOf(config, key);
        ConfigKeys::apply(config, key, parsed.value);
    });
    if (!saved) {
        context.err << fmt::format("quorvane: the change to {} was not saved: {}\n", key.name,
                                   env.saveProblem());
        return 1;
    }
    context.out << fmt::format("{}: {} → {}\n", key.name, ConfigKeys::display(before),
                               ConfigKeys::display(parsed.value));
    return 0;
}

// Adds entries to a list setting (`identities`, `agent.allowedRoots`), or takes them
// from it; an entry already there is not added twice, and one that is not there is
// said on stderr and makes the exit 1. An allowed root is kept as the agent's checks
// read it, so that any spelling of a folder names the same root.
int configChangeList(CommandContext& context, const std::string& name,
                     const std::vector<std::string>& texts, ListChange change) {
    std::vector<std::string> entries;
    const ConfigKeys::Key* key = nullptr;
    for (const std::string& text : texts) {
        ConfigKeys::Parsed parsed = ConfigKeys::parseEntry(name, text);
        std::string entry = parsed.error.empty() ? parsed.value.get<std::string>() : "";
        if (parsed.error.empty() && parsed.key->name == kAllowedRoots) {
            // A folder gone from the disk can still be taken off the list.
            entry = allowedRootOf(context, entry, change == ListChange::add, parsed.error);
        }
        if (!parsed.error.empty()) {
            context.err << fmt::format("quorvane: {}\n", parsed.error);
            return 1;
        }
        key = parsed.key;
        entries.push_back(std::move(entry));
    }
    if (key == nullptr) return 1;
    if (!readConfig(context)) {
        context.err << "quorvane: nothing was changed\n";
        return 1;
    }
    const bool roots = key->name == kAllowedRoots;
    // An address is the same whatever its case; a name is as written. A root kept
    // by hand in another spelling is the same folder when it resolves to it.
    auto same = [roots](const std::string& kept, const std::string& entry) {
        if (roots) return kept == entry || AgentService::canonical(kept) == entry;
        bool address = kept.find('@') != std::string::npos;
        return address ? Text::asciiLower(kept) == Text::asciiLower(entry) : kept == entry;
    };
    std::optional<WriterAccess> access = WriterAccess::open(context);
    if (!access) return 1;
    AppEnvironment& env = access->env();
    env.adoptConfigEdits();
    Json before, after;
    std::vector<std::string> missing;
    bool saved = env.applyConfigChange([&](AppConfig& config) {
        before = ConfigKeys::valueOf(config, *key);
        std::vector<std::string> list = before.get<std::vector<std::string>>();
        missing.clear();
        for (const std::string& entry : entries) {
            auto found = std::find_if(list.begin(), list.end(),
                                      [&](const std::string& kept) { return same(kept, entry); });
            if (change == ListChange::add) {
                if (found == list.end()) list.push_back(entry);
            } else if (found != list.end()) {
                list.erase(found);
            } else {
                missing.push_back(entry);
            }
        }
        after = Json(list);
        ConfigKeys::apply(config, *key, after);
    });
    if (!saved) {
        context.err << fmt::format("quorvane: the change to {} was not saved: {}\n", key->name,
                                   env.saveProblem());
        return 1;
    }
    for (const std::string& entry : missing) {
        context.err << fmt::format("quorvane: {} holds no {}\n", key->name, Text::visible(entry));
    }
    if (before == after) {
        context.out << fmt::format("{}: {} (unchanged)\n", key->name, ConfigKeys::display(after));
        return missing.empty() ? 0 : 1;
    }
    context.out << fmt::format("{}: {} → {}\n", key->name, ConfigKeys::display(before),
                               ConfigKeys::display(after));
    return missing.empty() ? 0 : 1;
}

// Keeps the secret `name` ("ai": the Anthropic API key) in the secret store: the
// first line of standard input, asked for without echo on a terminal. With
// `remove`, deletes it instead.
int configSetSecret(CommandContext& context, const std::string& name, bool remove) {
    if (name != "ai") {
        context.err << fmt::format("quorvane: there is no secret called {}; the one kept is ai\n",
                                   name);
        return 2;
    }
    // Read before the data folder is taken: a person typing at the prompt must not
    // hold up the daemon or another command.
    std::string key;
    if (!remove) {
        std::string problem;
        std::optional<std::string> read = readAIKey(context, problem);
        if (!read) {
            context.err << fmt::format("quorvane: {}; nothing was stored\n", problem);
            return 1;
        }
        key = std::move(*read);
    }
    std::optional<WriterAccess> access = WriterAccess::open(context);
    if (!access) return 1;
    AppEnvironment& env = access->env();
    env.adoptConfigEdits();
    const AIPrefs& prefs = env.config().ai;
    if (remove) {
        env.removeAIKey();
        context.out << fmt::format("Removed the API key stored as {} from {}.\n", prefs.keychainRef,
                                   env.secretStoreDescription());
        return 0;
    }
    if (!env.setAIKey(key)) {
        context.err << fmt::format("quorvane: the API key was not stored: {}\n", env.saveProblem());
        return 1;
    }
    context.out << fmt::format("Stored the API key as {} in {}.\n", prefs.keychainRef,
                               env.secretStoreDescription());
    if (prefs.provider != AIPrefs::Provider::anthropic) {
        context.out << "AI summaries use it once Anthropic writes them: quorvane config set "
                       "ai.provider anthropic\n";
    }
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareConfigCommands(CommandTable& table) {
    CLI::App* config = table.group(
        "config",
        "Read and change the settings in config.json by name\n"
        "Each setting has a dotted name, such as sync.interval for \"interval\" inside\n"
        "\"sync\". 'set' checks the value before anything is written and prints what\n"
        "changed; an edit you made to config.json by hand is kept, the change is made on\n"
        "top of it. When the daemon makes the change, it follows it at once: a new scan\n"
        "or sync interval, review time or set of watched folders needs no restart. Lists\n"
        "keep their own commands: 'folders' for scanFolders, 'repos' for repositories\n"
        "and ignoredRepoIDs, 'accounts' for accounts, 'config add' and 'config remove'\n"
        "for identities and agent.allowedRoots.");
    auto& key = table.keep<std::string>();
    auto& value = table.keep<std::string>();
    auto& json = table.keep<bool>();
    table
        .add(config, "list",
             "Show every setting, its value and what it takes\n"
             "One setting a line, as 'KEY = VALUE', followed by what it does and the values it\n"
             "takes. With --json, one object of dotted keys and their values.",
             {DataUse::reads, [&](CommandContext& c) { return Commands::configList(c, json); }})
        ->add_flag("--json", json, "Print {\"KEY\": value, ...} as JSON");
    CLI::App* get = table.add(
        config, "get",
        "Print the value of one setting\n"
        "As 'set' takes it: true, 10, m30, 21:30; none for no value, \"\" for empty text.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::configGet(c, key, json); }});
    get->add_option("KEY", key, "A dotted key, such as sync.interval")->required();
    get->add_flag("--json", json, "Print the value as JSON");
    CLI::App* set = table.add(
        config, "set",
        "Change one setting, after checking the value\n"
        "A value is a whole number within the key's range, true or false, a name spelled\n"
        "as config.json keeps it (m30, dark, applySettings), a time of day as HH:MM, or\n"
        "none to clear an optional number. A refused value changes nothing and exits 1.\n"
        "Prints the change, as 'scanIntervalMinutes: 10 → 5', or says it was unchanged.",
        {DataUse::writes, [&](CommandContext& c) { return Commands::configSet(c, key, value); }});
    set->add_option("KEY", key, "A dotted key, such as sync.interval")->required();
    set->add_option("VALUE", value, "The new value")->required();
    auto& entries = table.keep<std::vector<std::string>>();
    auto listCommand = [&](const char* name, const char* what, Commands::ListChange change) {
        CLI::App* command = table.add(
            config, name, what, {DataUse::writes, [&, change](CommandContext& c) {
                                     return Commands::configChangeList(c, key, entries, change);
                                 }});
        command->add_option("KEY", key, "A list key: identities or agent.allowedRoots")->required();
        command->add_option("VALUE", entries, "One entry or more")->required();
    };
    listCommand("add",
                "Add entries to a list setting\n"
                "identities: your e-mail addresses and author names besides the user.email your\n"
                "repositories give, so your commits count as yours wherever you made them:\n"
                "  quorvane config add identities me@home.example \"Ann Example\"\n"
                "agent.allowedRoots: the folders a coding agent may look into, and everything\n"
                "below them; a path outside all of them is refused to the agent:\n"
                "  quorvane config add agent.allowedRoots ~/code ../notes\n"
                "A folder is kept as the agent reads it: ~ expanded, relative to where you\n"
                "typed it, and with its links resolved.\n"
                "An entry already there is not added again; an address matches in any case.",
                Commands::ListChange::add);
    listCommand("remove",
                "Take entries from a list setting\n"
                "A folder of agent.allowedRoots is named in any spelling that leads to it. An\n"
                "entry that is not there is said on standard error, and the exit status is 1.",
                Commands::ListChange::remove);
    auto& name = table.keep<std::string>();
    auto& remove = table.keep<bool>();
    CLI::App* setSecret = table.add(
        config, "set-secret",
        "Keep a secret in the secret store, read from standard input\n"
        "'ai' is the Anthropic API key that AI summaries use (ai.provider anthropic). On\n"
        "a terminal you are asked for it and it is not shown; otherwise the first line\n"
        "of standard input is taken, as in\n"
        "  secret-tool lookup ... | quorvane config set-secret ai\n"
        "It is never taken from the command line, where other users and your shell's\n"
        "history could read it. It goes to the desktop's Secret Service, or to\n"
        "secrets.json (mode 0600) in the data folder when none answers, under the name\n"
        "in ai.keychainRef; config.json never holds it.",
        {DataUse::writes,
         [&](CommandContext& c) { return Commands::configSetSecret(c, name, remove); },
         // The key is read from the person's terminal and sent with the command.
         [&](CommandContext& c, ControlProtocol::Request& request) {
             return remove || sendSecret(c, request, Commands::readAIKey);
         }});
    setSecret->add_option("NAME", name, "ai: the Anthropic API key")
        ->required()
        ->check(CLI::IsMember({"ai"}));
    setSecret->add_flag("--remove", remove, "Delete the stored secret instead");
    // After the commands are made, so that list and get do not inherit it.
    const std::string footer = Commands::configKeysHelp() + R"(
Examples:
  quorvane config list                       every setting, value and meaning
  quorvane config get sync.interval          one value, such as m30
  quorvane config set scanIntervalMinutes 5  scan every 5 minutes
  quorvane config set dailyReviewTime 18:45  the end-of-day reminder at 18:45
  quorvane config set sync.interval manual   sync only on 'quorvane sync'
  quorvane config set agent.autoApproveConfidenceThreshold none)";
    config->footer(footer);
    set->footer(footer);
}

}  // namespace quorvane
