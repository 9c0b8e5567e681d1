// The settings of config.json, read and changed by name.
#include <algorithm>
#include <ostream>

#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "persistence/ConfigKeys.hpp"

namespace quorvane::Commands {

namespace {

constexpr size_t kHelpWidth = 80;

// The group a key belongs to: "sync" for "sync.interval", "" for a top-level key.
std::string_view groupOf(const std::string& name) {
    size_t dot = name.find('.');
    return dot == std::string::npos ? std::string_view() : std::string_view(name).substr(0, dot);
}

}  // namespace

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

int configChangeList(CommandContext& context, const std::string& name,
                     const std::vector<std::string>& texts, ListChange change) {
    std::vector<std::string> entries;
    const ConfigKeys::Key* key = nullptr;
    for (const std::string& text : texts) {
        ConfigKeys::Parsed parsed = ConfigKeys::parseEntry(name, text);
        if (!parsed.error.empty()) {
            context.err << fmt::format("quorvane: {}\n", parsed.error);
            return 1;
        }
        key = parsed.key;
        entries.push_back(parsed.value.get<std::string>());
    }
    if (key == nullptr) return 1;
    if (!readConfig(context)) {
        context.err << "quorvane: nothing was changed\n";
        return 1;
    }
    // An address is the same whatever its case; a name is as written.
    auto same = [](const std::string& a, const std::string& b) {
        bool address = a.find('@') != std::string::npos;
        return address ? Text::asciiLower(a) == Text::asciiLower(b) : a == b;
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
